// The process entry: one executable is the administration tool of its own service, the service, a standalone
// server and a one-shot script runner. It reads the command line, decides which of these it is, brings the
// runtime up and hands over to the interpreter. All application behaviour lives in scripts.
#pragma once

#include <cstdint>
#include <string>

namespace platform {
class EventLoop;
class ServiceSession;
}  // namespace platform

// Process-wide, set once at entry unless stated.
struct EntryState {
    std::string program;         // full path of the executable
    std::string entryDirectory;  // the working directory at entry
    std::string commandLine;     // the arguments joined with single blanks; searched by substring
    std::string serviceName = "Quillbrook_Server";
    std::string serviceDisplayName = "Quillbrook Server";
    bool runAsService = false;
    bool customRun = false;  // set by the start-up component
    int32_t exitCode = 0;    // what the entry returns in the non-service modes
    bool cryptEnabled = true;
    platform::ServiceSession* session = nullptr;
};
EntryState& entryState();

// Whether the command line holds the option, and the value that begins `offset` bytes after its start.
bool hasOption(const char* option);
std::string optionText(const char* option, size_t offset);
// The service names that a program's path gives: below a directory of the product's own name, or after a
// tilde in the file's name. Paths without either leave both as they are.
void deriveServiceNames(const std::string& program, std::string& name, std::string& displayName);

// The whole process. Returns the exit code.
int quillEntry(int argc, char** argv);

// The server itself: thread state, working directory, ServerRun, and the stop of the lifecycle.
void serviceMain();
// Components up, the start-up program, the main thread's loop.
void serverRun();
// The loop of the main thread while ServerRun serves, else null. Components that live on the main thread
// watch it.
platform::EventLoop* mainLoop();
// Reports a state to the service manager; nothing unless the process runs as a service.
void reportServiceState(uint32_t state, uint32_t checkpoint, uint32_t waitHint);
// A control from the service manager, on the dispatcher's thread.
void handleServiceControl(uint32_t code);
