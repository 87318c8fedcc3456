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

// The service's controls. The first can arrive before the global store is up and the last may still be under
// way when it goes down, so both sides hold the lock while they touch the store or report a state.
struct Controls {
    std::mutex lock;
    uint32_t last = 0;  // the last control accepted; written by the dispatcher's thread alone
    bool storeIsUp = false;
    bool ending = false;  // from now on the server itself reports
};
Controls controls;

void writePaused() {
    if (controls.last != platform::kControlPause && controls.last != platform::kControlContinue) return;
    bool paused = controls.last == platform::kControlPause;
    IPE_GlobalStore().set("server_paused", paused ? IPE_True() : IPE_False());
}

// A pause that came too early for the store is written now.
void openControls() {
    std::lock_guard hold(controls.lock);
    controls.storeIsUp = true;
    writePaused();
}

void closeControls() {
    std::lock_guard hold(controls.lock);
    controls.storeIsUp = false;
    controls.ending = true;
}

void noteStop() {
    std::lock_guard hold(controls.lock);
    controls.last = platform::kControlStop;
}

void acceptControl(uint32_t code, uint32_t state) {
    std::lock_guard hold(controls.lock);
    if (controls.ending) return;
    controls.last = code;
    if (controls.storeIsUp) writePaused();
    reportServiceState(state, 0, 0);
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

// Where it happened: the line of a source that could not be loaded, and the statement that failed.
std::string scriptPlace(const XPK_Exception& exception) {
    std::string place, file, statement;
    const std::string* loading = exception.record().findString("file");
    const int64_t* line = exception.record().findNumber("line");
    if (loading && line) place = "\n" + *loading + " (" + std::to_string(*line) + ")";
    if (!exception.details()) return place;
    file = IPE_Dict_GetString(exception.details(), "file", "");
    statement = IPE_Dict_GetString(exception.details(), "statement", "");
    if (file.empty() && statement.empty()) return place;
    std::string failed = "\n" + file + " (" + IPE_Dict_GetString(exception.details(), "line", "?") + ")";
    return (place == failed ? "" : place) + failed + "\n" + statement;
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
    if (code == controls.last) return;
    XPK_ThreadScope scope(false);
    switch (code) {
        case platform::kControlStop:
            noteStop();
            request_shutdown();
            break;
        case platform::kControlPause:
            acceptControl(code, static_cast<uint32_t>(platform::ServiceState::paused));
            break;
        case platform::kControlContinue:
            acceptControl(code, static_cast<uint32_t>(platform::ServiceState::running));
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
    openControls();
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
            closeControls();
            reportServiceState(static_cast<uint32_t>(platform::ServiceState::stopPending), 1, 2000);
            EPA_LifeCycle::shutdown();
        }
    }
    reportServiceState(static_cast<uint32_t>(platform::ServiceState::stopped), 0, 0);
    XPK_DestroyPools();
}
