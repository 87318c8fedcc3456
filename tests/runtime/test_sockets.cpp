// TCP sockets and their streams, on loopback.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "managed_threads.h"
#include "runtime/streams/epa_hostlookup.h"
#include "runtime/streams/epa_isocketstream.h"
#include "runtime/streams/epa_osocketstream.h"
#include "runtime/streams/epa_serversocket.h"
#include "runtime/streams/epa_socketerror.h"
#include "runtime/streams/epa_socketstart.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
constexpr uint32_t Loopback = 0x7F000001;

IPE_Object listenOn(const char* address = "127.0.0.1", int64_t port = 0, int64_t backlog = 16) {
    IPE_Object items[] = {I(port), I(backlog), S(address)};
    return EPA_CreateServerSocket(IPE_Arguments(items, 3));
}
int64_t portOf(const IPE_Object& server) { return server.as<EPA_ServerSocket>()->local().port; }
IPE_Object connectTo(std::string_view host, int64_t port) {
    IPE_Object items[] = {S(host), I(port)};
    return EPA_CreateSocket(IPE_Arguments(items, 2));
}
EPA_Socket& socketOf(const IPE_Object& socket) { return *socket.as<EPA_Socket>(); }

// A pair of connected sockets: the accepted one with the keywords.
struct Pair {
    explicit Pair(IPE_Object keywords = IPE_NewDict())
        : server(listenOn()),
          client(connectTo("127.0.0.1", portOf(server))),
          accepted(call(server, "accept", {}, keywords)),
          in(call(accepted, "get_istream")),
          out(call(accepted, "get_ostream")) {}
    // The client closes in such a way that the connection is reset.
    void reset() {
        socketOf(client).data().connection.setLinger(true, 0);
        call(client, "close");
    }
    std::string clientReads(size_t size) {
        std::string text(size, 0);
        for (size_t done = 0, got = 1; got && done < size; done += got) {
            got = socketOf(client).receive(text.data() + done, size - done);
            if (!got) text.resize(done);
        }
        return text;
    }
    EPA_OSocketStream& stream() { return *out.as<EPA_OSocketStream>(); }
    IPE_Object server, client, accepted, in, out;
};

std::string line(const IPE_Object& stream, IPE_Object keywords = IPE_NewDict()) {
    return str(stream->__call__(IPE_Arguments(nullptr, 0, keywords)));
}
void put(const IPE_Object& stream, std::string_view text, IPE_Object keywords = D({{S("flush"), I(1)}})) {
    IPE_Object item = S(text);
    stream->__call__(IPE_Arguments(&item, 1, keywords));
}

class Sockets : public ManagedThreads {
  protected:
    // Runs `body` on a thread of the manager; the object outlives the thread.
    struct Worker {
        std::function<void()> body;
        std::atomic<bool> done{false};
        std::string error = "nothing";
    };
    void run(Worker& worker) {
        start([&](EPA_ThreadPassportImpl&) {
            worker.error = raised(worker.body);
            worker.done = true;
        });
        manager().release();
    }
};

// Names and fields of ordinary failures: the script program `sockets`.
TEST_F(Sockets, ErrorTable) {
    EXPECT_EQ(raised([] { EPA_RaiseSocketError(12345, "recv"); }),
              "SocketError: [Errno 12345] from function 'recv'");
    EXPECT_EQ(raised([] { EPA_CheckSocket(EDQUOT, "x"); }), "WSAEDQUOT: Disc quota exceeded");
    EXPECT_EQ(raised([] { EPA_CheckSocket(EUCLEAN, "x"); }), "SocketError: [Errno 117] from function 'x'");
    bool ready = false;
    EXPECT_EQ(platform::socketCode(platform::waitSocket(1000000, platform::SocketEvent::Readable, 0, ready)),
              10009);
    try {
        listenOn("203.0.113.1", 7, 9);
        ADD_FAILURE();
    } catch (const XPK_Exception& e) {
        EXPECT_EQ(e.type(), "WSAEADDRNOTAVAIL");
        EXPECT_EQ(*e.record().findString("address"), "203.0.113.1");
        EXPECT_EQ(*e.record().findNumber("port"), 7);
        EXPECT_EQ(*e.record().findNumber("backlog"), 9);
        EXPECT_EQ(XPK_CurrentThread()->apiName, nullptr);
    }
    for (int64_t bad : {int64_t{-1}, int64_t{65536 + 80}, INT64_MAX})
        EXPECT_EQ(raised([&] { connectTo("127.0.0.1", bad); }), "WSAEINVAL: Invalid argument");
}

TEST_F(Sockets, Hosts) {
    uint32_t address = 0;
    for (const char* text : {"127.0.0.1", "000000000000127.0.0.0001"}) {
        EXPECT_TRUE(platform::parseQuad(text, address)) << text;
        EXPECT_EQ(address, Loopback);
    }
    for (const char* text : {"", ".", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1..2.3", "1.2.3.", ".1.2.3",
                             "1.2.3.x", "4294967297.0.0.1", "-1.2.3.4"})
        EXPECT_FALSE(platform::parseQuad(text, address)) << text;
    EXPECT_EQ(platform::quadText(0xFF0A0001), "255.10.0.1");

    static std::atomic<int> asked;
    platform::setHostResolver([](const char* host, uint32_t& out) {
        ++asked;
        std::string_view name = host;
        out = Loopback;
        if (name == "here") return 0;
        if (name == "bare") return EAI_NODATA;
        if (name == "short") return EAI_MEMORY;
        return name == "broken" ? (errno = ENETDOWN, EAI_SYSTEM) : EAI_AGAIN;
    });
    IPE_Object server = listenOn();
    connectTo("127.0.0.1", portOf(server));
    EXPECT_EQ(asked, 0) << "a quad is not looked up";
    EXPECT_EQ(str(call(connectTo("here", portOf(server)), "get_address")), "127.0.0.1");
    const std::pair<const char*, const char*> unknown[] = {
        {"bare", "WSANO_DATA: No host data of that type was found"},
        {"short", "WSAENOBUFS: No buffer space available"},
        {"broken", "WSAENETDOWN: Network is down"}};
    for (auto& row : unknown) EXPECT_EQ(raised([&] { connectTo(row.first, 1); }), row.second);
    EXPECT_EQ(raised([] { listenOn("absent"); }), "WSAHOST_NOT_FOUND: Host not found");
    EXPECT_EQ(listenOn("here").as<EPA_ServerSocket>()->local().address, Loopback);
    platform::setHostResolver(nullptr);
    for (const char* all : {"", "*"}) {
        IPE_Object open = listenOn(all);
        EXPECT_EQ(open.as<EPA_ServerSocket>()->local().address, 0U);
        EXPECT_GT(portOf(open), 0);
        connectTo("127.0.0.2", portOf(open));
    }
}

TEST_F(Sockets, AcceptKeywords) {
    Pair pair(D({{S("shutdown"), I(2)}, {S("timeout"), I(60)}, {S("linger"), T({I(1), I(7)})}}));
    EXPECT_EQ(socketOf(pair.accepted).data().shutdownMode, 2);
    linger value{};
    socklen_t size = sizeof value;
    int fd = socketOf(pair.accepted).data().connection.handle();
    ::getsockopt(fd, SOL_SOCKET, SO_LINGER, &value, &size);
    EXPECT_EQ(value.l_onoff, 1);
    EXPECT_EQ(value.l_linger, 7);
    EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    // Each wait has the time anew.
    for (int i = 0; i < 2; ++i) {
        auto begin = Clock::now();
        EXPECT_EQ(raised([&] { line(pair.in); }), "WSAETIMEDOUT: Connection timed out");
        EXPECT_GE(Clock::now() - begin, 55ms);
    }
    EXPECT_EQ(raised([&] { socketOf(pair.accepted).send(std::string(1 << 24, 'x').data(), 1 << 24); }),
              "WSAETIMEDOUT: Connection timed out");
    // Wrong keywords cost no connection.
    IPE_Object waiting = connectTo("127.0.0.1", portOf(pair.server));
    EXPECT_EQ(raised([&] {
                  call(pair.server, "accept", {}, D({{S("linger"), I(1)}}));
              }).substr(0, 9),
              "TypeError");
    EXPECT_EQ(raised([&] {
                  call(pair.server, "accept", {}, D({{S("linger"), T({I(1)})}}));
              }),
              "IndexError: tuple index out of range");
    EXPECT_TRUE(call(pair.server, "accept").is<EPA_Socket>());
    pair.reset();
    auto begin = Clock::now();
    call(pair.accepted, "close");
    EXPECT_LT(Clock::now() - begin, 1s) << "nothing to linger for";
}

TEST_F(Sockets, EndOfData) {
    Pair pair;
    pair.reset();
    char byte;
    EXPECT_EQ(socketOf(pair.accepted).receive(&byte, 1), 0U) << "a reset is an end";
    EXPECT_EQ(raised([&] { socketOf(pair.accepted).receive(&byte, 1); }),
              "RuntimeError: the connection has been closed");
    EXPECT_EQ(raised([&] { put(pair.out, "x"); }), "WSAECONNRESET: Connection reset by peer");
    // A peer that has ended its own side still gets answers.
    Pair half;
    put(call(half.client, "get_ostream"), "question");
    socketOf(half.client).data().timeout = 50;
    socketOf(half.client).drain(1);
    EXPECT_EQ(line(half.in), "question");
    EXPECT_EQ(line(half.in), "");
    put(half.out, "answer");
    EXPECT_EQ(half.clientReads(6), "answer");
}

TEST_F(Sockets, ClosedSockets) {
    Pair pair;
    IPE_Object copy = IPE_Object_Strip(pair.accepted);
    EXPECT_EQ(str(call(copy, "get_address")), "127.0.0.1");
    call(copy, "close");
    call(copy, "close");
    EXPECT_EQ(str(pair.accepted), "Socket (id=-1)");
    for (auto& attempt :
         std::initializer_list<std::function<void()>>{[&] { line(pair.in); }, [&] { put(pair.out, "x"); },
                                                      [&] { call(pair.accepted, "get_address"); }})
        EXPECT_EQ(raised(attempt), "ValueError: I/O operation on closed socket");
    EXPECT_EQ(raised([&] { call(pair.out, "insert", {S("x")}); }), "RuntimeError: Socket is closed!");
    EXPECT_EQ(pair.clientReads(1), "");
    // A close on another thread ends the wait, and the number is free only afterwards.
    Pair waiting;
    IPE_Object other = IPE_Object_Strip(waiting.accepted);
    Worker worker{[&] { line(other->__getattr__(S("get_istream"), 0)->__call__(IPE_Arguments())); }};
    run(worker);
    std::this_thread::sleep_for(30ms);
    call(waiting.accepted, "close");
    while (!worker.done) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(worker.error, "ValueError: I/O operation on closed socket");
}

TEST_F(Sockets, Writing) {
    Pair pair;
    EPA_OSocketStream& stream = pair.stream();
    // Writes over several chunks arrive whole, and the counters count.
    auto before = EPA_GetSocketTraffic();
    std::string big;
    for (int i = 0; big.size() < 3 * EPA_OSocketStream::ChunkSize; ++i) big += std::to_string(i);
    for (size_t at = 0; at < big.size(); at += 100) stream.write(std::string_view(big).substr(at, 100));
    EXPECT_EQ(stream.pending(), big.size());
    stream.flush();
    EXPECT_EQ(pair.clientReads(big.size()), big);
    EXPECT_EQ(EPA_GetSocketTraffic().sent - before.sent, big.size());
    EXPECT_EQ(EPA_GetSocketTraffic().received - before.received, big.size());
    stream.setAutoFlush(true);
    stream.write(std::string(8192, 'x'));
    EXPECT_EQ(stream.pending(), 8192U);
    stream.write("y");
    EXPECT_EQ(stream.pending(), 0U);
    EXPECT_EQ(pair.clientReads(8193).back(), 'y');
    stream.setConvert(true);
    stream.write(std::string(8192, 'x') + "\xC3");
    EXPECT_EQ(stream.pending(), 1U) << "half a character waits for the rest";
    stream.write("\xA4");
    stream.flush();
    EXPECT_EQ(pair.clientReads(8194).substr(8191), "x\u00e4");
    stream.write("\xFF");
    EXPECT_EQ(raised([&] { stream.flush(); }).substr(0, 12), "UnicodeError");
    stream.write("ok");
    stream.flush();
    EXPECT_EQ(pair.clientReads(2), "ok") << "the failed flush left nothing behind";
    EXPECT_EQ(raised([&] {
                  call(pair.out, "sendbase64", {S("?"), D({{S("a"), I(1)}})});
              }).substr(0, 10),
              "ValueError");
    EXPECT_EQ(stream.pending(), 0U);
}

TEST_F(Sockets, Drain) {
    for (int64_t side : {-1, 2}) {
        Pair pair(D({{S("timeout"), I(100)}, {S("shutdown"), I(side)}}));
        put(pair.out, "bye", IPE_NewDict());
        // The peer never ends: the drain takes the time of one wait.
        put(call(pair.client, "get_ostream"), std::string(20000, 'x'));
        auto begin = Clock::now();
        put(pair.out, "!", D({{S("shutdown"), I(1)}}));
        EXPECT_EQ(Clock::now() - begin >= 90ms, side == -1);
        EXPECT_EQ(pair.clientReads(9), "bye!");
        EXPECT_EQ(raised([&] { put(pair.out, "x"); }), "WSAESHUTDOWN: Can't send after socket shutdown");
        EXPECT_EQ(raised([&] { call(pair.out, "insert", {S("x")}); }), "RuntimeError: Socket is closed!");
    }
    Pair odd(D({{S("shutdown"), I(77)}}));
    EXPECT_EQ(raised([&] { put(odd.out, "", D({{S("shutdown"), I(1)}})); }), "WSAEINVAL: Invalid argument");
    // A close that lingers for a reader who does not read ends with the process.
    Pair slow(D({{S("timeout"), I(50)}, {S("linger"), T({I(1), I(60)})}}));
    EXPECT_NE(raised([&] { socketOf(slow.accepted).send(std::string(1 << 24, 'x').data(), 1 << 24); }),
              "nothing");
    std::thread stopper([] {
        std::this_thread::sleep_for(200ms);
        request_shutdown();
    });
    auto begin = Clock::now();
    call(slow.accepted, "close");
    EXPECT_GE(Clock::now() - begin, 100ms);
    EXPECT_LT(Clock::now() - begin, 3s);
    stopper.join();
}

// The primary thread is never interrupted; it looks at the flag itself.
TEST_F(Sockets, PrimaryThread) {
    Pair pair;
    std::thread stopper([] {
        std::this_thread::sleep_for(50ms);
        request_shutdown();
    });
    auto begin = Clock::now();
    EXPECT_EQ(raised([&] { line(pair.in); }), "SystemExit: ");
    EXPECT_LT(Clock::now() - begin, 1s);
    stopper.join();
    EXPECT_FALSE(call(pair.server, "accept"));
}

// Threads in every blocking call are stopped at a random moment, also before they block.
TEST_F(Sockets, StopAtRandomMoments) {
    std::mt19937 random(7);
    static std::atomic<bool> answer;
    platform::setHostResolver([](const char*, uint32_t&) {
        while (!answer) std::this_thread::sleep_for(5ms);
        return EAI_NONAME;
    });
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        answer = false;
        Pair reader, writer;
        IPE_Object idle = listenOn(), full = listenOn("127.0.0.1", 0, 0);
        // The queue of one takes two; further connections get no answer.
        IPE_Object first = connectTo("127.0.0.1", portOf(full));
        // Each worker's values are its own.
        IPE_Object accepting = IPE_Object_Strip(idle), reading = IPE_Object_Strip(reader.accepted),
                   writing = IPE_Object_Strip(writer.accepted);
        const int64_t fullPort = portOf(full);
        bool accepted = false;
        Worker workers[5];
        workers[0].body = [&] { accepted = call(accepting, "accept").is<EPA_Socket>(); };
        workers[1].body = [&] { line(call(reading, "get_istream")); };
        workers[2].body = [&] {
            std::string block(1 << 20, 'x');
            for (;;) socketOf(writing).send(block.data(), block.size());
        };
        workers[3].body = [&] {
            std::vector<IPE_Object> held;
            for (;;) held.push_back(connectTo("127.0.0.1", fullPort));
        };
        workers[4].body = [&] { connectTo("slow.name", 1); };
        for (Worker& worker : workers) run(worker);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        auto begin = Clock::now();
        request_shutdown();
        manager().stop();
        EXPECT_LT(Clock::now() - begin, 3s);
        answer = true;
        for (Worker& worker : workers) EXPECT_TRUE(worker.done);
        EXPECT_FALSE(accepted);
        EXPECT_EQ(workers[0].error, "nothing");
        EXPECT_EQ(workers[1].error, "SystemExit: ");
        EXPECT_EQ(workers[2].error, "ValueError: I/O operation on closed socket");
        EXPECT_EQ(workers[3].error, "SystemExit: ");
        EXPECT_EQ(workers[4].error, "SystemExit: ");
        epa_detail::running = true;
    }
    platform::setHostResolver(nullptr);
}

}  // namespace
