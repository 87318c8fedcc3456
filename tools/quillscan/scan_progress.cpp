// The progress line.
#include "scan_progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace quillscan {

namespace {

constexpr auto Interval = std::chrono::milliseconds(200);
constexpr char Wipe[] = "\r\033[K";
volatile bool isDrawn = false;

size_t columns() {
    struct winsize size {};
    bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : 80;
}

// Bytes of the UTF-8 character at the front; 0 when there is none.
size_t characterSize(std::string_view text) {
    auto lead = static_cast<unsigned char>(text[0]);
    size_t size = lead < 0x80                   ? 1
                  : lead >= 0xC2 && lead < 0xE0 ? 2
                  : lead >= 0xE0 && lead < 0xF0 ? 3
                  : lead >= 0xF0 && lead < 0xF5 ? 4
                                                : 0;
    if (size == 0 || size > text.size()) return 0;
    for (size_t i = 1; i < size; ++i)
        if ((text[i] & 0xC0) != 0x80) return 0;
    return size;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        size_t size = characterSize(text);
        auto lead = static_cast<unsigned char>(text[0]);
        // C1 controls are two bytes, the first of them C2.
        bool isControl = lead < 0x20 || lead == 0x7F ||
                         (lead == 0xC2 && size == 2 && static_cast<unsigned char>(text[1]) < 0xA0);
        if (size == 0 || isControl)
            out += '?';
        else
            out.append(text.substr(0, size));
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return out;
}

std::string grouped(int64_t number) {
    std::string text = std::to_string(number);
    for (auto at = static_cast<int64_t>(text.size()) - 3; at > (number < 0 ? 1 : 0); at -= 3)
        text.insert(static_cast<size_t>(at), 1, ',');
    return text;
}

Progress::Progress() : isTerminal_(::isatty(STDERR_FILENO) == 1) {}

double Progress::seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }

void Progress::draw(int64_t entries, const Folder& folder) {
    Clock::time_point now = Clock::now();
    if (now - drawn_ < Interval) return;
    drawn_ = now;
    std::string line = grouped(entries) + " entries, " +
                       grouped(static_cast<int64_t>(static_cast<double>(entries) / seconds())) + "/s  ";
    std::string path = printable(pathOf(folder));
    size_t room = columns();
    room = room > line.size() + 1 ? room - line.size() - 1 : 0;
    // Characters, taken for one column each; the end of a long path tells most.
    auto isStart = [](char c) { return (c & 0xC0) != 0x80; };
    auto width = static_cast<size_t>(std::count_if(path.begin(), path.end(), isStart));
    size_t cut = 0;
    for (; width > room && cut < path.size(); --width) do
            ++cut;
        while (cut < path.size() && !isStart(path[cut]));
    line += path.substr(cut);
    isDrawn = true;
    std::fprintf(stderr, "%s%s", Wipe, line.c_str());
    std::fflush(stderr);
}

void Progress::wipe() noexcept {
    if (isDrawn && ::write(STDERR_FILENO, Wipe, sizeof Wipe - 1) > 0) isDrawn = false;
}

void Progress::clear() { wipe(); }

}  // namespace quillscan
