// The built-in host: service management on a machine without systemd.
//
// There is no daemon. The unit file says what to run, the control socket of the running process says how it
// is, and starting means to run the command detached: a child in a session of its own, orphaned at once, with
// the null device for its standard streams, the unit's user, and the marker variable. The starter listens on
// a notify socket as systemd would until the service reports READY, sees its process end by a descriptor of
// the process, and then goes away; nothing stays behind but the service.
//
// Between fork and exec only calls that are safe there run; everything they need is laid out before.

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>

#include "platform/pf_descriptor.h"
#include "platform/pf_process.h"
#include "platform/pf_service.h"
#include "platform/pf_servicechannel.h"
#include "platform/pf_serviceunit.h"
#include "platform/pf_signals.h"

#ifndef CLOSE_RANGE_CLOEXEC
#define CLOSE_RANGE_CLOEXEC (1U << 2)
#endif

namespace platform {

namespace {

constexpr int64_t kStartLimit = 30 * kHighResolutionFrequency;
constexpr int64_t kEndLimit = 5 * kHighResolutionFrequency;

struct Account {
    bool change = false;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
};

int findAccount(const std::string& name, Account& account) {
    if (name.empty()) return 0;
    std::vector<char> buffer(16384);
    passwd entry;
    passwd* found = nullptr;
    int error = getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
    if (!found) return error && error != ENOENT ? error : EINVAL;
    if (entry.pw_uid == geteuid()) return 0;
    account.change = true;
    account.uid = entry.pw_uid;
    account.gid = entry.pw_gid;
    int count = 64;
    account.groups.resize(static_cast<size_t>(count));
    while (getgrouplist(name.c_str(), account.gid, account.groups.data(), &count) < 0) {
        if (account.groups.size() >= 65536) return E2BIG;
        count = static_cast<int>(account.groups.size() * 2);
        account.groups.resize(static_cast<size_t>(count));
    }
    account.groups.resize(static_cast<size_t>(count));
    return 0;
}

// Strings for execve, which wants pointers to non-const.
std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> list;
    for (std::string& string : strings) list.push_back(string.data());
    list.push_back(nullptr);
    return list;
}

// What the two children tell the starter, over a pipe.
struct Word {
    int32_t pid;
    int32_t error;
};

struct Launch {
    char** arguments;
    char** environment;
    const Account* account;
    int report;
};

[[noreturn]] void failLaunch(const Launch& launch) {
    Word word{0, errno};
    [[maybe_unused]] ssize_t wrote = write(launch.report, &word, sizeof word);
    _exit(127);
}

// Raw calls: the C library's forms bring the other threads into line, and there are none.
bool takeAccount(const Account& account) {
    if (!account.change) return true;
    return syscall(SYS_setgroups, account.groups.size(), account.groups.data()) == 0 &&
           syscall(SYS_setresgid, account.gid, account.gid, account.gid) == 0 &&
           syscall(SYS_setresuid, account.uid, account.uid, account.uid) == 0;
}

[[noreturn]] void becomeService(const Launch& launch) {
    resetSignalsInChild();
    int null = open("/dev/null", O_RDWR);
    if (null < 0 || dup2(null, 0) < 0 || dup2(null, 1) < 0 || dup2(null, 2) < 0) failLaunch(launch);
    // Old kernels lack it; our own descriptors are marked one by one anyway.
    syscall(SYS_close_range, 3U, UINT_MAX, CLOSE_RANGE_CLOEXEC);
    if (chdir("/") != 0 || !takeAccount(*launch.account)) failLaunch(launch);
    execve(launch.arguments[0], launch.arguments, launch.environment);
    failLaunch(launch);
}

// Forks twice, so that the service is nobody's child, and waits for its exec.
int launchDetached(Launch launch, pid_t& pid) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return errno;
    Descriptor reader(ends[0]), writer(ends[1]);
    launch.report = writer.get();
    pid_t between = fork();
    if (between < 0) return errno;
    if (between == 0) {
        setsid();
        pid_t service = fork();
        if (service < 0) failLaunch(launch);
        if (service == 0) becomeService(launch);
        Word word{service, 0};
        [[maybe_unused]] ssize_t wrote = write(launch.report, &word, sizeof word);
        _exit(0);
    }
    writer.reset();
    while (waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
    Word word;
    pid = 0;
    int error = 0;
    for (;;) {
        ssize_t got = read(reader.get(), &word, sizeof word);
        if (got < 0 && errno == EINTR) continue;
        if (got != sizeof word) break;
        if (word.pid) pid = word.pid;
        if (word.error) error = word.error;
    }
    if (error) return error;
    return pid ? 0 : ECHILD;
}

class NotifySocket {
  public:
    int open() {
        Descriptor fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        if (!fd) return errno;
        int on = 1;
        if (setsockopt(fd.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) return errno;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        // An address without a path lets the kernel choose a free abstract one (unix(7)).
        if (bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(sa_family_t)) != 0) return errno;
        socklen_t size = sizeof address;
        if (getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return errno;
        name_.assign(address.sun_path, size - offsetof(sockaddr_un, sun_path));
        name_[0] = '@';
        fd_ = std::move(fd);
        return 0;
    }

    const std::string& name() const { return name_; }
    int fd() const { return fd_.get(); }

    // Reads what has come; true if the process `pid` said READY. Others can reach an abstract address: they
    // are not heard.
    bool ready(pid_t pid) const {
        for (;;) {
            char text[4096];
            iovec part{text, sizeof text};
            alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control;
            message.msg_controllen = sizeof control;
            ssize_t got = recvmsg(fd_.get(), &message, MSG_CMSG_CLOEXEC);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return false;
            const cmsghdr* header = CMSG_FIRSTHDR(&message);
            if (!header || header->cmsg_type != SCM_CREDENTIALS) continue;
            ucred sender;
            memcpy(&sender, CMSG_DATA(header), sizeof sender);
            std::string lines = "\n" + std::string(text, static_cast<size_t>(got)) + "\n";
            if (sender.pid == pid && lines.find("\nREADY=1\n") != std::string::npos) return true;
        }
    }

  private:
    Descriptor fd_;
    std::string name_;
};

int awaitReady(const NotifySocket& notify, pid_t pid) {
    Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!process) return errno;  // ESRCH: it has ended already
    int64_t deadline = highResolutionCounter() + kStartLimit;
    for (;;) {
        int64_t left = deadline - highResolutionCounter();
        if (left <= 0) return ETIMEDOUT;
        pollfd watched[2] = {{notify.fd(), POLLIN, 0}, {process.get(), POLLIN, 0}};
        if (poll(watched, 2, static_cast<int>(left / 1'000'000) + 1) < 0 && errno != EINTR) return errno;
        if (notify.ready(pid)) return 0;
        if (watched[1].revents) return ESRCH;
    }
}

class HostManager : public ServiceManager {
  public:
    int start(const std::string& name) override {
        std::string unit = unitOfService(name);
        if (unit.empty()) return EINVAL;
        ServiceDefinition definition;
        if (int error = readUnit(unit, definition)) return error;
        if (int error = awaitEnd(unit)) return error;
        Account account;
        if (int error = findAccount(definition.account, account)) return error;
        if (account.change)
            if (int error = makeRuntimeDirectory(runtimeDirectories(unit)[0], account.uid, account.gid))
                return error;
        NotifySocket notify;
        if (int error = notify.open()) return error;
        std::vector<std::string> environment = serviceEnvironment(name, notify.name());
        std::vector<char*> arguments = pointers(definition.command), variables = pointers(environment);
        pid_t pid = 0;
        if (int error = launchDetached({arguments.data(), variables.data(), &account, -1}, pid)) return error;
        return awaitReady(notify, pid);
    }

    int control(const std::string& name, uint32_t code, ServiceStatus& status) override {
        std::string unit = unitOfService(name);
        if (unit.empty() || code == 0) return EINVAL;
        int error = channelAsk(unit, code, status);
        return error == ESRCH && !serviceInstalled(name) ? ENOENT : error;
    }

    int query(const std::string& name, ServiceStatus& status) override {
        std::string unit = unitOfService(name);
        if (unit.empty()) return EINVAL;
        int error = channelAsk(unit, 0, status);
        if (error != ESRCH) return error;
        if (!serviceInstalled(name)) return ENOENT;
        status = {};
        return 0;
    }

  protected:
    int reload() override { return 0; }  // unit files are read at each use
    int existsElsewhere(const std::string&) override { return ENOENT; }

  private:
    static std::vector<std::string> serviceEnvironment(const std::string& name, const std::string& notify) {
        std::vector<std::string> list = environmentList();
        std::erase_if(list, [](const std::string& entry) {
            for (const char* own : {kServiceVariable, "NOTIFY_SOCKET", "INVOCATION_ID", "SYSTEMD_EXEC_PID",
                                    "RUNTIME_DIRECTORY", "JOURNAL_STREAM"})
                if (entry.starts_with(std::string(own) + "=")) return true;
            return false;
        });
        list.push_back(std::string(kServiceVariable) + "=" + name);
        list.push_back("NOTIFY_SOCKET=" + notify);
        return list;
    }

    // A service that has reported its end may need a moment to go; one that runs stays.
    static int awaitEnd(const std::string& unit) {
        int64_t deadline = highResolutionCounter() + kEndLimit;
        for (;;) {
            ServiceStatus status;
            int error = channelAsk(unit, 0, status);
            if (error == ESRCH) return 0;
            if (error) return error;
            bool ending = status.state == ServiceState::stopped || status.state == ServiceState::stopPending;
            if (!ending || highResolutionCounter() > deadline) return EALREADY;
            usleep(50'000);
        }
    }
};

}  // namespace

std::unique_ptr<ServiceManager> makeHostManager() { return std::make_unique<HostManager>(); }

}  // namespace platform
