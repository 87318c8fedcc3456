// Loop, signals, link file, environment and mounts.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <thread>

#include "platform/pf_console.h"
#include "platform/pf_eventloop.h"
#include "platform/pf_links.h"
#include "platform/pf_process.h"
#include "platform/pf_signals.h"
#include "scratch.h"

using namespace platform;

namespace {

struct Pipe {
    Pipe() {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    Descriptor reader, writer;
};

}  // namespace

TEST(EventLoop, postedFunctionsRunBeforeTheQuit) {
    EventLoop loop;
    std::string trace;
    loop.post([&] { trace += 'a'; });  // before open
    ASSERT_EQ(loop.open(), 0);
    std::thread poster([&] {
        loop.post([&] {
            trace += 'b';
            throw std::runtime_error("from a callback");
        });
        loop.post([&] { trace += 'c'; });
        loop.postQuit(7);
        loop.postQuit(8);
    });
    poster.join();
    int value = 0, raised = 0;
    for (;;) {
        try {
            if (loop.next(value) == EventLoop::Step::quit) break;
        } catch (const std::runtime_error&) {
            ++raised;
        }
    }
    EXPECT_EQ(trace, "abc");
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(value, 7);
}

TEST(EventLoop, descriptorsTakeTurnsAndMayGoAway) {
    EventLoop loop;
    ASSERT_EQ(loop.open(), 0);
    Pipe first, second;
    int served[2] = {0, 0}, value = 0;
    EXPECT_EQ(loop.next(value), EventLoop::Step::dispatched) << "it ticks without any event";
    ASSERT_EQ(loop.watch(first.writer.get(), EPOLLOUT, [&](uint32_t) { ++served[0]; }), 0);
    ASSERT_EQ(loop.watch(second.writer.get(), EPOLLOUT, [&](uint32_t) { ++served[1]; }), 0);
    EXPECT_EQ(loop.watch(second.writer.get(), EPOLLOUT, {}), EEXIST);
    for (int i = 0; i < 20; ++i) loop.next(value);
    EXPECT_GE(served[0], 8);
    EXPECT_GE(served[1], 8);
    // An endless chain of posted functions leaves the others their turns.
    std::function<void()> again = [&] { loop.post(again); };
    loop.post(again);
    served[0] = 0;
    for (int i = 0; i < 30; ++i) loop.next(value);
    EXPECT_GE(served[0], 5);
    ASSERT_EQ(loop.unwatch(first.writer.get()), 0);
    EXPECT_EQ(loop.unwatch(first.writer.get()), ENOENT);
    EXPECT_EQ(loop.change(first.writer.get(), EPOLLIN), ENOENT);
    ASSERT_EQ(loop.change(second.writer.get(), 0), 0);
    served[0] = served[1] = 0;
    for (int i = 0; i < 10; ++i) loop.next(value);
    EXPECT_EQ(served[0] + served[1], 0);
    // A callback that ends its own watch.
    ASSERT_EQ(loop.watch(first.writer.get(), EPOLLOUT,
                         [&](uint32_t) {
                             ++served[0];
                             loop.unwatch(first.writer.get());
                         }),
              0);
    for (int i = 0; i < 10; ++i) loop.next(value);
    EXPECT_EQ(served[0], 1);
}

TEST(Signals, takenByTheWaiterAlone) {
    pid_t child = fork();
    if (child == 0) {  // a process of its own, for blocked signals would stay with the tests that follow
        if (prepareSignals(true) != 0) _exit(10);
        std::atomic<int> term{0}, interrupt{0};
        SignalWaiter waiter, other;
        if (waiter.start([&](int number) {
                (number == SIGTERM ? term : interrupt)++;
                throw number;
            }) != 0)
            _exit(11);
        if (other.start([](int) {}) != EBUSY) _exit(12);
        kill(getpid(), SIGTERM);
        for (int i = 0; i < 1000 && term < 1; ++i) usleep(10'000);
        kill(getpid(), SIGINT);
        for (int i = 0; i < 1000 && interrupt < 1; ++i) usleep(10'000);
        if (term != 1 || interrupt != 1) _exit(13);
        kill(getpid(), SIGHUP);
        Pipe broken;
        broken.reader.reset();
        if (write(broken.writer.get(), "x", 1) != -1 || errno != EPIPE) _exit(14);
        waiter.stop();
        waiter.stop();
        if (other.start([](int) {}) != 0) _exit(15);
        other.stop();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(Links, linkLeadsToADirectoryOnly) {
    Scratch scratch;
    std::string program = scratch / "v1.2/quillsrv", link = program + ".LNK", directory = "unchanged";
    ASSERT_EQ(mkdir((scratch / "v1.2").c_str(), 0755), 0);
    EXPECT_EQ(workingDirectoryLink("/a/b.c.exe"), "/a/b.c.LNK");
    EXPECT_EQ(readWorkingDirectoryLink(program, directory), ENOENT);
    for (auto [target, error] : {std::pair{"nowhere", ENOENT}, {"/dev/null", ENOTDIR}, {"..", 0}}) {
        EXPECT_EQ(directory, "unchanged");
        ASSERT_EQ(symlink(target, link.c_str()), 0);
        EXPECT_EQ(readWorkingDirectoryLink(program, directory), error) << target;
        unlink(link.c_str());
    }
    EXPECT_EQ(directory, scratch.path());
    ASSERT_EQ(mkdir(link.c_str(), 0755), 0);
    EXPECT_EQ(readWorkingDirectoryLink(program, directory), EINVAL);
}

TEST(Process, mountsAreDisksOnceEach) {
    const std::string text =
        "22 27 0:21 / /proc rw - proc proc rw\n"
        "27 1 254:0 / / rw,relatime shared:1 - ext4 /dev/vda rw\n"
        "28 27 254:0 /srv/x /mnt/bind rw - ext4 /dev/vda rw\n"
        "29 27 8:1 /sub /bound rw - xfs /dev/sda1 rw\n"
        "30 27 8:1 / /data\\040two\\134x rw - xfs /dev/sda1 rw\n"
        "31 27 7:0 / /snap/core ro - squashfs /dev/loop0 ro\n"
        "32 27 0:40 / /net rw - nfs4 server:/x rw\n"
        "33 27 0:41 / /pool rw - zfs pool rw\n"
        "34 27 8:2 / /old rw - ext4 /dev/sda2 rw\n"
        "35 27 8:3 / /old rw - ext4 /dev/sda3 rw\n"
        "36 27 0:42 / /tmp rw - tmpfs tmpfs rw\n"
        "garbage\n37 27 8:9 /\n";
    EXPECT_EQ(fixedDrivesOf(text), (std::vector<std::string>{"/", "/data two\\x", "/pool", "/old"}));
    EXPECT_EQ(fixedDrivesOf("1 0 0:9 / / rw - overlay overlay rw"), (std::vector<std::string>{"/"}));
    std::vector<std::string> real;
    ASSERT_EQ(fixedDrives(real), 0);
    EXPECT_FALSE(real.empty());
}

TEST(Process, figuresOfTheMachine) {
    MemoryFigures memory;
    ASSERT_EQ(memoryFigures(memory), 0);
    EXPECT_GT(memory.capacity, memory.available);
    std::string path;
    ASSERT_EQ(programPath(path), 0);
    EXPECT_TRUE(path.ends_with("/test_pf_host")) << path;
    EXPECT_EQ(setThreadPriority(3), EINVAL);
    std::thread([] { EXPECT_EQ(setThreadPriority(-2), 0); }).join();
    for (const char* name : {"", "a=b"}) EXPECT_EQ(environmentSet(name, "x"), EINVAL);
    Guid guid;
    ASSERT_EQ(newGuid(guid), 0);
    EXPECT_EQ(guid.c >> 12, 4);
    EXPECT_EQ(guid.d[0] >> 6, 2);
    EXPECT_EQ(environmentSet("a", std::string("x\0y", 3)), EINVAL);
}

TEST(Console, oneCleanLineForEachMessage) {
    Pipe pipe;
    int saved = dup(STDERR_FILENO);
    dup2(pipe.writer.get(), STDERR_FILENO);
    messageBox("Error", "bad \x1b[2J name\nsecond");
    messageBox("", "plain\n");
    dup2(saved, STDERR_FILENO);
    close(saved);
    char text[200] = {};
    ASSERT_GT(read(pipe.reader.get(), text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "Error: bad \\x1B[2J name\nsecond\nplain\n");
}
