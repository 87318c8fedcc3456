// Census: the tables of a census under construction.
//
// Every call appends rows. One thread. Failures of the file raise (smf_writer.h); after one the census is
// lost.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "scan_entities.h"
#include "scan_folder.h"
#include "store/smf_rowbuffer.h"

namespace quillscan {

// What a scanned root sums up to.
struct RootRow {
    int32_t number = 0;
    std::string path, name, host, fileSystem;
    uint64_t device = 0;
    int64_t started = 0, finished = 0;
    int64_t folders = 0, files = 0, unreadable = 0, size = 0, space = 0;
};

class Census {
  public:
    // `writer` is open and outlives the census.
    explicit Census(SMF_Writer& writer);
    Census(const Census&) = delete;
    Census& operator=(const Census&) = delete;

    // The row of a directory and of its permission entries; its number.
    int32_t folder(int32_t parent, std::string_view name, const Status& status, int error,
                   const std::vector<Right>& rights);
    // The row of anything else in directory `folder`. True when it counts, false for a further link.
    bool file(int32_t folder, const Chunk& chunk, const Entry& entry);
    void root(const RootRow& row);
    void problem(int32_t folder, std::string_view name, const char* call, int error);
    // Behind the last row, before the writer closes.
    void finish();

  private:
    // The columns that files and directories share.
    struct Common {
        SMF_I32Column owner, group, mode, links;
        SMF_I64Column device, inode;
        SMF_SecondsColumn created, modified, accessed, changed;
        SMF_FlagColumn attributes;
        void connect(SMF_RowBuffer& rows);
    };
    void createPath(SMF_Writer& writer);
    void createFile(SMF_Writer& writer);
    void createOthers(SMF_Writer& writer);
    void setCommon(Common& columns, const Status& status);
    void entity(const EntityRow& row);
    bool isFirstLink(const Status& status);

    struct LinkKey {
        uint64_t device, inode;
        bool operator==(const LinkKey&) const = default;
    };
    struct LinkHash {
        size_t operator()(const LinkKey& key) const noexcept {
            return (key.inode * 0x9E3779B97F4A7C15u) ^ (key.device * 0xC2B2AE3D27D4EB4Fu);
        }
    };

    Entities entities_;
    std::unordered_map<LinkKey, uint32_t, LinkHash> links_;  // met, with the number of links still to come
    int32_t folders_ = 0;

    SMF_WriterTable paths_, files_, rights_, entityTable_, roots_, problems_;
    SMF_RowBuffer pathRows_, fileRows_, rightRows_, entityRows_, rootRows_, problemRows_;
    Common pathCommon_, fileCommon_;
    SMF_I32Column number_, parent_, error_;
    SMF_TextColumn name_;
    SMF_I64Column ownSize_, ownSpace_;
    SMF_I32Column pathNumber_, counted_;
    SMF_TextColumn fileName_, type_, target_;
    SMF_I64Column size_, space_, linkSize_, linkSpace_;
    SMF_I32Column rightPath_, rightEntity_, rightBits_;
    SMF_TextColumn rightType_, rightText_;
    SMF_I32Column entityNumber_;
    SMF_TextColumn entityType_, entityName_, entityFullName_;
    SMF_I64Column entityId_;
    SMF_I32Column rootNumber_;
    SMF_TextColumn rootPath_, rootName_, rootHost_, rootFileSystem_;
    SMF_I64Column rootDevice_, rootFolders_, rootFiles_, rootUnreadable_, rootSize_, rootSpace_;
    SMF_SecondsColumn rootStarted_, rootFinished_;
    SMF_I32Column problemPath_, problemError_;
    SMF_TextColumn problemName_, problemCall_, problemMessage_;
};

}  // namespace quillscan
