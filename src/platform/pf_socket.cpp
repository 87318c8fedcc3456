// Sockets.
//
// Nothing here waits but waitSocket and lookUpHost, so the floors above decide what ends a wait. Sends carry
// MSG_NOSIGNAL: a peer that has gone is an error of this call, not a signal to the process.

#include "platform/pf_socket.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/sockios.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <atomic>
#include <bit>
#include <cerrno>
#include <memory>

namespace platform {

namespace {

sockaddr_in systemForm(const Endpoint& endpoint) {
    sockaddr_in out{};
    out.sin_family = AF_INET;
    out.sin_addr.s_addr = htonl(endpoint.address);
    out.sin_port = htons(endpoint.port);
    return out;
}

const sockaddr* plain(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }

void sendAtOnce(int fd) {
    int on = 1;
    (void)::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // a matter of speed alone
}

template <class Ask>
int endpointOf(int fd, Endpoint& out, Ask ask) {
    sockaddr_in raw{};
    socklen_t size = sizeof raw;
    if (ask(fd, reinterpret_cast<sockaddr*>(&raw), &size) != 0) return errno;
    out = {ntohl(raw.sin_addr.s_addr), ntohs(raw.sin_port)};
    return 0;
}

template <class Call>
ssize_t retried(Call call) {
    ssize_t result;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

int systemResolver(const char* host, uint32_t& address) {
    addrinfo hints{}, *list = nullptr;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    if (int result = ::getaddrinfo(host, nullptr, &hints, &list)) return result;
    std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> guard(list, ::freeaddrinfo);
    if (!list || !list->ai_addr) return EAI_NODATA;
    address = ntohl(reinterpret_cast<const sockaddr_in*>(list->ai_addr)->sin_addr.s_addr);
    return 0;
}

constinit std::atomic<HostResolver> resolver{systemResolver};

constexpr struct {
    int error, code;
} Codes[] = {
    {EINTR, 10004},           {EBADF, 10009},           {EACCES, 10013},        {EPERM, 10013},
    {EFAULT, 10014},          {EINVAL, 10022},          {EMFILE, 10024},        {ENFILE, 10024},
    {EAGAIN, 10035},          {EINPROGRESS, 10036},     {EALREADY, 10037},      {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039},    {EMSGSIZE, 10040},        {EPROTOTYPE, 10041},    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044}, {EOPNOTSUPP, 10045},    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},    {EADDRINUSE, 10048},      {EADDRNOTAVAIL, 10049}, {ENETDOWN, 10050},
    {ENETUNREACH, 10051},     {ENETRESET, 10052},       {ECONNABORTED, 10053},  {ECONNRESET, 10054},
    {ENOBUFS, 10055},         {ENOMEM, 10055},          {EISCONN, 10056},       {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},       {EPIPE, 10058},           {ETOOMANYREFS, 10059},  {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},    {ELOOP, 10062},           {ENAMETOOLONG, 10063},  {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},    {ENOTEMPTY, 10066},       {EUSERS, 10068},        {EDQUOT, 10069},
    {ESTALE, 10070},          {EREMOTE, 10071},
};

}  // namespace

int openTcpSocket(Descriptor& out) {
    out.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!out) return errno;
    sendAtOnce(out.get());
    return 0;
}

int connectSocket(int fd, const Endpoint& to) {
    sockaddr_in raw = systemForm(to);
    if (::connect(fd, plain(raw), sizeof raw) == 0) return 0;
    // An interrupted connect goes on by itself.
    return errno == EINTR ? EINPROGRESS : errno;
}

int socketError(int fd) {
    int error = 0;
    socklen_t size = sizeof error;
    return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

int reuseAddress(int fd) {
    int on = 1;
    return ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 ? 0 : errno;
}

int bindSocket(int fd, const Endpoint& at) {
    sockaddr_in raw = systemForm(at);
    return ::bind(fd, plain(raw), sizeof raw) == 0 ? 0 : errno;
}

int listenSocket(int fd, int backlog) { return ::listen(fd, backlog) == 0 ? 0 : errno; }

int acceptSocket(int fd, Descriptor& out) {
    for (;;) {
        out.reset(::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (out) {
            sendAtOnce(out.get());
            return 0;
        }
        switch (errno) {
            // Faults of the connection that would have been accepted, and interruptions.
            case EINTR:
            case ECONNABORTED:
            case EPROTO:
            case ENETDOWN:
            case ENOPROTOOPT:
            case EHOSTDOWN:
            case ENONET:
            case EHOSTUNREACH:
            case ENETUNREACH: continue;
            default: return errno;
        }
    }
}

int localEndpoint(int fd, Endpoint& out) { return endpointOf(fd, out, ::getsockname); }
int peerEndpoint(int fd, Endpoint& out) { return endpointOf(fd, out, ::getpeername); }

int receiveBytes(int fd, void* buffer, size_t size, size_t& got) {
    got = 0;
    ssize_t result = retried([&] { return ::recv(fd, buffer, size, MSG_DONTWAIT); });
    if (result < 0) return errno;
    got = static_cast<size_t>(result);
    return 0;
}

int sendBytes(int fd, const void* bytes, size_t size, size_t& sent) {
    sent = 0;
    ssize_t result = retried([&] { return ::send(fd, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL); });
    if (result < 0) return errno;
    sent = static_cast<size_t>(result);
    return 0;
}

int shutdownSocket(int fd, int side) {
    static_assert(SHUT_RD == int(SocketSide::Receive) && SHUT_WR == int(SocketSide::Send) &&
                  SHUT_RDWR == int(SocketSide::Both));
    return ::shutdown(fd, side) == 0 ? 0 : errno;
}

int setLinger(int fd, bool on, int seconds) {
    linger value{on ? 1 : 0, seconds};
    return ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &value, sizeof value) == 0 ? 0 : errno;
}

int waitSettled(int fd, int milliseconds, bool& settled) {
    int unsent = 0;
    if (::ioctl(fd, SIOCOUTQ, &unsent) != 0) return errno;
    // A hang-up by poll's word may be no more than the peer's having ended its own side.
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return errno;
    settled = unsent == 0 || info.tcpi_state == TCP_CLOSE;
    if (!settled) (void)::poll(nullptr, 0, milliseconds);
    return 0;
}

int waitSocket(int fd, SocketEvent event, int milliseconds, bool& ready) {
    pollfd entry{fd, static_cast<short>(event == SocketEvent::Readable ? POLLIN : POLLOUT), 0};
    int count = ::poll(&entry, 1, milliseconds);
    ready = count > 0;
    if (count < 0 && errno != EINTR) return errno;
    return ready && (entry.revents & POLLNVAL) ? EBADF : 0;
}

bool parseQuad(std::string_view text, uint32_t& address) {
    uint32_t value = 0;
    for (int part = 0; part < 4; ++part) {
        size_t dot = part < 3 ? text.find('.') : text.size();
        if (dot == 0 || dot == std::string_view::npos || text.empty()) return false;
        uint32_t number = 0;
        for (char c : text.substr(0, dot)) {
            if (c < '0' || c > '9') return false;
            number = number * 10 + static_cast<uint32_t>(c - '0');
            if (number > 255) return false;
        }
        value = value << 8 | number;
        text.remove_prefix(part < 3 ? dot + 1 : dot);
    }
    address = value;
    return true;
}

std::string quadText(uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        if (shift < 24) text += '.';
        text += std::to_string(address >> shift & 255);
    }
    return text;
}

int probeIpv4() {
    Descriptor probe(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP));
    return probe ? 0 : errno;
}

int listInterfaces(std::vector<InterfaceAddress>& out) {
    out.clear();
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return errno;
    std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> guard(list, ::freeifaddrs);
    auto addressOf = [](const sockaddr* raw) {
        return ntohl(reinterpret_cast<const sockaddr_in*>(raw)->sin_addr.s_addr);
    };
    for (; list; list = list->ifa_next) {
        if (!list->ifa_addr || list->ifa_addr->sa_family != AF_INET) continue;
        int prefix = list->ifa_netmask ? std::countl_one(addressOf(list->ifa_netmask)) : 32;
        out.push_back({addressOf(list->ifa_addr), prefix});
    }
    return 0;
}

int lookUpHost(const std::string& host, uint32_t& address) {
    // The system would cut a name at a NUL and find another host.
    if (host.find('\0') != std::string::npos) return lookUpCode(EAI_NONAME, 0);
    int result = resolver.load(std::memory_order_acquire)(host.c_str(), address);
    return result ? lookUpCode(result, errno) : 0;
}

HostResolver setHostResolver(HostResolver next) {
    return resolver.exchange(next ? next : systemResolver, std::memory_order_acq_rel);
}

int socketCode(int error) {
    for (auto& row : Codes)
        if (row.error == error) return row.code;
    return error;
}

int lookUpCode(int result, int error) {
    switch (result) {
        case EAI_SYSTEM: return socketCode(error);
        case EAI_MEMORY: return socketCode(ENOBUFS);
        case EAI_NODATA:
        case EAI_ADDRFAMILY: return 11004;
        // A name service that is away or refuses knows no host either.
        default: return 11001;
    }
}

}  // namespace platform
