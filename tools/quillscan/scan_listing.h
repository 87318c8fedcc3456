// Listing: reads one directory, chunk by chunk.
//
// Names are taken in batches and ordered by bytes within a batch, so that the rows of all but very large
// directories do not depend on the file system's order, and memory not on the size of a directory. Between
// two chunks a listing may wait, and another thread may go on with it. One thread at a time.
#pragma once

#include <string>
#include <vector>

#include "scan_openfolders.h"
#include "scan_rules.h"

namespace quillscan {

class Listing {
  public:
    static constexpr size_t BatchNames = 16384;   // names that are ordered together
    static constexpr size_t ChunkEntries = 1024;  // rows that are handed on together

    Listing(const Rules& rules, OpenFolders& opened);

    // Opens the directory and tells its status, or why there is none. False: there is nothing to list.
    bool open(Folder& folder);
    // The next stretch, into an empty chunk; false when it was the last, with the children's names in order
    // and the directory kept open for them.
    bool next(Folder& folder, Chunk& chunk);

  private:
    struct Name {
        uint64_t prefix;  // the first bytes, for comparisons
        uint32_t start;
        uint16_t size;
    };

    void fail(Folder& folder, int parent, const char* call, int error);
    bool staysHere(const Folder& folder) const;
    bool mayOpen(Folder& folder, int parent);
    void noteLoop(Folder& folder);
    void fillBatch(Folder& folder, Chunk& chunk);
    bool takeBlock(Folder& folder, Chunk& chunk);
    void stat(Folder& folder, const Name& name, Chunk& chunk);
    const char* text(const Name& name) const noexcept { return names_.data() + name.start; }

    const Rules& rules_;
    OpenFolders& opened_;
    Handle handle_;
    std::vector<char> block_;  // of getdents
    size_t blockAt_ = 0, blockEnd_ = 0;
    bool isLast_ = false;  // the block's last entry was the directory's
    bool atEnd_ = false;
    bool isHandedOn_ = false;  // the first chunk is out: the folder's error may not change any more
    std::string names_;
    std::vector<Name> batch_;
    size_t batchAt_ = 0;
    std::vector<char> target_;
};

}  // namespace quillscan
