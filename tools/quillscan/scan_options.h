// The command line of quillscan.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "scan_rules.h"

namespace quillscan {

struct Options {
    std::vector<std::string> roots;
    std::string output = "census.smf";
    Patterns excluded;
    bool oneFileSystem = false;
    bool zlib = false;
    bool strict = false;
    bool verbose = false;
    unsigned threads = 2;
};

// Reads the command line. A value: the exit code of a line that is done with, after its text was printed (0
// for
// --help and --version, 2 for a wrong line).
std::optional<int> parseOptions(int argc, char** argv, Options& options);

}  // namespace quillscan
