// EPA_Socket: a connected TCP socket for scripts. Module `ipe.socket`: create(host, port).
//
// Script methods:
//   get_istream()   a new EPA_ISocketStream over this socket
//   get_ostream()   a new EPA_OSocketStream over this socket
//   get_address()   the peer's address as text, "10.0.0.1"
//   close()
// A failed call raises the named errors of epa_socketerror.h; on a closed socket ValueError "I/O operation on
// closed socket". Blocking calls end when the process does. Copies and streams share the connection; one
// reads and one writes at a time, on one thread each, and any thread may close.
#pragma once

#include <memory>

#include "ipe/object/ipe_moduletype.h"
#include "runtime/streams/epa_sharedsocket.h"

// What a socket, its copies and its streams share. The last of them closes the connection.
struct EPA_SocketData {
    explicit EPA_SocketData(platform::Descriptor descriptor) : connection(std::move(descriptor)) {}
    EPA_SharedSocket connection;
    std::atomic<int> shutdownMode{-1};  // the side that a drain shuts down; -1 for none
    std::atomic<int> timeout{0};        // milliseconds of each wait to receive or send, 0 for no limit
    std::atomic<bool> sendingEnded{false};
};

class EPA_Socket final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    explicit EPA_Socket(std::shared_ptr<EPA_SocketData> data)
        : IPE_ModuleType(TypeName), data_(std::move(data)) {}

    // At least one byte, or 0 at the end of the data, which a reset connection counts as too. At the second
    // end RuntimeError "the connection has been closed". WSAETIMEDOUT; SystemExit once the process ends.
    size_t receive(void* buffer, size_t size);
    // All bytes. ValueError when shutdown ends it.
    void send(const void* bytes, size_t size);
    // Shuts the side down and throws away what still comes until the peer has ended too: then the close does
    // not cost the peer our last bytes. Nothing for side -1. With a timeout the whole of it takes that long.
    void drain(int side);
    void close();

    bool isOpen() const noexcept { return !closed_ && data_->connection.isOpen(); }
    bool eofSeen() const noexcept { return eofSeen_; }
    EPA_SocketData& data() noexcept { return *data_; }

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    // A new object over the same connection.
    IPE_Object __copy__() override;
    void __str__(IPE_PrintContext& context, IPE_StackList& stack) override;
    void __repr__(IPE_PrintContext& context, IPE_StackList& stack) override;

  private:
    void requireOpen() const;
    void tearDown();

    std::shared_ptr<EPA_SocketData> data_;
    bool closed_ = false;
    bool eofSeen_ = false;
};

// Bytes that all sockets of the process have received and sent.
struct EPA_SocketTraffic {
    uint64_t received, sent;
};
EPA_SocketTraffic EPA_GetSocketTraffic() noexcept;

// The module's function.
IPE_Object EPA_CreateSocket(const IPE_Arguments& arguments);
// The port as a number for the system; a number that is no port is the error WSAEINVAL of `function`.
uint16_t EPA_PortOf(int64_t port, const char* function);
