// The raw file under a store.
//
// Reading goes by pread, so that the streams of a file need no common position. Writing collects what is
// appended in one buffer, since blocks of many streams follow each other in small pieces; a write into the
// part already on disk, as the update of the file's header is, goes there at once.
#include "store/smf_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "ipe/values/ipe_stringtype.h"
#include "platform/pf_console.h"
#include "runtime/streams/epa_fileerror.h"
#include "runtime/xpk_exception.h"

namespace {

constexpr size_t AppendBuffer = 1 << 18;

// Channel "dev", level 40.
void logDamage(const std::string& line) { platform::debugOutput("dev 40 " + line); }
SMF_DamageLog damageLog = logDamage;

class DiskFile final : public SMF_File {
  public:
    DiskFile(std::string name, int fd, bool writing) : SMF_File(std::move(name)), fd_(fd), writing_(writing) {
        if (writing_) pending_.reserve(AppendBuffer);
    }
    ~DiskFile() override {
        if (fd_ >= 0) ::close(fd_);
    }

    int64_t size() override {
        if (writing_) return start_ + static_cast<int64_t>(pending_.size());
        return stamp().size;
    }

    SMF_FileStamp stamp() override {
        struct stat status;
        if (::fstat(fd_, &status) != 0) EPA_RaiseFileError(errno, name());
        return {status.st_size, int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec};
    }

    size_t read(int64_t offset, void* buffer, size_t size) override {
        if (fd_ < 0) EPA_RaiseFileError(EBADF, name());
        size_t got = 0;
        while (got < size) {
            ssize_t n = ::pread(fd_, static_cast<char*>(buffer) + got, size - got,
                                offset + static_cast<int64_t>(got));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) EPA_RaiseFileError(errno, name());
            if (n == 0) break;
            got += static_cast<size_t>(n);
        }
        return got;
    }

    void write(int64_t offset, const void* bytes, size_t size) override {
        if (fd_ < 0) EPA_RaiseFileError(EBADF, name());
        XPK_Assert(offset >= 0 && offset <= this->size());
        if (offset != this->size()) {
            flush();
            put(offset, bytes, size);
            start_ = std::max(start_, offset + static_cast<int64_t>(size));
            return;
        }
        auto* from = static_cast<const char*>(bytes);
        if (pending_.size() + size > AppendBuffer) flush();
        if (size >= AppendBuffer) {
            put(offset, bytes, size);
            start_ += static_cast<int64_t>(size);
        } else {
            pending_.insert(pending_.end(), from, from + size);
        }
    }

    void flush() override {
        if (pending_.empty()) return;
        put(start_, pending_.data(), pending_.size());
        start_ += static_cast<int64_t>(pending_.size());
        pending_.clear();
    }

    void close() override {
        if (fd_ < 0) return;
        struct Closer {
            DiskFile& file;
            int result = 0;
            void run() {
                int fd = std::exchange(file.fd_, -1);
                if (fd >= 0 && ::close(fd) != 0) result = errno;
            }
            ~Closer() { run(); }
        } closer{*this};
        if (writing_) flush();
        closer.run();
        if (writing_ && closer.result) EPA_RaiseFileError(closer.result, name());
    }

    void willNeed(int64_t offset, size_t size) override {
        ::posix_fadvise(fd_, offset, static_cast<off_t>(size), POSIX_FADV_WILLNEED);
    }

  private:
    void put(int64_t offset, const void* bytes, size_t size) {
        auto* from = static_cast<const char*>(bytes);
        while (size > 0) {
            ssize_t n = ::pwrite(fd_, from, size, offset);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) EPA_RaiseFileError(errno, name());
            from += n;
            offset += n;
            size -= static_cast<size_t>(n);
        }
    }

    int fd_;
    bool writing_;
    int64_t start_ = 0;  // bytes that are on disk; `pending_` follows them
    std::vector<char> pending_;
};

std::unique_ptr<SMF_File> openFile(const EPA_FileName& name, int flags, bool writing) {
    if (name.error) EPA_RaiseFileError(name.error, name.text);
    int fd = ::open(name.bytes.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd < 0) EPA_RaiseFileError(errno, name.text);
    struct stat status;
    int error = ::fstat(fd, &status) != 0 ? errno
                : S_ISDIR(status.st_mode) ? EISDIR
                : S_ISREG(status.st_mode) ? 0
                                          : ESPIPE;
    if (error) {
        ::close(fd);
        EPA_RaiseFileError(error, name.text);
    }
    return std::make_unique<DiskFile>(name.text, fd, writing);
}

}  // namespace

std::unique_ptr<SMF_File> SMF_OpenForReading(const EPA_FileName& name) {
    return openFile(name, O_RDONLY, false);
}
std::unique_ptr<SMF_File> SMF_Create(const EPA_FileName& name) {
    return openFile(name, O_WRONLY | O_CREAT | O_TRUNC, true);
}
std::unique_ptr<SMF_File> SMF_OpenForReading(std::string_view name) {
    return SMF_OpenForReading(EPA_FileNameOf(IPE_String(name)));
}
std::unique_ptr<SMF_File> SMF_Create(std::string_view name) {
    return SMF_Create(EPA_FileNameOf(IPE_String(name)));
}

void SMF_File::noteDamage(std::string_view stream, int64_t block, std::string_view what) {
    if (damage_.count++ > 0) return;
    damage_.first = std::string(name()) + ": block " + std::to_string(block) + " of " + std::string(stream) +
                    " " + std::string(what);
    damageLog(damage_.first);
}

void SMF_SetDamageLog(SMF_DamageLog log) noexcept { damageLog = log; }

size_t SMF_MemoryFile::read(int64_t offset, void* buffer, size_t size) {
    if (offset < 0 || offset >= this->size()) return 0;
    size_t got = std::min(size, content_.size() - static_cast<size_t>(offset));
    if (got > 0) std::memcpy(buffer, content_.data() + offset, got);
    return got;
}

void SMF_MemoryFile::write(int64_t offset, const void* bytes, size_t size) {
    XPK_Assert(offset >= 0 && offset <= this->size());
    auto at = static_cast<size_t>(offset);
    if (at + size > content_.size()) content_.resize(at + size);
    if (size > 0) std::memcpy(content_.data() + at, bytes, size);
}
