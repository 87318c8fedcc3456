// The server: from the first thread's state to the end of the lifecycle.
//
// serviceMain runs on the main thread, or on a thread of the service dispatcher's making. The script's top
// level and the loop run on that same thread. Controls and signals arrive on other threads and touch only
// request_shutdown, one script global and the service's status.
//
// The exit code is what scripts left in the global `__rc`, read when the run ended by a script: its end in a
// custom run, or a script's request to end. A signal, a control and an uncaught exception leave it at 0.
#include <atomic>
#include <mutex>

#include "entry.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_numbers.h"
#include "platform/pf_console.h"
#include "platform/pf_eventloop.h"
#include "platform/pf_links.h"
#include "platform/pf_process.h"
#include "platform/pf_servicedispatcher.h"
#include "platform/pf_signals.h"
#include "runtime/epa_lifecycle.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"
#include "runtime/xpk_exception.h"
#include "runtime/xpk_translator.h"

namespace {

platform::EventLoop* loop = nullptr;
std::atomic<uint32_t> lastState{0};

// What pause and continue wrote last. The store comes up after the first controls can arrive and goes down
// before the last ones may still be under way, so both sides hold the lock while they touch it.
struct PauseFlag {
    std::mutex lock;
    uint32_t control = 0;    // the last control accepted; dispatcher's thread, and under the lock
    bool storeIsUp = false;  // guarded by lock
};
PauseFlag pauseFlag;

void writePaused() {
    if (pauseFlag.control != platform::kControlPause && pauseFlag.control != platform::kControlContinue)
        return;
    bool paused = pauseFlag.control == platform::kControlPause;
    IPE_GlobalStore().set("server_paused", paused ? IPE_True() : IPE_False());
}

void openPauseFlag() {
    std::lock_guard hold(pauseFlag.lock);
    pauseFlag.storeIsUp = IPE_FindGlobalStore() != nullptr;
    if (pauseFlag.storeIsUp) writePaused();
}

void closePauseFlag() {
    std::lock_guard hold(pauseFlag.lock);
    pauseFlag.storeIsUp = false;
}

bool chooseDirectory() {
    std::string directory;
    const std::string& program = entryState().program;
    if (platform::readWorkingDirectoryLink(program, directory) == 0 &&
        platform::setCurrentDirectory(directory) == 0)
        return true;
    directory = platform::directoryOf(program);
    int error = platform::setCurrentDirectory(directory);
    if (error) platform::messageBox("Error", directory + ": " + platform::errorText(error));
    return error == 0;
}

// An orderly end that a script saw as an exception is not an error.
bool isOrderlyEnd(const XPK_Exception& exception) {
    return exception.type() == "SystemExit" && !XPK_IsRunning();
}

// Where the script stood: the statement that failed, or the line of the source that could not be loaded.
std::string scriptPlace(const XPK_Exception& exception) {
    const IPE_Object& details = exception.details();
    if (details) {
        std::string statement = IPE_Dict_GetString(details, "statement", "");
        std::string file = IPE_Dict_GetString(details, "file", "");
        if (!file.empty() || !statement.empty())
            return "\n" + file + " (" + IPE_Dict_GetString(details, "line", "?") + ")\n" + statement;
    }
    const std::string* file = exception.record().findString("file");
    const int64_t* line = exception.record().findNumber("line");
    return file && line ? "\n" + *file + " (" + std::to_string(*line) + ")" : "";
}

void showException(const XPK_Exception& exception) {
    std::string text = exception.message();
    try {
        text += scriptPlace(exception);
    } catch (const XPK_Exception&) {
        // Details are the work of scripts and may hold anything; the message stands without them.
    }
    platform::messageBox(exception.type(), text);
}

// The exit code that scripts leave in the global `__rc`.
void readExitCode() {
    IPE_Store* globals = IPE_FindGlobalStore();
    if (!globals || !globals->has("__rc")) return;
    IPE_Object value = globals->get("__rc");
    entryState().exitCode = value ? static_cast<int32_t>(value->__int__()) : 0;
}

void runModule(const char* name) {
    IPE_Interpreter interpreter;
    try {
        interpreter.run(name);
    } catch (const XPK_Exception& exception) {
        if (!isOrderlyEnd(exception)) throw;
    }
}

// Whether a script brought the end about, and not a signal or a control.
bool endedByScript() { return XPK_IsRunning() || XPK_ScriptAskedToExit(); }

// Serves until the loop is told to quit or the running flag falls; the tick of each second notices the
// latter.
void serve(platform::EventLoop& events) {
    for (;;) {
        int value = 0;
        platform::EventLoop::Step step;
        try {
            step = events.next(value);
        } catch (...) {
            step = platform::EventLoop::Step::dispatched;  // a callback's exception must not end the server
        }
        if (step == platform::EventLoop::Step::error) return;
        if (step == platform::EventLoop::Step::quit || !XPK_IsRunning()) break;
        XPK_FlushThreadCaches();
    }
    if (endedByScript()) readExitCode();
}

}  // namespace

platform::EventLoop* mainLoop() { return loop; }

void reportServiceState(uint32_t state, uint32_t checkpoint, uint32_t waitHint) {
    if (!entryState().runAsService || !entryState().session) return;
    lastState = state;
    platform::ServiceStatus status;
    status.state = static_cast<platform::ServiceState>(state);
    status.accepted = platform::kAcceptStop | platform::kAcceptPauseContinue;
    status.checkpoint = checkpoint;
    status.waitHint = waitHint;
    entryState().session->report(status);
}

void handleServiceControl(uint32_t code) {
    if (code == pauseFlag.control) return;
    XPK_ThreadScope scope(false);
    auto accept = [code] {
        std::lock_guard hold(pauseFlag.lock);
        pauseFlag.control = code;
        if (pauseFlag.storeIsUp) writePaused();
    };
    switch (code) {
        case platform::kControlStop:
            accept();
            request_shutdown();
            break;
        case platform::kControlPause:
            accept();
            reportServiceState(static_cast<uint32_t>(platform::ServiceState::paused), 0, 0);
            break;
        case platform::kControlContinue:
            accept();
            reportServiceState(static_cast<uint32_t>(platform::ServiceState::running), 0, 0);
            break;
        default: reportServiceState(lastState, 0, 0);
    }
}

void serverRun() {
    XPK_InitPools();
    // Signals are taken by one waiting thread; as a service they are the dispatcher's.
    platform::SignalWaiter signals;
    if (!entryState().runAsService)
        XPK_ThrowSystemError("signal", signals.start([](int) {
            XPK_ThreadScope scope(false);
            request_shutdown();
        }));
    EPA_LifeCycle::control(true);
    openPauseFlag();
    if (entryState().customRun) {
        runModule("startup_custom");
        if (endedByScript()) readExitCode();
        return;
    }
    // Never freed: a control or signal that arrives during the last moments may still post to it.
    static platform::EventLoop& events = *new platform::EventLoop;
    XPK_ThrowSystemError("SetTimer", events.open());
    loop = &events;
    struct LoopScope {
        ~LoopScope() { loop = nullptr; }
    } scope;
    runModule("startup");
    EPA_ThreadManager::instance().release();
    XPK_AddShutdownFunction([](void* data) { static_cast<platform::EventLoop*>(data)->postQuit(0); },
                            &events);
    // Asked for during the start already: the function above came too late to be called.
    if (!XPK_IsRunning()) events.postQuit(0);
    serve(events);
}

void serviceMain() {
    EntryState& state = entryState();
    if (state.runAsService) {
        if (state.session->registerHandler(handleServiceControl) != 0) return;
        reportServiceState(static_cast<uint32_t>(platform::ServiceState::running), 0, 0);
    }
    try {
        XPK_InstallTranslator();
    } catch (const XPK_Exception& exception) {
        showException(exception);  // a server without it serves: faults then end the process
    }
    {
        XPK_ThreadScope scope(true);
        if (chooseDirectory()) {
            XPK_ClearShutdownFunctions();
            try {
                serverRun();
            } catch (const XPK_Exception& exception) {
                if (!isOrderlyEnd(exception)) showException(exception);
            } catch (...) {
                platform::debugOutput("Unhandled exception in ServiceMain");
            }
            reportServiceState(static_cast<uint32_t>(platform::ServiceState::stopPending), 1, 2000);
            closePauseFlag();
            EPA_LifeCycle::shutdown();
        }
    }
    reportServiceState(static_cast<uint32_t>(platform::ServiceState::stopped), 0, 0);
    XPK_DestroyPools();
}
