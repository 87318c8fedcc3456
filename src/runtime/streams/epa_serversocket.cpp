// Listening sockets.

#include "runtime/streams/epa_serversocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_shutdown.h"
#include "runtime/streams/epa_hostlookup.h"
#include "runtime/streams/epa_socket.h"
#include "runtime/streams/epa_socketerror.h"

const char EPA_ServerSocket::TypeName[] = "ServerSocket";

namespace {

enum Method { Accept };

int clamped(int64_t value, int64_t low, int64_t high) {
    return static_cast<int>(std::clamp(value, low, high));
}

// What accept's keywords ask for; read before the wait, so that a wrong one costs no connection.
struct AcceptOptions {
    explicit AcceptOptions(const IPE_Arguments& arguments)
        : side(clamped(arguments.keywordInt("shutdown", -1), INT_MIN, INT_MAX)),
          timeout(clamped(arguments.keywordInt("timeout", 0), 0, INT_MAX)) {
        IPE_Object linger = arguments.keyword("linger");
        if (!linger || linger.is<IPE_NoneType>()) return;
        IPE_Tuple pair(linger);
        hasLinger = true;
        lingerOn = pair[0]->__int__() != 0;
        lingerSeconds = clamped(pair[1]->__int__(), 0, UINT16_MAX);
    }
    void apply(EPA_SocketData& data) const {
        data.shutdownMode = side;
        data.timeout = timeout;
        if (hasLinger)
            EPA_SocketCall("setsockopt (SO_LINGER)",
                           [&] { return data.connection.setLinger(lingerOn, lingerSeconds); });
    }
    int side, timeout;
    bool hasLinger = false, lingerOn = false;
    int lingerSeconds = 0;
};

}  // namespace

EPA_ServerSocket::EPA_ServerSocket(std::shared_ptr<EPA_ServerSocketData> data)
    : IPE_ModuleType(TypeName), data_(std::move(data)) {
    attributes_->setText("port", IPE_Int(data_->local.port));
    attributes_->setText("address", IPE_String(platform::quadText(data_->local.address)));
}

IPE_Object EPA_ServerSocket::accept(const IPE_Arguments& arguments) {
    AcceptOptions options(arguments);
    EPA_ThreadPassport passport;
    platform::Descriptor accepted;
    int error = 0;
    bool hungUp = false;
    if (!XPK_IsRunning()) return {};
    {
        XPK_ApiScope api("accept");
        EPA_SharedSocket::Use use(data_->listening);
        while ((error = platform::acceptSocket(use.fd(), accepted)) == EAGAIN)
            if (EPA_WaitSocket<EPA_ShutdownServerSocket>(use, platform::SocketEvent::Readable, 0) ==
                EPA_SocketWait::Stopped)
                break;
        hungUp = use.hungUp();
    }
    if (hungUp) close();
    if (!XPK_IsRunning()) return {};
    if (!data_->listening.isOpen()) EPA_RaiseClosedSocket();
    EPA_CheckSocket(error, "accept");
    auto data = std::make_shared<EPA_SocketData>(std::move(accepted));
    options.apply(*data);
    IPE_Object socket = IPE_New<EPA_Socket>(std::move(data));
    socket->__bind__();
    return socket;
}

void EPA_ServerSocket::__bind__() { bindMethods({{"accept", Accept}}); }

IPE_Object EPA_ServerSocket::__callmethod__(int, const IPE_Arguments& arguments) {
    arguments.check("", "accept");
    return accept(arguments);
}

IPE_Object EPA_ServerSocket::__copy__() {
    IPE_Object copy = IPE_New<EPA_ServerSocket>(data_);
    copy->__bind__();
    return copy;
}

IPE_Object EPA_CreateServerSocket(const IPE_Arguments& arguments) {
    arguments.check("|iis", "create");
    const int64_t port = arguments.integer(0), backlog = arguments.integer(1);
    const std::string_view address = arguments.text(2);
    XPK_TraceScope trace;
    XPK_TraceString(trace.state(), "address", address.empty() ? "localhost" : address);
    XPK_TraceNumber(trace.state(), "port", port);
    XPK_TraceNumber(trace.state(), "backlog", backlog);

    platform::Descriptor descriptor;
    EPA_SocketCall("socket", [&] { return platform::openTcpSocket(descriptor); });
    platform::Endpoint local{0, EPA_PortOf(port, "bind")};
    if (!address.empty() && address != "*") local.address = EPA_HostAddress(address);
    const int fd = descriptor.get();
    EPA_SocketCall("setsocketopt", [&] { return platform::reuseAddress(fd); });
    EPA_SocketCall("bind", [&] { return platform::bindSocket(fd, local); });
    EPA_SocketCall("listen", [&] { return platform::listenSocket(fd, clamped(backlog, 0, INT_MAX)); });
    if (port == 0) EPA_SocketCall("getsockname", [&] { return platform::localEndpoint(fd, local); });
    auto data = std::make_shared<EPA_ServerSocketData>(std::move(descriptor));
    data->local = local;
    IPE_Object socket = IPE_New<EPA_ServerSocket>(std::move(data));
    socket->__bind__();
    return socket;
}
