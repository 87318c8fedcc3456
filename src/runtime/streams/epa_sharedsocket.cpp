// The state word counts the users and carries the mark of the close; whoever brings it to "closed, no users"
// closes the descriptor, and that happens once, since a closed socket takes no new user.
//
// A hang-up is the system's shutdown of both directions. It is a state of the socket, not an event: a wait
// that begins after it returns at once, so nothing is lost between a thread's test of the flag and its wait.
// A connect that begins after it is the one exception; the next round of the stop procedure ends that. The
// wait also looks at the running flag twice a second, for threads that are never interrupted.

#include "runtime/streams/epa_sharedsocket.h"

#include <algorithm>
#include <chrono>

#include "runtime/epa_shutdown.h"
#include "runtime/streams/epa_socketerror.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds Slice(500);
constexpr int LingerStep = 5;  // milliseconds

}  // namespace

void EPA_SharedSocket::close() noexcept {
    if (fd_ < 0) return;
    // The closing thread is a user itself, so that the descriptor stays until it is through.
    uint32_t users = state_.load(std::memory_order_acquire);
    do {
        if (users & Closed) return;
    } while (!state_.compare_exchange_weak(users, (users + 1) | Closed, std::memory_order_acq_rel));
    if (users > 0) (void)platform::shutdownSocket(fd_, static_cast<int>(platform::SocketSide::Both));
    if (state_.fetch_sub(1, std::memory_order_acq_rel) == (Closed | 1)) finish();
}

int EPA_SharedSocket::setLinger(bool on, int seconds) {
    Use use(*this);
    int error = platform::setLinger(use.fd(), on, seconds);
    if (!error) linger_.store(on ? seconds : -1, std::memory_order_relaxed);
    return error;
}

void EPA_SharedSocket::finish() noexcept {
    int seconds = linger_.load(std::memory_order_relaxed);
    if (seconds > 0) {
        // The system's own lingering close cannot be interrupted.
        (void)platform::shutdownSocket(fd_, static_cast<int>(platform::SocketSide::Send));
        const auto until = Clock::now() + std::chrono::seconds(seconds);
        bool settled = false;
        while (!settled && XPK_IsRunning() && Clock::now() < until)
            if (platform::waitSettled(fd_, LingerStep, settled)) break;
        (void)platform::setLinger(fd_, false, 0);
    }
    platform::Descriptor last(fd_);
}

EPA_SharedSocket::Use::Use(EPA_SharedSocket& socket) : socket_(socket) {
    uint32_t state = socket_.state_.load(std::memory_order_acquire);
    do {
        if (state & Closed || socket_.fd_ < 0) EPA_RaiseClosedSocket();
    } while (!socket_.state_.compare_exchange_weak(state, state + 1, std::memory_order_acq_rel));
}

EPA_SharedSocket::Use::~Use() {
    if (socket_.state_.fetch_sub(1, std::memory_order_acq_rel) == (Closed | 1)) socket_.finish();
}

void EPA_SharedSocket::Use::hangUp() noexcept {
    hungUp_.store(true, std::memory_order_release);
    (void)platform::shutdownSocket(fd(), static_cast<int>(platform::SocketSide::Both));
}

template <class Handler>
EPA_SocketWait EPA_WaitSocket(EPA_SharedSocket::Use& use, platform::SocketEvent event, int64_t limit) {
    Handler handler(use);
    const auto begin = Clock::now();
    for (;;) {
        if (!XPK_IsRunning() || use.hungUp()) return EPA_SocketWait::Stopped;
        auto slice = Slice;
        if (limit > 0) {
            auto left = milliseconds(limit) - std::chrono::floor<milliseconds>(Clock::now() - begin);
            if (left.count() <= 0) return EPA_SocketWait::TimedOut;
            slice = std::min(slice, left);
        }
        bool ready = false;
        EPA_CheckSocket(platform::waitSocket(use.fd(), event, static_cast<int>(slice.count()), ready),
                        "poll");
        if (ready) return use.hungUp() ? EPA_SocketWait::Stopped : EPA_SocketWait::Ready;
    }
}

template EPA_SocketWait EPA_WaitSocket<EPA_SocketUnblock>(EPA_SharedSocket::Use&, platform::SocketEvent,
                                                          int64_t);
template EPA_SocketWait EPA_WaitSocket<EPA_ShutdownServerSocket>(EPA_SharedSocket::Use&,
                                                                 platform::SocketEvent, int64_t);
