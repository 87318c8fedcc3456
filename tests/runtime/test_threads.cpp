// Threads, passports, gates, the stop procedure and the pulse.
#include <atomic>
#include <set>
#include <thread>

#include "managed_threads.h"
#include "runtime/epa_pulse.h"
#include "runtime/epa_shutdownhandler.h"

namespace {

using namespace std::chrono_literals;

class Threads : public ManagedThreads {
  protected:
    void TearDown() override {
        request_shutdown();
        manager().stop();
        EXPECT_EQ(used(), 1);
        ManagedThreads::TearDown();
        XPK_ClearShutdownFunctions();
    }
};

TEST_F(Threads, GateAndNames) {
    std::atomic<int> passed{0};
    std::string name;
    auto body = [&](EPA_ThreadPassportImpl& passport) {
        EXPECT_EQ(&*EPA_ThreadPassport(), &passport);
        if (passport.slot() == 1) name = XPK_CurrentThread()->name;
        EXPECT_FALSE(XPK_CurrentThread()->primary);
        ++passed;
    };
    EXPECT_EQ(start(body), 1);
    EXPECT_EQ(start(body), 2);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(passed, 0);
    EXPECT_EQ(used(), 3);
    manager().release();
    manager().release();
    untilTrue([&] { return used() == 1; });
    EXPECT_EQ(passed, 2);
    EXPECT_EQ(name, "ipe_1");
    start(body);  // finds its gate open
    untilTrue([&] { return passed == 3; });
}

TEST_F(Threads, SlotsWrapAndSkipTheOccupied) {
    manager().release();
    std::vector<std::unique_ptr<EPA_Semaphore>> words;
    auto begin = [&] {  // a thread that waits for a word of its test
        EPA_Semaphore& word = *words.emplace_back(std::make_unique<EPA_Semaphore>(0, 10));
        return start([&](EPA_ThreadPassportImpl&) {
            EPA_ShutdownSemaphore handler(word);
            word.wait();
        });
    };
    for (int i = 1; i < 256; ++i) ASSERT_EQ(begin(), i);
    EXPECT_EQ(raised(begin), "ApplicationError: Too many threads");
    auto end = [&](int slot) {
        int before = used();
        words[static_cast<size_t>(slot - 1)]->release();
        untilTrue([&] { return used() == before - 1; });
    };
    end(200);
    end(7);
    // The refused start left the cursor at the beginning.
    EXPECT_EQ(begin(), 7);
    end(3);
    EXPECT_EQ(begin(), 200);
    EXPECT_EQ(begin(), 3);
    EXPECT_EQ(used(), 256);
    request_shutdown();
    manager().stop();
    EXPECT_EQ(used(), 1);
}

TEST_F(Threads, BodiesThatFail) {
    manager().release();
    manager().start([](EPA_ThreadPassportImpl&) { throw 1; }, nullptr);  // before it announced itself
    manager().start(
        [](EPA_ThreadPassportImpl& passport) {
            EXPECT_THROW(
                passport.announce("a name of sixty-four characters or more is refused by an assertion %i"),
                XPK_AssertException);
        },
        nullptr);
    start([](EPA_ThreadPassportImpl&) { XPK_Raise("T", "dropped").raise(); });
    untilTrue([&] { return used() == 1; });
}

TEST_F(Threads, StopReleasesGatedThreads) {
    std::atomic<int> sawEnd{0};
    for (int i = 0; i < 5; ++i)
        start([&](EPA_ThreadPassportImpl&) {
            if (!XPK_IsRunning()) ++sawEnd;
        });
    request_shutdown();
    manager().stop();
    EXPECT_EQ(sawEnd, 5);
    // A thread started now gets through, and its first wait returns at once.
    start([&](EPA_ThreadPassportImpl&) {
        EPA_Semaphore never(0, 1);
        EPA_ShutdownSemaphore handler(never);
        never.wait();
        ++sawEnd;
    });
    untilTrue([&] { return used() == 1; });
    EXPECT_EQ(sawEnd, 6);
}

// Threads that go from wait to wait while they are interrupted: every interruption meets a live handler.
TEST_F(Threads, InterruptRaces) {
    manager().release();
    std::atomic<int64_t> waits{0};
    for (int i = 0; i < 8; ++i)
        start([&](EPA_ThreadPassportImpl&) {
            for (int round = 0; round < 300 || XPK_IsRunning(); ++round) {
                EPA_Semaphore semaphore(0, 1000);
                EPA_ShutdownTimeout handler(semaphore);
                semaphore.wait(round % 3);
                ++waits;
            }
        });
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i)
        callers.emplace_back([] {
            std::this_thread::sleep_for(30ms);
            request_shutdown();
            EPA_ThreadManager::instance().stop();
        });
    for (std::thread& t : callers) t.join();
    EXPECT_GE(waits, 8 * 300);
    EXPECT_EQ(used(), 1);
}

TEST_F(Threads, EachNewWaitIsInterruptedAgain) {
    manager().release();
    std::atomic<int> woken{0};
    start([&](EPA_ThreadPassportImpl&) {
        struct Deaf : EPA_ShutdownHandler {  // wakes only at the second call
            explicit Deaf(EPA_Semaphore& s) : semaphore(s) { EPA_ThreadPassport()->setHandler(this); }
            ~Deaf() override { EPA_ThreadPassport()->clearHandler(); }
            void shutdown() override {
                if (++calls == 2) semaphore.release();
            }
            EPA_Semaphore& semaphore;
            int calls = 0;
        };
        for (int i = 0; i < 2; ++i) {
            EPA_Semaphore semaphore(0, 1);
            Deaf handler(semaphore);
            semaphore.wait();
            ++woken;
        }
    });
    request_shutdown();
    manager().stop();
    EXPECT_EQ(woken, 2);
}

TEST_F(Threads, InterruptibleWaitOnThePrimaryThread) {
    EPA_Semaphore semaphore(0, 5);
    {
        EPA_ShutdownTimeout first(semaphore);
        EXPECT_THROW(EPA_ShutdownSemaphore second(semaphore), XPK_AssertException) << "one handler at a time";
        EPA_ThreadPassport()->interrupt();
    }
    EXPECT_TRUE(EPA_InterruptibleWait(semaphore, -1));
    EXPECT_FALSE(EPA_InterruptibleWait(semaphore, 20));
    std::thread other([] {
        std::this_thread::sleep_for(20ms);
        request_shutdown();
    });
    EXPECT_FALSE(EPA_InterruptibleWait(semaphore, -1));
    other.join();
    EXPECT_FALSE(EPA_InterruptibleWait(semaphore, 3'600'000));
}

TEST(Semaphore, CountsUpToItsCeiling) {
    for (std::pair<int, int> bad : {std::pair{-1, 5}, {6, 5}, {0, 0}})
        EXPECT_EQ(raised([&] { EPA_Semaphore semaphore(bad.first, bad.second); }),
                  "SystemError: Unable to CreateSemaphore");
    EPA_Semaphore semaphore(1, 3);
    EXPECT_FALSE(semaphore.release(3));
    EXPECT_TRUE(semaphore.release(2));
    EXPECT_FALSE(semaphore.release());
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(semaphore.wait(-5));
    EXPECT_FALSE(semaphore.wait(1));
    std::atomic<int> taken{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back([&] {
            for (int k = 0; k < 500; ++k) {
                semaphore.wait();
                ++taken;
            }
        });
    for (int i = 0; i < 3000;)
        if (semaphore.release()) ++i;
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(taken, 3000);
    EXPECT_FALSE(semaphore.wait(0));
}

TEST(Passport, IsMissingWithoutAManager) {
    XPK_ThreadScope thread(true);
    EXPECT_EQ(raised([] { EPA_ThreadPassport passport; }),
              "DevelopmentError: Thread passport is not available.");
    EXPECT_THROW(EPA_ThreadManager::instance(), XPK_AssertException);
    EXPECT_THROW(EPA_Pulse::addOneSecond([] {}), XPK_AssertException);
}

class Pulse : public Threads {};
int one, seven, thirtyone;

TEST_F(Pulse, ListsAndTheirTicks) {
    one = seven = thirtyone = 0;
    EPA_Pulse pulse;
    pulse.add(EPA_Pulse::OneSecond, [] { throw 1; });
    pulse.add(EPA_Pulse::OneSecond, [] { ++one; });
    pulse.add(EPA_Pulse::SevenSecond, [] { XPK_Raise("T", "dropped").raise(); });
    pulse.add(EPA_Pulse::SevenSecond, [] { ++seven; });
    pulse.add(EPA_Pulse::ThirtyOneSecond, [] { ++thirtyone; });
    std::set<int> sevens, thirties;
    for (int tick = 1; tick <= 70; ++tick) {
        int a = seven, b = thirtyone;
        pulse.tick();
        if (seven != a) sevens.insert(tick);
        if (thirtyone != b) thirties.insert(tick);
    }
    EXPECT_EQ(one, 70);
    EXPECT_EQ(sevens, (std::set<int>{1, 9, 17, 25, 33, 41, 49, 57, 65}));
    EXPECT_EQ(thirties, (std::set<int>{1, 33, 65}));
}

TEST_F(Pulse, NinthFunctionIsRefused) {
    EPA_Pulse pulse;
    const std::pair<EPA_Pulse::List, std::string> lists[] = {
        {EPA_Pulse::OneSecond, "1"}, {EPA_Pulse::SevenSecond, "7"}, {EPA_Pulse::ThirtyOneSecond, "31"}};
    for (auto& row : lists) {
        for (int i = 0; i < 8; ++i) pulse.add(row.first, [] {});
        EXPECT_EQ(raised([&] { pulse.add(row.first, [] {}); }),
                  "RuntimeError: Too many functions on the " + row.second + " second list");
    }
}

}  // namespace
