// Built-in functions on the process and the machine.
//
// Everything here is a call of the platform floor under the name that its errors carry. Drives are the mount
// points of the machine's own disks, spelled as the system spells them.
#include <malloc.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "ipe/builtins/ipe_builtinsupport.h"
#include "ipe/builtins/ipe_filetype.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_expansion.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_codepages.h"
#include "platform/pf_console.h"
#include "platform/pf_files.h"
#include "platform/pf_locale.h"
#include "platform/pf_localeitems.h"
#include "platform/pf_paths.h"
#include "platform/pf_process.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_unicode.h"

namespace {

using Arguments = const IPE_Arguments&;

// --- The process.

IPE_Object builtinThreadid(Arguments) { return IPE_Int(platform::threadId()); }

IPE_Object builtinSysExit(Arguments) {
    request_script_exit();
    return {};
}

// Values are freed as their last reference goes, so the pass gives back what this thread's pools and the C
// library hold in reserve.
IPE_Object builtinSystemGc(Arguments) {
    XPK_FlushThreadCaches();
    malloc_trim(0);
    return {};
}

IPE_Object builtinMessagebox(Arguments a) {
    IPE_Object text = a[0];
    if (auto* exception = text.tryAs<IPE_ExceptionType>())
        text = IPE_ExpandFormat(IPE_String("%(decode)s\n\n%(statement)s\n%(file)s ( %(line)s )\n"),
                                exception->details());
    platform::messageBox(a.size() > 1 ? a.text(1) : "quillsrv", IPE_Object_Text(text));
    return {};
}

// --- The machine.

IPE_Object figures(uint64_t capacity, uint64_t available) {
    IPE_Object dict = IPE_NewDict();
    IPE_Dict_Set(dict, "capacity", IPE_Int(static_cast<int64_t>(capacity)));
    IPE_Dict_Set(dict, "available", IPE_Int(static_cast<int64_t>(available)));
    return dict;
}

std::string versionText() {
    platform::OsVersion version;
    if (platform::osVersion(version) != 0 || version.kernel.empty()) return "UNKNOWN";
    std::string text =
        version.distribution.empty() ? version.kernel : version.distribution + ", " + version.kernel;
    return version.machine.empty() ? text : text + " " + version.machine;
}

IPE_Object builtinHostos(Arguments a) {
    std::string_view what = a.size() > 0 ? a.text(0) : "version";
    std::string text;
    if (what == "name") {
        XPK_ThrowSystemError("GetComputerName", platform::computerName(text));
        return IPE_String(text);
    }
    if (what == "memory") {
        platform::MemoryFigures memory;
        XPK_ThrowSystemError("GlobalMemoryStatusEx", platform::memoryFigures(memory));
        return figures(memory.capacity, memory.available);
    }
    if (what == "domain") return IPE_String(platform::domainName(text) == 0 ? text : "[Unknown]");
    if (what == "version") return IPE_String(versionText());
    XPK_Raise("RuntimeError", "Unknown option passed to hostos: $name").string("name", what).raise();
}

IPE_Object builtinDriveList(Arguments) {
    std::vector<std::string> drives;
    XPK_ThrowSystemError("GetLogicalDriveStrings", platform::fixedDrives(drives));
    IPE_Object list = IPE_NewList();
    for (const std::string& drive : drives) list.as<IPE_ListType>()->append(IPE_String(drive));
    return list;
}

IPE_Object builtinDriveSize(Arguments a) {
    std::string path;
    platform::SpaceInfo space;
    int error = platform::textToBytes(a.text(0), path);
    if (error == 0) error = platform::spaceInfo(path, space);
    XPK_ThrowSystemError("GetDiskFreeSpaceEx", error);
    return figures(space.total, space.freeToCaller);
}

// --- Chance. The C library's generator starts anew in each process.

const bool seeded = [] {
    auto place = reinterpret_cast<uintptr_t>(&seeded);
    std::srand(static_cast<unsigned>(time(nullptr)) ^ static_cast<unsigned>(getpid()) << 16 ^
               static_cast<unsigned>(place >> 4));
    return true;
}();

IPE_Object builtinRchoice(Arguments a) {
    int32_t length = a[0]->__len__();
    if (length <= 0) XPK_Raise("IndexError", "list index out of range").raise();
    return a[0]->__getitem__(IPE_Int(std::rand() % length));
}

IPE_Object builtinRtoken8(Arguments) {
    char digits[8];
    for (char& digit : digits) digit = static_cast<char>('0' + std::rand() % 10);
    return IPE_String({digits, sizeof digits});
}

// --- Locale of the calling thread.

IPE_Object builtinSystem(Arguments a) {
    std::string_view what = a.text(0);
    XPK_ThreadState* state = XPK_CurrentThread();
    if (what == "setlanguage") {
        a.check("si", "_system");
        if (state) state->locale = static_cast<uint32_t>(a.integer(1));
        return {};
    }
    if (what == "getlanguage") return IPE_Int(state ? state->locale : 0);
    if (what == "getansicodepage") return IPE_Int(platform::defaultCodePage());
    if (what == "getsystemlanguage") return IPE_Int(platform::systemLanguageId());
    XPK_Raise("RuntimeError", "Unknown option passed to _system: $name").string("name", what).raise();
}

IPE_Object builtinLocaleinfo(Arguments a) {
    uint32_t item = platform::localeItemNumber(a.text(0));
    if (item == 0) XPK_Raise("KeyError", "$key").string("key", a.text(0)).raise();
    XPK_ThreadState* state = XPK_CurrentThread();
    std::string text;
    XPK_ThrowSystemError("GetLocaleInfo", platform::localeItem(state ? state->locale : 0, item, text));
    EPA_Unicode unicode;
    unicode.setUtf8(text);
    unicode.sanitise();
    return IPE_String(unicode.utf8());
}

const IPE_Builtin Rows[] = {
    {"threadid", nullptr, builtinThreadid},
    {"sys_exit", nullptr, builtinSysExit},
    {"system_gc", "", builtinSystemGc},
    {"hostos", "|ss", builtinHostos},
    {"drive_list", "", builtinDriveList},
    {"drive_size", "s", builtinDriveSize},
    {"open", "o|s", IPE_Open},
    {"messagebox", "o|ss", builtinMessagebox},
    {"rchoice", "o", builtinRchoice},
    {"rtoken8", nullptr, builtinRtoken8},
    {"_system", "s|i", builtinSystem},
    {"localeinfo", "s", builtinLocaleinfo},
};
const IPE_BuiltinTable registered(Rows);

}  // namespace
