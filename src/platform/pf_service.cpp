// The part of a service manager that both backends share: unit files, and the choice of the backend.

#include "platform/pf_service.h"

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/pf_process.h"
#include "platform/pf_serviceunit.h"

namespace platform {

namespace {

int checkAccount(const std::string& account) {
    if (account.empty()) return 0;
    if (account.find('\0') != std::string::npos) return EINVAL;
    std::vector<char> buffer(16384);
    passwd entry;
    passwd* found = nullptr;
    int error = getpwnam_r(account.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (error && error != ENOENT && error != ESRCH) return error;
    return found ? 0 : EINVAL;
}

bool isRegular(const std::string& path) {
    struct stat info;
    return lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

std::unique_ptr<ServiceManager> ServiceManager::connect() {
    std::string bus;
    bool named = environmentGet("QUILL_SYSTEMD_BUS", bus) == 0 && !bus.empty();
    if (named && bus == "off") return makeHostManager();
    if (named) return makeSystemdManager(bus);
    struct stat info;
    bool booted = lstat("/run/systemd/system", &info) == 0 && S_ISDIR(info.st_mode);  // sd_booted(3)
    return booted ? makeSystemdManager("") : makeHostManager();
}

bool serviceInstalled(const std::string& name) {
    std::string unit = unitOfService(name);
    return !unit.empty() && access(unitPath(unit).c_str(), F_OK) == 0;
}

int ServiceManager::install(const ServiceDefinition& definition) {
    std::string unit = unitOfService(definition.name);
    if (unit.empty() || definition.command.empty() || !definition.command[0].starts_with('/')) return EINVAL;
    for (const std::string& word : definition.command)
        if (word.find('\0') != std::string::npos) return EINVAL;
    if (int error = checkAccount(definition.account)) return error;
    if (int error = writeUnit(definition, unit)) return error;
    int error = reload();
    if (error)
        deleteUnit(unit);  // an install that failed leaves nothing behind; its own error is the one to tell
    return error;
}

int ServiceManager::remove(const std::string& name) {
    std::string unit = unitOfService(name);
    if (unit.empty()) return EINVAL;
    if (int error = deleteUnit(unit)) return error;
    return reload();
}

int ServiceManager::exists(const std::string& name) {
    std::string unit = unitOfService(name);
    if (unit.empty()) return EINVAL;
    return serviceInstalled(name) ? 0 : existsElsewhere(unit);
}

int ServiceManager::enumerate(std::vector<InstalledService>& services) {
    std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(unitDirectory().c_str()), closedir);
    if (!folder) return errno;
    std::vector<InstalledService> list;
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(folder.get());
        if (!entry) break;
        // Links stand for other names of a unit, or mask one.
        std::string unit = entry->d_name;
        std::string name = serviceOfUnit(unit);
        if (name.empty() || !isRegular(unitPath(unit))) continue;
        ServiceDefinition definition;
        if (readUnit(unit, definition) != 0) continue;  // another program's file of another kind
        list.push_back({name, definition.displayName.empty() ? name : definition.displayName});
    }
    if (errno) return errno;
    std::sort(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    services.swap(list);
    return 0;
}

}  // namespace platform
