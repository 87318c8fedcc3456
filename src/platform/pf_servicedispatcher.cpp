// The dispatcher is the same under both managers. It opens the control socket, starts the service's main
// function on a thread, and from then on the calling thread only waits: for clients of the socket, for a
// signal, for the end.
//
// States go out twice: kept here for clients, and in the protocol of sd_notify(3), which speaks to systemd or
// to the built-in host's start command alike. READY goes out with the first report of a running service,
// STOPPING with the first of a stopping one. A stop by signal enters the same path as one by the socket, so
// that the handler sees one stream of controls on one thread.

#include "platform/pf_servicedispatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/pf_descriptor.h"
#include "platform/pf_process.h"
#include "platform/pf_servicechannel.h"
#include "platform/pf_serviceunit.h"
#include "platform/pf_signals.h"

namespace platform {

namespace {

const char* stateText(ServiceState state) {
    switch (state) {
        case ServiceState::stopped: return "stopped";
        case ServiceState::startPending: return "starting";
        case ServiceState::stopPending: return "stopping";
        case ServiceState::running: return "running";
        case ServiceState::continuePending: return "continuing";
        case ServiceState::pausePending: return "pausing";
        case ServiceState::paused: return "paused";
    }
    return "unknown";
}

// Speaks the protocol of sd_notify(3) to an address that has left the environment already.
class Notifier {
  public:
    Notifier() {
        std::string path;
        if (environmentGet("NOTIFY_SOCKET", path) != 0 || path.size() < 2 ||
            path.size() >= sizeof address_.sun_path)
            return;
        if (path[0] != '/' && path[0] != '@') return;
        address_.sun_family = AF_UNIX;
        memcpy(address_.sun_path, path.data(), path.size());
        if (path[0] == '@') address_.sun_path[0] = 0;
        length_ =
            static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + (path[0] == '/' ? 1 : 0));
        socket_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    }

    // The built-in host's starter listens until READY only: nobody listening later is no failure.
    void send(const std::string& message) const {
        if (!socket_) return;
        sendto(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
               reinterpret_cast<const sockaddr*>(&address_), length_);
    }

  private:
    sockaddr_un address_{};
    socklen_t length_ = 0;
    Descriptor socket_;
};

class Session : public ServiceSession {
  public:
    int registerHandler(std::function<void(uint32_t)> handler) override {
        std::lock_guard hold(lock_);
        if (handler_) return EBUSY;
        handler_ = std::move(handler);
        return 0;
    }

    void report(const ServiceStatus& status) override {
        std::lock_guard hold(lock_);
        status_ = status;
        status_.processId = static_cast<uint32_t>(getpid());
        std::string message = std::string("STATUS=") + stateText(status.state);
        if (status.state == ServiceState::running && !ready_) {
            ready_ = true;
            message += "\nREADY=1";
        }
        bool ending = status.state == ServiceState::stopPending || status.state == ServiceState::stopped;
        if (ending && !stopping_) {
            stopping_ = true;
            message += "\nSTOPPING=1";
        }
        notifier_.send(message);
    }

    ServiceStatus status() {
        std::lock_guard hold(lock_);
        return status_;
    }

    // Dispatcher's thread.
    int control(uint32_t code) {
        std::function<void(uint32_t)> handler;
        {
            std::lock_guard hold(lock_);
            if (int error = refusal(code)) return error;
            handler = handler_;
        }
        try {
            handler(code);
        } catch (...) {
            return EIO;
        }
        return 0;
    }

  private:
    int refusal(uint32_t code) const {
        bool named = code >= kControlStop && code <= kControlInterrogate;
        if (!named && (code < 128 || code > 255)) return EINVAL;
        if (!handler_) return EBUSY;
        if (code == kControlInterrogate) return 0;
        bool moving = status_.state == ServiceState::startPending ||
                      status_.state == ServiceState::stopPending || status_.state == ServiceState::stopped;
        if (moving) return EBUSY;
        if (code == kControlStop && !(status_.accepted & kAcceptStop)) return EOPNOTSUPP;
        bool pausing = code == kControlPause || code == kControlContinue;
        if (pausing && !(status_.accepted & kAcceptPauseContinue)) return EOPNOTSUPP;
        return 0;
    }

    std::mutex lock_;  // guards all below
    std::function<void(uint32_t)> handler_;
    ServiceStatus status_{.state = ServiceState::startPending, .processId = static_cast<uint32_t>(getpid())};
    bool ready_ = false;
    bool stopping_ = false;
    const Notifier notifier_;
};

// A unit that was written by hand lacks the marker variable; the control group names the unit then.
bool runsInUnit(const std::string& unit) {
    std::string value, groups;
    if (environmentGet("INVOCATION_ID", value) != 0 || environmentGet("NOTIFY_SOCKET", value) != 0)
        return false;
    if (environmentGet("SYSTEMD_EXEC_PID", value) == 0 && value != std::to_string(getpid())) return false;
    if (readSystemFile("/proc/self/cgroup", groups, 1 << 20) != 0) return false;
    return (groups + "\n").find("/" + unit + "\n") != std::string::npos;
}

std::vector<std::string> socketFolders(const std::string& unit) {
    std::vector<std::string> folders = runtimeDirectories(unit);
    std::string given;
    if (environmentGet("RUNTIME_DIRECTORY", given) == 0 && given.starts_with('/') &&
        given.find(':') == std::string::npos)
        folders.insert(folders.begin(), given);
    return folders;
}

struct Wake {
    Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<bool> stop{false};
    std::atomic<bool> ended{false};

    void ring() const {
        uint64_t one = 1;
        while (write(event.get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
    }
    void silence() const {
        uint64_t count;
        while (read(event.get(), &count, sizeof count) < 0 && errno == EINTR) {
        }
    }
};

void serveUntilEnd(ServiceChannel& channel, Session& session, Wake& wake) {
    ServiceChannel::Server server{[&](uint32_t code) { return session.control(code); },
                                  [&] { return session.status(); }};
    bool listening = true;
    while (!wake.ended) {
        int timeout = wake.stop ? 100 : -1;
        if (listening) listening = channel.serve(server, wake.event.get(), timeout) == 0;
        if (!listening) {  // without its socket the service still ends by its signal
            pollfd watched{wake.event.get(), POLLIN, 0};
            poll(&watched, 1, timeout);
        }
        wake.silence();
        if (!wake.stop) continue;
        // Too early for a service that is still starting: the request stays and is tried again.
        bool early =
            session.control(kControlStop) == EBUSY && session.status().state == ServiceState::startPending;
        if (!early) wake.stop = false;
    }
}

}  // namespace

bool startedAsService(const std::string& name) {
    std::string marker;
    if (environmentGet(kServiceVariable, marker) == 0) return marker == name;
    std::string unit = unitOfService(name);
    return !unit.empty() && runsInUnit(unit);
}

int runServiceDispatcher(const std::string& name, const std::function<void(ServiceSession&)>& serviceMain) {
    std::string unit = unitOfService(name);
    if (unit.empty()) return EINVAL;
    if (!startedAsService(name)) return ESRCH;
    ServiceChannel channel;
    if (int error = channel.open(socketFolders(unit))) return error;
    Wake wake;
    if (!wake.event) return errno;
    SignalWaiter signals;
    if (int error = signals.start([&](int) {
            wake.stop = true;
            wake.ring();
        }))
        return error;
    Session session;
    for (const char* variable : {kServiceVariable, "NOTIFY_SOCKET", "INVOCATION_ID", "SYSTEMD_EXEC_PID"})
        environmentUnset(variable);
    std::thread service;
    try {
        service = std::thread([&] {
            serviceMain(session);
            wake.ended = true;
            wake.ring();
        });
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
    serveUntilEnd(channel, session, wake);
    service.join();
    return 0;
}

}  // namespace platform
