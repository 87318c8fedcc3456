// The part file and its end.
//
// The handler of the signals removes the part file and ends the process at once, whatever its threads do: a
// thread may hang in a call on a file system that does not answer. The path it removes is set while the
// signals are blocked, so that it never names a file of somebody else.
#include "scan_output.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "scan_progress.h"

namespace quillscan {

namespace {

constexpr int Ending[] = {SIGINT, SIGTERM, SIGHUP};
const char* volatile removed = nullptr;  // the part file's path, while there is one

void end(int number) {
    if (const char* path = removed) ::unlink(path);
    Progress::wipe();
    ::_exit(128 + number);
}

class Blocked {
  public:
    Blocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~Blocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  private:
    sigset_t before_;
};

void handleSignals() {
    struct sigaction action {};
    action.sa_handler = end;
    sigfillset(&action.sa_mask);
    for (int number : Ending) {
        struct sigaction present {};
        // What was started with a signal ignored, as by nohup, keeps it so.
        if (sigaction(number, nullptr, &present) == 0 && present.sa_handler == SIG_IGN) continue;
        sigaction(number, &action, nullptr);
    }
    // Writes beyond a limit fail with EFBIG, to a reader that went with EPIPE.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
}

// The real path of a file that is there, or of its folder and its name; IOError.
std::string realName(const std::string& name) {
    char room[PATH_MAX];
    if (::realpath(name.c_str(), room)) return room;
    struct stat status;
    if (errno != ENOENT || ::lstat(name.c_str(), &status) == 0) EPA_RaiseFileError(errno, name);
    size_t slash = name.rfind('/');
    std::string folder = slash == std::string::npos ? "." : name.substr(0, slash + 1);
    if (slash + 1 == name.size()) EPA_RaiseFileError(EISDIR, name);
    if (!::realpath(folder.c_str(), room)) EPA_RaiseFileError(errno, name);
    std::string real = room;
    if (real != "/") real += '/';
    return real + name.substr(slash == std::string::npos ? 0 : slash + 1);
}

}  // namespace

OutputFile::OutputFile(const std::string& name) : name_(realName(name)) {
    folder_ = name_.substr(0, std::max<size_t>(name_.rfind('/'), 1));
    struct stat status;
    if (::stat(name_.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) EPA_RaiseFileError(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, name_);
        mode_ = status.st_mode & 0777;
    }
    part_ = name_ + ".part-" + std::to_string(::getpid());
    handleSignals();
    create();
}

void OutputFile::create() {
    Blocked blocked;
    for (int attempt = 0;; ++attempt) {
        fd_.reset(::open(part_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (fd_) break;
        int error = errno;
        if (error != EEXIST || attempt > 0) EPA_RaiseFileError(error, part_);
        // Left by a process of the same number that was killed, unless somebody holds it.
        platform::Descriptor old(::open(part_.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!old || ::flock(old.get(), LOCK_EX | LOCK_NB) != 0) EPA_RaiseFileError(error, part_);
        ::unlink(part_.c_str());
    }
    removed = part_.c_str();
    ::flock(fd_.get(), LOCK_EX | LOCK_NB);
    if (mode_) ::fchmod(fd_.get(), mode_);
}

OutputFile::~OutputFile() {
    if (!isPublished_) ::unlink(part_.c_str());
    removed = nullptr;
}

void OutputFile::startWriting() noexcept { ::sync_file_range(fd_.get(), 0, 0, SYNC_FILE_RANGE_WRITE); }

int64_t OutputFile::size() const {
    struct stat status;
    return ::fstat(fd_.get(), &status) == 0 ? status.st_size : 0;
}

void OutputFile::publish() {
    if (::fsync(fd_.get()) != 0) EPA_RaiseFileError(errno, part_);
    if (::rename(part_.c_str(), name_.c_str()) != 0) EPA_RaiseFileError(errno, name_);
    isPublished_ = true;
    removed = nullptr;
    // The name too; the file is whole whether or not the folder can be synchronised.
    platform::Descriptor folder(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) ::fsync(folder.get());
}

}  // namespace quillscan
