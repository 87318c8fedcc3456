// The commands of `fs` about volumes, the environment and identifiers.
//
// The C library's environment has no lock of its own for readers, so all commands here go through one; a
// value is copied out while it is held.

#include <sys/random.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "ipe/nt/ipe_fscommands.h"
#include "ipe/nt/ipe_path.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_files.h"
#include "platform/pf_paths.h"
#include "runtime/epa_unicode.h"

namespace {

constexpr size_t kValueLongest = 0x7FFF;  // UTF-16 units, the terminator counted

std::mutex& environmentLock() {
    static std::mutex lock;
    return lock;
}

IPE_Object fsinfo(const IPE_Arguments& arguments) {
    platform::VolumeInfo volume;
    std::string path = IPE_PathBytes(arguments[1], "GetVolumeInformation");
    IPE_ThrowPathError("GetVolumeInformation", platform::volumeInfo(path, volume), arguments[1]);
    IPE_Object result = IPE_NewDict();
    IPE_Dict_Set(result, "type", IPE_String(volume.type == "OS2" ? "NWFS" : volume.type));
    return result;
}

IPE_Object fsstat(const IPE_Arguments& arguments) {
    platform::SpaceInfo space;
    std::string path = IPE_PathBytes(arguments[1], "GetDiskFreeSpaceEx");
    IPE_ThrowPathError("GetDiskFreeSpaceEx", platform::spaceInfo(path, space), arguments[1]);
    IPE_Object result = IPE_NewDict();
    IPE_Dict_Set(result, "FreeBytesToCaller", IPE_Int(static_cast<int64_t>(space.freeToCaller)));
    IPE_Dict_Set(result, "TotalBytes", IPE_Int(static_cast<int64_t>(space.total)));
    IPE_Dict_Set(result, "FreeBytes", IPE_Int(static_cast<int64_t>(space.free)));
    return result;
}

// A random identifier, version 4 of RFC 9562.
IPE_Object guid(const IPE_Arguments&) {
    unsigned char b[16];
    if (::getrandom(b, sizeof b, 0) != sizeof b) XPK_ThrowSystemError("CoCreateGuid", errno);
    b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);
    b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  static_cast<unsigned>(b[0]) << 24 | b[1] << 16 | b[2] << 8 | b[3], b[4] << 8 | b[5],
                  b[6] << 8 | b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
    return IPE_String(text);
}

std::optional<std::string> readVariable(const std::string& name) {
    std::lock_guard<std::mutex> guard(environmentLock());
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

IPE_Object getEnv(const IPE_Arguments& arguments) {
    std::optional<std::string> value = readVariable(IPE_Object_Text(arguments[1]));
    if (!value) {
        if (arguments.size() > 2) return arguments[2];
        XPK_Raise("ERROR_ENVVAR_NOT_FOUND", "GetEnvironmentVariable").raise();
    }
    if (platform::pathToUnits(*value).size() >= kValueLongest) {
        XPK_Raise("ERROR_ENVVAR_TOO_LARGE", "GetEnvironmentVariable").raise();
    }
    EPA_Unicode text;
    text.setUtf8(value->data(), value->size());
    text.sanitise();
    return IPE_String(text.toUtf8());
}

IPE_Object setEnv(const IPE_Arguments& arguments) {
    std::string name = IPE_Object_Text(arguments[1]);
    bool remove = arguments.size() < 3 || arguments[2].is<IPE_NoneType>();
    std::string value = remove ? std::string() : IPE_Object_Text(arguments[2]);
    int code;
    int error;
    {
        std::lock_guard<std::mutex> guard(environmentLock());
        code = remove ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
        error = code == 0 ? 0 : errno;
    }
    XPK_ThrowSystemError("SetEnvironmentVariable", error);
    return {};
}

}  // namespace

const IPE_FsCommand IPE_FsSystem[] = {
    {"fsinfo", "so", fsinfo},    {"fsstat", "so", fsstat},    {"guid", "s", guid},
    {"get_env", "so|o", getEnv}, {"set_env", "so|o", setEnv}, {nullptr, nullptr, nullptr},
};
