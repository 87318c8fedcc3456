// Look-ups.
//
// The name service takes its time and cannot be interrupted, so a thread of its own asks it. The caller waits
// as for any semaphore; when shutdown ends that wait the helper is left behind. It owns what it writes to,
// knows nothing of the runtime, and holds no slot of the thread manager.

#include "runtime/streams/epa_hostlookup.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <system_error>
#include <thread>

#include "platform/pf_socket.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/streams/epa_socketerror.h"

namespace {

struct LookUp {
    explicit LookUp(std::string_view name) : host(name) {}
    const std::string host;
    EPA_Semaphore done{0, EPA_ThreadPassportImpl::SemaphoreCeiling};  // shutdown releases it too, repeatedly
    std::atomic<bool> finished{false};
    int code = 0;
    uint32_t address = 0;
};

}  // namespace

void EPA_RaiseSystemExit() { XPK_Raise("SystemExit", "").raise(); }

uint32_t EPA_HostAddress(std::string_view host) {
    uint32_t address = 0;
    if (platform::parseQuad(host, address)) return address;
    XPK_ApiScope api("gethostbyname");
    auto lookUp = std::make_shared<LookUp>(host);
    try {
        std::thread([lookUp] {
            lookUp->code = platform::lookUpHost(lookUp->host, lookUp->address);
            lookUp->finished.store(true, std::memory_order_release);
            lookUp->done.release();
        }).detach();
    } catch (const std::system_error&) {
        EPA_CheckSocket(ENOBUFS, "gethostbyname");
    }
    // An unlimited wait fails for one reason; a handler's release without an answer is the same.
    if (!EPA_InterruptibleWait(lookUp->done, -1) || !lookUp->finished.load(std::memory_order_acquire))
        EPA_RaiseSystemExit();
    if (lookUp->code) EPA_RaiseSocketError(lookUp->code, "gethostbyname");
    return lookUp->address;
}
