// Start order, shutdown functions and the shutdown sequence.
#include <atomic>
#include <thread>

#include "../ipe/values_testing.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_shutdownhandler.h"
#include "runtime/xpk_exception.h"

namespace {

std::string calls;

void note(bool up, const char* text, void*) { calls += up ? std::string("+") + text + " " : "- "; }

class LifeCycle : public testing::Test {
  protected:
    void SetUp() override { calls.clear(); }
    void add(const char* depends, const char* name, const char* text) {
        table.add(note, depends, name, text, nullptr);
    }
    std::string startError() {
        return raised([&] { table.start(); });
    }
    XPK_ThreadScope thread{true};
    EPA_ComponentTable table;
};

TEST_F(LifeCycle, StepsRunInOrder) {
    add("*", nullptr, "main");
    add(nullptr, nullptr, "anonymous1");
    add("pulse", nullptr, "timers");
    add("", "globals", "globals");
    add("manager", "pulse", "pulse");
    add("shutdown", "manager", "manager");
    add("globals,,manager", nullptr, "both");
    add(nullptr, nullptr, "anonymous2");
    add(nullptr, "shutdown", "shutdown");
    EXPECT_EQ(startError(), "nothing");
    EXPECT_EQ(calls, "+shutdown +globals +manager +both +pulse +timers +anonymous1 +anonymous2 +main ");
    calls.clear();
    table.stop();
    EXPECT_EQ(calls, "- - - - - - - - - ");
    EXPECT_FALSE(table.anyStarted());
}

TEST_F(LifeCycle, ChainListedBackwards) {
    std::vector<std::string> names;
    for (int i = 0; i < EPA_ComponentTable::Limit; ++i) names.push_back("c" + std::to_string(i));
    for (int i = EPA_ComponentTable::Limit - 1; i > 0; --i)
        add(names[static_cast<size_t>(i - 1)].c_str(), names[static_cast<size_t>(i)].c_str(), "x");
    add(nullptr, names[0].c_str(), "first");
    EXPECT_EQ(startError(), "nothing");
    EXPECT_THROW(add(nullptr, nullptr, "one too many"), XPK_AssertException);
}

TEST_F(LifeCycle, Errors) {
    EXPECT_EQ(startError(), "SystemError: Cyclic module dependency");  // the empty table
    add("b", "a", "a");
    add("a", "b", "b");
    add(nullptr, "c", "c");
    EXPECT_EQ(startError(), "SystemError: Cyclic module dependency");
    EXPECT_EQ(calls, "+c ");
    add("a,nobody", nullptr, "d");
    EXPECT_EQ(startError(), "SystemError: Cyclic module dependency");  // a is looked at first
    add("c,nobody", "e", "e");
    EXPECT_EQ(startError(), "SystemError: Module 'e' depends on missing module 'nobody'");
    table = {};
    add("nobody", nullptr, "x");
    EXPECT_EQ(startError(), "SystemError: Module '?' depends on missing module 'nobody'");
    EXPECT_THROW(add(std::string(256, 'x').c_str(), nullptr, "too long"), XPK_AssertException);
}

TEST_F(LifeCycle, LastOfSeveralNamesCounts) {
    add(nullptr, "n", "first");
    add("n", "user", "user");
    add("later", "n", "second");
    add("", "later", "later");
    EXPECT_EQ(startError(), "nothing");
    EXPECT_EQ(calls, "+first +later +second +user ");
}

TEST_F(LifeCycle, RowsAddedWhileStarting) {
    static EPA_ComponentTable* self;
    self = &table;
    auto adding = [](bool up, const char*, void*) {
        if (up) self->add(note, nullptr, nullptr, "added", nullptr);
    };
    table.add(adding, nullptr, "adder", nullptr, nullptr);
    add("*", nullptr, "main");
    EXPECT_EQ(startError(), "nothing");
    EXPECT_EQ(calls, "+added +main ");
    table.add(adding, "*", nullptr, nullptr, nullptr);
    EXPECT_EQ(startError(), "SystemError: All modules were not initiliazed") << "too late a row";
}

TEST_F(LifeCycle, OnlyWhatStartedIsStopped) {
    add(nullptr, "a", "a");
    table.add(
        [](bool up, const char*, void*) {
            calls += up ? "+fails " : "-fails ";
            if (up) throw 1;
        },
        "a", "b", nullptr, nullptr);
    add("b", nullptr, "never");
    EXPECT_THROW(table.start(), int);
    table.stop();
    EXPECT_EQ(calls, "+a +fails -fails - ");
}

class Shutdown : public LifeCycle {
  protected:
    void TearDown() override {
        epa_detail::running = true;
        XPK_ClearShutdownFunctions();
    }
};

TEST_F(Shutdown, FunctionsRunOnceInOrder) {
    EXPECT_TRUE(XPK_IsRunning());
    for (const char* name : {"a", "b", "c"})
        XPK_AddShutdownFunction(
            [](void* data) {
                EXPECT_FALSE(XPK_IsRunning());
                calls += static_cast<const char*>(data);
                request_shutdown();
                if (calls == "a") throw 1;  // neither this nor the call above keeps b and c from running
            },
            const_cast<char*>(name));
    std::atomic<int> raised{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            try {
                request_shutdown();
            } catch (int) {
                ++raised;
            }
        });
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(calls, "abc");
    EXPECT_EQ(raised, 1);
    EXPECT_FALSE(XPK_ScriptAskedToExit());
    request_script_exit();  // too late: the end was asked for by something else
    EXPECT_FALSE(XPK_ScriptAskedToExit());
}

TEST_F(Shutdown, TableIsFullAtTen) {
    for (int i = 0; i < 10; ++i) XPK_AddShutdownFunction([](void*) { calls += "x"; }, nullptr);
    EXPECT_EQ(raised([] { XPK_AddShutdownFunction([](void*) {}, nullptr); }),
              "SystemError: Too many shutdown functions");
    request_script_exit();
    EXPECT_EQ(calls, "xxxxxxxxxx");
    EXPECT_TRUE(XPK_ScriptAskedToExit());
}

TEST_F(Shutdown, LinkedHandlersRunFromTheHead) {
    struct Handler : EPA_ShutdownHandler {
        explicit Handler(const char* name) : name(name) {}
        ~Handler() override { calls += std::string("~") + name; }
        void shutdown() override {
            calls += name;
            if (*name == '1') throw 1;
        }
        const char* name;
    };
    for (const char* name : {"0", "1", "2"}) EPA_ShutdownHandler::link(std::make_unique<Handler>(name));
    EXPECT_THROW(EPA_ShutdownHandler::runLinked(), int);
    EXPECT_EQ(calls, "2~21");
}

}  // namespace
