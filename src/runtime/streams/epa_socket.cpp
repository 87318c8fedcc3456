// Connected sockets.
//
// A call is tried first and waits only if the system would have to: a line that has arrived costs one call,
// and the handler goes on the passport only around a true wait. The timeout is read at each wait.

#include "runtime/streams/epa_socket.h"

#include <cerrno>
#include <chrono>
#include <string>

#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_shutdown.h"
#include "runtime/streams/epa_hostlookup.h"
#include "runtime/streams/epa_isocketstream.h"
#include "runtime/streams/epa_osocketstream.h"
#include "runtime/streams/epa_socketerror.h"

const char EPA_Socket::TypeName[] = "Socket";

namespace {

using platform::SocketEvent;

enum Method { GetIStream, GetOStream, GetAddress, Close };

constinit std::atomic<uint64_t> bytesReceived{0}, bytesSent{0};

constexpr size_t DrainBlock = 4096;
constexpr int TearDownBlocks = 64;

EPA_SocketWait await(EPA_SharedSocket::Use& use, SocketEvent event, int64_t limit) {
    return EPA_WaitSocket<EPA_SocketUnblock>(use, event, limit);
}

// Receives and throws away what has arrived already. Unread data would make the close reset the connection,
// and the peer might lose the answer that it has not read yet.
void discardArrived(int fd) {
    char block[DrainBlock];
    size_t got = 0;
    for (int i = 0; i < TearDownBlocks; ++i)
        if (platform::receiveBytes(fd, block, sizeof block, got) || got == 0) return;
}

}  // namespace

EPA_SocketTraffic EPA_GetSocketTraffic() noexcept {
    return {bytesReceived.load(std::memory_order_relaxed), bytesSent.load(std::memory_order_relaxed)};
}

void EPA_Socket::requireOpen() const {
    if (!isOpen()) EPA_RaiseClosedSocket();
}

// What a handler began: the socket was hung up under its owner, who now closes it.
void EPA_Socket::tearDown() {
    closed_ = true;
    data_->connection.close();
}

size_t EPA_Socket::receive(void* buffer, size_t size) {
    requireOpen();
    if (size == 0) return 0;
    int error = 0;
    size_t got = 0;
    bool hungUp = false;
    {
        XPK_ApiScope api("recv");
        EPA_SharedSocket::Use use(data_->connection);
        while ((error = platform::receiveBytes(use.fd(), buffer, size, got)) == EAGAIN) {
            EPA_SocketWait wait =
                await(use, SocketEvent::Readable, data_->timeout.load(std::memory_order_relaxed));
            if (wait == EPA_SocketWait::Ready) continue;
            if (wait == EPA_SocketWait::TimedOut) error = ETIMEDOUT;
            break;
        }
        hungUp = use.hungUp();
        if (hungUp) discardArrived(use.fd());
    }
    if (hungUp) tearDown();
    if (!XPK_IsRunning()) EPA_RaiseSystemExit();
    requireOpen();
    if (error != ECONNRESET) EPA_CheckSocket(error, "recv");
    if (got > size) XPK_Raise("RuntimeError", "recv has returned more data than requested").raise();
    if (got == 0) {
        if (eofSeen_) XPK_Raise("RuntimeError", "the connection has been closed").raise();
        eofSeen_ = true;
        return 0;
    }
    bytesReceived.fetch_add(got, std::memory_order_relaxed);
    return got;
}

void EPA_Socket::send(const void* bytes, size_t size) {
    requireOpen();
    const char* from = static_cast<const char*>(bytes);
    size_t left = size;
    bool hungUp = false;
    {
        XPK_ApiScope api("send");
        EPA_SharedSocket::Use use(data_->connection);
        while (left > 0) {
            size_t sent = 0;
            int error = platform::sendBytes(use.fd(), from, left, sent);
            from += sent;
            left -= sent;
            if (error == EAGAIN) {
                EPA_SocketWait wait =
                    await(use, SocketEvent::Writable, data_->timeout.load(std::memory_order_relaxed));
                if (wait == EPA_SocketWait::Stopped) break;
                if (wait == EPA_SocketWait::TimedOut) error = ETIMEDOUT;
            }
            if (use.hungUp() || !data_->connection.isOpen()) break;
            // A peer that reset the connection earlier than this call shows as a broken pipe as well.
            if (error == EPIPE && !data_->sendingEnded) error = ECONNRESET;
            if (error != EAGAIN) EPA_CheckSocket(error, "send");
        }
        hungUp = use.hungUp();
        if (hungUp) discardArrived(use.fd());
    }
    if (hungUp) tearDown();
    if (closed_ || left > 0) EPA_RaiseClosedSocket();
    bytesSent.fetch_add(size, std::memory_order_relaxed);
}

void EPA_Socket::drain(int side) {
    requireOpen();
    if (side == -1) return;
    using Clock = std::chrono::steady_clock;
    bool hungUp = false;
    {
        EPA_SharedSocket::Use use(data_->connection);
        EPA_SocketCall("shutdown", [&] {
            int error = platform::shutdownSocket(use.fd(), side);
            // The peer has broken the connection: there is nothing left to end or to drain.
            return error == ENOTCONN ? 0 : error;
        });
        if (side != static_cast<int>(platform::SocketSide::Receive)) data_->sendingEnded = true;
        XPK_ApiScope api("recv");
        char block[DrainBlock];
        size_t got = 0;
        const auto begin = Clock::now();
        while (XPK_IsRunning()) {
            int64_t limit = data_->timeout.load(std::memory_order_relaxed);
            if (limit > 0) {
                limit -= std::chrono::floor<std::chrono::milliseconds>(Clock::now() - begin).count();
                if (limit <= 0) break;
            }
            int error = platform::receiveBytes(use.fd(), block, sizeof block, got);
            if (error == EAGAIN && await(use, SocketEvent::Readable, limit) == EPA_SocketWait::Ready)
                continue;
            if (error || got == 0) break;
        }
        hungUp = use.hungUp();
    }
    if (hungUp) tearDown();
}

void EPA_Socket::close() {
    closed_ = true;
    data_->connection.close();
}

void EPA_Socket::__bind__() {
    bindMethods({{"get_istream", GetIStream},
                 {"get_ostream", GetOStream},
                 {"get_address", GetAddress},
                 {"close", Close}});
}

IPE_Object EPA_Socket::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case GetIStream: arguments.check("", "get_istream"); return IPE_New<EPA_ISocketStream>(*this);
        case GetOStream: arguments.check("", "get_ostream"); return IPE_New<EPA_OSocketStream>(*this);
        case GetAddress: {
            arguments.check("", "get_address");
            requireOpen();
            EPA_SharedSocket::Use use(data_->connection);
            platform::Endpoint peer;
            EPA_SocketCall("getpeername", [&] { return platform::peerEndpoint(use.fd(), peer); });
            return IPE_String(platform::quadText(peer.address));
        }
        case Close:
            arguments.check("", "close");
            close();
            return {};
        default: return {};
    }
}

IPE_Object EPA_Socket::__copy__() {
    IPE_Object copy = IPE_New<EPA_Socket>(data_);
    auto* socket = copy.as<EPA_Socket>();
    socket->closed_ = closed_;
    socket->eofSeen_ = eofSeen_;
    socket->__bind__();
    return copy;
}

void EPA_Socket::__str__(IPE_PrintContext& context, IPE_StackList&) {
    context.out.append("Socket (id=");
    context.out.appendNumber(closed_ ? -1 : data_->connection.handle());
    context.out.append(')');
}

void EPA_Socket::__repr__(IPE_PrintContext& context, IPE_StackList& stack) { __str__(context, stack); }

uint16_t EPA_PortOf(int64_t port, const char* function) {
    if (port < 0 || port > UINT16_MAX) EPA_CheckSocket(EINVAL, function);
    return static_cast<uint16_t>(port);
}

IPE_Object EPA_CreateSocket(const IPE_Arguments& arguments) {
    arguments.check("si", "create");
    platform::Descriptor descriptor;
    EPA_SocketCall("socket", [&] { return platform::openTcpSocket(descriptor); });
    platform::Endpoint to{EPA_HostAddress(arguments.text(0)), EPA_PortOf(arguments.integer(1), "connect")};
    auto data = std::make_shared<EPA_SocketData>(std::move(descriptor));
    EPA_SocketCall("connect", [&] {
        EPA_SharedSocket::Use use(data->connection);
        int error = platform::connectSocket(use.fd(), to);
        if (error != EINPROGRESS) return error;
        if (await(use, SocketEvent::Writable, 0) == EPA_SocketWait::Stopped) EPA_RaiseSystemExit();
        return platform::socketError(use.fd());
    });
    IPE_Object socket = IPE_New<EPA_Socket>(std::move(data));
    socket->__bind__();
    return socket;
}
