// Options, by getopt_long.
#include "scan_options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <cstring>

namespace quillscan {

namespace {

constexpr char Help[] =
    "usage: quillscan [OPTION...] DIR...\n"
    "\n"
    "Scans directory trees into a census, a store file for the reports of quillsrv.\n"
    "\n"
    "  -o, --output FILE        write the census to FILE (default: census.smf)\n"
    "  -x, --one-file-system    do not enter directories on other file systems\n"
    "  --exclude PATTERN        leave out what matches the shell pattern: a name or, when it has a \"/\", a "
    "whole\n"
    "                           path; may be given several times\n"
    "  --exclude-from FILE      leave out what matches a pattern of FILE, one a line\n"
    "  --compress lz4|zlib      compression: lz4 is quick (default), zlib small\n"
    "  --threads N              read with N threads, 1 to 64 (default: 2)\n"
    "  --strict                 exit with code 3 when something could not be read\n"
    "  -v, --verbose            tell what was scanned, at the end\n"
    "  -h, --help               show this text\n"
    "  --version                show the version\n"
    "\n"
    "Exit code: 0, 1 when there is no census, 2 for a wrong command line, 3 with --strict.\n";

constexpr unsigned MostThreads = 64;

enum Long : int { Exclude = 256, ExcludeFrom, Compress, Threads, Strict, Version };
constexpr option Longs[] = {
    {"output", required_argument, nullptr, 'o'},
    {"one-file-system", no_argument, nullptr, 'x'},
    {"exclude", required_argument, nullptr, Exclude},
    {"exclude-from", required_argument, nullptr, ExcludeFrom},
    {"compress", required_argument, nullptr, Compress},
    {"threads", required_argument, nullptr, Threads},
    {"strict", no_argument, nullptr, Strict},
    {"verbose", no_argument, nullptr, 'v'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, Version},
    {nullptr, 0, nullptr, 0},
};

int misuse(const std::string& text) {
    std::fprintf(stderr, "quillscan: %s\n\n%s", text.c_str(), Help);
    return 2;
}

// Takes one option; an empty text, or what is wrong with its value.
std::string take(int code, const char* value, Options& options) {
    switch (code) {
        case 'o':
            if (!*value) return "--output wants a file";
            options.output = value;
            break;
        case 'x': options.oneFileSystem = true; break;
        case 'v': options.verbose = true; break;
        case Strict: options.strict = true; break;
        case Exclude: options.excluded.add(value); break;
        case ExcludeFrom: options.excluded.addFile(value); break;
        case Compress:
            options.zlib = std::strcmp(value, "zlib") == 0;
            if (!options.zlib && std::strcmp(value, "lz4") != 0) return "--compress wants lz4 or zlib";
            break;
        case Threads: {
            const char* end = value + std::strlen(value);
            auto [stop, error] = std::from_chars(value, end, options.threads);
            if (error != std::errc() || stop != end || options.threads < 1 || options.threads > MostThreads)
                return "--threads wants a number from 1 to 64";
            break;
        }
    }
    return {};
}

}  // namespace

std::optional<int> parseOptions(int argc, char** argv, Options& options) {
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, ":o:xvh", Longs, nullptr)) != -1;) {
        std::string word = optind > 0 ? argv[optind - 1] : "";
        if (code == 'h') {
            std::fputs(Help, stdout);
            return 0;
        }
        if (code == Version) {
            std::printf("quillscan %s\n", QUILL_VERSION);
            return 0;
        }
        if (code == ':') return misuse("'" + word + "' wants a value");
        if (code == '?') {
            bool isLetter = optopt > 0 && optopt < 256;
            return misuse("unknown option '" +
                          (isLetter ? std::string{'-', static_cast<char>(optopt)} : word) + "'");
        }
        if (std::string wrong = take(code, optarg, options); !wrong.empty()) return misuse(wrong);
    }
    options.roots.assign(argv + optind, argv + argc);
    if (options.roots.empty()) return misuse("no directory is named");
    return std::nullopt;
}

}  // namespace quillscan
