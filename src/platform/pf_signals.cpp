// SIGINT and SIGTERM are blocked in every thread and read from a signal descriptor, so that the reaction is
// ordinary code that may lock and allocate. The waiter polls the signal descriptor and an event descriptor of
// its own, which is how it is stopped.

#include "platform/pf_signals.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace platform {

namespace {

std::atomic<bool> waiterStarted{false};

sigset_t endSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

void swallow(int) {}

int swallowSignal(int number) {
    struct sigaction action {};
    action.sa_handler = swallow;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(number, &action, nullptr) == 0 ? 0 : errno;
}

}  // namespace

int prepareSignals(bool swallowHangup) {
    sigset_t set = endSignals();
    if (int error = pthread_sigmask(SIG_BLOCK, &set, nullptr)) return error;
    if (int error = swallowSignal(SIGPIPE)) return error;
    // A file beyond the limit of sizes is a failed write, not the end of the server.
    if (int error = swallowSignal(SIGXFSZ)) return error;
    return swallowHangup ? swallowSignal(SIGHUP) : 0;
}

void resetSignalsInChild() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

int SignalWaiter::start(std::function<void(int)> taken) {
    if (waiterStarted.exchange(true)) return EBUSY;
    sigset_t set = endSignals();
    signals_.reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    int error = signals_ && wake_ ? 0 : errno;
    if (error == 0) {
        taken_ = std::move(taken);
        ending_ = false;
        try {
            thread_ = std::thread([this] { run(); });
        } catch (const std::system_error& failure) {
            error = failure.code().value();
        }
    }
    if (error) waiterStarted = false;
    return error;
}

void SignalWaiter::run() {
    pollfd watched[2] = {{signals_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    while (!ending_) {
        if (poll(watched, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        signalfd_siginfo info;
        if (!(watched[0].revents & POLLIN) || read(signals_.get(), &info, sizeof info) != sizeof info)
            continue;
        try {
            taken_(static_cast<int>(info.ssi_signo));
        } catch (...) {
            // Told in the header: there is nobody behind this thread who could be told.
        }
    }
}

void SignalWaiter::stop() {
    if (!thread_.joinable()) return;
    ending_ = true;
    if (thread_.get_id() == std::this_thread::get_id()) return;
    uint64_t one = 1;
    while (write(wake_.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    thread_.join();
    taken_ = nullptr;
    waiterStarted = false;
}

}  // namespace platform
