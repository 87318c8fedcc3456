// A service is a unit file of systemd's form, also where no systemd runs: there is one description of a
// service, and a machine that gets systemd later finds it enabled.
//
// The command stands behind the prefix ':' (no substitution of variables), quoted with C escapes, so that a
// path may hold any byte but NUL; '%' is doubled against the specifiers. The marker variable goes through
// Environment=, which lets one check tell a service on both managers. Reading back understands what is
// written here and the usual hand edits: comments, continued lines, other prefixes, unquoted words.

#include "platform/pf_serviceunit.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "platform/pf_descriptor.h"
#include "platform/pf_process.h"

namespace platform {

namespace {

constexpr std::string_view kSuffix = ".service";
constexpr const char* kWants = "multi-user.target.wants";
constexpr size_t kLongestName = 200;
constexpr size_t kLongestUnitName = 250;  // what a folder takes, with room for a suffix
constexpr size_t kLargestUnit = 1 << 20;

std::string variable(const char* name) {
    std::string value;
    return environmentGet(name, value) == 0 ? value : std::string();
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

void appendHex(std::string& out, char c) {
    char escape[5];
    snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(c));
    out += escape;
}

bool plainInUnitName(char c, bool first) {
    if (c == '.') return !first;
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == ':' || (c == '-' && !first);
}

// One line of free text: no control characters, specifiers doubled, no backslash that would join the next
// line.
std::string plainLine(std::string_view text) {
    std::string line;
    for (char c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
        line += c;
        if (c == '%') line += '%';
    }
    if (!line.empty() && line.back() == '\\') line += ' ';
    return line;
}

std::string undouble(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        out += text[i];
        if (text[i] == '%' && i + 1 < text.size() && text[i + 1] == '%') ++i;
    }
    return out;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t' || text.front() == '\r'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r'))
        text.remove_suffix(1);
    return text;
}

// Reads one C escape behind a backslash; `at` is left on its last character.
bool unescape(std::string_view text, size_t& at, std::string& word) {
    static constexpr std::string_view letters = "abfnrtvs\\\"'";
    static constexpr std::string_view values = "\a\b\f\n\r\t\v \\\"'";
    if (size_t found = letters.find(text[at]); found != std::string_view::npos) {
        word += values[found];
        return true;
    }
    int value = 0;
    if (text[at] == 'x') {
        if (at + 2 >= text.size() || hexDigit(text[at + 1]) < 0 || hexDigit(text[at + 2]) < 0) return false;
        value = hexDigit(text[at + 1]) * 16 + hexDigit(text[at + 2]);
        at += 2;
    } else {
        if (at + 2 >= text.size()) return false;
        for (size_t i = at; i < at + 3; ++i) {
            if (text[i] < '0' || text[i] > '7') return false;
            value = value * 8 + (text[i] - '0');
        }
        at += 2;
    }
    if (value == 0 || value > 255) return false;
    word += static_cast<char>(value);
    return true;
}

// Name of a service's runtime folder: RuntimeDirectory= gives backslash and colon a meaning of its own.
std::string runtimeFolder(std::string_view unit) {
    unit.remove_suffix(kSuffix.size());
    std::string folder;
    for (char c : unit) {
        if (c == '\\')
            folder += '+';
        else if (c == ':')
            folder += "+x3a";
        else
            folder += c;
    }
    return folder;
}

int writeWhole(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t wrote = write(fd, text.data(), text.size());
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) return errno;
        text.remove_prefix(static_cast<size_t>(wrote));
    }
    return 0;
}

std::string wantsLink(const std::string& unit) { return unitDirectory() + "/" + kWants + "/" + unit; }

int enableUnit(const std::string& unit) {
    std::string folder = unitDirectory() + "/" + kWants;
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return errno;
    std::string link = wantsLink(unit);
    // A link that an earlier service left behind enables nothing that still exists.
    if (unlink(link.c_str()) != 0 && errno != ENOENT) return errno;
    return symlink(unitPath(unit).c_str(), link.c_str()) == 0 ? 0 : errno;
}

}  // namespace

std::string unitOfService(const std::string& name) {
    if (name.empty() || name.size() > kLongestName || name.find('\0') != std::string::npos) return {};
    if (name.find('/') != std::string::npos) return {};
    std::string unit;
    for (size_t i = 0; i < name.size(); ++i) {
        if (plainInUnitName(name[i], i == 0))
            unit += name[i];
        else
            appendHex(unit, name[i]);
    }
    unit += kSuffix;
    return unit.size() > kLongestUnitName ? std::string() : unit;
}

std::string serviceOfUnit(std::string_view unit) {
    if (!unit.ends_with(kSuffix)) return {};
    unit.remove_suffix(kSuffix.size());
    std::string name;
    for (size_t i = 0; i < unit.size(); ++i) {
        if (unit[i] != '\\') {
            name += unit[i];
        } else if (++i >= unit.size() || unit[i] != 'x' || !unescape(unit, i, name)) {
            return {};
        }
    }
    return name;
}

std::string unitDirectory() {
    std::string folder = variable("QUILL_UNIT_DIR");
    return folder.empty() ? "/etc/systemd/system" : folder;
}

std::string unitPath(const std::string& unit) { return unitDirectory() + "/" + unit; }

std::vector<std::string> runtimeDirectories(const std::string& unit) {
    std::string own = runtimeFolder(unit);
    if (std::string folder = variable("QUILL_RUNTIME_DIR"); !folder.empty()) return {folder + "/" + own};
    std::vector<std::string> folders{"/run/quillsrv/" + own};
    if (std::string user = variable("XDG_RUNTIME_DIR"); !user.empty())
        folders.push_back(user + "/quillsrv/" + own);
    return folders;
}

int makeRuntimeDirectory(const std::string& folder, uint32_t uid, uint32_t gid) {
    size_t slash = folder.rfind('/');
    std::string parent = folder.substr(0, slash);
    if (mkdir(parent.c_str(), 0755) != 0 && errno != EEXIST) return errno;
    if (mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) return errno;
    Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) return errno;
    if (fchown(fd.get(), uid, gid) != 0) return errno;
    // An earlier account's lock file would keep the new one out.
    if (unlinkat(fd.get(), "lock", 0) != 0 && errno != ENOENT) return errno;
    return 0;
}

std::string quoteWord(std::string_view word) {
    std::string quoted = "\"";
    for (char c : word) {
        if (c == '"' || c == '\\')
            (quoted += '\\') += c;
        else if (c == '%')
            quoted += "%%";
        else if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            appendHex(quoted, c);
        else
            quoted += c;
    }
    return quoted += '"';
}

bool splitCommand(std::string_view line, std::vector<std::string>& words) {
    std::vector<std::string> list;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == ' ' || line[i] == '\t') continue;
        std::string word;
        char quote = 0;
        for (; i < line.size() && (quote || (line[i] != ' ' && line[i] != '\t')); ++i) {
            if (line[i] == quote) {
                quote = 0;
            } else if (!quote && (line[i] == '"' || line[i] == '\'')) {
                quote = line[i];
            } else if (line[i] == '\\') {
                if (++i >= line.size() || !unescape(line, i, word)) return false;
            } else {
                word += line[i];
            }
        }
        if (quote) return false;
        list.push_back(std::move(word));
    }
    words.swap(list);
    return true;
}

std::string unitText(const ServiceDefinition& definition, const std::string& unit) {
    std::string text =
        "[Unit]\nDescription=" + plainLine(definition.displayName) + "\nAfter=network.target\n\n";
    text += "[Service]\nType=notify\nExecStart=";
    for (size_t i = 0; i < definition.command.size(); ++i) {
        if (i == 0)
            text += quoteWord(":" + definition.command[0]);
        else
            text += " " + quoteWord(definition.command[i]);
    }
    text += "\nEnvironment=" + quoteWord(std::string(kServiceVariable) + "=" + definition.name);
    if (std::string folder = variable("QUILL_RUNTIME_DIR"); !folder.empty())
        text += "\nEnvironment=" + quoteWord("QUILL_RUNTIME_DIR=" + folder);
    else
        text += "\nRuntimeDirectory=" + quoteWord("quillsrv/" + runtimeFolder(unit));
    if (!definition.account.empty()) text += "\nUser=" + plainLine(definition.account);
    // Children of scripts end with the server, but only the server is told to.
    text += "\nKillMode=mixed\n\n[Install]\nWantedBy=multi-user.target\n";
    return text;
}

int parseUnit(std::string_view text, ServiceDefinition& definition) {
    ServiceDefinition read;
    std::string section, command, joined;
    for (size_t start = 0; start <= text.size();) {
        size_t end = std::min(text.find('\n', start), text.size());
        std::string_view piece = text.substr(start, end - start);
        start = end + 1;
        if (joined.empty() && (trim(piece).starts_with('#') || trim(piece).starts_with(';'))) continue;
        if (piece.ends_with('\\')) {
            joined.append(piece.substr(0, piece.size() - 1)) += ' ';
            continue;
        }
        joined += piece;
        std::string whole = std::move(joined);
        joined.clear();
        std::string_view line = trim(whole);
        if (line.starts_with('[')) {
            section = line;
            continue;
        }
        size_t equals = line.find('=');
        if (equals == std::string_view::npos) continue;
        std::string_view key = trim(line.substr(0, equals)), value = trim(line.substr(equals + 1));
        if (section == "[Unit]" && key == "Description") read.displayName = undouble(value);
        if (section == "[Service]" && key == "ExecStart") command = value;
        if (section == "[Service]" && key == "User") read.account = undouble(value);
    }
    if (!splitCommand(command, read.command) || read.command.empty()) return EINVAL;
    for (std::string& word : read.command) word = undouble(word);
    std::string& program = read.command[0];
    program.erase(0, std::min(program.find_first_not_of("@-:+!"), program.size()));
    if (!program.starts_with('/')) return EINVAL;
    definition = std::move(read);
    return 0;
}

int readUnit(const std::string& unit, ServiceDefinition& definition) {
    std::string text;
    if (int error = readSystemFile(unitPath(unit).c_str(), text, kLargestUnit)) return error;
    ServiceDefinition read;
    if (int error = parseUnit(text, read)) return error;
    read.name = serviceOfUnit(unit);
    definition = std::move(read);
    return 0;
}

int writeUnit(const ServiceDefinition& definition, const std::string& unit) {
    std::string path = unitPath(unit);
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file) return errno;
    int error = writeWhole(file.get(), unitText(definition, unit));
    if (error == 0 && fsync(file.get()) != 0) error = errno;
    if (error == 0) error = enableUnit(unit);
    if (error) unlink(path.c_str());
    return error;
}

int deleteUnit(const std::string& unit) {
    if (unlink(unitPath(unit).c_str()) != 0) return errno;
    return unlink(wantsLink(unit).c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

}  // namespace platform
