// A whole scan.
//
// The walk begins at "/", whatever is scanned: the directories above a root are visited with nothing but the
// way to the roots below them, which gives the rows of Path their real parents.
#include "scan_run.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <set>
#include <sstream>

#include "scan_census.h"
#include "scan_output.h"
#include "scan_progress.h"
#include "scan_walk.h"

namespace quillscan {

namespace {

constexpr size_t ProblemsShown = 10;
constexpr int64_t EntriesAWriting = 1 << 17;

Status statusOf(const std::string& path) {
    struct statx status;
    if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BASIC_STATS, &status) != 0) EPA_RaiseFileError(errno, path);
    return Status(status);
}

// --- Roots.

struct Roots {
    std::vector<std::string> paths;  // real, in depth-first order, none inside another
    std::vector<std::string> inner;  // those that are inside another
};

bool isInside(const std::string& path, const std::string& folder) {
    return path == folder || folder == "/" || (path.starts_with(folder) && path[folder.size()] == '/');
}

Roots realRoots(const std::vector<std::string>& names) {
    std::vector<std::string> all;
    for (const std::string& name : names) {
        char room[PATH_MAX];
        if (!::realpath(name.c_str(), room)) EPA_RaiseFileError(errno, name);
        if (!statusOf(room).isFolder()) EPA_RaiseFileError(ENOTDIR, name);
        all.emplace_back(room);
    }
    // A "/" sorts before every other byte, as the rows below a directory come before its next sibling.
    auto order = [](unsigned char c) { return c == '/' ? 0 : c; };
    std::sort(all.begin(), all.end(), [&](const std::string& a, const std::string& b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                            [&](char x, char y) { return order(x) < order(y); });
    });
    Roots roots;
    for (std::string& path : all) {
        if (roots.paths.empty() || !isInside(path, roots.paths.back()))
            roots.paths.push_back(std::move(path));
        else if (path != roots.paths.back())
            roots.inner.push_back(std::move(path));
    }
    return roots;
}

// The ways from "/" to the roots.
Walk::Above waysTo(const Roots& roots) {
    Walk::Above above;
    for (const std::string& path : roots.paths) {
        std::string parent = "/";
        for (size_t at = 1; at < path.size();) {
            size_t end = std::min(path.find('/', at), path.size());
            std::pair child(path.substr(at, end - at),
                            end == path.size() ? FolderKind::Root : FolderKind::Above);
            auto& children = above[parent];
            if (children.empty() || children.back() != child) children.push_back(child);
            parent = path.substr(0, end);
            at = end + 1;
        }
    }
    return above;
}

// A line of the system's list of mounts.
struct Mount {
    uint64_t id = 0;
    std::string device, type;  // "8:1", "ext4"
};

std::vector<Mount> mounts() {
    std::vector<Mount> all;
    std::ifstream list("/proc/self/mountinfo");
    for (std::string line; std::getline(list, line);) {
        Mount mount;
        std::string parent;
        std::istringstream(line) >> mount.id >> parent >> mount.device;
        if (size_t dash = line.find(" - "); dash != std::string::npos)
            std::istringstream(line.substr(dash + 3)) >> mount.type;
        all.push_back(std::move(mount));
    }
    return all;
}

// The type of the file system where `path` lies; empty when it cannot be told.
std::string fileSystemOf(const std::string& path) {
    struct statx status;
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &status) != 0) return {};
    std::string device = std::to_string(status.stx_dev_major) + ":" + std::to_string(status.stx_dev_minor);
    for (const Mount& mount : mounts())
        if (status.stx_mask & STATX_MNT_ID ? mount.id == status.stx_mnt_id : mount.device == device)
            return mount.type;
    return {};
}

// True unless every file system is of a kind whose directories never mount others when they are opened.
bool mayMount() {
    static const std::set<std::string, std::less<>> plain = {
        "ext2",     "ext3",    "ext4",   "xfs",       "btrfs",      "f2fs",    "vfat", "exfat",
        "squashfs", "overlay", "tmpfs",  "ramfs",     "devtmpfs",   "devpts",  "proc", "sysfs",
        "cgroup",   "cgroup2", "mqueue", "hugetlbfs", "securityfs", "tracefs", "bpf",  "pstore",
    };
    std::vector<Mount> all = mounts();
    return all.empty() ||
           !std::all_of(all.begin(), all.end(), [](const Mount& m) { return plain.contains(m.type); });
}

std::string hostName() {
    char name[HOST_NAME_MAX + 1] = {};
    return ::gethostname(name, sizeof name - 1) == 0 ? name : "";
}

// --- The visitor.

class Scan final : public Visitor {
  public:
    Scan(SMF_Writer& writer, OutputFile& output, Progress& progress)
        : census_(writer), output_(output), progress_(progress), host_(hostName()) {}

    void enter(Folder& folder) override {
        int32_t parent = folder.parent ? folder.parent->number : 0;
        if (!folder.isPresent) {
            ++row_.unreadable;
            return note(folder, parent, folder.name, folder.call, folder.error);
        }
        folder.number = census_.folder(parent, folder.name, folder.status, folder.error, folder.rights);
        if (folder.kind == FolderKind::Root) beginRoot(folder);
        if (folder.kind != FolderKind::Above) ++row_.folders;
        ++entries_;
        if (folder.error) {
            ++row_.unreadable;
            note(folder, folder.number, "", folder.call, folder.error);
        }
        tell(folder);
    }

    void entries(Folder& folder, const Chunk& chunk) override {
        for (const Entry& entry : chunk.entries) {
            if (!census_.file(folder.number, chunk, entry)) continue;
            row_.size += entry.status.size;
            row_.space += entry.status.space;
        }
        auto count = static_cast<int64_t>(chunk.entries.size());
        row_.files += count;
        entries_ += count;
        for (const Fault& fault : chunk.faults) {
            row_.unreadable += fault.name.empty();
            note(folder, folder.number, fault.name, fault.call, fault.error);
        }
        if (count >= 256) tell(folder);
    }

    void leave(Folder& folder) override {
        if (folder.kind != FolderKind::Root || !folder.isPresent) return;
        row_.finished = std::time(nullptr);
        census_.root(row_);
        files_ += row_.files;
        folders_ += row_.folders;
        size_ += row_.size;
        space_ += row_.space;
    }

    void finish() { census_.finish(); }
    int64_t problems() const noexcept { return problems_; }
    int64_t entryCount() const noexcept { return entries_; }
    std::string summary() const {
        return grouped(folders_) + " directories, " + grouped(files_) + " files, " + grouped(size_) +
               " bytes (" + grouped(space_) + " allocated)";
    }
    void tellProblems() const {
        if (problems_ == 0) return;
        std::fprintf(stderr, "quillscan: %s could not be read:\n",
                     problems_ == 1 ? "one thing" : (grouped(problems_) + " things").c_str());
        for (const std::string& line : shown_) std::fprintf(stderr, "  %s\n", line.c_str());
        if (problems_ > static_cast<int64_t>(shown_.size()))
            std::fprintf(stderr, "  and %s more, in the table Problem\n",
                         grouped(problems_ - static_cast<int64_t>(shown_.size())).c_str());
    }

  private:
    void tell(const Folder& folder) {
        progress_.tell(entries_, folder);
        if (entries_ < nextWriting_) return;
        nextWriting_ = entries_ + EntriesAWriting;
        output_.startWriting();
    }

    void beginRoot(const Folder& folder) {
        row_ = {};
        row_.number = folder.number;
        std::string path = pathOf(folder);
        row_.fileSystem = fileSystemOf(path);
        row_.path = path == "/" ? path : path + "/";
        row_.name = folder.name;
        row_.host = host_;
        row_.device = folder.status.device;
        row_.started = std::time(nullptr);
    }

    void note(const Folder& folder, int32_t number, std::string_view name, const char* call, int error) {
        census_.problem(number, name, call, error);
        if (shown_.size() < ProblemsShown) {
            const Folder& at = folder.isPresent || !folder.parent ? folder : *folder.parent;
            std::string path = name.empty() ? pathOf(at) : pathOf(at, name);
            shown_.push_back(printable(path) + ": " + XPK_DecodeError(error));
        }
        ++problems_;
    }

    Census census_;
    OutputFile& output_;
    Progress& progress_;
    const std::string host_;
    RootRow row_;
    int64_t entries_ = 0, nextWriting_ = EntriesAWriting, problems_ = 0;
    int64_t files_ = 0, folders_ = 0, size_ = 0, space_ = 0;
    std::vector<std::string> shown_;
};

}  // namespace

int run(const Options& options) {
    Roots roots = realRoots(options.roots);
    OutputFile output(options.output);
    Rules rules;
    rules.excluded = options.excluded;
    rules.oneFileSystem = options.oneFileSystem;
    rules.mayMount = mayMount();
    for (const std::string& path : roots.inner) {
        Status status = statusOf(path);
        rules.entered.emplace_back(status.device, status.inode);
    }
    rules.outputFolder = statusOf(output.folder());
    rules.outputNames = {output.baseName(), output.partName()};

    Progress progress;
    SMF_Writer writer;
    writer.open(output.part());
    writer.setCompressed(options.zlib);
    Scan scan(writer, output, progress);
    {
        Walk::Above above = waysTo(roots);
        Walk walk(rules, options.threads);
        walk.run("/", roots.paths.front() == "/" ? FolderKind::Root : FolderKind::Above, above, scan);
    }
    scan.finish();
    writer.close();
    int64_t size = output.size();
    output.publish();
    progress.clear();
    if (options.verbose || progress.isShown()) {
        double seconds = progress.seconds();
        auto entries = static_cast<double>(scan.entryCount());
        std::fprintf(stderr, "%s in %.2f s, %s entries/s; %s: %s bytes, %.1f an entry\n",
                     scan.summary().c_str(), seconds,
                     grouped(static_cast<int64_t>(entries / seconds)).c_str(),
                     printable(options.output).c_str(), grouped(size).c_str(),
                     static_cast<double>(size) / std::max(entries, 1.0));
    }
    scan.tellProblems();
    return options.strict && scan.problems() > 0 ? 3 : 0;
}

}  // namespace quillscan
