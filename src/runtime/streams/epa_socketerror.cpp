// The table of socket errors, in the order of the codes.

#include "runtime/streams/epa_socketerror.h"

#include <algorithm>
#include <iterator>

#include "platform/pf_socket.h"

namespace {

constexpr struct Row {
    int code;
    const char* type;
    const char* message;
} Rows[] = {
    {10004, "WSAEINTR", "Interrupted system call"},
    {10009, "WSAEBADF", "Bad file number"},
    {10013, "WSAEACCES", "Permission denied"},
    {10014, "WSAEFAULT", "Bad address"},
    {10022, "WSAEINVAL", "Invalid argument"},
    {10024, "WSAEMFILE", "Too many open sockets"},
    {10035, "WSAEWOULDBLOCK", "Operation would block"},
    {10036, "WSAEINPROGRESS", "Operation now in progress"},
    {10037, "WSAEALREADY", "Operation already in progress"},
    {10038, "WSAENOTSOCK", "Socket operation on non-socket"},
    {10039, "WSAEDESTADDRREQ", "Destination address required"},
    {10040, "WSAEMSGSIZE", "Message too long"},
    {10041, "WSAEPROTOTYPE", "Protocol wrong type for socket"},
    {10042, "WSAENOPROTOOPT", "Bad protocol option"},
    {10043, "WSAEPROTONOSUPPORT", "Protocol not supported"},
    {10044, "WSAESOCKTNOSUPPORT", "Socket type not supported"},
    {10045, "WSAEOPNOTSUPP", "Operation not supported on socket"},
    {10046, "WSAEPFNOSUPPORT", "Protocol family not supported"},
    {10047, "WSAEAFNOSUPPORT", "Address family not supported"},
    {10048, "WSAEADDRINUSE", "Address already in use"},
    {10049, "WSAEADDRNOTAVAIL", "Can't assign requested address"},
    {10050, "WSAENETDOWN", "Network is down"},
    {10051, "WSAENETUNREACH", "Network is unreachable"},
    {10052, "WSAENETRESET", "Net connection reset"},
    {10053, "WSAECONNABORTED", "Software caused connection abort"},
    {10054, "WSAECONNRESET", "Connection reset by peer"},
    {10055, "WSAENOBUFS", "No buffer space available"},
    {10056, "WSAEISCONN", "Socket is already connected"},
    {10057, "WSAENOTCONN", "Socket is not connected"},
    {10058, "WSAESHUTDOWN", "Can't send after socket shutdown"},
    {10059, "WSAETOOMANYREFS", "Too many references, can't splice"},
    {10060, "WSAETIMEDOUT", "Connection timed out"},
    {10061, "WSAECONNREFUSED", "Connection refused"},
    {10062, "WSAELOOP", "Too many levels of symbolic links"},
    {10063, "WSAENAMETOOLONG", "File name too long"},
    {10064, "WSAEHOSTDOWN", "Host is down"},
    {10065, "WSAEHOSTUNREACH", "No route to host"},
    {10066, "WSAENOTEMPTY", "Directory not empty"},
    {10067, "WSAEPROCLIM", "Too many processes"},
    {10068, "WSAEUSERS", "Too many users"},
    {10069, "WSAEDQUOT", "Disc quota exceeded"},
    {10070, "WSAESTALE", "Stale NFS file handle"},
    {10071, "WSAEREMOTE", "Too many levels of remote in path"},
    {10091, "WSASYSNOTREADY", "Network system is unavailable"},
    {10092, "WSAVERNOTSUPPORTED", "Winsock version out of range"},
    {10093, "WSANOTINITIALISED", "WSAStartup not yet called"},
    {10101, "WSAEDISCON", "Graceful shutdown in progress"},
    {11001, "WSAHOST_NOT_FOUND", "Host not found"},
    {11004, "WSANO_DATA", "No host data of that type was found"},
};
static_assert(std::is_sorted(std::begin(Rows), std::end(Rows),
                             [](const Row& a, const Row& b) { return a.code < b.code; }));

}  // namespace

void EPA_RaiseSocketError(int code, const char* function, XPK_Place where) {
    auto row = std::find_if(std::begin(Rows), std::end(Rows), [&](const Row& r) { return r.code == code; });
    bool known = row != std::end(Rows);
    XPK_Raise(known ? row->type : "SocketError",
              known ? row->message : "[Errno $errno] from function '$function'", where)
        .number("errno", code)
        .string("function", function)
        .fields("errno,function")
        .raise();
}

void EPA_CheckSocket(int error, const char* function, XPK_Place where) {
    if (error) EPA_RaiseSocketError(platform::socketCode(error), function, where);
}

void EPA_RaiseClosedSocket(XPK_Place where) {
    XPK_Raise("ValueError", "I/O operation on closed socket", where).raise();
}
