#pragma once

// The control socket of a running service: fixed packets over an AF_UNIX SOCK_SEQPACKET socket named
// "control" in the service's runtime folder. The server serves the superuser and its own user, whatever the
// mode of the socket.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/pf_descriptor.h"
#include "platform/pf_service.h"

namespace platform {

// Asks the running service of a unit. `code` 0 asks for the status alone. ESRCH: nothing listens.
// ETIMEDOUT: no answer within `timeout` milliseconds. Any thread may call.
int channelAsk(const std::string& unit, uint32_t code, ServiceStatus& status, int timeout = 30000);

// The service's end. One thread.
class ServiceChannel {
  public:
    // Handles a control (never 0) and gives the errno to answer; `status` gives what to answer with.
    struct Server {
        std::function<int(uint32_t code)> control;
        std::function<ServiceStatus()> status;
    };

    ~ServiceChannel() { close(); }

    // Makes the folder where it is missing, takes its lock and listens. EADDRINUSE: another process serves
    // this unit. `folders` are tried in turn; the last one's error is given.
    int open(const std::vector<std::string>& folders);
    // Removes the socket and drops all clients.
    void close();

    // Waits up to `timeout` milliseconds (-1: without limit) for a client or for `wake` to be readable, and
    // serves what is there.
    int serve(const Server& server, int wake, int timeout);

  private:
    int openIn(const std::string& folder);
    void acceptClient();
    bool serveClient(int client, const Server& server);

    Descriptor folder_, lock_, listen_;
    std::vector<Descriptor> clients_;
};

}  // namespace platform
