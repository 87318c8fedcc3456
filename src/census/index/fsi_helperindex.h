// FSI_HelperIndex: the base of the three indexes that are computed once for a census and kept beside it.
//
// An index is a pair of files named after the census, a note and a store: F":~FS"K".TXT" and F":~FD"K".SMF",
// with a letter for the kind and a key of the options that shaped it. The note is written last; an index
// whose note is empty, foreign, of another version, or of a census of another size or time is built anew. One
// thread and one process builds, others wait and then open. Beside a census whose folder cannot be written
// the files stand in a cache folder (FSI_IndexFiles). docs/architecture.md tells the order of locks.
//
// Damage that shows later, while an index is read, raises DatabaseError Corruption with the index's file, and
// empties the note, so that the next opening builds it anew.
//
// Belongs to the reader's thread. A stop of the server ends building and waiting with SystemExit.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "census/fsi_reader.h"
#include "census/index/fsi_indexfiles.h"
#include "census/index/fsi_progress.h"
#include "store/smf_error.h"
#include "store/smf_reader.h"
#include "store/smf_writer.h"

class FSI_HelperIndex {
  public:
    struct Kind {
        char letter;             // U, F, P
        int version;             // of the index's form
        const char *key, *text;  // of the progress message
        const char* table;       // one that every index of the kind has
    };

    virtual ~FSI_HelperIndex();
    FSI_HelperIndex(const FSI_HelperIndex&) = delete;
    FSI_HelperIndex& operator=(const FSI_HelperIndex&) = delete;

    // The open index.
    SMF_Reader& store() noexcept { return store_; }
    FSI_Reader& census() const noexcept { return census_; }
    // True when this object's opening built the index.
    bool wasBuilt() const noexcept { return built_; }

  protected:
    FSI_HelperIndex(FSI_Reader& census, const Kind& kind);
    // Opens or builds. `options` is the key without its "~V" part, such as "~H1"; `reusable` is false for an
    // index that holds only for this run.
    void openIndex(std::string_view options, bool reusable = true);
    // Writes the tables. The progress has started with a total of 0; start() again with the real one.
    virtual void build(SMF_Writer& writer, FSI_Progress& progress) = 0;
    const Kind& kind() const noexcept { return kind_; }

    // Runs `read`, which reads the open index, and gives its result; see above for damage.
    template <class Read>
    decltype(auto) guarded(Read&& read) {
        try {
            if constexpr (std::is_void_v<decltype(read())>) {
                read();
                checkDamage();
            } else {
                decltype(auto) result = read();
                checkDamage();
                return result;
            }
        } catch (...) {
            readFailed();
        }
    }

  private:
    void checkDamage() {
        if (file_ && file_->file->damage().count > 0) [[unlikely]]
            failDamaged();
    }
    [[noreturn]] void failDamaged();
    [[noreturn]] void readFailed();  // in a handler: rethrows, or tells that the index is damaged
    bool openStore();
    void buildFresh(FSI_Progress& progress);

    FSI_Reader& census_;
    const Kind& kind_;
    SMF_Reader store_;
    std::shared_ptr<SMF_StoreFile> file_;  // of store_, even when that is closed; null until it is open
    std::unique_ptr<FSI_IndexFiles> files_;
    bool built_ = false;
};

// Levels whose names `hide_paths` leaves in clear. The items of `base` count, the root does not.
inline constexpr int32_t FSI_ClearLevels = 4;

// Row n of the table Path is path n; else DatabaseError Corruption.
void FSI_RequirePathRow(const FSI_Reader& census, int64_t number, int64_t row);
