// EPA_SharedSocket: a descriptor that several threads may use and any of them may close; and the wait on it.
//
// A thread that calls the system with the descriptor holds a Use. close() while others use the descriptor
// shuts it down, which ends their waits, and the last of them closes it: a descriptor number is never given
// back while somebody may still call with it. Any thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/pf_socket.h"
#include "runtime/epa_shutdownhandler.h"

class EPA_SharedSocket {
  public:
    explicit EPA_SharedSocket(platform::Descriptor descriptor) : fd_(descriptor.release()) {}
    EPA_SharedSocket(const EPA_SharedSocket&) = delete;
    EPA_SharedSocket& operator=(const EPA_SharedSocket&) = delete;
    // Nobody uses the descriptor any more.
    ~EPA_SharedSocket() { close(); }

    bool isOpen() const noexcept { return !(state_.load(std::memory_order_acquire) & Closed); }
    // For display; -1 once closed.
    int handle() const noexcept { return isOpen() ? fd_ : -1; }
    void close() noexcept;
    // Seconds that the close takes at most to get the last data through, as the system's option of the name;
    // 0 with `on` throws the data away. The end of the process cuts the wait short. 0 or an errno.
    int setLinger(bool on, int seconds);

    class Use {
      public:
        // ValueError "I/O operation on closed socket" when it is closed.
        explicit Use(EPA_SharedSocket& socket);
        ~Use();
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;
        int fd() const noexcept { return socket_.fd_; }
        // Ends the waits on the descriptor, present and future, without closing it. Any thread.
        void hangUp() noexcept;
        bool hungUp() const noexcept { return hungUp_.load(std::memory_order_acquire); }

      private:
        EPA_SharedSocket& socket_;
        std::atomic<bool> hungUp_{false};
    };

  private:
    static constexpr uint32_t Closed = 1U << 31;
    void finish() noexcept;

    const int fd_;
    std::atomic<uint32_t> state_{0};  // users, and Closed
    std::atomic<int> linger_{-1};
};

// Around a wait in connect, recv or send: shutdown hangs the connection up.
class EPA_SocketUnblock final : public EPA_ShutdownHandler {
  public:
    explicit EPA_SocketUnblock(EPA_SharedSocket::Use& use) : use_(use) { passport_->setHandler(this); }
    ~EPA_SocketUnblock() override { passport_->clearHandler(); }
    void shutdown() override { use_.hangUp(); }

  private:
    EPA_ThreadPassport passport_;
    EPA_SharedSocket::Use& use_;
};

// Around a wait in accept: shutdown hangs the listening socket up.
class EPA_ShutdownServerSocket final : public EPA_ShutdownHandler {
  public:
    explicit EPA_ShutdownServerSocket(EPA_SharedSocket::Use& use) : use_(use) { passport_->setHandler(this); }
    ~EPA_ShutdownServerSocket() override { passport_->clearHandler(); }
    void shutdown() override { use_.hangUp(); }

  private:
    EPA_ThreadPassport passport_;
    EPA_SharedSocket::Use& use_;
};

enum class EPA_SocketWait {
    Ready,     // the call may go on, or has an error to tell
    TimedOut,  // nothing in `milliseconds`
    Stopped,   // the process ends, or a handler hung the socket up
};
// Waits under a handler of the class named, without limit when `milliseconds` is 0. DevelopmentError on a
// thread without a passport. Defined for the two handlers above.
template <class Handler>
EPA_SocketWait EPA_WaitSocket(EPA_SharedSocket::Use& use, platform::SocketEvent event, int64_t milliseconds);
