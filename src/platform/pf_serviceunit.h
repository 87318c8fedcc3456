#pragma once

// Unit files (systemd.unit(5), systemd.service(5), systemd.syntax(7)) and the places of a service.
//
// Functions give 0 or an errno unless told otherwise; any thread may call.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/pf_service.h"

namespace platform {

// Marker in the environment of a process that was started as a service; its value is the service's name.
constexpr const char* kServiceVariable = "QUILL_SERVICE";

// "North Site" gives "North\x20Site.service". Empty for a name that cannot be.
std::string unitOfService(const std::string& name);
// The reverse; empty if `unit` is no such file name.
std::string serviceOfUnit(std::string_view unit);

std::string unitDirectory();
std::string unitPath(const std::string& unit);

// Folders in which the control socket of a service may lie, the preferred first: the override alone, else the
// system's and the user's runtime folder, each with a folder for the unit below it.
std::vector<std::string> runtimeDirectories(const std::string& unit);

// Makes a service's runtime folder and gives it to a user, as RuntimeDirectory= does.
int makeRuntimeDirectory(const std::string& folder, uint32_t uid, uint32_t gid);

// The text of a unit file. Bytes that a line cannot hold are escaped.
std::string unitText(const ServiceDefinition& definition, const std::string& unit);
// What a unit file tells. Keys that this program does not write are skipped; of a key that stands twice the
// last counts. EINVAL: no command, or one that cannot be split.
int parseUnit(std::string_view text, ServiceDefinition& definition);
int readUnit(const std::string& unit, ServiceDefinition& definition);

int writeUnit(const ServiceDefinition& definition, const std::string& unit);
int deleteUnit(const std::string& unit);

// One word for a command line of a unit file, in double quotes with C escapes.
std::string quoteWord(std::string_view word);
// Splits a command line at blanks; quotes and C escapes as in unit files. False if a quote is left open or an
// escape is none.
bool splitCommand(std::string_view line, std::vector<std::string>& words);

}  // namespace platform
