// The tables of a census and the codecs of their columns.
//
// The letters of the codecs were chosen by the bytes that they leave behind zlib on a system tree. What
// repeats from row to row is kept as runs; what comes from a small set as a dictionary; the rest as numbers
// of variable length, whose equal neighbours the compression finds.
#include "scan_census.h"

#include <sys/acl.h>

#include <cerrno>
#include <limits>

#include "census_columns.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_stringtype.h"
#include "scan_rights.h"

namespace quillscan {

namespace {

// Sizes of blocks, and rows between restart points: a reader that goes to a row decodes at most so many
// before it.
constexpr uint32_t FileBlock = 0x10000, FileZero = 2000;
constexpr uint32_t PathBlock = 0x8000, PathZero = 500;
constexpr uint32_t SmallBlock = 0x4000, SmallZero = 1000;

constexpr uint64_t AttributeBits[] = {
    STATX_ATTR_COMPRESSED, STATX_ATTR_IMMUTABLE,  STATX_ATTR_APPEND, STATX_ATTR_NODUMP, STATX_ATTR_ENCRYPTED,
    STATX_ATTR_AUTOMOUNT,  STATX_ATTR_MOUNT_ROOT, STATX_ATTR_VERITY, STATX_ATTR_DAX,
};

SMF_FlagValue flagsOf(uint64_t attributes) {
    SMF_FlagValue value;
    if (attributes == 0) return value;
    int bit = 0;
    for (uint64_t mask : AttributeBits) {
        if (attributes & mask) value.set(bit);
        ++bit;
    }
    return value;
}

int32_t clamped(uint32_t value) {
    constexpr uint32_t Most = std::numeric_limits<int32_t>::max();
    return static_cast<int32_t>(std::min(value, Most));
}

std::string_view typeOf(uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG: return "f";
        case S_IFLNK: return "l";
        case S_IFIFO: return "p";
        case S_IFSOCK: return "s";
        case S_IFBLK: return "b";
        case S_IFCHR: return "c";
        default: return "U";
    }
}

}  // namespace

Census::Census(SMF_Writer& writer)
    : entities_([this](const EntityRow& row) { entity(row); }),
      paths_(writer.fileName()),
      files_(writer.fileName()),
      rights_(writer.fileName()),
      entityTable_(writer.fileName()),
      roots_(writer.fileName()),
      problems_(writer.fileName()),
      pathRows_(paths_),
      fileRows_(files_),
      rightRows_(rights_),
      entityRows_(entityTable_),
      rootRows_(roots_),
      problemRows_(problems_) {
    createPath(writer);
    createFile(writer);
    createOthers(writer);
}

void Census::Common::connect(SMF_RowBuffer& rows) {
    owner.connect(rows, column::Owner, "R");
    group.connect(rows, column::Group, "R");
    mode.connect(rows, column::Mode, "R");
    links.connect(rows, column::Links, "R");
    device.connect(rows, column::Device, "");
    inode.connect(rows, column::Inode, "");
    created.connect(rows, column::Created, "D");
    modified.connect(rows, column::Modified, "D");
    accessed.connect(rows, column::Accessed, "D");
    changed.connect(rows, column::Changed, "D");
    IPE_Object tags = IPE_NewDict();
    auto* entries = tags.as<IPE_DictType>();
    entries->setText("Format", IPE_String("D"));
    entries->setText("SN", IPE_String(column::AttributeNames));
    entries->setText("LN", IPE_String(column::AttributeTitles));
    attributes.connect(rows, column::Attributes, tags);
}

void Census::createPath(SMF_Writer& writer) {
    number_.connect(pathRows_, column::Number, "S");
    parent_.connect(pathRows_, column::Parent, "R");
    name_.connect(pathRows_, column::Name, "S");
    pathCommon_.connect(pathRows_);
    ownSize_.connect(pathRows_, column::OwnSize, "");
    ownSpace_.connect(pathRows_, column::OwnSpace, "");
    error_.connect(pathRows_, column::Error, "R");
    paths_.create(column::Path, writer, PathBlock, PathZero);
}

void Census::createFile(SMF_Writer& writer) {
    pathNumber_.connect(fileRows_, column::PathNumber, "R");
    fileName_.connect(fileRows_, column::Name, "F");
    type_.connect(fileRows_, column::Type, "D");
    size_.connect(fileRows_, column::Size, "");
    space_.connect(fileRows_, column::Space, "");
    linkSize_.connect(fileRows_, column::LinkSize, "");
    linkSpace_.connect(fileRows_, column::LinkSpace, "");
    counted_.connect(fileRows_, column::Counted, "R");
    fileCommon_.connect(fileRows_);
    target_.connect(fileRows_, column::Target, "S");
    files_.create(column::File, writer, FileBlock, FileZero);
}

void Census::createOthers(SMF_Writer& writer) {
    entityNumber_.connect(entityRows_, column::Number, "S");
    entityType_.connect(entityRows_, column::Type, "D");
    entityId_.connect(entityRows_, column::Id, "");
    entityName_.connect(entityRows_, column::Name, "S");
    entityFullName_.connect(entityRows_, column::FullName, "S");
    entityTable_.create(column::Entity, writer, SmallBlock, SmallZero);

    rightPath_.connect(rightRows_, column::Path, "R");
    rightEntity_.connect(rightRows_, column::Entity, "R");
    rightType_.connect(rightRows_, column::Type, "D");
    rightBits_.connect(rightRows_, column::Rights, "R");
    rightText_.connect(rightRows_, column::Text, "D");
    rights_.create(column::PathDacl, writer, PathBlock, PathZero);

    rootNumber_.connect(rootRows_, column::Number, "S");
    rootPath_.connect(rootRows_, column::Path, "S");
    rootName_.connect(rootRows_, column::Name, "S");
    rootHost_.connect(rootRows_, column::Host, "D");
    rootFileSystem_.connect(rootRows_, column::FileSystem, "D");
    rootDevice_.connect(rootRows_, column::Device, "");
    rootStarted_.connect(rootRows_, column::Started, "D");
    rootFinished_.connect(rootRows_, column::Finished, "D");
    rootFolders_.connect(rootRows_, column::Folders, "");
    rootFiles_.connect(rootRows_, column::Files, "");
    rootUnreadable_.connect(rootRows_, column::Unreadable, "");
    rootSize_.connect(rootRows_, column::Size, "");
    rootSpace_.connect(rootRows_, column::Space, "");
    roots_.create(column::Root, writer, SmallBlock, SmallZero);

    problemPath_.connect(problemRows_, column::Path, "R");
    problemName_.connect(problemRows_, column::Name, "S");
    problemCall_.connect(problemRows_, column::Call, "D");
    problemError_.connect(problemRows_, column::Error, "R");
    problemMessage_.connect(problemRows_, column::Message, "D");
    problems_.create(column::Problem, writer, SmallBlock, SmallZero);
}

void Census::setCommon(Common& columns, const Status& status) {
    columns.owner.set(entities_.user(status.user));
    columns.group.set(entities_.group(status.group));
    columns.mode.set(static_cast<int32_t>(status.mode & 07777));
    columns.links.set(clamped(status.links));
    columns.device.set(static_cast<int64_t>(status.device));
    columns.inode.set(static_cast<int64_t>(status.inode));
    columns.created.set(status.created);
    columns.modified.set(status.modified);
    columns.accessed.set(status.accessed);
    columns.changed.set(status.changed);
    columns.attributes.set(flagsOf(status.attributes));
}

int32_t Census::folder(int32_t parent, std::string_view name, const Status& status, int error,
                       const std::vector<Right>& rights) {
    if (folders_ == std::numeric_limits<int32_t>::max())
        XPK_Raise("OverflowError", "A census holds at most $count directories")
            .number("count", folders_)
            .raise();
    number_.set(++folders_);
    parent_.set(parent);
    name_.set(name);
    setCommon(pathCommon_, status);
    ownSize_.set(status.size);
    ownSpace_.set(status.space);
    error_.set(error);
    pathRows_.next();

    auto add = [&](const Right& right) {
        bool isOwner = right.tag == ACL_USER_OBJ, isGroup = right.tag == ACL_GROUP_OBJ;
        rightPath_.set(folders_);
        rightEntity_.set(isOwner || right.tag == ACL_USER ? entities_.user(isOwner ? status.user : right.id)
                         : isGroup || right.tag == ACL_GROUP
                             ? entities_.group(isGroup ? status.group : right.id)
                             : 0);
        rightType_.set(typeOfRight(right));
        rightBits_.set(right.rights);
        rightText_.set(textOfRights(right.rights));
        rightRows_.next();
    };
    bool hasList = !rights.empty() && !rights.front().isDefault;
    if (!hasList)
        for (const Right& right : rightsOfMode(status.mode)) add(right);
    for (const Right& right : rights) add(right);
    return folders_;
}

// A file is forgotten when its last link was met, so that what is remembered is what is still open.
bool Census::isFirstLink(const Status& status) {
    if (status.links < 2) return true;
    auto [known, isNew] = links_.try_emplace({status.device, status.inode}, status.links - 1);
    if (!isNew && --known->second == 0) links_.erase(known);
    return isNew;
}

bool Census::file(int32_t folder, const Chunk& chunk, const Entry& entry) {
    const Status& status = entry.status;
    bool counts = isFirstLink(status);
    pathNumber_.set(folder);
    fileName_.set(chunk.name(entry));
    type_.set(typeOf(status.mode));
    size_.set(counts ? status.size : 0);
    space_.set(counts ? status.space : 0);
    linkSize_.set(counts ? 0 : status.size);
    linkSpace_.set(counts ? 0 : status.space);
    counted_.set(counts);
    setCommon(fileCommon_, status);
    target_.set(chunk.target(entry));
    fileRows_.next();
    return counts;
}

void Census::entity(const EntityRow& row) {
    entityNumber_.set(row.number);
    entityType_.set(row.isGroup ? column::UserGroup : column::User);
    entityId_.set(row.id);
    entityName_.set(row.name);
    entityFullName_.set(row.fullName);
    entityRows_.next();
}

void Census::root(const RootRow& row) {
    rootNumber_.set(row.number);
    rootPath_.set(row.path);
    rootName_.set(row.name);
    rootHost_.set(row.host);
    rootFileSystem_.set(row.fileSystem);
    rootDevice_.set(static_cast<int64_t>(row.device));
    rootStarted_.set(row.started);
    rootFinished_.set(row.finished);
    rootFolders_.set(row.folders);
    rootFiles_.set(row.files);
    rootUnreadable_.set(row.unreadable);
    rootSize_.set(row.size);
    rootSpace_.set(row.space);
    rootRows_.next();
}

void Census::problem(int32_t folder, std::string_view name, const char* call, int error) {
    problemPath_.set(folder);
    problemName_.set(name);
    problemCall_.set(call);
    problemError_.set(error);
    problemMessage_.set(XPK_DecodeError(error));
    problemRows_.next();
}

void Census::finish() {
    for (SMF_RowBuffer* rows : {&pathRows_, &fileRows_, &rightRows_, &entityRows_, &rootRows_, &problemRows_})
        rows->flush();
}

}  // namespace quillscan
