// FSI_HelperIndex: the base of the three indexes that are computed once for a census and kept beside it.
//
// An index is a pair of files named after the census, a note and a store: F":~FS"K".TXT" and F":~FD"K".SMF",
// with a letter for the kind and a key of the options that shaped it. The note is written last; an index
// whose note is empty, foreign, of another version, or of a census of another size or time is built anew. One
// thread and one process builds, others wait and then open. Beside a census whose folder cannot be written
// the files stand in a cache folder (FSI_IndexFiles). docs/architecture.md tells the order of locks.
//
// Belongs to the reader's thread. A stop of the server ends building and waiting with SystemExit.
#pragma once

#include <string>
#include <string_view>

#include "census/fsi_reader.h"
#include "census/index/fsi_progress.h"
#include "store/smf_reader.h"
#include "store/smf_writer.h"

class FSI_HelperIndex {
  public:
    virtual ~FSI_HelperIndex();
    FSI_HelperIndex(const FSI_HelperIndex&) = delete;
    FSI_HelperIndex& operator=(const FSI_HelperIndex&) = delete;

    // The open index.
    SMF_Reader& store() noexcept { return store_; }
    FSI_Reader& census() const noexcept { return census_; }
    // True when this object's opening built the index.
    bool wasBuilt() const noexcept { return built_; }

  protected:
    struct Kind {
        char letter;             // U, F, P
        int version;             // of the index's form
        const char *key, *text;  // of the progress message
    };
    FSI_HelperIndex(FSI_Reader& census, const Kind& kind);
    // Opens or builds. `options` is the key without its "~V" part, such as "~H1"; `reusable` is false for an
    // index that holds only for this run.
    void openIndex(std::string_view options, bool reusable = true);
    virtual void build(SMF_Writer& writer, FSI_Progress& progress) = 0;

  private:
    FSI_Reader& census_;
    const Kind& kind_;
    SMF_Reader store_;
    bool built_ = false;
};
