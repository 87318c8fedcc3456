// The listings of `fs`.
//
// Entries stream from the folder into the result; names that are text go into strings as their bytes. The
// keys of the records are interned once, since a listing fills twelve of them for every entry.

#include <cerrno>
#include <string_view>

#include "ipe/nt/ipe_fscommands.h"
#include "ipe/nt/ipe_path.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_listing.h"
#include "platform/pf_streams.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_wildmatch.h"

namespace {

using platform::DirectoryEntry;

// The keys of a detail record.
struct Keys {
    IPE_StringType* size = IPE_StringType::intern("size");
    IPE_StringType* target = IPE_StringType::intern("target");
    IPE_StringType* created = IPE_StringType::intern("created");
    IPE_StringType* modified = IPE_StringType::intern("modified");
    IPE_StringType* accessed = IPE_StringType::intern("accessed");
    IPE_StringType* offline = IPE_StringType::intern("is_offline");
    IPE_StringType* space = IPE_StringType::intern("space");
    IPE_StringType* links = IPE_StringType::intern("links");
    IPE_StringType* device = IPE_StringType::intern("device");
    IPE_StringType* inode = IPE_StringType::intern("inode");
    IPE_StringType* owner = IPE_StringType::intern("owner");
    IPE_StringType* mode = IPE_StringType::intern("mode");

    static const Keys& get() {
        static const Keys keys;
        return keys;
    }
};

IPE_Object integer(uint64_t value) { return IPE_Int(static_cast<int64_t>(value)); }

IPE_Object recordOf(const DirectoryEntry& entry, bool withTarget) {
    const Keys& key = Keys::get();
    const platform::FileDetails& details = entry.details;
    bool known = entry.error == 0;
    bool born = details.created.seconds != 0 || details.created.nanoseconds != 0;
    IPE_Object record = IPE_NewDict();
    auto* dict = record.as<IPE_DictType>();
    dict->setName(key.size, integer(details.size));
    dict->setName(key.target, withTarget ? IPE_PathValue(entry.target) : IPE_String(""));
    dict->setName(key.created, known && born ? IPE_FsDate(details.created) : IPE_FsNoDate());
    dict->setName(key.modified, known ? IPE_FsDate(details.modified) : IPE_FsNoDate());
    dict->setName(key.accessed, known ? IPE_FsDate(details.accessed) : IPE_FsNoDate());
    dict->setName(key.offline, IPE_Int(details.attributes & platform::kAttributeOffline ? 1 : 0));
    dict->setName(key.space, integer(details.space));
    dict->setName(key.links, integer(details.links));
    dict->setName(key.device, integer(details.device));
    dict->setName(key.inode, integer(details.inode));
    dict->setName(key.owner, integer(details.uid));
    dict->setName(key.mode, integer(details.mode));
    return record;
}

bool isFolder(const DirectoryEntry& entry) {
    return entry.details.attributes & platform::kAttributeDirectory;
}

// Calls visit(entry) for each entry that the pattern lets pass.
template <class Visit>
void eachMatch(const IPE_Object& path, platform::ListingWish wish, Visit visit) {
    std::string bytes = IPE_PathBytes(path, "FindFirstFile");
    size_t cut = bytes.rfind('/');
    std::string folder = cut == std::string::npos ? "." : cut == 0 ? "/" : bytes.substr(0, cut);
    std::string pattern = cut == std::string::npos ? bytes : bytes.substr(cut + 1);
    bool all = pattern == "*";
    const EPA_WildPattern matcher(pattern);
    platform::DirectoryReader reader;
    IPE_ThrowPathError("FindFirstFile", reader.open(folder, wish), path);
    DirectoryEntry entry;
    int error = 0;
    while (reader.next(entry, error)) {
        if (!XPK_IsRunning()) {
            error = ECANCELED;
            break;
        }
        if (all || matcher.matches(std::string_view(entry.name))) visit(entry);
    }
    IPE_ThrowPathError("FindNextFile", error, path);
}

IPE_Object lsDetails(const IPE_Arguments& arguments) {
    bool resolve = false;
    if (arguments.size() > 2 && !arguments[2].is<IPE_NoneType>()) {
        IPE_Object wish(PyDict_SafeCast(arguments[2])->findText("resolve_links"));
        resolve = !wish.isNull() && wish->__nonzero__();
    }
    IPE_Object file = IPE_NewDict(), path = IPE_NewDict(), hard = IPE_NewDict(), soft = IPE_NewDict();
    eachMatch(arguments[1], {true, resolve}, [&](const DirectoryEntry& entry) {
        bool reparse = entry.details.attributes & platform::kAttributeReparse;
        bool link = resolve && !reparse && entry.error == 0 && entry.details.isLink();
        const IPE_Object& kind = isFolder(entry) ? (reparse ? hard : path) : link ? soft : file;
        kind.as<IPE_DictType>()->set(IPE_PathValue(entry.name), recordOf(entry, link));
    });
    IPE_Object result = IPE_NewDict();
    IPE_Dict_Set(result, "file", file);
    IPE_Dict_Set(result, "path", path);
    IPE_Dict_Set(result, "hard", hard);
    IPE_Dict_Set(result, "soft", soft);
    return result;
}

IPE_Object lsFiles(const IPE_Arguments& arguments) {
    IPE_Object list = IPE_NewList();
    eachMatch(arguments[1], {false, false}, [&](const DirectoryEntry& entry) {
        if (isFolder(entry)) return;
        IPE_Object date = entry.error ? IPE_FsNoDate() : IPE_FsDate(entry.details.modified);
        list.as<IPE_ListType>()->append(
            IPE_TupleOf({std::move(date), IPE_PathValue(entry.name), integer(entry.details.size)}));
    });
    return list;
}

IPE_Object lsPaths(const IPE_Arguments& arguments) {
    IPE_Object list = IPE_NewList();
    eachMatch(arguments[1], {false, false}, [&](const DirectoryEntry& entry) {
        if (isFolder(entry)) list.as<IPE_ListType>()->append(IPE_PathValue(entry.name));
    });
    return list;
}

IPE_Object lsStreams(const IPE_Arguments& arguments) {
    std::vector<std::string> names;
    std::string path = IPE_PathBytes(arguments[1], "CreateFile");
    IPE_ThrowPathError("CreateFile", platform::listStreams(path, names), arguments[1]);
    IPE_Object list = IPE_NewList();
    for (const std::string& name : names) list.as<IPE_ListType>()->append(IPE_PathValue(name));
    return list;
}

}  // namespace

const IPE_FsCommand IPE_FsListing[] = {
    {"ls_details", "so|o", lsDetails}, {"ls_files", "so", lsFiles}, {"ls_paths", "so", lsPaths},
    {"ls_streams", "so", lsStreams},   {nullptr, nullptr, nullptr},
};
