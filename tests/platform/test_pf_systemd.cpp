// The systemd backend against a fake manager on a private bus: a bus daemon that this test starts, and a
// thread that owns the manager's name and plays a machine with units.

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <thread>

#include "platform/pf_descriptor.h"
#include "platform/pf_process.h"
#include "platform/pf_service.h"
#include "platform/pf_servicechannel.h"
#include "platform/pf_serviceunit.h"
#include "scratch.h"

using namespace platform;

namespace {

// A bus daemon that lives as long as the object; `address` is empty if there is none on this machine.
class BusDaemon {
  public:
    explicit BusDaemon(const std::string& folder) {
        std::ofstream(folder + "/bus.conf")
            << "<busconfig><type>session</type><listen>unix:path=" << folder
            << "/bus</listen><auth>EXTERNAL</auth><policy context=\"default\">"
               "<allow send_destination=\"*\"/><allow eavesdrop=\"true\"/>"
               "<allow own=\"*\"/></policy></busconfig>";
        std::string config = "--config-file=" + folder + "/bus.conf";
        process_ = fork();
        if (process_ == 0) {
            execlp("dbus-daemon", "dbus-daemon", "--nofork", "--nopidfile", config.c_str(), nullptr);
            _exit(127);
        }
        for (int i = 0; i < 500 && address.empty(); ++i, usleep(10'000)) {
            if (waitpid(process_, nullptr, WNOHANG) != 0) {
                process_ = 0;
                return;
            }
            if (access((folder + "/bus").c_str(), F_OK) == 0) address = "unix:path=" + folder + "/bus";
        }
    }
    BusDaemon(const BusDaemon&) = delete;
    BusDaemon& operator=(const BusDaemon&) = delete;
    ~BusDaemon() {
        if (process_ <= 0) return;
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }

    std::string address;

  private:
    pid_t process_ = 0;
};

struct FakeUnit {
    std::string active = "inactive";
    uint32_t pid = 0;
    int32_t exitStatus = 0;
    std::string jobResult = "done";
};

// Serves the manager's interface from a thread. Units exist if their file stands in the unit folder, or if
// listed.
class FakeManager {
  public:
    explicit FakeManager(const std::string& address) {
        std::promise<int> started;
        thread_ = std::thread([this, address, &started] { run(address, started); });
        EXPECT_GE(started.get_future().get(), 0);
    }
    FakeManager(const FakeManager&) = delete;
    FakeManager& operator=(const FakeManager&) = delete;
    ~FakeManager() {
        ending_ = true;
        thread_.join();
    }

    void set(const std::string& unit, const FakeUnit& state) {
        std::lock_guard hold(lock_);
        units_[unit] = state;
    }
    std::string takeLog() {
        std::lock_guard hold(lock_);
        return std::exchange(log_, "");
    }
    std::atomic<bool> deny{false};

  private:
    static std::string unitOfPath(const char* path) {
        char* name = nullptr;
        sd_bus_path_decode(path, "/org/freedesktop/systemd1/unit", &name);
        std::string unit = name ? name : "";
        free(name);
        return unit;
    }

    static int onManager(sd_bus_message* message, void* data, sd_bus_error* error) {
        auto* self = static_cast<FakeManager*>(data);
        std::lock_guard hold(self->lock_);
        std::string member = sd_bus_message_get_member(message);
        const char *unit = "", *mode = "";
        if (member == "LoadUnit")
            sd_bus_message_read(message, "s", &unit);
        else if (member != "Subscribe" && member != "Reload")
            sd_bus_message_read(message, "ss", &unit, &mode);
        else
            ++self->calls_[member];
        if (member != "LoadUnit") self->log_ += member + " " + unit + "\n";
        if (self->deny && member != "LoadUnit")
            return sd_bus_error_set(error, "org.freedesktop.DBus.Error.AccessDenied", "no");
        if (member == "Subscribe" && self->calls_[member] > 1)
            return sd_bus_error_set(error, "org.freedesktop.systemd1.AlreadySubscribed", "twice");
        if (member == "Subscribe" || member == "Reload") return sd_bus_reply_method_return(message, "");
        if (member == "LoadUnit") {
            char* path = nullptr;
            sd_bus_path_encode("/org/freedesktop/systemd1/unit", unit, &path);
            int result = sd_bus_reply_method_return(message, "o", path);
            free(path);
            return result;
        }
        return self->runJob(message, member, unit);
    }

    int runJob(sd_bus_message* message, const std::string& member, const std::string& unit) {
        FakeUnit& state = units_[unit];
        const char* job = "/org/freedesktop/systemd1/job/7";
        // The manager may tell the end of a job before its reply arrives.
        sd_bus_emit_signal(sd_bus_message_get_bus(message), "/org/freedesktop/systemd1",
                           "org.freedesktop.systemd1.Manager", "JobRemoved", "uoss", 6u,
                           "/org/freedesktop/systemd1/job/6", unit.c_str(), "failed");
        sd_bus_emit_signal(sd_bus_message_get_bus(message), "/org/freedesktop/systemd1",
                           "org.freedesktop.systemd1.Manager", "JobRemoved", "uoss", 7u, job, unit.c_str(),
                           state.jobResult.c_str());
        if (state.jobResult == "done") {
            state.active = member == "StartUnit" ? "active" : "deactivating";
            state.pid = 4711;
        }
        return sd_bus_reply_method_return(message, "o", job);
    }

    static int onProperty(sd_bus*, const char* path, const char*, const char* property, sd_bus_message* reply,
                          void* data, sd_bus_error*) {
        auto* self = static_cast<FakeManager*>(data);
        std::lock_guard hold(self->lock_);
        std::string unit = unitOfPath(path), name = property;
        bool known = self->units_.count(unit) || access(unitPath(unit).c_str(), F_OK) == 0;
        FakeUnit state = self->units_.count(unit) ? self->units_[unit] : FakeUnit{};
        if (name == "LoadState") return sd_bus_message_append(reply, "s", known ? "loaded" : "not-found");
        if (name == "ActiveState") return sd_bus_message_append(reply, "s", state.active.c_str());
        if (name == "MainPID") return sd_bus_message_append(reply, "u", state.pid);
        return sd_bus_message_append(reply, "i", state.exitStatus);
    }

    static int findUnit(sd_bus*, const char*, const char*, void* data, void** found, sd_bus_error*) {
        *found = data;
        return 1;
    }

    void run(const std::string& address, std::promise<int>& started) {
        static const sd_bus_vtable manager[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_METHOD("Subscribe", "", "", onManager, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("Reload", "", "", onManager, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("LoadUnit", "s", "o", onManager, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("StartUnit", "ss", "o", onManager, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_METHOD("StopUnit", "ss", "o", onManager, SD_BUS_VTABLE_UNPRIVILEGED),
            SD_BUS_SIGNAL("JobRemoved", "uoss", 0),
            SD_BUS_VTABLE_END};
        static const sd_bus_vtable unit[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("LoadState", "s", onProperty, 0, 0),
            SD_BUS_PROPERTY("ActiveState", "s", onProperty, 0, 0), SD_BUS_VTABLE_END};
        static const sd_bus_vtable service[] = {
            SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("MainPID", "u", onProperty, 0, 0),
            SD_BUS_PROPERTY("ExecMainStatus", "i", onProperty, 0, 0), SD_BUS_VTABLE_END};
        const char *base = "/org/freedesktop/systemd1", *below = "/org/freedesktop/systemd1/unit";
        sd_bus* bus = nullptr;
        int result = sd_bus_new(&bus);
        if (result >= 0) result = sd_bus_set_address(bus, address.c_str());
        if (result >= 0) result = sd_bus_set_bus_client(bus, true);
        if (result >= 0) result = sd_bus_start(bus);
        if (result >= 0)
            result = sd_bus_add_object_vtable(bus, nullptr, base, "org.freedesktop.systemd1.Manager", manager,
                                              this);
        if (result >= 0)
            result = sd_bus_add_fallback_vtable(bus, nullptr, below, "org.freedesktop.systemd1.Unit", unit,
                                                findUnit, this);
        if (result >= 0)
            result = sd_bus_add_fallback_vtable(bus, nullptr, below, "org.freedesktop.systemd1.Service",
                                                service, findUnit, this);
        if (result >= 0) result = sd_bus_request_name(bus, "org.freedesktop.systemd1", 0);
        started.set_value(result);
        while (result >= 0 && !ending_) {
            result = sd_bus_process(bus, nullptr);
            if (result == 0) sd_bus_wait(bus, 20'000);
        }
        sd_bus_flush_close_unref(bus);
    }

    std::mutex lock_;
    std::map<std::string, FakeUnit> units_;
    std::map<std::string, int> calls_;
    std::string log_;
    std::atomic<bool> ending_{false};
    std::thread thread_;
};

class Systemd : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mkdir((root / "units").c_str(), 0755), 0);
        environmentSet("QUILL_UNIT_DIR", root / "units");
        environmentSet("QUILL_RUNTIME_DIR", root / "run");
        daemon = std::make_unique<BusDaemon>(root.path());
        if (daemon->address.empty()) GTEST_SKIP() << "no bus daemon on this machine";
        environmentSet("QUILL_SYSTEMD_BUS", daemon->address);
        fake = std::make_unique<FakeManager>(daemon->address);
        manager = ServiceManager::connect();
    }
    void TearDown() override {
        manager.reset();
        fake.reset();
        daemon.reset();
    }

    const std::string name = "North Site", unit = "North\\x20Site.service";
    const ServiceDefinition definition{name, "North", {"/bin/true"}, ""};
    Scratch root;
    std::unique_ptr<BusDaemon> daemon;
    std::unique_ptr<FakeManager> fake;
    std::unique_ptr<ServiceManager> manager;
};

}  // namespace

TEST_F(Systemd, lifeOfAService) {
    ServiceStatus status;
    EXPECT_EQ(manager->start(name), ENOENT);
    EXPECT_EQ(manager->query(name, status), ENOENT);
    ASSERT_EQ(manager->install(definition), 0);
    EXPECT_EQ(fake->takeLog(), "Reload \n");
    ASSERT_EQ(manager->query(name, status), 0);
    EXPECT_EQ(status.state, ServiceState::stopped);
    EXPECT_EQ(manager->control(name, kControlStop, status), ESRCH);
    EXPECT_EQ(manager->control(name, kControlPause, status), ESRCH);
    ASSERT_EQ(manager->start(name), 0);
    EXPECT_EQ(fake->takeLog(), "Subscribe \nStartUnit " + unit + "\n");
    ASSERT_EQ(manager->query(name, status), 0);
    EXPECT_EQ(status.state, ServiceState::running);
    EXPECT_EQ(status.processId, 4711u);
    EXPECT_EQ(manager->start(name), EALREADY);
    EXPECT_EQ(manager->control(name, kControlPause, status), EOPNOTSUPP);  // runs, without a control socket
    ASSERT_EQ(manager->control(name, kControlStop, status), 0);
    EXPECT_EQ(status.state, ServiceState::stopPending);
    EXPECT_EQ(fake->takeLog(), "StopUnit " + unit + "\n");
    ASSERT_EQ(manager->remove(name), 0);
    EXPECT_EQ(fake->takeLog(), "Reload \n");
    EXPECT_EQ(manager->remove(name), ENOENT);
}

TEST_F(Systemd, endsOfJobsAndStates) {
    ServiceStatus status;
    const std::pair<const char*, int> results[] = {
        {"failed", ESRCH}, {"timeout", ETIMEDOUT}, {"canceled", ECANCELED}, {"dependency", EIO}, {"done", 0}};
    for (const auto& [result, error] : results) {
        fake->set("a.service", {.jobResult = result});
        EXPECT_EQ(manager->start("a"), error) << result;
    }
    const std::pair<const char*, ServiceState> states[] = {{"activating", ServiceState::startPending},
                                                           {"reloading", ServiceState::running},
                                                           {"deactivating", ServiceState::stopPending},
                                                           {"failed", ServiceState::stopped}};
    for (const auto& [active, state] : states) {
        fake->set("a.service", {.active = active, .pid = 9, .exitStatus = 3});
        ASSERT_EQ(manager->query("a", status), 0);
        EXPECT_EQ(status.state, state) << active;
    }
    EXPECT_EQ(status.exitCode, 3u);
    EXPECT_EQ(status.processId, 0u);
    EXPECT_EQ(manager->exists("a"), 0);  // a unit from another folder
    EXPECT_FALSE(serviceInstalled("a"));
    EXPECT_EQ(manager->exists("b"), ENOENT);
}

TEST_F(Systemd, refusalLeavesNothingBehind) {
    fake->deny = true;
    EXPECT_EQ(manager->install(definition), EACCES);
    EXPECT_FALSE(serviceInstalled(name));
    EXPECT_FALSE(std::filesystem::is_symlink(root / ("units/multi-user.target.wants/" + unit)));
    fake->set("a.service", {});
    EXPECT_EQ(manager->start("a"), EACCES);
}

TEST_F(Systemd, controlsReachTheSocket) {
    ASSERT_EQ(manager->install(definition), 0);
    fake->set(unit, {.active = "active", .pid = 1});
    ServiceChannel channel;
    ASSERT_EQ(channel.open(runtimeDirectories(unit)), 0);
    ServiceChannel second;
    EXPECT_EQ(second.open(runtimeDirectories(unit)), EADDRINUSE);
    std::atomic<bool> done{false};
    ServiceStatus state{.state = ServiceState::running, .processId = 99};
    std::thread service([&] {
        ServiceChannel::Server server{[&](uint32_t code) {
                                          state.state =
                                              code == kControlPause ? ServiceState::paused : state.state;
                                          return code == 200 ? EOPNOTSUPP : 0;
                                      },
                                      [&] { return state; }};
        while (!done) channel.serve(server, -1, 20);
    });
    ServiceStatus status;
    EXPECT_EQ(manager->control(name, kControlPause, status), 0);
    EXPECT_EQ(status.state, ServiceState::paused);
    EXPECT_EQ(manager->control(name, 200, status), EOPNOTSUPP);
    EXPECT_EQ(manager->query(name, status), 0);  // the socket knows better than the manager
    EXPECT_EQ(status.state, ServiceState::paused);
    EXPECT_EQ(status.processId, 99u);
    done = true;
    service.join();
}

TEST_F(Systemd, deadManagerIsAnError) {
    fake.reset();
    ServiceStatus status;
    EXPECT_EQ(manager->query(name, status), EHOSTDOWN);
    daemon.reset();
    EXPECT_NE(manager->query(name, status), 0);
    EXPECT_NE(makeSystemdManager("unix:path=" + (root / "none"))->query(name, status), 0);
    EXPECT_NE(makeSystemdManager("nonsense")->query(name, status), 0);
}
