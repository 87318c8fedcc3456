// Sequenced packets keep message borders and tell when the peer is gone, so a message is one struct and one
// call.
//
// The address of a socket is limited to 108 bytes; folders are therefore opened first and the socket named
// through /proc/self/fd. Two processes of one service cannot both listen: the lock file decides, and only its
// owner removes a socket that a killed predecessor left. A client is untrusted until its credentials are
// known, may stay silent for ever without holding up anyone, and loses its connection for any packet of the
// wrong shape; above the limit of clients the one that came first goes.

#include "platform/pf_servicechannel.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/pf_serviceunit.h"

namespace platform {

namespace {

// Wire format between processes of the same machine, possibly of different builds. Unchangeable; a new form
// takes a new magic number.
constexpr uint32_t kMagic = 0x31435351;  // "QSC1"

struct Request {
    uint32_t magic;
    uint32_t code;
};

struct Answer {
    uint32_t magic;
    uint32_t error;
    uint32_t type, state, accepted, exitCode, specificExitCode, checkpoint, waitHint, processId, flags;
};

constexpr size_t kMostClients = 32;
constexpr const char* kSocketName = "control";

int socketAddress(int folder, sockaddr_un& address) {
    address = {};
    address.sun_family = AF_UNIX;
    int length =
        snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, kSocketName);
    return length > 0 && static_cast<size_t>(length) < sizeof address.sun_path ? 0 : ENAMETOOLONG;
}

int makeFolders(const std::string& path) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        if (mkdir(path.substr(0, slash).c_str(), 0755) != 0 && errno != EEXIST) return errno;
        if (slash == std::string::npos) return 0;
    }
}

int connectTo(const std::string& folder, int timeout, Descriptor& socket) {
    Descriptor dir(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!dir) return errno;
    Descriptor fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!fd) return errno;
    timeval limit{timeout / 1000, (timeout % 1000) * 1000};
    if (setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) != 0) return errno;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) != 0) return errno;
    sockaddr_un address;
    if (int error = socketAddress(dir.get(), address)) return error;
    if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return errno;
    socket = std::move(fd);
    return 0;
}

int exchange(int socket, uint32_t code, ServiceStatus& status) {
    Request request{kMagic, code};
    if (send(socket, &request, sizeof request, MSG_NOSIGNAL) != sizeof request)
        return errno == EAGAIN ? ETIMEDOUT : errno == EPIPE ? ESRCH : errno;
    Answer answer{};
    ssize_t got;
    do got = recv(socket, &answer, sizeof answer, 0);
    while (got < 0 && errno == EINTR);
    if (got < 0) return errno == EAGAIN ? ETIMEDOUT : errno == ECONNRESET ? ESRCH : errno;
    if (got == 0) return ESRCH;  // it ended, or refused us
    if (got != sizeof answer || answer.magic != kMagic || answer.state < 1 || answer.state > 7) return EPROTO;
    if (answer.error) return static_cast<int>(answer.error);
    status = {answer.type,
              static_cast<ServiceState>(answer.state),
              answer.accepted,
              answer.exitCode,
              answer.specificExitCode,
              answer.checkpoint,
              answer.waitHint,
              answer.processId,
              answer.flags};
    return 0;
}

bool trusted(int client) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    return peer.uid == 0 || peer.uid == geteuid();
}

}  // namespace

int channelAsk(const std::string& unit, uint32_t code, ServiceStatus& status, int timeout) {
    int refused = ESRCH;
    for (const std::string& folder : runtimeDirectories(unit)) {
        Descriptor socket;
        int error = connectTo(folder, timeout, socket);
        if (error == 0) return exchange(socket.get(), code, status);
        if (error != ENOENT && error != ECONNREFUSED && error != ENOTDIR) refused = error;
    }
    return refused;
}

int ServiceChannel::openIn(const std::string& path) {
    if (int error = makeFolders(path)) return error;
    Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return errno;
    Descriptor lock(openat(folder.get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!lock) return errno;
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) return errno == EWOULDBLOCK ? EADDRINUSE : errno;
    if (unlinkat(folder.get(), kSocketName, 0) != 0 && errno != ENOENT) return errno;
    Descriptor listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener) return errno;
    sockaddr_un address;
    if (int error = socketAddress(folder.get(), address)) return error;
    if (bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) return errno;
    // Credentials decide about a client; other users need not even reach the queue.
    if (fchmodat(folder.get(), kSocketName, 0600, 0) != 0) return errno;
    if (listen(listener.get(), 16) != 0) return errno;
    folder_ = std::move(folder);
    lock_ = std::move(lock);
    listen_ = std::move(listener);
    return 0;
}

int ServiceChannel::open(const std::vector<std::string>& folders) {
    int error = ENOENT;
    for (const std::string& folder : folders) {
        error = openIn(folder);
        if (error == 0 || error == EADDRINUSE) return error;
    }
    return error;
}

void ServiceChannel::close() {
    if (!listen_) return;
    unlinkat(folder_.get(), kSocketName, 0);
    clients_.clear();
    listen_.reset();
    lock_.reset();
    folder_.reset();
}

int ServiceChannel::serve(const Server& server, int wake, int timeout) {
    std::vector<pollfd> watched{{wake, POLLIN, 0}, {listen_.get(), POLLIN, 0}};
    for (const Descriptor& client : clients_) watched.push_back({client.get(), POLLIN, 0});
    if (poll(watched.data(), watched.size(), timeout) < 0) return errno == EINTR ? 0 : errno;
    for (size_t i = clients_.size(); i-- > 0;) {
        if (watched[i + 2].revents && !serveClient(clients_[i].get(), server))
            clients_.erase(clients_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    if (watched[1].revents) acceptClient();
    return 0;
}

void ServiceChannel::acceptClient() {
    // A failed accept is a client that went away, or no descriptor left; the client sees its time-out then.
    Descriptor client(accept4(listen_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client || !trusted(client.get())) return;
    if (clients_.size() >= kMostClients) clients_.erase(clients_.begin());
    clients_.push_back(std::move(client));
}

bool ServiceChannel::serveClient(int client, const Server& server) {
    Request request{};
    ssize_t got = recv(client, &request, sizeof request, MSG_TRUNC);
    if (got < 0) return errno == EINTR || errno == EAGAIN;
    if (got != sizeof request || request.magic != kMagic) return false;
    Answer answer{};
    answer.magic = kMagic;
    if (request.code) answer.error = static_cast<uint32_t>(server.control(request.code));
    ServiceStatus status = server.status();
    answer.type = status.type;
    answer.state = static_cast<uint32_t>(status.state);
    answer.accepted = status.accepted;
    answer.exitCode = status.exitCode;
    answer.specificExitCode = status.specificExitCode;
    answer.checkpoint = status.checkpoint;
    answer.waitHint = status.waitHint;
    answer.processId = status.processId;
    answer.flags = status.flags;
    return send(client, &answer, sizeof answer, MSG_NOSIGNAL) == sizeof answer;
}

}  // namespace platform
