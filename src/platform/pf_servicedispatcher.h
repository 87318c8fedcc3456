#pragma once

// The service's side: what a process does that was started by a service manager.

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/pf_service.h"

namespace platform {

// What the service's main function speaks to. Any thread may call.
class ServiceSession {
  public:
    virtual ~ServiceSession() = default;

    // Who handles controls, on the dispatcher's thread, one at a time. EBUSY: there is a handler already.
    // Until one is registered controls are answered with EBUSY. What a handler raises is answered as EIO.
    virtual int registerHandler(std::function<void(uint32_t code)> handler) = 0;

    // Reports a state to the manager and to whoever asks. `processId` is filled in.
    virtual void report(const ServiceStatus& status) = 0;
};

// Whether this process was started as the service `name` by one of the managers.
bool startedAsService(const std::string& name);

// Runs `serviceMain` on a thread of its own and serves controls on the calling thread until it has returned;
// then gives 0. SIGTERM and SIGINT, which prepareSignals must have blocked, are the stop control; no
// SignalWaiter may be started meanwhile. The control "interrogate" goes to the handler too. What serviceMain
// raises ends the process. Failures before serviceMain is called: ESRCH, the process was not started as this
// service; EADDRINUSE, it runs already; EINVAL, no possible name; or the errno of the control socket.
//
// The marker variables of the manager leave the environment, so that started programs do not inherit the
// role.
int runServiceDispatcher(const std::string& name, const std::function<void(ServiceSession&)>& serviceMain);

}  // namespace platform
