// Asks a line server on loopback as fast as it answers: one "ping" in flight on each connection.
//
//   line_client PORT CONNECTIONS SECONDS     prints {"requests": a second, "wrong": answers that are not
//   "pong"}
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view Ask = "ping\n", Answer = "pong\n";

int connectTo(int port) {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<uint16_t>(port));
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int on = 1;
    if (fd < 0 || ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
        std::perror("connect");
        std::exit(1);
    }
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

bool ask(int fd) {
    return ::send(fd, Ask.data(), Ask.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(Ask.size());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: line_client PORT CONNECTIONS SECONDS\n");
        return 2;
    }
    const int port = std::atoi(argv[1]), connections = std::atoi(argv[2]);
    const double seconds = std::atof(argv[3]);
    int poll = ::epoll_create1(EPOLL_CLOEXEC);
    for (int i = 0; i < connections; ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = connectTo(port);
        ::epoll_ctl(poll, EPOLL_CTL_ADD, event.data.fd, &event);
        if (!ask(event.data.fd)) return 1;
    }
    const auto begin = Clock::now();
    auto spent = [&] { return std::chrono::duration<double>(Clock::now() - begin).count(); };
    long answers = 0, wrong = 0;
    std::vector<epoll_event> events(static_cast<size_t>(connections));
    while (spent() < seconds) {
        int count = ::epoll_wait(poll, events.data(), connections, 100);
        for (int i = 0; i < count; ++i) {
            char buffer[256];
            int fd = events[static_cast<size_t>(i)].data.fd;
            ssize_t got = ::recv(fd, buffer, sizeof buffer, 0);
            if (got <= 0) {
                ++wrong;
                ::close(fd);
                continue;
            }
            // An answer this short arrives whole.
            wrong += std::string_view(buffer, static_cast<size_t>(got)) != Answer;
            ++answers;
            if (!ask(fd)) ++wrong;
        }
    }
    std::printf("{\"requests\": %.0f, \"wrong\": %ld}\n", static_cast<double>(answers) / spent(), wrong);
    return 0;
}
