// Services of systemd over its bus interface org.freedesktop.systemd1 (org.freedesktop.systemd1(5)).
//
// Start and stop go through the manager, for it must know why a unit came and went. Pause, continue and the
// like are no notions of systemd: they go to the control socket of the service, which also knows the finer
// state and is asked first for the status; the manager's view stands in for services without such a socket.
//
// The connection is opened at the first call that needs it and kept. A superuser on a machine without a
// system bus reaches the manager through its private socket, as systemctl does.

#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>

#include "platform/pf_process.h"
#include "platform/pf_service.h"
#include "platform/pf_servicechannel.h"
#include "platform/pf_serviceunit.h"

namespace platform {

namespace {

constexpr const char* kName = "org.freedesktop.systemd1";
constexpr const char* kPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";
constexpr const char* kUnit = "org.freedesktop.systemd1.Unit";
constexpr const char* kService = "org.freedesktop.systemd1.Service";
constexpr uint64_t kCallLimit = 30'000'000;  // microseconds
constexpr int64_t kJobLimit = 90 * kHighResolutionFrequency;

struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct MessageDeleter {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
struct SlotDeleter {
    void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;
using Message = std::unique_ptr<sd_bus_message, MessageDeleter>;
using Slot = std::unique_ptr<sd_bus_slot, SlotDeleter>;

// A bus error owned by scope, and its errno. The names are systemd's own, which the library maps only in
// part.
class BusError {
  public:
    BusError() = default;
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;
    ~BusError() { sd_bus_error_free(&error_); }

    sd_bus_error* get() { return &error_; }

    int number(int result) const {
        static const std::map<std::string, int> names{
            {"org.freedesktop.systemd1.NoSuchUnit", ENOENT},
            {"org.freedesktop.systemd1.LoadFailed", ENOENT},
            {"org.freedesktop.systemd1.UnitMasked", EPERM},
            {"org.freedesktop.systemd1.JobTypeNotApplicable", EOPNOTSUPP},
            {"org.freedesktop.systemd1.TransactionIsDestructive", EBUSY},
            {"org.freedesktop.systemd1.ShuttingDown", EBUSY},
            {"org.freedesktop.DBus.Error.AccessDenied", EACCES},
            {"org.freedesktop.DBus.Error.InteractiveAuthorizationRequired", EACCES},
            {"org.freedesktop.DBus.Error.ServiceUnknown", EHOSTDOWN},
            {"org.freedesktop.DBus.Error.NoReply", ETIMEDOUT},
            {"org.freedesktop.DBus.Error.FileNotFound", ENOENT},
        };
        if (error_.name)
            if (auto found = names.find(error_.name); found != names.end()) return found->second;
        return -result;
    }

  private:
    sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// The state of a job as its signal tells it.
struct Job {
    std::string path;
    std::map<std::string, std::string>
        ended;  // path to result; signals can come before the reply with the path
};

int onJobRemoved(sd_bus_message* message, void* data, sd_bus_error*) {
    auto* job = static_cast<Job*>(data);
    uint32_t id;
    const char *path, *unit, *result;
    if (sd_bus_message_read(message, "uoss", &id, &path, &unit, &result) < 0)
        return 0;  // not the signal we know
    job->ended[path] = result;
    return 0;
}

int jobError(const std::string& result) {
    if (result == "done" || result == "skipped") return 0;
    if (result == "canceled") return ECANCELED;
    if (result == "timeout") return ETIMEDOUT;
    if (result == "failed") return ESRCH;
    return EIO;  // dependency, assert, and what later versions think of
}

class SystemdManager : public ServiceManager {
  public:
    explicit SystemdManager(std::string address) : address_(std::move(address)) {}

    int start(const std::string& name) override {
        std::string unit = unitOfService(name);
        if (unit.empty()) return EINVAL;
        Figures figures;
        if (int error = readFigures(unit, figures)) return error;
        if (figures.active == "active" || figures.active == "activating" || figures.active == "reloading")
            return EALREADY;
        return runJob("StartUnit", unit);
    }

    int control(const std::string& name, uint32_t code, ServiceStatus& status) override {
        std::string unit = unitOfService(name);
        if (unit.empty() || code == 0) return EINVAL;
        if (code == kControlStop) return stop(unit, status);
        int error = channelAsk(unit, code, status);
        if (error != ESRCH) return error;
        Figures figures;
        if (int missing = readFigures(unit, figures)) return missing;
        return figures.active == "active" ? EOPNOTSUPP : ESRCH;
    }

    int query(const std::string& name, ServiceStatus& status) override {
        std::string unit = unitOfService(name);
        if (unit.empty()) return EINVAL;
        if (channelAsk(unit, 0, status, 5000) == 0) return 0;
        Figures figures;
        if (int error = readFigures(unit, figures)) return error;
        status = statusOf(figures);
        return 0;
    }

  protected:
    int reload() override {
        Message reply;
        return call("Reload", "", nullptr, reply);
    }

    int existsElsewhere(const std::string& unit) override {
        Figures figures;
        return readFigures(unit, figures);
    }

  private:
    struct Figures {
        std::string load, active;
        uint32_t pid = 0;
        int32_t exitStatus = 0;
    };

    int connect() {
        if (bus_) return 0;
        Bus bus;
        int error = open(bus);
        if (error) return error;
        sd_bus_set_method_call_timeout(bus.get(), kCallLimit);
        bus_ = std::move(bus);
        subscribed_ = false;
        return 0;
    }

    int open(Bus& bus) const {
        sd_bus* raw = nullptr;
        if (address_.empty()) {
            int result = sd_bus_open_system(&raw);
            bus.reset(raw);
            if (result >= 0 || geteuid() != 0) return result < 0 ? -result : 0;
            return openAddress("unix:path=/run/systemd/private", false, bus);
        }
        return openAddress(address_, true, bus);
    }

    static int openAddress(const std::string& address, bool client, Bus& bus) {
        sd_bus* raw = nullptr;
        int result = sd_bus_new(&raw);
        bus.reset(raw);
        if (result >= 0) result = sd_bus_set_address(raw, address.c_str());
        if (result >= 0) result = sd_bus_set_bus_client(raw, client);
        if (result >= 0) result = sd_bus_start(raw);
        return result < 0 ? -result : 0;
    }

    // A method of the manager with no argument or one or two strings.
    int call(const char* method, const std::string& first, const char* second, Message& reply) {
        if (int error = connect()) return error;
        BusError failure;
        sd_bus_message* raw = nullptr;
        int result;
        if (first.empty())
            result = sd_bus_call_method(bus_.get(), kName, kPath, kManager, method, failure.get(), &raw, "");
        else if (!second)
            result = sd_bus_call_method(bus_.get(), kName, kPath, kManager, method, failure.get(), &raw, "s",
                                        first.c_str());
        else
            result = sd_bus_call_method(bus_.get(), kName, kPath, kManager, method, failure.get(), &raw, "ss",
                                        first.c_str(), second);
        reply.reset(raw);
        if (result >= 0) return 0;
        // The next call makes a new connection: the manager may have been restarted.
        if (!sd_bus_is_open(bus_.get())) bus_.reset();
        return failure.number(result);
    }

    int property(const std::string& path, const char* interface, const char* name, std::string& value) {
        BusError failure;
        char* text = nullptr;
        int result = sd_bus_get_property_string(bus_.get(), kName, path.c_str(), interface, name,
                                                failure.get(), &text);
        if (result < 0) return failure.number(result);
        value = text;
        free(text);
        return 0;
    }

    template <class Number>
    int property(const std::string& path, const char* name, char type, Number& value) {
        BusError failure;
        int result = sd_bus_get_property_trivial(bus_.get(), kName, path.c_str(), kService, name,
                                                 failure.get(), type, &value);
        return result < 0 ? failure.number(result) : 0;
    }

    int readFigures(const std::string& unit, Figures& figures) {
        Message reply;
        if (int error = call("LoadUnit", unit, nullptr, reply)) return error;
        const char* object;
        if (int result = sd_bus_message_read(reply.get(), "o", &object); result < 0) return -result;
        std::string path = object;
        if (int error = property(path, kUnit, "LoadState", figures.load)) return error;
        if (figures.load == "not-found") return ENOENT;
        if (int error = property(path, kUnit, "ActiveState", figures.active)) return error;
        if (int error = property(path, "MainPID", 'u', figures.pid)) return error;
        return property(path, "ExecMainStatus", 'i', figures.exitStatus);
    }

    static ServiceStatus statusOf(const Figures& figures) {
        static const std::map<std::string, ServiceState> states{{"active", ServiceState::running},
                                                                {"reloading", ServiceState::running},
                                                                {"refreshing", ServiceState::running},
                                                                {"activating", ServiceState::startPending},
                                                                {"deactivating", ServiceState::stopPending}};
        ServiceStatus status;
        if (auto found = states.find(figures.active); found != states.end()) status.state = found->second;
        bool runs = status.state == ServiceState::running;
        status.accepted = runs ? static_cast<uint32_t>(kAcceptStop) : 0;
        status.processId = status.state == ServiceState::stopped ? 0 : figures.pid;
        if (status.state == ServiceState::stopped)
            status.exitCode = static_cast<uint32_t>(figures.exitStatus);
        return status;
    }

    int stop(const std::string& unit, ServiceStatus& status) {
        Figures figures;
        if (int error = readFigures(unit, figures)) return error;
        if (figures.active == "inactive" || figures.active == "failed") return ESRCH;
        Message reply;
        if (int error = call("StopUnit", unit, "replace", reply)) return error;
        if (int error = readFigures(unit, figures)) return error;
        status = statusOf(figures);
        // The job may not have reached the unit yet.
        if (status.state == ServiceState::running) status.state = ServiceState::stopPending;
        return 0;
    }

    // Queues a job and waits for its end.
    int runJob(const char* method, const std::string& unit) {
        if (int error = connect()) return error;
        Job job;
        sd_bus_slot* raw = nullptr;
        int result =
            sd_bus_match_signal(bus_.get(), &raw, kName, kPath, kManager, "JobRemoved", onJobRemoved, &job);
        if (result < 0) return -result;
        Slot slot(raw);
        Message reply;
        if (!subscribed_) {  // a second time on one connection is an error
            if (int error = call("Subscribe", "", nullptr, reply)) return error;
            subscribed_ = true;
        }
        if (int error = call(method, unit, "replace", reply)) return error;
        const char* path;
        if (result = sd_bus_message_read(reply.get(), "o", &path); result < 0) return -result;
        job.path = path;
        int64_t deadline = highResolutionCounter() + kJobLimit;
        while (!job.ended.count(job.path)) {
            int64_t left = (deadline - highResolutionCounter()) / 1000;
            if (left <= 0) return ETIMEDOUT;
            result = sd_bus_process(bus_.get(), nullptr);
            if (result == 0) result = sd_bus_wait(bus_.get(), static_cast<uint64_t>(left));
            if (result < 0 && result != -EINTR) return -result;
        }
        return jobError(job.ended[job.path]);
    }

    const std::string address_;
    Bus bus_;
    bool subscribed_ = false;
};

}  // namespace

std::unique_ptr<ServiceManager> makeSystemdManager(const std::string& busAddress) {
    return std::make_unique<SystemdManager>(busAddress);
}

}  // namespace platform
