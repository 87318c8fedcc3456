#pragma once

// The main thread's loop: it dispatches posted functions, ready descriptors and a tick each second.
//
// One thread, the loop's, calls `next`, `watch`, `change`, `unwatch` and the destructor; `post` and
// `postQuit` are for any thread, also before the loop runs. Functions that can fail give 0 or an errno.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include <deque>

#include "platform/pf_descriptor.h"

namespace platform {

class EventLoop {
  public:
    enum class Step {
        dispatched,  // one function, descriptor or tick was served
        quit,        // `value` is the code given to postQuit
        error,       // `value` is the errno of the failed wait
    };
    // Gets the EPOLL* bits that are ready.
    using Callback = std::function<void(uint32_t events)>;

    EventLoop() = default;
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // Makes the descriptors; before anything else, once.
    int open();

    // Waits for one thing to do and does it, at most about a second. What a callback raises leaves through
    // here, and the loop can go on afterwards. Ready things take turns, so none starves another.
    Step next(int& value);

    // Makes a `next` answer quit, after the functions posted before it. The first code counts.
    void postQuit(int code);
    // Runs `function` on the loop's thread, in the order of posting.
    void post(std::function<void()> function);

    // Calls `callback` while `fd` is ready for `events` (EPOLLIN, EPOLLOUT, ...; level-triggered). The
    // descriptor stays the caller's and must be unwatched before it is closed. EEXIST: it is watched already.
    // A callback may watch and unwatch any descriptor, its own too.
    int watch(int fd, uint32_t events, Callback callback);
    int change(int fd, uint32_t events);
    int unwatch(int fd);

  private:
    struct Watch {
        uint32_t generation;
        Callback callback;
    };

    Step servePosted(int& value);
    void signalEvent();

    Descriptor epoll_, timer_, event_;
    std::map<int, std::shared_ptr<Watch>> watches_;
    uint32_t generation_ = 0;

    std::mutex lock_;  // guards the three below
    std::deque<std::function<void()>> posted_;
    bool quit_ = false;
    int quitCode_ = 0;
};

}  // namespace platform
