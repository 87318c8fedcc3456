// Directories and their buffers.
#include "scan_folder.h"

#include <sys/sysmacros.h>

#include <algorithm>
#include <cstring>

#include "scan_listing.h"

namespace quillscan {

Status::Status(const struct statx& from)
    : device(makedev(from.stx_dev_major, from.stx_dev_minor)),
      inode(from.stx_ino),
      attributes(from.stx_attributes & from.stx_attributes_mask),
      size(static_cast<int64_t>(from.stx_size)),
      space(static_cast<int64_t>(from.stx_blocks) * 512),
      created(from.stx_mask & STATX_BTIME ? from.stx_btime.tv_sec : 0),
      modified(from.stx_mtime.tv_sec),
      accessed(from.stx_atime.tv_sec),
      changed(from.stx_ctime.tv_sec),
      mode(from.stx_mode),
      links(from.stx_nlink),
      user(from.stx_uid),
      group(from.stx_gid) {}

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
