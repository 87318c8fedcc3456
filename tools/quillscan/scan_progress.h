// Progress: one line on a terminal that tells how far a scan is.
#pragma once

#include <chrono>
#include <cstdint>

#include "scan_folder.h"

namespace quillscan {

class Progress {
  public:
    // Quiet unless standard error is a terminal.
    Progress();
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    bool isShown() const noexcept { return isTerminal_; }
    // Redraws at most five times a second. Cheap when there is nothing to do.
    void tell(int64_t entries, const Folder& folder) {
        if (isTerminal_ && ++calls_ % 16 == 0) draw(entries, folder);
    }
    void clear();
    // Clears the line; safe in a signal handler.
    static void wipe() noexcept;
    double seconds() const;

  private:
    using Clock = std::chrono::steady_clock;
    void draw(int64_t entries, const Folder& folder);

    bool isTerminal_;
    unsigned calls_ = 0;
    Clock::time_point begin_ = Clock::now(), drawn_ = begin_;
};

// Text for one line of a terminal: control characters and bytes that are not UTF-8 as "?".
std::string printable(std::string_view text);
// 1,234,567.
std::string grouped(int64_t number);

}  // namespace quillscan
