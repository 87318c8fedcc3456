// Directories and their buffers.
#include "scan_folder.h"

#include <algorithm>
#include <cstring>

#include "scan_listing.h"

namespace quillscan {

Folder::Folder(Folder* parent, std::string_view name, FolderKind kind)
    : parent(parent), name(name), kind(kind) {}
Folder::~Folder() = default;

void NameList::add(std::string_view name) {
    starts_.push_back(text_.size());
    text_.append(name).push_back('\0');
}

void NameList::sort() {
    std::sort(starts_.begin(), starts_.end(),
              [this](size_t a, size_t b) { return std::strcmp(text_.data() + a, text_.data() + b) < 0; });
}

void NameList::release() noexcept {
    text_ = {};
    starts_ = {};
}

std::string pathOf(const Folder& folder) {
    if (!folder.parent) return "/";
    std::vector<const Folder*> branch;
    for (const Folder* f = &folder; f->parent; f = f->parent) branch.push_back(f);
    std::string path;
    for (auto f = branch.rbegin(); f != branch.rend(); ++f) path.append(1, '/').append((*f)->name);
    return path;
}

std::string pathOf(const Folder& folder, std::string_view name) {
    std::string path = pathOf(folder);
    if (path.back() != '/') path += '/';
    return path.append(name);
}

}  // namespace quillscan
