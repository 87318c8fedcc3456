// The commands of `fs` that make, move and change files.

#include <cerrno>

#include "ipe/language/ipe_scriptcall.h"
#include "ipe/nt/ipe_fscommands.h"
#include "ipe/nt/ipe_path.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_copy.h"
#include "platform/pf_files.h"
#include "runtime/epa_shutdown.h"

namespace {

IPE_Object lnSoft(const IPE_Arguments& arguments) {
    std::string link = IPE_PathBytes(arguments[1], "ipPersistFile->Save");
    std::string target = IPE_PathBytes(arguments[2], "resolveLinks->SetPath");
    IPE_ThrowPathError("ipPersistFile->Save", platform::createLink(link, target), arguments[1]);
    return {};
}

IPE_Object pathToString(const IPE_Arguments& arguments) { return IPE_String(IPE_PathText(arguments[1])); }

IPE_Object pwd(const IPE_Arguments&) {
    std::string path;
    XPK_ThrowSystemError("GetCurrentDirectory", platform::currentDirectory(path));
    return IPE_PathValue(path);
}

// Makes one level and tells the script if it is new. Gives the errno; an existing name is none.
int makeLevel(const IPE_Object& path, int limit, const IPE_Object& onCreate) {
    std::string bytes = IPE_PathBytes(path, "CreateDirectory", limit);
    // A list that begins with an empty component starts at the root.
    if (bytes.empty() && limit >= 0) return 0;
    int error = platform::createDirectory(bytes);
    if (error == 0 && !onCreate.isNull()) IPE_CallScript(onCreate, IPE_String(IPE_PathText(path, limit)));
    return error == EEXIST ? 0 : error;
}

IPE_Object mkdir(const IPE_Arguments& arguments) {
    const IPE_Object& path = arguments[1];
    IPE_Object onCreate = arguments.keyword("on_create");
    if (onCreate.is<IPE_NoneType>()) onCreate = nullptr;
    int error = makeLevel(path, -1, onCreate), count = IPE_PathCount(path);
    if (error == 0) return {};
    if (count == 1) IPE_ThrowPathError("CreateDirectory", error, path);
    for (int limit = 1; limit <= count; ++limit) {
        IPE_ThrowPathError("CreateDirectory", makeLevel(path, limit, onCreate), path, limit);
    }
    return {};
}

IPE_Object rmdir(const IPE_Arguments& arguments) {
    constexpr uint32_t kClear = platform::kAttributeReadOnly | platform::kAttributeSystem;
    std::string path = IPE_PathBytes(arguments[1], "RemoveDirectory");
    platform::FileDetails details;
    int error = platform::fileDetails(path, false, details);
    if (error == ENOENT || error == ENOTDIR) return {};
    IPE_ThrowPathError("GetFileAttributes", error, arguments[1]);
    // A symbolic link to a folder counts as a folder, and removing it leaves what it leads to alone.
    if (details.isLink() && (details.attributes & platform::kAttributeDirectory)) {
        IPE_ThrowPathError("RemoveDirectory", platform::removeFile(path), arguments[1]);
        return {};
    }
    // Only the owner may clear them, but others may have the right to remove: the removal decides.
    if (details.isDirectory() && (details.attributes & kClear)) {
        (void)platform::setAttributes(path, details.attributes & ~kClear);
    }
    IPE_ThrowPathError("RemoveDirectory", platform::removeDirectory(path), arguments[1]);
    return {};
}

bool goOn(uint64_t) { return XPK_IsRunning(); }

IPE_Object rename(const IPE_Arguments& arguments) {
    std::string from = IPE_PathBytes(arguments[1], "MoveFile"), to = IPE_PathBytes(arguments[2], "MoveFile");
    IPE_ThrowPathError("MoveFile", platform::moveFile(from, to, goOn), arguments[1]);
    return {};
}

IPE_Object copy(const IPE_Arguments& arguments) {
    std::string from = IPE_PathBytes(arguments[1], "CopyFile"), to = IPE_PathBytes(arguments[2], "CopyFile");
    IPE_ThrowPathError("CopyFile", platform::copyFile(from, to, goOn), arguments[1]);
    return {};
}

IPE_Object erase(const IPE_Arguments& arguments) {
    bool mustExist = arguments.size() > 2 && arguments.integer(2) != 0;
    int error = platform::removeFile(IPE_PathBytes(arguments[1], "DeleteFile"));
    if (error == ENOENT && !mustExist) return IPE_Int(0);
    IPE_ThrowPathError("DeleteFile", error, arguments[1]);
    return IPE_Int(1);
}

// Reads a date of the dict; false if it is not given.
bool timeOf(IPE_DictType* dict, const char* key, const IPE_Object& path, platform::FileTime& time) {
    IPE_Object date(dict->findText(key));
    if (date.isNull()) return false;
    IPE_ThrowPathError("SystemTimeToFileTime", IPE_FsTime(date, time) ? 0 : EINVAL, path);
    return true;
}

IPE_Object setTimes(const IPE_Arguments& arguments) {
    const IPE_Object& name = arguments[1];
    IPE_DictType* dict = PyDict_SafeCast(arguments[2]);
    std::string path = IPE_PathBytes(name, "CreateFile");
    platform::FileDetails details;
    IPE_ThrowPathError("CreateFile", platform::fileDetails(path, true, details, {false}), name);
    platform::FileTime modified, accessed, created;
    bool hasModified = timeOf(dict, "modified", name, modified),
         hasAccessed = timeOf(dict, "accessed", name, accessed);
    bool hasCreated = timeOf(dict, "created", name, created);
    if (hasModified || hasAccessed) {
        int error =
            platform::setTimes(path, hasModified ? &modified : nullptr, hasAccessed ? &accessed : nullptr);
        IPE_ThrowPathError("SetFileTime", error, name);
    }
    IPE_ThrowPathError("SetFileTime", hasCreated ? EOPNOTSUPP : 0, name);
    return {};
}

}  // namespace

const IPE_FsCommand IPE_FsOperations[] = {
    {"ln_soft", "soo", lnSoft},
    {"path_to_string", "so", pathToString},
    {"pwd", "s", pwd},
    {"mkdir", "so", mkdir},
    {"rmdir", "so", rmdir},
    {"rename", "soo", rename},
    {"copy", "soo", copy},
    {"erase", "so|i", erase},
    {"set_times", "soo", setTimes},
    {nullptr, nullptr, nullptr},
};
