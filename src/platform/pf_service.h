#pragma once

// The machine's services: install, remove, start, control, query. One interface over two managers, systemd
// where the machine runs it and a small built-in host elsewhere; both keep a service as a systemd unit file.
//
// Names of services are free texts without NUL and '/' (1 to 200 bytes); in file names they are escaped as
// systemd does. Functions give 0 or an errno:
//   ENOENT     no such service is installed
//   EEXIST     install: it is installed already
//   EALREADY   start: it runs already
//   ESRCH      control: it does not run; start: the program ended before it reported running
//   ETIMEDOUT  start: it did not report running in time, or the service did not answer
//   EOPNOTSUPP the service does not accept the control; EBUSY: not in its present state
//   EINVAL     a name, an account or a command that cannot be
//   EPROTO     an answer that makes no sense
// and whatever the system gives for files, sockets and the bus (EACCES, EPERM, ...).
//
// Environment, for tests and unusual machines: QUILL_UNIT_DIR (default /etc/systemd/system),
// QUILL_RUNTIME_DIR (default /run/quillsrv, or $XDG_RUNTIME_DIR/quillsrv for whoever may not write there) and
// QUILL_SYSTEMD_BUS: the address of the bus with the manager, or "off" for the built-in host on a machine
// that runs systemd.
//
// An object may be used by one thread at a time.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

// On the wire between a service and its controllers: numbers must not change.
enum class ServiceState : uint32_t {
    stopped = 1,
    startPending = 2,
    stopPending = 3,
    running = 4,
    continuePending = 5,
    pausePending = 6,
    paused = 7,
};

enum ServiceControl : uint32_t {
    kControlStop = 1,
    kControlPause = 2,
    kControlContinue = 3,
    kControlInterrogate = 4,
};

// Bits of ServiceStatus::accepted.
enum ServiceAccept : uint32_t {
    kAcceptStop = 1,
    kAcceptPauseContinue = 2,
};

struct ServiceStatus {
    uint32_t type = 0x10;  // a process of its own
    ServiceState state = ServiceState::stopped;
    uint32_t accepted = 0;
    uint32_t exitCode = 0;
    uint32_t specificExitCode = 0;
    uint32_t checkpoint = 0;
    uint32_t waitHint = 0;   // milliseconds
    uint32_t processId = 0;  // 0 while stopped
    uint32_t flags = 0;
};

struct ServiceDefinition {
    std::string name;
    std::string displayName;
    std::vector<std::string> command;  // absolute path of the program, then its arguments
    std::string account;               // user name; empty for the superuser
};

struct InstalledService {
    std::string name;
    std::string displayName;
};

class ServiceManager {
  public:
    virtual ~ServiceManager() = default;

    // The manager of this machine. Nothing is spoken to yet.
    static std::unique_ptr<ServiceManager> connect();

    // Writes the unit file and the link that enables it at boot. `command` must begin with an absolute path
    // and the account must exist.
    int install(const ServiceDefinition& definition);
    // Deletes both; a running process goes on.
    int remove(const std::string& name);
    // 0 if the service is installed here or, under systemd, known from another place.
    int exists(const std::string& name);
    // The services of the unit folder, by name.
    int enumerate(std::vector<InstalledService>& services);

    // Returns when the service has reported that it runs.
    virtual int start(const std::string& name) = 0;
    // Returns when the service has handled the control, for stop possibly earlier: the service ends after it.
    // Beside the four named controls the codes 128 to 255 are passed on. `status` is the state after the
    // control.
    virtual int control(const std::string& name, uint32_t code, ServiceStatus& status) = 0;
    virtual int query(const std::string& name, ServiceStatus& status) = 0;

  protected:
    // The manager reads the unit files again.
    virtual int reload() = 0;
    // For exists: a unit that does not stand in the unit folder.
    virtual int existsElsewhere(const std::string& unit) = 0;
};

// Whether the service's unit file stands in the unit folder; asks no manager.
bool serviceInstalled(const std::string& name);

std::unique_ptr<ServiceManager> makeSystemdManager(const std::string& busAddress);  // "" for the system's own
std::unique_ptr<ServiceManager> makeHostManager();

}  // namespace platform
