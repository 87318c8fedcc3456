// The server: from the first thread's state to the end of the lifecycle.
//
// serviceMain runs on the main thread, or on a thread of the service dispatcher's making. The script's top
// level and the loop run on that same thread. Controls and signals arrive on other threads and touch only
// request_shutdown, one script global and the service's status.
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

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

namespace {

platform::EventLoop* loop = nullptr;
uint32_t lastState = 0;
uint32_t lastControl = 0;

bool chooseDirectory() {
    std::string directory;
    const std::string& program = entryState().program;
    if (platform::readWorkingDirectoryLink(program, directory) == 0 &&
        platform::setCurrentDirectory(directory) == 0)
        return true;
    return platform::setCurrentDirectory(platform::directoryOf(program)) == 0;
}

// An orderly end that a script saw as an exception is not an error.
bool isOrderlyEnd(const XPK_Exception& exception) {
    return exception.type() == "SystemExit" && !XPK_IsRunning();
}

void showException(const XPK_Exception& exception) {
    std::string text = exception.message();
    if (exception.details()) {
        auto entry = [&exception](const char* key) {
            return IPE_Dict_GetString(exception.details(), key, "");
        };
        std::string file = entry("file"), statement = entry("statement");
        if (const std::string* loading = exception.record().findString("file"); file.empty() && loading) {
            file = *loading;  // an error while the source loads
            if (const int64_t* line = exception.record().findNumber("line"))
                text += "\n" + file + " (" + std::to_string(*line) + ")";
        } else if (!file.empty() || !statement.empty()) {
            text += "\n" + file + " (" + entry("line") + ")\n" + statement;
        }
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
    if (XPK_ScriptAskedToExit()) readExitCode();
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
    if (code == lastControl) return;
    XPK_ThreadScope scope(false);
    auto pause = [code](const IPE_Object& value, platform::ServiceState state) {
        if (IPE_Store* globals = IPE_FindGlobalStore()) globals->set("server_paused", value);
        lastControl = code;
        reportServiceState(static_cast<uint32_t>(state), 0, 0);
    };
    switch (code) {
        case platform::kControlStop:
            lastControl = code;
            request_shutdown();
            break;
        case platform::kControlPause: pause(IPE_True(), platform::ServiceState::paused); break;
        case platform::kControlContinue: pause(IPE_False(), platform::ServiceState::running); break;
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
    if (entryState().customRun) {
        runModule("startup_custom");
        return readExitCode();
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
    serve(events);
}

void serviceMain() {
    EntryState& state = entryState();
    if (state.runAsService) {
        if (state.session->registerHandler(handleServiceControl) != 0) return;
        reportServiceState(static_cast<uint32_t>(platform::ServiceState::running), 0, 0);
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
            EPA_LifeCycle::shutdown();
        }
    }
    reportServiceState(static_cast<uint32_t>(platform::ServiceState::stopped), 0, 0);
    XPK_DestroyPools();
}
