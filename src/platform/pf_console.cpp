// Messages leave the process in one write each, so that lines of several threads never mix, and never fail:
// what cannot be written has nowhere else to go.
//
// Whether standard error is collected by the service manager's journal is told by JOURNAL_STREAM, the device
// and inode of the journal's socket (systemd.exec(5)); a redirected descriptor has others.

#include "platform/pf_console.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/pf_process.h"

namespace platform {

namespace {

std::mutex writeLock;
std::atomic<bool> serviceConsole{false};
std::atomic<bool> progressShown{false};

std::string visible(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F) {
            char escape[5];
            snprintf(escape, sizeof escape, "\\x%02X", byte);
            shown += escape;
        } else {
            shown += c;
        }
    }
    return shown;
}

void writeStandardError(std::string line) {
    if (line.empty() || line.back() != '\n') line += '\n';
    std::lock_guard hold(writeLock);
    if (progressShown.exchange(false) && isTerminal(STDERR_FILENO)) line.insert(0, "\r\x1b[K");
    for (size_t done = 0; done < line.size();) {
        ssize_t wrote = write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) return;  // nobody reads standard error: there is no further place to complain
        done += static_cast<size_t>(wrote);
    }
}

void writeSystemLog(int priority, const std::string& text) {
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) end = text.size();
        if (end > start) syslog(LOG_DAEMON | priority, "%s", text.substr(start, end - start).c_str());
        start = end + 1;
    }
}

bool standardErrorIsJournal() {
    std::string stream;
    struct stat info;
    unsigned long long device = 0, inode = 0;
    if (environmentGet("JOURNAL_STREAM", stream) != 0) return false;
    if (sscanf(stream.c_str(), "%llu:%llu", &device, &inode) != 2) return false;
    return fstat(STDERR_FILENO, &info) == 0 && info.st_dev == device && info.st_ino == inode;
}

}  // namespace

void setServiceConsole(bool service) { serviceConsole = service; }

void setProgressShown(bool shown) { progressShown = shown; }

void appendStandardStreams() {
    for (int fd : {STDOUT_FILENO, STDERR_FILENO}) {
        struct stat status;
        int flags = ::fcntl(fd, F_GETFL);
        // A refusal leaves the stream as it is, which serves all who write through it alone.
        if (flags >= 0 && ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode))
            (void)::fcntl(fd, F_SETFL, flags | O_APPEND);
    }
}

void messageBox(std::string_view caption, std::string_view text) {
    std::string line = visible(caption);
    if (!line.empty()) line += ": ";
    line += visible(text);
    // Under the journal standard error is the log, and the message would stand there twice.
    if (serviceConsole && !standardErrorIsJournal()) writeSystemLog(LOG_ERR, line);
    writeStandardError(std::move(line));
}

void debugOutput(std::string_view text) {
    std::string line = visible(text);
    if (isTerminal(STDERR_FILENO) || standardErrorIsJournal() || access("/dev/log", W_OK) != 0)
        writeStandardError(std::move(line));
    else
        writeSystemLog(LOG_DEBUG, line);
}

std::string errorText(int error) {
    char buffer[256];
    return strerror_r(error, buffer, sizeof buffer);  // the GNU form, which gives the text
}

}  // namespace platform
