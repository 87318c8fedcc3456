// What kind of process this is.
//
// Options are recognised by a plain substring search of the whole command line, in a fixed order; nothing is
// tokenised, so an option can stand anywhere. The service commands report each failing step and go on with
// the next. Only --help, --version and the note on mistyped options look at whole arguments, so that what a
// script is told can never be taken for them.
#include "entry.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/pf_console.h"
#include "platform/pf_process.h"
#include "platform/pf_service.h"
#include "platform/pf_servicedispatcher.h"
#include "platform/pf_signals.h"
#include "runtime/xpk_exception.h"

namespace {

constexpr char Help[] =
    "usage: quillsrv [OPTION...]\n"
    "\n"
    "Without options the server runs in the foreground: it runs the bundles *.dat beside the program or, "
    "when\n"
    "there are none, ../ipe/startup.py, relative to the program, and serves until SIGTERM, SIGINT or the "
    "script\n"
    "ends it. Its exit code is the script global __rc.\n"
    "\n"
    "  --custom FILE        run the module startup_custom of FILE once and end; FILE reaches to the end of\n"
    "                       the command line, so other options and the script's arguments stand before it\n"
    "  --standalone         serve in this process even when the service is installed\n"
    "  --install            install the service (a systemd unit) and enable it at boot\n"
    "    --username NAME    with --install: the account that the service runs under\n"
    "    --password TEXT    accepted with --install and not needed on this system\n"
    "  --start, --stop      start or stop the installed service\n"
    "  --remove             remove the service\n"
    "  --quiet              no error messages from the five commands above\n"
    "  --help, --version    show this text, or the version, and end\n"
    "\n"
    "Environment: QUILL_UNIT_DIR, QUILL_RUNTIME_DIR and QUILL_SYSTEMD_BUS override where units and control "
    "sockets\n"
    "lie and which service manager is spoken to.\n";

void reportError(int error) {
    if (error != 0 && !hasOption("--quiet")) platform::messageBox("Error", XPK_DecodeError(error));
}

void installService(platform::ServiceManager& manager) {
    EntryState& state = entryState();
    platform::ServiceDefinition definition;
    definition.name = state.serviceName;
    definition.displayName = state.serviceDisplayName;
    definition.command = {state.program};
    definition.account = optionText("--username", 11).substr(0, 255);
    definition.account = definition.account.substr(0, definition.account.find(' '));
    reportError(manager.install(definition));
}

// Runs the service commands that stand on the command line; true when there was one.
bool administer() {
    bool install = hasOption("--install"), start = hasOption("--start"), stop = hasOption("--stop"),
         remove = hasOption("--remove");
    if (!install && !start && !stop && !remove) return false;
    const std::string& name = entryState().serviceName;
    auto manager = platform::ServiceManager::connect();
    if (install) installService(*manager);
    if (start) reportError(manager->start(name));
    if (stop) {
        platform::ServiceStatus status;
        reportError(manager->control(name, platform::kControlStop, status));
    }
    if (remove) reportError(manager->remove(name));
    return true;
}

// A single argument among those before --custom, whose file's own arguments are not the program's.
bool hasPlainArgument(int argc, char** argv, const char* wanted) {
    for (int i = 1; i < argc && strncmp(argv[i], "--custom", 8) != 0; ++i)
        if (strcmp(argv[i], wanted) == 0) return true;
    return false;
}

// The number of letters to add, drop or replace that makes one word of the other.
size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j < row.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j < row.size(); ++j) {
            size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({replaced, row[j] + 1, row[j - 1] + 1}));
        }
    }
    return row.back();
}

// Scripts may have options of their own, so an unknown one is no error. But a mistyped command must not pass
// in silence for a served run: what comes close to an option is noted.
void noteMistypedOptions(int argc, char** argv) {
    constexpr std::string_view Options[] = {"--install", "--username", "--password", "--start",
                                            "--stop",    "--remove",   "--quiet",    "--standalone",
                                            "--custom",  "--help",     "--version"};
    for (int i = 1; i < argc && !hasOption("--custom"); ++i) {
        std::string_view word = argv[i];
        word = word.substr(0, word.find('='));
        if (!word.starts_with("--") || word.size() > 20) continue;
        bool holdsOne = false;  // and is taken for it, as everything is searched by substring
        for (std::string_view option : Options)
            holdsOne = holdsOne || word.find(option) != std::string_view::npos;
        for (std::string_view option : Options) {
            size_t distance = editDistance(word, option);
            if (holdsOne || distance > (option.size() <= 7 ? 1u : 2u)) continue;
            platform::messageBox("quillsrv", "'" + std::string(word) +
                                                 "' is no option of the server and left to the script; is " +
                                                 std::string(option) + " meant?");
            break;
        }
    }
}

int runUnderManager() {
    int error =
        platform::runServiceDispatcher(entryState().serviceName, [](platform::ServiceSession& session) {
            entryState().session = &session;
            serviceMain();
            entryState().session = nullptr;
        });
    if (error == 0) return 0;
    if (error != ESRCH) platform::messageBox("Error", XPK_DecodeError(error));
    platform::messageBox("The Tallyfern Server cannot be run from the command line.",
                         "This program has been setup as an NT Service on this machine.\n\n"
                         "Please use the NT Service Manager to start and stop the 'XX' service.\n\n"
                         "To remove the service ensure it is not running and run 'X --remove'");
    return 1;
}

}  // namespace

EntryState& entryState() {
    static EntryState state;
    return state;
}

bool hasOption(const char* option) { return entryState().commandLine.find(option) != std::string::npos; }

std::string optionText(const char* option, size_t offset) {
    const std::string& line = entryState().commandLine;
    size_t start = line.find(option);
    return start == std::string::npos || start + offset >= line.size() ? std::string()
                                                                       : line.substr(start + offset);
}

void deriveServiceNames(const std::string& program, std::string& name, std::string& displayName) {
    constexpr char Product[] = "Quillbrook ";
    auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
    std::string candidate;
    size_t found = std::string::npos;
    for (size_t at = program.find(Product); at != std::string::npos; at = program.find(Product, at + 1))
        if (at > 0 && isSeparator(program[at - 1])) {
            found = at;
            break;
        }
    if (found != std::string::npos) {
        size_t end = program.find_first_of("/\\", found);
        if (end == std::string::npos) return;
        candidate = program.substr(found, end - found) + " Server";
    } else {
        std::string last = program.substr(program.find_last_of("/\\") + 1);
        size_t tilde = last.find('~'), stop = last.rfind('.');
        if (tilde == std::string::npos || stop == std::string::npos || stop < tilde) return;
        candidate = last.substr(tilde + 1, stop - tilde - 1);
    }
    if (candidate.size() > 255) {
        size_t end = 255;  // of whole characters
        while (end > 0 && (static_cast<unsigned char>(candidate[end]) & 0xC0) == 0x80) --end;
        candidate.resize(end);
    }
    if (candidate.empty()) return;  // no service can have such a name
    displayName = candidate;
    for (char& c : candidate)
        if (c == ' ') c = '_';
    name = candidate;
}

int quillEntry(int argc, char** argv) {
    EntryState& state = entryState();
    for (int i = 1; i < argc; ++i) state.commandLine.append(i > 1 ? " " : "").append(argv[i]);
    // A script that is to run has a help of its own.
    if (!hasOption("--custom") &&
        (hasPlainArgument(argc, argv, "--help") || hasPlainArgument(argc, argv, "-h")))
        return fputs(Help, stdout), 0;
    if (hasPlainArgument(argc, argv, "--version")) return puts("quillsrv " QUILL_VERSION), 0;
    if (platform::programPath(state.program) != 0) return 1;
    platform::appendStandardStreams();
    if (char* directory = getcwd(nullptr, 0)) {
        state.entryDirectory = directory;
        free(directory);
    }
    deriveServiceNames(state.program, state.serviceName, state.serviceDisplayName);
    if (administer()) return 0;
    state.runAsService = !hasOption("--standalone") && platform::serviceInstalled(state.serviceName);
    platform::setServiceConsole(state.runAsService);
    if (int error = platform::prepareSignals(!state.runAsService)) {
        platform::messageBox("Error", XPK_DecodeError(error));
        return 1;
    }
    if (state.runAsService) return runUnderManager();
    noteMistypedOptions(argc, argv);
    serviceMain();
    return state.exitCode;
}
