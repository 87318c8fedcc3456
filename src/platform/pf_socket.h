#pragma once

// TCP over IPv4 by descriptors that never block, the machine's own addresses, and name look-ups.
//
// Functions give 0 or an errno. Every descriptor is closed on exec and non-blocking: a call that would have
// to wait gives EAGAIN (EINPROGRESS for connect), and waitSocket waits. EINTR never comes out. Any thread;
// two threads may send and receive on one descriptor at a time.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/pf_descriptor.h"

namespace platform {

struct Endpoint {
    uint32_t address = 0;  // in the host's order: 127.0.0.1 is 0x7F000001
    uint16_t port = 0;
};

enum class SocketSide { Receive = 0, Send = 1, Both = 2 };  // the numbers of `how` in scripts

// Small writes are sent at once: who writes to a socket batches by himself.
int openTcpSocket(Descriptor& out);
// 0 when connected already; EINPROGRESS: wait for writing, then ask socketError.
int connectSocket(int fd, const Endpoint& to);
// The error that a finished connect or an event left behind, which is forgotten then; 0 for none.
int socketError(int fd);
int reuseAddress(int fd);
int bindSocket(int fd, const Endpoint& at);
int listenSocket(int fd, int backlog);
// Connections that broke off in the queue are passed over.
int acceptSocket(int fd, Descriptor& out);
int localEndpoint(int fd, Endpoint& out);
int peerEndpoint(int fd, Endpoint& out);
// At least one byte; `got` 0 is the end of the data.
int receiveBytes(int fd, void* buffer, size_t size, size_t& got);
// Some of the bytes. A connection that cannot send is EPIPE, never a signal.
int sendBytes(int fd, const void* bytes, size_t size, size_t& sent);
// EINVAL for a side outside SocketSide. Shutting a listening or connecting descriptor ends what it does.
int shutdownSocket(int fd, int side);
int setLinger(int fd, bool on, int seconds);
// `settled`: the peer has acknowledged every byte, or the connection is broken. Waits `milliseconds` if not.
int waitSettled(int fd, int milliseconds, bool& settled);

enum class SocketEvent { Readable, Writable };
// Waits at most `milliseconds`, 0 to look only. `ready` is also true for errors and ends: the call then
// tells.
int waitSocket(int fd, SocketEvent event, int milliseconds, bool& ready);

// Four decimal numbers up to 255 with dots between; leading zeros count for nothing.
bool parseQuad(std::string_view text, uint32_t& address);
std::string quadText(uint32_t address);

// Whether the machine has IPv4 at all: opens a UDP socket and closes it.
int probeIpv4();
struct InterfaceAddress {
    uint32_t address;
    int prefix;  // leading ones of the net mask
};
// The IPv4 addresses of all interfaces in the system's order.
int listInterfaces(std::vector<InterfaceAddress>& out);

// The first IPv4 address of a host, and 0 or a code of the table below; may take as long as the name service
// does.
int lookUpHost(const std::string& host, uint32_t& address);
// What answers look-ups: 0 or an EAI_* value; EAI_SYSTEM with errno. Null for the system's. Gives the one
// before. Called on any thread.
using HostResolver = int (*)(const char* host, uint32_t& address);
HostResolver setHostResolver(HostResolver resolver);

// The code by which scripts know an errno (10004 to 10071); an errno without one is given as it is.
int socketCode(int error);
// The same for a failed look-up: 11001 no such host, 11004 a host without an address. `error` is the errno of
// EAI_SYSTEM.
int lookUpCode(int result, int error);

}  // namespace platform
