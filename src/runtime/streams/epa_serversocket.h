// EPA_ServerSocket: a listening TCP socket for scripts. Module `ipe.serversocket`: create(port=0, backlog=0,
// address="").
//
// An empty address and "*" listen on all interfaces; port 0 lets the system choose. The attributes `port` and
// `address` tell where the socket listens. Script method:
//   accept(shutdown=, timeout=, linger=)   waits for a connection and gives an EPA_Socket; None when the
//       process ends, and the socket is closed then. The keywords are the new socket's: the side that a drain
//       shuts down (-1 for none), the milliseconds of each of its waits (0 for no limit), and a tuple
//       (on, seconds) for its close.
// Copies share the listening socket, which closes with the last of them.
#pragma once

#include <memory>

#include "ipe/object/ipe_moduletype.h"
#include "runtime/streams/epa_sharedsocket.h"

struct EPA_ServerSocketData {
    explicit EPA_ServerSocketData(platform::Descriptor descriptor) : listening(std::move(descriptor)) {}
    EPA_SharedSocket listening;
    platform::Endpoint local;
};

class EPA_ServerSocket final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    explicit EPA_ServerSocket(std::shared_ptr<EPA_ServerSocketData> data);

    // An EPA_Socket, or null when the process ends.
    IPE_Object accept(const IPE_Arguments& arguments);
    const platform::Endpoint& local() const noexcept { return data_->local; }
    void close() noexcept { data_->listening.close(); }

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __copy__() override;

  private:
    std::shared_ptr<EPA_ServerSocketData> data_;
};

// The module's function.
IPE_Object EPA_CreateServerSocket(const IPE_Arguments& arguments);
