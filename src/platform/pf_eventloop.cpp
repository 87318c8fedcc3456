// The loop stands on one epoll set: an event descriptor for posted functions and the quit, a timer descriptor
// for the tick, and whatever else is watched.
//
// Each step takes a single event. That costs a system call for each, which a main thread can afford, and buys
// two things: no stale event of a descriptor that an earlier callback of the same batch closed, and turns,
// because the kernel puts a level-triggered descriptor at the end of its ready list after each report. The
// event descriptor stays readable as long as something is posted and thereby takes its turn like the others.
// A watch carries a generation number, so that an event of a closed descriptor never reaches the callback of
// a new one with the same number.

#include "platform/pf_eventloop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include <cerrno>

namespace platform {

namespace {

// Below any generation number in use.
constexpr uint32_t kOwnGeneration = 0;

uint64_t pack(int fd, uint32_t generation) {
    return static_cast<uint64_t>(generation) << 32 | static_cast<uint32_t>(fd);
}

int addTo(int epoll, int fd, uint32_t events, uint32_t generation) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = pack(fd, generation);
    return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0 ? 0 : errno;
}

void drain(int fd) {
    uint64_t count;
    // Both kinds of descriptor give eight bytes or EAGAIN, and either is an empty counter afterwards.
    while (read(fd, &count, sizeof count) < 0 && errno == EINTR) {
    }
}

}  // namespace

int EventLoop::open() {
    Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll) return errno;
    Descriptor timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    if (!timer) return errno;
    Descriptor event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event) return errno;
    itimerspec second{};
    second.it_interval.tv_sec = second.it_value.tv_sec = 1;
    if (timerfd_settime(timer.get(), 0, &second, nullptr) != 0) return errno;
    if (int error = addTo(epoll.get(), timer.get(), EPOLLIN, kOwnGeneration)) return error;
    if (int error = addTo(epoll.get(), event.get(), EPOLLIN, kOwnGeneration)) return error;
    epoll_ = std::move(epoll);
    timer_ = std::move(timer);
    std::lock_guard hold(lock_);
    event_ = std::move(event);
    if (!posted_.empty() || quit_) signalEvent();
    return 0;
}

EventLoop::Step EventLoop::next(int& value) {
    epoll_event event{};
    int count = epoll_wait(epoll_.get(), &event, 1, -1);
    if (count < 0 && errno == EINTR) return Step::dispatched;  // a signal: the caller looks at its flags
    if (count < 0) {
        value = errno;
        return Step::error;
    }
    int fd = static_cast<int>(event.data.u64 & 0xFFFFFFFF);
    auto generation = static_cast<uint32_t>(event.data.u64 >> 32);
    if (generation == kOwnGeneration) {
        if (fd == event_.get()) return servePosted(value);
        drain(timer_.get());
        return Step::dispatched;
    }
    auto found = watches_.find(fd);
    if (found == watches_.end() || found->second->generation != generation) return Step::dispatched;
    std::shared_ptr<Watch> keep = found->second;  // the callback may unwatch itself
    keep->callback(event.events);
    return Step::dispatched;
}

EventLoop::Step EventLoop::servePosted(int& value) {
    std::function<void()> function;
    {
        std::lock_guard hold(lock_);
        if (posted_.empty()) {
            if (!quit_) {
                drain(event_.get());
                return Step::dispatched;
            }
            value = quitCode_;
            return Step::quit;
        }
        function = std::move(posted_.front());
        posted_.pop_front();
        if (posted_.empty() && !quit_) drain(event_.get());
    }
    function();
    return Step::dispatched;
}

void EventLoop::signalEvent() {
    if (!event_) return;  // posted before the loop is open: open() signals
    uint64_t one = 1;
    while (write(event_.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
}

void EventLoop::postQuit(int code) {
    std::lock_guard hold(lock_);
    if (quit_) return;
    quit_ = true;
    quitCode_ = code;
    signalEvent();
}

void EventLoop::post(std::function<void()> function) {
    std::lock_guard hold(lock_);
    posted_.push_back(std::move(function));
    signalEvent();
}

int EventLoop::watch(int fd, uint32_t events, Callback callback) {
    if (watches_.count(fd)) return EEXIST;
    if (++generation_ == kOwnGeneration) ++generation_;
    auto entry = std::make_shared<Watch>(Watch{generation_, std::move(callback)});
    if (int error = addTo(epoll_.get(), fd, events, entry->generation)) return error;
    watches_.emplace(fd, std::move(entry));
    return 0;
}

int EventLoop::change(int fd, uint32_t events) {
    auto found = watches_.find(fd);
    if (found == watches_.end()) return ENOENT;
    epoll_event event{};
    event.events = events;
    event.data.u64 = pack(fd, found->second->generation);
    return epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &event) == 0 ? 0 : errno;
}

int EventLoop::unwatch(int fd) {
    auto found = watches_.find(fd);
    if (found == watches_.end()) return ENOENT;
    watches_.erase(found);
    return epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr) == 0 ? 0 : errno;
}

}  // namespace platform
