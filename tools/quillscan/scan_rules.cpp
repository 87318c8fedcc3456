// Patterns and other reasons to leave something out.
#include "scan_rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "runtime/streams/epa_fileerror.h"

namespace quillscan {

bool Patterns::Pattern::matches(const char* subject) const {
    return isPlain ? text == subject : fnmatch(text.c_str(), subject, 0) == 0;
}

void Patterns::add(std::string_view pattern) {
    while (pattern.size() > 1 && pattern.ends_with('/')) pattern.remove_suffix(1);
    if (pattern.empty()) return;
    Pattern made{std::string(pattern), pattern.find_first_of("*?[\\") == std::string_view::npos};
    (made.text.find('/') == std::string::npos ? names_ : paths_).push_back(std::move(made));
}

void Patterns::addFile(const std::string& file) {
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    std::string line;
    while (std::getline(in, line))
        if (!line.starts_with('#')) add(line);
    if (!in.eof()) EPA_RaiseFileError(errno ? errno : EIO, file);
}

bool Patterns::matches(const Folder& folder, const char* name) const {
    auto by = [](const char* subject) {
        return [subject](const Pattern& pattern) { return pattern.matches(subject); };
    };
    if (std::any_of(names_.begin(), names_.end(), by(name))) return true;
    if (paths_.empty()) return false;
    std::string path = pathOf(folder, name);
    return std::any_of(paths_.begin(), paths_.end(), by(path.c_str()));
}

bool Rules::isEntered(const Status& status) const noexcept {
    return std::find(entered.begin(), entered.end(), std::pair(status.device, status.inode)) != entered.end();
}

bool Rules::isOutput(const Folder& folder, const char* name) const noexcept {
    return folder.status.isSame(outputFolder) &&
           std::find(outputNames.begin(), outputNames.end(), name) != outputNames.end();
}

}  // namespace quillscan
