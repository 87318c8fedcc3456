// The built-in service host end to end: this program installs itself as a service, starts it, sends controls
// and stops it. The service is a disabled test of this same program.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <thread>

#include "platform/pf_process.h"
#include "platform/pf_service.h"
#include "platform/pf_servicechannel.h"
#include "platform/pf_servicedispatcher.h"
#include "platform/pf_serviceunit.h"
#include "platform/pf_signals.h"
#include "scratch.h"

using namespace platform;

namespace {

class Service : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mkdir((root / "units").c_str(), 0755), 0);
        environmentSet("QUILL_UNIT_DIR", root / "units");
        environmentSet("QUILL_RUNTIME_DIR", root / "run");
        environmentSet("QUILL_SYSTEMD_BUS", "off");
        environmentSet("QUILL_TEST_LOG", root / "log");
        programPath(self);
        manager = ServiceManager::connect();
    }

    void TearDown() override {
        ServiceStatus status;
        if (manager->control(name, kControlStop, status) == 0) awaitState(ServiceState::stopped);
    }

    ServiceDefinition definition(const std::string& role = "DISABLED_run") const {
        return {name,
                "North \"Site\" 100% \\",
                {self, "--gtest_filter=ServiceRole." + role, "--gtest_also_run_disabled_tests",
                 "a \"b\" $HOME 50%"},
                ""};
    }

    // Installs and starts the service; gives its process.
    pid_t started(const ServiceDefinition& service) {
        ServiceStatus status;
        EXPECT_EQ(manager->exists(name) == 0 ? 0 : manager->install(service), 0);
        EXPECT_EQ(manager->start(name), 0);
        EXPECT_EQ(manager->query(name, status), 0);
        return static_cast<pid_t>(status.processId);
    }

    ServiceState state() const {
        ServiceStatus status;
        return manager->query(name, status) == 0 ? status.state : ServiceState::startPending;
    }

    bool awaitState(ServiceState wanted) const {
        for (int i = 0; i < 1000; ++i, usleep(10'000))
            if (state() == wanted) return true;
        return false;
    }

    const std::string name = "North Site's_server";
    Scratch root;
    std::string self;
    std::unique_ptr<ServiceManager> manager;
};

}  // namespace

// The service itself: writes what it gets to a file, ends at the stop control.
TEST(ServiceRole, DISABLED_run) {
    std::string log, name;
    ASSERT_EQ(environmentGet("QUILL_TEST_LOG", log), 0);
    ASSERT_EQ(environmentGet(kServiceVariable, name), 0);
    ASSERT_EQ(prepareSignals(false), 0);
    std::ofstream out(log);
    std::vector<std::string> arguments;
    programArguments(arguments);
    out << "argument " << arguments.back() << "\n";
    std::atomic<bool> stop{false};
    auto body = [&](ServiceSession& session) {
        std::string left;
        out << "marker " << environmentGet(kServiceVariable, left) << " "
            << environmentGet("NOTIFY_SOCKET", left) << "\n";
        ServiceStatus status;
        status.state = ServiceState::running;
        status.accepted = kAcceptStop | kAcceptPauseContinue;
        session.registerHandler([&, status](uint32_t code) mutable {
            out << "control " << code << std::endl;
            if (code == kControlPause) status.state = ServiceState::paused;
            if (code == kControlContinue) status.state = ServiceState::running;
            if (code == 200) throw code;
            if (code == kControlStop)
                stop = true;
            else
                session.report(status);
        });
        EXPECT_EQ(session.registerHandler([](uint32_t) {}), EBUSY);
        session.report(status);
        while (!stop) usleep(5'000);
        status.state = ServiceState::stopPending;
        session.report(status);
    };
    EXPECT_EQ(runServiceDispatcher(name, body), 0);
    out << "ended" << std::endl;
}

TEST(ServiceRole, DISABLED_dieAtOnce) { _exit(3); }

TEST_F(Service, lifeOfAService) {
    ServiceStatus status;
    EXPECT_EQ(manager->start(name), ENOENT);
    EXPECT_EQ(manager->query(name, status), ENOENT);
    EXPECT_EQ(manager->remove(name), ENOENT);
    EXPECT_EQ(manager->exists(name), ENOENT);
    ASSERT_EQ(manager->install(definition()), 0);
    EXPECT_EQ(manager->install(definition()), EEXIST);
    EXPECT_EQ(manager->exists(name), 0);
    EXPECT_EQ(state(), ServiceState::stopped);
    EXPECT_EQ(manager->control(name, kControlPause, status), ESRCH);

    ASSERT_EQ(manager->start(name), 0);
    EXPECT_EQ(manager->start(name), EALREADY);
    ASSERT_EQ(manager->query(name, status), 0);
    EXPECT_EQ(status.state, ServiceState::running);
    EXPECT_GT(status.processId, 1u);
    EXPECT_NE(status.processId, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(getsid(static_cast<pid_t>(status.processId)) == getsid(0), false);
    ASSERT_EQ(manager->control(name, kControlPause, status), 0);
    EXPECT_EQ(status.state, ServiceState::paused);
    ASSERT_EQ(manager->control(name, kControlContinue, status), 0);
    EXPECT_EQ(status.state, ServiceState::running);
    EXPECT_EQ(manager->control(name, kControlInterrogate, status), 0);
    EXPECT_EQ(manager->control(name, 200, status), EIO);  // its handler raises, and the service goes on
    EXPECT_EQ(manager->control(name, 99, status), EINVAL);
    EXPECT_EQ(manager->control(name, 0, status), EINVAL);
    // A removed service still runs and can be told to stop.
    EXPECT_EQ(manager->remove(name), 0);
    EXPECT_EQ(manager->control(name, kControlStop, status), 0);
    for (int i = 0; i < 1000 && slurp(root / "log").find("ended") == std::string::npos; ++i) usleep(10'000);
    EXPECT_EQ(slurp(root / "log"),
              "argument a \"b\" $HOME 50%\nmarker 2 2\ncontrol 2\ncontrol 3\ncontrol 4\ncontrol 200\ncontrol "
              "1\nended\n");
}

TEST_F(Service, signalIsTheStopControl) {
    ASSERT_EQ(kill(started(definition()), SIGTERM), 0);
    EXPECT_TRUE(awaitState(ServiceState::stopped));
    EXPECT_NE(slurp(root / "log").find("control 1\nended\n"), std::string::npos);
    // A killed process leaves its socket behind; that is a stopped service, and the next start removes it.
    ASSERT_EQ(kill(started(definition()), SIGKILL), 0);
    EXPECT_TRUE(awaitState(ServiceState::stopped));
    EXPECT_EQ(manager->start(name), 0);
}

TEST_F(Service, startsThatFail) {
    ASSERT_EQ(manager->install(definition("DISABLED_dieAtOnce")), 0);
    EXPECT_EQ(manager->start(name), ESRCH);
    ASSERT_EQ(manager->remove(name), 0);
    ServiceDefinition missing = definition();
    missing.command = {"/nowhere/quillsrv"};
    ASSERT_EQ(manager->install(missing), 0);
    EXPECT_EQ(manager->start(name), ENOENT);
    ASSERT_EQ(manager->remove(name), 0);
    ServiceDefinition bare = definition(), stranger = definition(), slash = definition();
    bare.command = {"quillsrv"};
    stranger.account = "no such user";
    slash.name = "a/b";
    for (const auto& bad : {bare, stranger, slash}) EXPECT_EQ(manager->install(bad), EINVAL);
}

TEST_F(Service, runsUnderItsAccount) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser can change accounts";
    ASSERT_EQ(chmod(root.path().c_str(), 0777), 0);
    const std::string program = root / "prog";
    // The build folder may be closed to other users: the command is a copy.
    std::string copy = "cp '" + self + "' '" + program + "' && chmod 755 '" + program + "'";
    ASSERT_EQ(system(copy.c_str()), 0);
    ServiceDefinition service = definition();
    service.command[0] = program;
    service.account = "nobody";
    struct stat info;
    ASSERT_EQ(stat(("/proc/" + std::to_string(started(service))).c_str(), &info), 0);
    EXPECT_NE(info.st_uid, 0u);
}

TEST_F(Service, socketBearsStrangers) {
    started(definition());
    std::string path = runtimeDirectories(unitOfService(name))[0] + "/control";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    std::vector<Descriptor> silent;
    for (int i = 0; i < 40; ++i) {
        silent.emplace_back(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(silent.back().get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        const std::string noise(static_cast<size_t>(i) * 37, 'Q');
        if (i % 2) {
            EXPECT_GE(send(silent.back().get(), noise.data(), noise.size(), MSG_NOSIGNAL), 0);
        }
    }
    EXPECT_EQ(state(), ServiceState::running);
}

TEST_F(Service, notStartedAsService) {
    EXPECT_EQ(runServiceDispatcher(name, [](ServiceSession&) { FAIL(); }), ESRCH);
    environmentSet(kServiceVariable, "another");
    EXPECT_FALSE(startedAsService(name));
    environmentUnset(kServiceVariable);
}

TEST_F(Service, enumerationShowsUnitsOnly) {
    ASSERT_EQ(manager->install(definition()), 0);
    ServiceDefinition second = definition();
    second.name = "Alpha";
    second.displayName = "";
    ASSERT_EQ(manager->install(second), 0);
    std::ofstream(root / "units/broken.service") << "[Service]\nExecStart=\"open\n";
    ASSERT_EQ(symlink("/dev/null", (root / "units/masked.service").c_str()), 0);
    std::vector<InstalledService> services;
    ASSERT_EQ(manager->enumerate(services), 0);
    ASSERT_EQ(services.size(), 2u);
    EXPECT_EQ(services[0].name, "Alpha");
    EXPECT_EQ(services[0].displayName, "Alpha");
    EXPECT_EQ(services[1].name, name);
    EXPECT_EQ(services[1].displayName, definition().displayName);
    struct stat link;
    EXPECT_EQ(stat((root / "units/multi-user.target.wants/Alpha.service").c_str(), &link), 0);
}

TEST(ServiceUnit, namesTravel) {
    for (const char* name :
         {"Quillbrook_Server", "North Site", ".hidden", "a@b\\c%d", "Z\xC3\xBCrich", "-x"}) {
        std::string unit = unitOfService(name);
        EXPECT_EQ(serviceOfUnit(unit), name);
        EXPECT_EQ(unit.find_first_of(" @%/"), std::string::npos) << unit;
    }
    EXPECT_EQ(unitOfService("North Site"), "North\\x20Site.service");
    EXPECT_EQ(unitOfService(""), "");
    EXPECT_EQ(unitOfService(std::string(201, 'a')), "");
    EXPECT_EQ(serviceOfUnit("a\\x2.service"), "");
    EXPECT_EQ(serviceOfUnit("a.socket"), "");
}

TEST(ServiceUnit, commandsTravel) {
    ServiceDefinition definition{"n", "d\ne", {"/a b/\"q\"\n\\x%%$H\xFF", "", "-x", "\t'"}, ""}, back;
    ASSERT_EQ(parseUnit(unitText(definition, "n.service"), back), 0);
    EXPECT_EQ(back.command, definition.command);
    EXPECT_EQ(back.displayName, "d e");
    EXPECT_EQ(parseUnit("[Service]\n# x\nExecStart=-/bin/true \\\n; no comment \\\n 'a b'\\x41\n", back), 0);
    EXPECT_EQ(back.command, (std::vector<std::string>{"/bin/true", ";", "no", "comment", "a bA"}));
    for (const char* bad :
         {"", "[Service]\nExecStart=\n", "[Service]\nExecStart=true\n", "[Unit]\nExecStart=/a\n",
          "[Service]\nExecStart=/a \\q\n", "[Service]\nExecStart=/a 'b\n"})
        EXPECT_EQ(parseUnit(bad, back), EINVAL) << bad;
}
