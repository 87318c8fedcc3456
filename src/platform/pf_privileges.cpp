// Privileges and capabilities.
//
// Each name stands for the capabilities that let a Linux process do what the privilege lets a Windows process
// do. The permitted set is never touched: what a thread lowers it can raise again. Names without a
// counterpart are kept in the table so that a script can tell a misspelt name from one that this system
// cannot serve.

#include "platform/pf_privileges.h"

#include <strings.h>
#include <sys/capability.h>

#include <array>
#include <cerrno>
#include <memory>
#include <type_traits>

namespace platform {

namespace {

struct Privilege {
    const char* name;
    int count;
    std::array<cap_value_t, 4> capabilities;
};

constexpr Privilege kPrivileges[] = {
    {"SeAssignPrimaryTokenPrivilege", 2, {CAP_SETUID, CAP_SETGID}},
    {"SeAuditPrivilege", 1, {CAP_AUDIT_WRITE}},
    {"SeBackupPrivilege", 1, {CAP_DAC_READ_SEARCH}},
    {"SeChangeNotifyPrivilege", 1, {CAP_DAC_READ_SEARCH}},
    {"SeCreateGlobalPrivilege", 0, {}},
    {"SeCreatePagefilePrivilege", 1, {CAP_SYS_ADMIN}},
    {"SeCreatePermanentPrivilege", 0, {}},
    {"SeCreateSymbolicLinkPrivilege", 0, {}},
    {"SeCreateTokenPrivilege", 0, {}},
    {"SeDebugPrivilege", 1, {CAP_SYS_PTRACE}},
    {"SeEnableDelegationPrivilege", 0, {}},
    {"SeImpersonatePrivilege", 2, {CAP_SETUID, CAP_SETGID}},
    {"SeIncreaseBasePriorityPrivilege", 1, {CAP_SYS_NICE}},
    {"SeIncreaseQuotaPrivilege", 1, {CAP_SYS_RESOURCE}},
    {"SeIncreaseWorkingSetPrivilege", 0, {}},
    {"SeLoadDriverPrivilege", 1, {CAP_SYS_MODULE}},
    {"SeLockMemoryPrivilege", 1, {CAP_IPC_LOCK}},
    {"SeMachineAccountPrivilege", 0, {}},
    {"SeManageVolumePrivilege", 1, {CAP_SYS_ADMIN}},
    {"SeProfileSingleProcessPrivilege", 1, {CAP_SYS_PTRACE}},
    {"SeRelabelPrivilege", 1, {CAP_MAC_ADMIN}},
    {"SeRemoteShutdownPrivilege", 1, {CAP_SYS_BOOT}},
    {"SeRestorePrivilege", 4, {CAP_DAC_OVERRIDE, CAP_CHOWN, CAP_FOWNER, CAP_FSETID}},
    {"SeSecurityPrivilege", 1, {CAP_AUDIT_CONTROL}},
    {"SeShutdownPrivilege", 1, {CAP_SYS_BOOT}},
    {"SeSyncAgentPrivilege", 0, {}},
    {"SeSystemEnvironmentPrivilege", 1, {CAP_SYS_ADMIN}},
    {"SeSystemProfilePrivilege", 1, {CAP_SYS_ADMIN}},
    {"SeSystemtimePrivilege", 1, {CAP_SYS_TIME}},
    {"SeTakeOwnershipPrivilege", 1, {CAP_CHOWN}},
    {"SeTcbPrivilege", 1, {CAP_SYS_ADMIN}},
    {"SeTimeZonePrivilege", 1, {CAP_SYS_TIME}},
    {"SeTrustedCredManAccessPrivilege", 0, {}},
    {"SeUndockPrivilege", 0, {}},
};

using Capabilities = std::unique_ptr<std::remove_pointer_t<cap_t>, int (*)(void*)>;

int find(std::string_view name, const Privilege*& found) {
    for (const Privilege& row : kPrivileges) {
        std::string_view known(row.name);
        if (known.size() != name.size() || ::strncasecmp(known.data(), name.data(), name.size()) != 0)
            continue;
        found = &row;
        return row.count ? 0 : EOPNOTSUPP;
    }
    return EINVAL;
}

}  // namespace

int setPrivilege(std::string_view name, bool enabled) {
    const Privilege* row = nullptr;
    if (int error = find(name, row)) return error;
    Capabilities state(::cap_get_proc(), ::cap_free);
    if (!state) return errno;
    cap_flag_value_t value = enabled ? CAP_SET : CAP_CLEAR;
    if (::cap_set_flag(state.get(), CAP_EFFECTIVE, row->count, row->capabilities.data(), value) != 0)
        return errno;
    return ::cap_set_proc(state.get()) == 0 ? 0 : errno;
}

int privilegeEnabled(std::string_view name, bool& enabled) {
    const Privilege* row = nullptr;
    if (int error = find(name, row)) return error;
    Capabilities state(::cap_get_proc(), ::cap_free);
    if (!state) return errno;
    enabled = true;
    for (int i = 0; i < row->count; ++i) {
        cap_flag_value_t value = CAP_CLEAR;
        if (::cap_get_flag(state.get(), row->capabilities[i], CAP_EFFECTIVE, &value) != 0) return errno;
        enabled = enabled && value == CAP_SET;
    }
    return 0;
}

}  // namespace platform
