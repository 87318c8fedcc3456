// FSI_IndexFiles: where the two files of an index stand, who may write them, and whether they may be trusted.
//
// Beside the census, or, where that cannot be written, in a cache folder of the census's real path. While an
// object is entered it holds the note's flock, so no other process or thread reads or writes this index.
//
//   FSI_IndexFiles files(name, 'F', "~V10~D1", 16, stamp);
//   while (files.enter())
//       if (files.isWhole()) ...open files.data()...
//       else if (files.begin()) { ...write files.fresh()...; files.commit(); }
//
// The order that makes an index whole: the note is emptied, the data written under another name, brought to
// the disk and renamed, and the note written last. One thread.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/pf_descriptor.h"
#include "runtime/streams/epa_fileerror.h"
#include "store/smf_file.h"

class FSI_IndexFiles {
  public:
    // `census` names the census, `kind` is one of U, F, P, `key` the options with their "~", in any case;
    // `version` that of the index's form, `stamp` the census's.
    FSI_IndexFiles(const EPA_FileName& census, char kind, std::string_view key, int version,
                   const SMF_FileStamp& stamp);

    // "~V" with the program's version, and "~" with an item of a text list, in which "/" and "%" are encoded.
    static std::string versionKey();
    static std::string itemKey(std::string_view item);

    // The note's name as it would stand beside the census; threads exclude each other by it.
    const std::string& lockName() const noexcept { return lockName_; }

    // Takes the first, then the next place, with its lock; false when there is none left. Places that cannot
    // be used are passed over. Waits for whoever has the lock; SystemExit when the server stops.
    bool enter();
    // The note is that of this census, this version and these options, and its data is there in full length.
    bool isWhole();
    // Empties the note and makes sure that the fresh file can be made; false where this place is read-only.
    // IOError for other failures, such as a full disk.
    bool begin();
    // Raises the IOError that kept begin() and enter() from the place beside the census.
    [[noreturn]] void refuse() const;
    // The data that is read, and the one that is written.
    const EPA_FileName& data() const noexcept { return data_; }
    const EPA_FileName& fresh() const noexcept { return fresh_; }
    // Makes what was written the index.
    void commit();
    // Removes what was written.
    void abandon() noexcept;
    // Gives the lock back, keeping the names.
    void leave() noexcept { lock_.reset(); }
    // Empties the note, so that the next opening builds; nothing while somebody else has the lock.
    void drop() noexcept;

  private:
    struct Place {
        std::string folder;  // with a trailing "/", or empty
        std::string file;    // the census's name there
        bool shared = true;  // beside the census, not in a cache
    };
    bool openNote(int flags);
    bool waitForLock();
    bool isStillNamed() const;
    std::string noteText() const;

    std::string key_, foldedKey_, lockName_;
    std::string real_;  // the census's path without links; empty when unknown
    char kind_;
    int version_;
    SMF_FileStamp stamp_;
    std::vector<Place> places_;
    size_t next_ = 0;
    EPA_FileName note_, data_, fresh_;
    platform::Descriptor lock_;
    bool writable_ = false;
    int refused_ = 0;  // the first errno that kept from a place
};
