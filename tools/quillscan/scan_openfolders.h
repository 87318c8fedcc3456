// OpenFolders: the descriptors of directories whose children are still to be opened, at most a fixed number.
//
// Those used longest ago are closed first and opened anew when they are needed, from the nearest open
// directory above, name by name without following links; what stands there then must be the same directory.
// Any thread may call; one lock, which is never held during a system call that may wait.
#pragma once

#include "runtime/epa_lock.h"
#include "scan_folder.h"

namespace quillscan {

class OpenFolders {
  public:
    // As many as the process's limit leaves room for.
    OpenFolders();
    OpenFolders(const OpenFolders&) = delete;
    OpenFolders& operator=(const OpenFolders&) = delete;

    // The directory, for the *at calls; null with errno set. ESTALE: another directory has its place now.
    Handle open(Folder& folder);
    // Keeps a directory open for its children.
    void keep(Folder& folder, Handle handle);
    // Nobody opens children any more.
    void drop(Folder& folder);
    // openat without O_NOFOLLOW's gaps: when the process has no descriptor left, kept ones are closed first.
    int openAt(int parent, const char* name, int flags);

  private:
    Handle find(Folder& folder);
    void link(Folder& folder) EPA_REQUIRES(lock_);
    void unlink(Folder& folder) EPA_REQUIRES(lock_);
    bool closeOldest();

    const size_t limit_;
    EPA_Lock lock_;
    size_t count_ EPA_GUARDED_BY(lock_) = 0;
    Folder* newest_ EPA_GUARDED_BY(lock_) = nullptr;
    Folder* oldest_ EPA_GUARDED_BY(lock_) = nullptr;
};

}  // namespace quillscan
