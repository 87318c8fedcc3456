// The files of an index.
//
// The note carries the lock: a flock on the note itself needs no third file, is gone with its process, and
// tells threads apart as well, since each opens the note anew. For that the note is rewritten in place and
// never renamed; it is a few hundred bytes, and one that is cut off does not parse and counts as none. The
// data is large, so it is renamed into place, and only after it has reached the disk is the note written: a
// crash at any moment leaves an empty note, or both.
//
// A note that is a symbolic link, a device or a folder is never written; its place counts as read-only.
#include "census/index/fsi_indexfiles.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "platform/pf_anchor.h"
#include "platform/pf_files.h"
#include "runtime/epa_digest.h"
#include "runtime/epa_shutdown.h"

namespace {

constexpr size_t LongestName = 255, LongestNote = 1 << 16;
constexpr useconds_t LockPause = 20'000;

std::string upper(std::string_view text) {
    IPE_Object string = IPE_String(text);
    try {
        return IPE_Object_Text(string.as<IPE_StringType>()->upper());
    } catch (const XPK_Exception&) {  // bytes that are no text keep their case
        std::string out(text);
        for (char& c : out)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        return out;
    }
}

std::string sha1Hex(std::string_view text) {
    unsigned char bytes[20];
    EPA_Sha1(text, bytes);
    return EPA_HexText({reinterpret_cast<const char*>(bytes), sizeof bytes}, true);
}

bool meansReadOnly(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ELOOP || error == ENAMETOOLONG ||
           error == EISDIR || error == ENXIO || error == ENOLCK || error == EOPNOTSUPP || error == ENOTSUP;
}

// Folders of caches from the nearest to the last.
std::vector<std::string> cacheFolders() {
    std::vector<std::string> out;
    if (const char* folder = std::getenv("XDG_CACHE_HOME"); folder && *folder == '/')
        out.push_back(std::string(folder) + "/quillsrv");
    const char* home = std::getenv("HOME");
    if (home && *home == '/') out.push_back(std::string(home) + "/.cache/quillsrv");
    out.emplace_back("/var/cache/quillsrv");
    return out;
}

// Makes a folder for this user alone, with the folders above it.
bool makeFolders(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        if (::mkdir(path.substr(0, end).c_str(), 0700) != 0 && errno != EEXIST) return false;
        if (end == std::string::npos) return platform::isDirectory(path);
    }
}

void writeAll(int fd, std::string_view text, const std::string& name) {
    for (size_t done = 0; done < text.size();) {
        ssize_t n = ::pwrite(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) EPA_RaiseFileError(errno, name);
        done += static_cast<size_t>(n);
    }
}

// Brings a file or a folder to the disk.
void sync(int fd, const std::string& name) {
    if (::fsync(fd) != 0 && errno != EINVAL && errno != EROFS) EPA_RaiseFileError(errno, name);
}

void syncPath(const std::string& path, int flags, const std::string& name) {
    platform::Descriptor file(::open(path.c_str(), flags | O_RDONLY | O_CLOEXEC));
    if (!file) EPA_RaiseFileError(errno, name);
    sync(file.get(), name);
}

}  // namespace

std::string FSI_IndexFiles::versionKey() {
    std::string out = "~V";
    IPE_Store* store = IPE_FindGlobalStore();
    for (const char* name : {"__version_major", "__version_minor"})
        if (IPE_Object part = store ? store->get(name) : IPE_Object()) out += IPE_Object_Text(part);
    return out;
}

std::string FSI_IndexFiles::itemKey(std::string_view item) {
    std::string out = "~";
    for (char c : item)
        if (c == '/')
            out += "%2F";
        else if (c == '%')
            out += "%25";
        else
            out += c;
    return out;
}

FSI_IndexFiles::FSI_IndexFiles(const EPA_FileName& name, char kind, std::string_view key, int version,
                               const SMF_FileStamp& stamp)
    : key_(key), foldedKey_(upper(key)), kind_(kind), version_(version), stamp_(stamp) {
    if (name.error) EPA_RaiseFileError(name.error, name.text);
    lockName_ = name.text + ":~" + kind + "S" + foldedKey_ + ".TXT";
    size_t slash = name.bytes.rfind('/');
    size_t split = slash == std::string::npos ? 0 : slash + 1;
    std::string file = name.bytes.substr(split);
    places_.push_back({name.bytes.substr(0, split), file});
    if (char* real = ::realpath(name.bytes.c_str(), nullptr)) {
        real_ = real;
        std::free(real);
    }
    if (real_.empty()) return;
    for (const std::string& folder : cacheFolders())
        places_.push_back({folder + "/" + sha1Hex(real_) + "/", file, false});
}

bool FSI_IndexFiles::enter() {
    leave();
    while (next_ < places_.size()) {
        const Place& place = places_[next_++];
        if (!place.shared && !makeFolders(place.folder.substr(0, place.folder.size() - 1))) continue;
        std::string key = foldedKey_, file = place.file;
        auto nameOf = [&](const char* part, const char* suffix) {
            return file + ":~" + kind_ + part + key + suffix;
        };
        if (nameOf("S", ".TXT").size() > LongestName) key = "~" + sha1Hex(foldedKey_);
        if (nameOf("S", ".TXT").size() > LongestName) {
            if (place.shared) {
                if (!refused_) refused_ = ENAMETOOLONG;
                continue;
            }
            file = sha1Hex(file);
        }
        auto at = [&](const char* part, const char* suffix) {
            std::string path = place.folder + nameOf(part, suffix);
            return EPA_FileName{path, path};
        };
        note_ = at("S", ".TXT");
        data_ = at("D", ".SMF");
        fresh_ = at("D", ".NEW");
        if (waitForLock()) return true;
    }
    return false;
}

bool FSI_IndexFiles::openNote(int flags) {
    lock_.reset(::open(note_.bytes.c_str(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666));
    int error = lock_ ? 0 : errno;
    struct stat status;
    if (lock_ && (::fstat(lock_.get(), &status) != 0 || !S_ISREG(status.st_mode))) error = EACCES;
    if (!error) return true;
    lock_.reset();
    if (!refused_) refused_ = error;
    errno = error;
    return false;
}

// Locks the note that stands under its name. A place where there is none and none can be made, or no lock, is
// not usable.
bool FSI_IndexFiles::waitForLock() {
    for (;;) {
        writable_ = openNote(O_RDWR | O_CREAT);
        if (!writable_) {
            if (!meansReadOnly(errno)) EPA_RaiseFileError(errno, note_.text);
            if (!openNote(O_RDONLY)) return false;
        }
        while (::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK && errno != EINTR) {
                if (!refused_) refused_ = errno;
                lock_.reset();
                return false;
            }
            if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
            ::usleep(LockPause);
        }
        if (isStillNamed()) return true;
    }
}

bool FSI_IndexFiles::isStillNamed() const {
    struct stat own, named;
    return ::fstat(lock_.get(), &own) == 0 && ::lstat(note_.bytes.c_str(), &named) == 0 &&
           own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

bool FSI_IndexFiles::isWhole() {
    std::string text(LongestNote, 0);
    ssize_t size = ::pread(lock_.get(), text.data(), text.size(), 0);
    if (size <= 0 || static_cast<size_t>(size) == LongestNote) return false;
    text.resize(static_cast<size_t>(size));
    try {
        IPE_Object note = parse_literal(text);
        if (!note.is<IPE_DictType>()) return false;
        auto integer = [&](const char* key) {
            IPE_Object value(note.as<IPE_DictType>()->findText(key));
            return value.is<IPE_IntType>() ? value.as<IPE_IntType>()->value : -1;
        };
        IPE_Object key(note.as<IPE_DictType>()->findText("options"));
        struct stat status;
        return integer("created") > 0 && integer("version") == version_ &&
               integer("census_size") == stamp_.size && integer("census_time") == stamp_.modified &&
               key.is<IPE_StringType>() && key.as<IPE_StringType>()->view() == key_ &&
               ::stat(data_.bytes.c_str(), &status) == 0 && status.st_size == integer("data_size");
    } catch (const XPK_Exception&) {
        return false;  // no literal: not written here, or cut off
    }
}

bool FSI_IndexFiles::begin() {
    if (!writable_) return false;
    ::unlink(fresh_.bytes.c_str());  // of a build that was killed
    platform::Descriptor made(
        ::open(fresh_.bytes.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666));
    int error = made ? 0 : errno;
    if (!error && ::ftruncate(lock_.get(), 0) != 0) error = errno;
    if (!error) return true;
    if (made) ::unlink(fresh_.bytes.c_str());
    if (!refused_) refused_ = error;
    if (meansReadOnly(error)) return false;
    EPA_RaiseFileError(error, fresh_.text);
}

void FSI_IndexFiles::refuse() const { EPA_RaiseFileError(refused_ ? refused_ : EACCES, lockName_); }

std::string FSI_IndexFiles::noteText() const {
    struct stat status;
    if (::stat(data_.bytes.c_str(), &status) != 0) EPA_RaiseFileError(errno, data_.text);
    IPE_Object note = IPE_NewDict();
    auto set = [&](const char* key, int64_t value) { IPE_Dict_Set(note, key, IPE_Int(value)); };
    set("created", 1);
    set("version", version_);
    set("census_size", stamp_.size);
    set("census_time", stamp_.modified);
    set("data_size", status.st_size);
    IPE_Dict_Set(note, "options", IPE_String(key_));
    return IPE_Object_ToString(note);
}

void FSI_IndexFiles::commit() {
    syncPath(fresh_.bytes, 0, fresh_.text);
    if (::rename(fresh_.bytes.c_str(), data_.bytes.c_str()) != 0) EPA_RaiseFileError(errno, data_.text);
    std::string folder = platform::splitLast(data_.bytes).first;
    syncPath(folder, O_DIRECTORY, folder);
    writeAll(lock_.get(), noteText(), note_.text);
    sync(lock_.get(), note_.text);
}

void FSI_IndexFiles::abandon() noexcept {
    ::unlink(fresh_.bytes.c_str());
    if (lock_ && writable_ && ::ftruncate(lock_.get(), 0) != 0) return;  // a torn note does not parse
}

void FSI_IndexFiles::drop() noexcept {
    platform::Descriptor note(::open(note_.bytes.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!note || ::flock(note.get(), LOCK_EX | LOCK_NB) != 0) return;
    if (::ftruncate(note.get(), 0) != 0) return;  // then its data is found damaged again
}
