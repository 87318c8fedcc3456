#pragma once

// Reading of folders, entry by entry. Nothing is collected, so a folder of millions of names costs one
// buffer.

#include <dirent.h>

#include <functional>
#include <memory>
#include <string>

#include "platform/pf_anchor.h"
#include "platform/pf_files.h"

namespace platform {

struct DirectoryEntry {
    std::string name;  // bytes as stored
    FileDetails details;
    std::string target;  // of a symbolic link, the stored path; only when wished
    int error = 0;  // not 0: details could not be read (the folder may be read but not searched). The file
                    // type in `details.mode` is right all the same where the file system tells it.
};

struct ListingWish {
    bool extended = true;  // attribute bits of the extended attribute
    bool targets = false;  // targets of symbolic links
};

// Walks one folder. One thread at a time.
class DirectoryReader {
  public:
    // 0 or the errno of opening: ENOENT, ENOTDIR, EACCES and the like.
    int open(const std::string& path, ListingWish wish = {});

    // Fetches the next entry, without "." and "..". False at the end, then `error` is 0, or after a failure.
    // An entry that vanishes between its name and its details is left out.
    bool next(DirectoryEntry& entry, int& error);

  private:
    struct Closer {
        void operator()(DIR* dir) const { ::closedir(dir); }
    };
    bool describe(const dirent& raw, DirectoryEntry& entry);

    std::unique_ptr<DIR, Closer> dir_;
    std::string plain_;
    uint64_t device_ = 0;
    bool extended_ = true;
    bool targets_ = false;
};

// The same with a callback. `visit` gives false to stop early. 0 or an errno.
int listDirectory(const std::string& path, ListingWish wish,
                  const std::function<bool(const DirectoryEntry&)>& visit);

}  // namespace platform
