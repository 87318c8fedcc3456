// The service from end to end with the built-in host: the commands of the command line, and controls as a
// script sees them.

#include <csignal>

#include "platform/pf_service.h"
#include "server_testing.h"

namespace {

using platform::ServiceState;

class ServerService : public ServerTree {
  protected:
    void TearDown() override {
        platform::ServiceStatus status;  // only after a failed check
        if (manager->control(name, platform::kControlStop, status) == 0) awaitState(ServiceState::stopped);
        ServerTree::TearDown();
    }

    ServiceState state() {
        platform::ServiceStatus status;
        return manager->query(name, status) == 0 ? status.state : ServiceState::startPending;
    }
    bool awaitState(ServiceState wanted) {
        return await([&] { return state() == wanted; });
    }
    bool installed() { return platform::serviceInstalled(name); }
    int control(uint32_t code) {
        platform::ServiceStatus status;
        return manager->control(name, code, status);
    }

    const std::string name = "Quillbrook_Server";
    std::unique_ptr<platform::ServiceManager> manager = platform::makeHostManager();
};

// Notes each change of server_paused.
constexpr char Watching[] =
    "last = \"\"\n"
    "while True:\n"
    "    now = str(global_get(\"server_paused\", \"unset\"))\n"
    "    if now != last:\n"
    "        out = open(\"states\", \"a\")\n"
    "        out.write(now + \";\")\n"
    "        out.close()\n"
    "    last = now\n";

TEST_F(ServerService, ControlsReachTheScript) {
    application(Watching);
    EXPECT_EQ(run({"--install"}).err, "");
    ASSERT_TRUE(installed());
    Result result = run({"--start"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    ASSERT_TRUE(awaitFile("bin/states", "unset;"));
    EXPECT_EQ(control(platform::kControlPause), 0);
    EXPECT_EQ(state(), ServiceState::paused);
    ASSERT_TRUE(awaitFile("bin/states", "unset;True;"));
    EXPECT_EQ(control(platform::kControlPause), 0);  // the same control again is ignored
    EXPECT_EQ(control(platform::kControlInterrogate), 0);
    EXPECT_EQ(state(), ServiceState::paused);
    EXPECT_EQ(control(platform::kControlContinue), 0);
    ASSERT_TRUE(awaitFile("bin/states", "unset;True;False;"));
    EXPECT_EQ(state(), ServiceState::running);

    result = run({"--start"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err.find("Error: "), 0u) << result.err;
    EXPECT_EQ(run({"--stop"}).err, "");
    EXPECT_TRUE(awaitState(ServiceState::stopped));
    EXPECT_EQ(slurp(tree / "bin/states"), "unset;True;False;");
    EXPECT_EQ(run({"--remove"}).err, "");
    EXPECT_FALSE(installed());
}

TEST_F(ServerService, FailuresAreReportedUnlessQuiet) {
    for (const char* command : {"--start", "--stop", "--remove"}) {
        Result result = run({command});
        EXPECT_EQ(result.code, 0) << command;
        EXPECT_EQ(result.err.find("Error: "), 0u) << command << ": " << result.err;
        EXPECT_EQ(run({command, "--quiet"}).err, "") << command;
    }
    EXPECT_EQ(run({"--install", "--username", "nobody-of-that-name"}).err.find("Error: "), 0u);
    EXPECT_FALSE(installed());
    EXPECT_EQ(run({"--install"}).err, "");
    EXPECT_EQ(run({"--install"}).err.find("Error: "), 0u);
}

TEST_F(ServerService, SeveralCommandsOnOneLine) {
    application(Serving);
    EXPECT_EQ(run({"--install", "--remove"}).code, 0);
    EXPECT_FALSE(installed());
    Result result = run({"--install", "--start"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_TRUE(awaitFile("bin/ready", "ready"));  // the script has ended, the service goes on
    EXPECT_EQ(state(), ServiceState::running);
    // A stop and a pause of a server that sits in its loop.
    EXPECT_EQ(control(platform::kControlPause), 0);
    EXPECT_EQ(control(platform::kControlStop), 0);
    EXPECT_TRUE(awaitState(ServiceState::stopped));
    // It can start again, and a termination is a stop.
    EXPECT_EQ(run({"--start"}).err, "");
    platform::ServiceStatus status;
    ASSERT_EQ(manager->query(name, status), 0);
    ASSERT_GT(status.processId, 1u);
    kill(static_cast<pid_t>(status.processId), SIGTERM);
    EXPECT_TRUE(awaitState(ServiceState::stopped));
}

TEST_F(ServerService, InstalledServiceFromTheCommandLine) {
    application("global_set(\"__rc\", 8)\nsys_exit()\n");
    ASSERT_EQ(run({"--install"}).err, "");
    Result result = run({});
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.err,
              "The Tallyfern Server cannot be run from the command line.: This program has been setup as an "
              "NT Service on this machine.\n\n"
              "Please use the NT Service Manager to start and stop the 'XX' service.\n\n"
              "To remove the service ensure it is not running and run 'X --remove'\n");
    EXPECT_EQ(run({"--standalone"}).code, 8);
}

}  // namespace
