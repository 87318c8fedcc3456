// Threads, passports, gates, the stop procedure and the pulse.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "runtime/epa_pulse.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_exception.h"

namespace {

using namespace std::chrono_literals;

void untilTrue(const std::function<bool()>& condition) {
    while (!condition()) std::this_thread::sleep_for(1ms);
}

class Threads : public testing::Test {
  protected:
    void SetUp() override { EPA_ThreadManager::create(); }
    void TearDown() override {
        request_shutdown();
        EPA_ThreadManager::instance().stop();
        EXPECT_EQ(used(), 1);
        EPA_ThreadManager::destroy();
        epa_detail::running = true;
        XPK_ClearShutdownFunctions();
    }
    EPA_ThreadManager& manager() { return EPA_ThreadManager::instance(); }
    int used() {
        int total = 0, count = 0;
        manager().count(total, count);
        EXPECT_EQ(total, 256);
        return count;
    }
    XPK_ThreadScope thread{true};
};

// A thread that waits for a word of its test.
struct Parked {
    EPA_Semaphore go{0, 10};
    std::atomic<int> slot{-1};
    static void body(EPA_ThreadPassportImpl& passport) {
        passport.announce("ipe_%i");
        auto* self = static_cast<Parked*>(passport.argument());
        self->slot = passport.slot();
        EPA_ShutdownSemaphore handler(self->go);
        self->go.wait();
    }
};

TEST_F(Threads, GateAndNames) {
    static std::atomic<int> passed;
    static std::string name;
    passed = 0;
    auto body = [](EPA_ThreadPassportImpl& passport) {
        passport.announce("ipe_%i");
        EXPECT_EQ(&*EPA_ThreadPassport(), &passport);
        if (passport.slot() == 1) name = XPK_CurrentThread()->name;
        EXPECT_FALSE(XPK_CurrentThread()->primary);
        ++passed;
    };
    EXPECT_EQ(manager().start(body, nullptr), 1);
    EXPECT_EQ(manager().start(body, nullptr), 2);
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(passed, 0);
    EXPECT_EQ(used(), 3);
    manager().release();
    manager().release();
    untilTrue([&] { return used() == 1; });
    EXPECT_EQ(passed, 2);
    EXPECT_EQ(name, "ipe_1");
    manager().start(body, nullptr);  // finds its gate open
    untilTrue([] { return passed == 3; });
}

TEST_F(Threads, SlotsWrapAndSkipTheOccupied) {
    manager().release();
    std::vector<std::unique_ptr<Parked>> parked;
    for (int i = 1; i < 256; ++i) {
        parked.push_back(std::make_unique<Parked>());
        ASSERT_EQ(manager().start(Parked::body, parked.back().get()), i);
    }
    try {
        manager().start(Parked::body, nullptr);
        FAIL();
    } catch (const XPK_Exception& e) {
        EXPECT_EQ(e.type() + ": " + e.message(), "ApplicationError: Too many threads");
    }
    auto end = [&](int slot) {
        int before = used();
        parked[static_cast<size_t>(slot - 1)]->go.release();
        untilTrue([&] { return used() == before - 1; });
    };
    auto begin = [&] {
        parked.push_back(std::make_unique<Parked>());
        return manager().start(Parked::body, parked.back().get());
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
    manager().start(
        [](EPA_ThreadPassportImpl& passport) {
            passport.announce("ipe_%i");
            XPK_Raise("T", "dropped").raise();
        },
        nullptr);
    untilTrue([&] { return used() == 1; });
}

TEST_F(Threads, StopReleasesGatedThreads) {
    static std::atomic<int> sawEnd;
    sawEnd = 0;
    for (int i = 0; i < 5; ++i)
        manager().start(
            [](EPA_ThreadPassportImpl& passport) {
                passport.announce("ipe_%i");
                if (!XPK_IsRunning()) ++sawEnd;
            },
            nullptr);
    request_shutdown();
    manager().stop();
    EXPECT_EQ(sawEnd, 5);
    // A thread started now gets through, and its first wait returns at once.
    manager().start(
        [](EPA_ThreadPassportImpl& passport) {
            passport.announce("ipe_%i");
            EPA_Semaphore never(0, 1);
            EPA_ShutdownSemaphore handler(never);
            never.wait();
            ++sawEnd;
        },
        nullptr);
    untilTrue([&] { return used() == 1; });
    EXPECT_EQ(sawEnd, 6);
}

// Threads that go from wait to wait while they are interrupted: every interruption meets a live handler.
TEST_F(Threads, InterruptRaces) {
    manager().release();
    static std::atomic<int64_t> waits;
    for (int i = 0; i < 8; ++i)
        manager().start(
            [](EPA_ThreadPassportImpl& passport) {
                passport.announce("ipe_%i");
                for (int round = 0; round < 300 || XPK_IsRunning(); ++round) {
                    EPA_Semaphore semaphore(0, 1000);
                    EPA_ShutdownTimeout handler(semaphore);
                    semaphore.wait(round % 3);
                    ++waits;
                }
            },
            nullptr);
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
    static std::atomic<int> woken;
    woken = 0;
    manager().start(
        [](EPA_ThreadPassportImpl& passport) {
            passport.announce("ipe_%i");
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
        },
        nullptr);
    request_shutdown();
    manager().stop();
    EXPECT_EQ(woken, 2);
}

TEST_F(Threads, OneHandlerAtATime) {
    EPA_Semaphore semaphore(0, 5);
    {
        EPA_ShutdownTimeout first(semaphore);
        EXPECT_THROW(EPA_ShutdownSemaphore second(semaphore), XPK_AssertException);
    }
    EPA_ShutdownSemaphore again(semaphore);
    EXPECT_FALSE(semaphore.wait(0));
    EPA_ThreadPassport()->interrupt();
    EXPECT_TRUE(semaphore.wait(0));
}

TEST_F(Threads, InterruptibleWaitOnThePrimaryThread) {
    EPA_Semaphore semaphore(1, 5);
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
    for (auto [initial, ceiling] : {std::pair{-1, 5}, {6, 5}, {0, 0}}) {
        try {
            EPA_Semaphore bad(initial, ceiling);
            FAIL();
        } catch (const XPK_Exception& e) {
            EXPECT_EQ(e.type() + ": " + e.message(), "SystemError: Unable to CreateSemaphore");
        }
    }
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
    try {
        EPA_ThreadPassport passport;
        FAIL();
    } catch (const XPK_Exception& e) {
        EXPECT_EQ(e.type() + ": " + e.message(), "DevelopmentError: Thread passport is not available.");
    }
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
    const char* messages[] = {"RuntimeError: Too many functions on the 1 second list",
                              "RuntimeError: Too many functions on the 7 second list",
                              "RuntimeError: Too many functions on the 31 second list"};
    for (auto list : {EPA_Pulse::OneSecond, EPA_Pulse::SevenSecond, EPA_Pulse::ThirtyOneSecond}) {
        for (int i = 0; i < 8; ++i) pulse.add(list, [] {});
        try {
            pulse.add(list, [] {});
            FAIL();
        } catch (const XPK_Exception& e) {
            EXPECT_EQ(e.type() + ": " + e.message(), messages[list]);
        }
    }
}

TEST_F(Pulse, RunsUntilShutdown) {
    static EPA_Pulse pulse;
    static EPA_Semaphore ticked(0, 100);
    pulse.add(EPA_Pulse::OneSecond, [] { ticked.release(); });
    manager().release();
    manager().start(
        [](EPA_ThreadPassportImpl& passport) {
            passport.announce("pulse_%i");
            pulse.run();
        },
        nullptr);
    ticked.wait();
    request_shutdown();
    manager().stop();
}

}  // namespace
