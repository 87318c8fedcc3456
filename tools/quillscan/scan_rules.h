// What is scanned and what is left out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scan_folder.h"

namespace quillscan {

// Shell patterns. One without "/" is matched against names, another against whole paths, where "*" and "?"
// take a
// "/" too. Read-only once made; any thread may match.
class Patterns {
  public:
    void add(std::string_view pattern);
    // One pattern a line; empty lines and those that begin with "#" are skipped. IOError.
    void addFile(const std::string& file);
    bool isEmpty() const noexcept { return names_.empty() && paths_.empty(); }
    bool matches(const Folder& folder, const char* name) const;

  private:
    struct Pattern {
        std::string text;
        bool isPlain;  // without special characters
        bool matches(const char* subject) const;
    };
    std::vector<Pattern> names_, paths_;
};

// Fixed before the walk.
struct Rules {
    Patterns excluded;
    bool oneFileSystem = false;
    // Opening a directory may mount something: with oneFileSystem its status is asked by name first.
    bool mayMount = true;
    // Named roots inside other roots: entered on whatever file system they are.
    std::vector<std::pair<uint64_t, uint64_t>> entered;
    // The output: names skipped in one directory.
    Status outputFolder;
    std::vector<std::string> outputNames;

    bool isEntered(const Status& status) const noexcept;
    bool isOutput(const Folder& folder, const char* name) const noexcept;
};

}  // namespace quillscan
