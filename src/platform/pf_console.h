#pragma once

// Words for the person in front of the machine, or for its log. Any thread may call; each message is written
// whole.

#include <string>
#include <string_view>

namespace platform {

// As a service the process has nobody in front of it: message boxes then go to the system log too. Off at
// first.
void setServiceConsole(bool service);

// Makes standard output and standard error append where they lead to a file. Scripts open /dev/stdout and
// /dev/stderr anew, with a position of their own: without this the two would write over each other.
void appendStandardStreams();

// "caption: text" on standard error and, as a service, in the system log. Control characters except line ends
// are shown as \xNN, so that a hostile text cannot drive the terminal.
void messageBox(std::string_view caption, std::string_view text);

// The debug stream: standard error on a terminal or under a service manager that collects it, else the system
// log; on a machine without a system log standard error again, for a lost message serves nobody.
void debugOutput(std::string_view text);

// Tells that the cursor stands in the middle of a progress line on standard error or not. The next message
// then clears that line first. Off at first.
void setProgressShown(bool shown);

// The system's text of an errno, in the language of the process.
std::string errorText(int error);

}  // namespace platform
