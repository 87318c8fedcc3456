// EPA_ISocketStream: an input stream over a socket; EPA_Socket's get_istream makes it.
//
// The first read at the end of the data gives what there is, an empty line at last; a script that reads a
// line once more is stopped by RuntimeError "the connection has been closed".
#pragma once

#include "runtime/streams/epa_istream.h"
#include "runtime/streams/epa_socket.h"

class EPA_ISocketStream final : public EPA_IStream {
  public:
    explicit EPA_ISocketStream(EPA_Socket& socket) : socket_(&socket) {}

    bool isEof() override { return false; }  // only the peer knows
    bool isClosed() override { return socket().eofSeen(); }
    size_t readRaw(void* buffer, size_t size) override;
    // RuntimeError "seekp is not supported on socket streams".
    void seek(int64_t offset, int origin) override;
    // Bytes that reads have given so far.
    int64_t tell() override { return received_ - static_cast<int64_t>(buffered()); }

    IPE_Object __call__(const IPE_Arguments& arguments) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  protected:
    int methodNumber(std::string_view name) const override;

  private:
    EPA_Socket& socket() const noexcept { return *socket_.as<EPA_Socket>(); }

    IPE_Object socket_;
    int64_t received_ = 0;
    bool endGiven_ = false;  // a script has been given the end as an empty line
};
