// The kernel writes core files of dying processes; this process means to live on, so it writes its own.
//
// Layout: ELF header, program headers (one PT_NOTE, one PT_LOAD for each range of memory), notes,
// page-aligned memory. The notes are those of the kernel in its order (fs/binfmt_elf.c): for the faulting
// thread NT_PRSTATUS, NT_PRPSINFO, NT_SIGINFO, NT_AUXV, NT_FILE, NT_FPREGSET, then NT_PRSTATUS and
// NT_FPREGSET of each other thread. A debugger takes code and constants from the files that NT_FILE names, so
// the plain dump needs only stacks and what leads to the modules: the head page of each mapped file and the
// dynamic linker's list.
//
// Everything here runs inside a signal handler of a damaged process: no allocation but one mapping of its
// own, no locks, no library call that takes one, and memory is read through the kernel, which answers a bad
// address with an error. Pages of zeroes become holes.

#include "platform/pf_coredump.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/procfs.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/pf_safememory.h"
#include "platform/pf_threadhalt.h"

namespace platform {

namespace {

constexpr uint64_t kPage = 4096;
constexpr uint64_t kRedZone = 128;               // below the stack pointer, may be in use (x86-64 ABI)
constexpr uint64_t kLongestStack = 64ull << 20;  // more of one stack is not written into a plain dump
constexpr size_t kArena = 64 << 20;              // address space; touched only as far as needed
constexpr size_t kMostMappings = 66000;
constexpr size_t kMostRanges = 65000;  // e_phnum has 16 bits
constexpr size_t kMostModules = 4096;
constexpr size_t kCopy = 256 << 10;

uint64_t pageDown(uint64_t address) { return address & ~(kPage - 1); }
uint64_t pageUp(uint64_t address) { return (address + kPage - 1) & ~(kPage - 1); }

// Memory of our own for one dump, given back as a whole.
class Arena {
  public:
    Arena() {
        void* memory =
            mmap(nullptr, kArena, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        base_ = memory == MAP_FAILED ? nullptr : static_cast<char*>(memory);
    }
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena() {
        if (base_) munmap(base_, kArena);
    }

    // Null when used up.
    void* take(size_t size) {
        size = (size + 15) & ~size_t{15};
        if (!base_ || size > kArena - used_) return nullptr;
        void* memory = base_ + used_;
        used_ += size;
        return memory;
    }
    uint64_t begin() const { return reinterpret_cast<uint64_t>(base_); }

  private:
    char* base_ = nullptr;
    size_t used_ = 0;
};

struct Mapping {
    uint64_t start, end, offset;
    bool read, write, execute, shared;
    const char* name;  // "" for anonymous memory
};

struct Range {
    uint64_t start, end;
    uint32_t flags;
};

// Reads lines of a file of /proc without the C library's streams.
class LineReader {
  public:
    explicit LineReader(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC)) {}
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    ~LineReader() {
        if (fd_ >= 0) close(fd_);
    }

    // A line without its end, cut at the buffer's size; null at the end.
    char* next() {
        size_t length = 0;
        for (;;) {
            if (at_ == filled_) {
                ssize_t got = fd_ < 0 ? 0 : read(fd_, buffer_, sizeof buffer_);
                if (got < 0 && errno == EINTR) continue;
                if (got <= 0) break;
                at_ = 0;
                filled_ = static_cast<size_t>(got);
            }
            char c = buffer_[at_++];
            if (c == '\n') {
                line_[length] = 0;
                return line_;
            }
            if (length + 1 < sizeof line_) line_[length++] = c;
        }
        line_[length] = 0;
        return length ? line_ : nullptr;
    }

  private:
    int fd_;
    size_t at_ = 0, filled_ = 0;
    char buffer_[4096];
    char line_[4608];  // a path of 4095 bytes and the figures before it
};

uint64_t readHex(const char*& at) {
    uint64_t value = 0;
    for (;; ++at) {
        char c = *at;
        if (c >= '0' && c <= '9')
            value = value * 16 + static_cast<uint64_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            value = value * 16 + static_cast<uint64_t>(c - 'a' + 10);
        else
            return value;
    }
}

const char* skipField(const char* at) {
    while (*at && *at != ' ') ++at;
    while (*at == ' ') ++at;
    return at;
}

class CoreWriter {
  public:
    CoreWriter(const siginfo_t* info, const void* context, uint32_t kind) : info_(info), kind_(kind) {
        own_.tid = static_cast<pid_t>(syscall(SYS_gettid));
        takeRegisters(context, own_);
    }

    int write(const char* path, const ThreadRegisters* others, size_t count) {
        others_ = others;
        otherCount_ = count;
        mappings_ = static_cast<Mapping*>(arena_.take(kMostMappings * sizeof(Mapping)));
        ranges_ = static_cast<Range*>(arena_.take(kMostRanges * sizeof(Range)));
        copy_ = static_cast<char*>(arena_.take(kCopy));
        if (!mappings_ || !ranges_ || !copy_) return ENOMEM;
        readMappings();
        chooseRanges();
        mergeRanges();
        if (!makeNotes()) return ENOMEM;
        fd_ = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd_ < 0) return errno;
        int error = writeFile();
        if (close(fd_) != 0 && error == 0) error = errno;
        if (error) unlink(path);
        return error;
    }

  private:
    // --- what to write ---

    void readMappings() {
        LineReader lines("/proc/self/maps");
        while (char* line = lines.next()) {
            if (mappingCount_ == kMostMappings) return;
            const char* at = line;
            Mapping mapping{};
            mapping.start = readHex(at);
            if (*at++ != '-') continue;
            mapping.end = readHex(at);
            if (*at++ != ' ' || strlen(at) < 5) continue;
            mapping.read = at[0] == 'r';
            mapping.write = at[1] == 'w';
            mapping.execute = at[2] == 'x';
            mapping.shared = at[3] == 's';
            at = skipField(at);
            mapping.offset = readHex(at);
            at = skipField(skipField(skipField(at)));
            mapping.name = keep(at);
            if (mapping.start != arena_.begin()) mappings_[mappingCount_++] = mapping;
        }
    }

    const char* keep(const char* text) {
        if (!*text) return "";
        size_t size = strlen(text) + 1;
        auto* copy = static_cast<char*>(arena_.take(size));
        if (!copy) return "";
        memcpy(copy, text, size);
        return copy;
    }

    static bool isFile(const Mapping& mapping) { return mapping.name[0] == '/'; }

    static bool writable(const Mapping& mapping) {
        if (!mapping.read) return false;
        // Reading a device may do something; the kernel's own pages cannot be read this way.
        bool device = strncmp(mapping.name, "/dev/", 5) == 0 && strncmp(mapping.name, "/dev/shm/", 9) != 0 &&
                      strncmp(mapping.name, "/dev/zero", 9) != 0;
        return !device && strncmp(mapping.name, "[vvar", 5) != 0 && strcmp(mapping.name, "[vsyscall]") != 0;
    }

    // The mapping with an address, or the next one above it.
    const Mapping* mappingAt(uint64_t address) const {
        const Mapping* end = mappings_ + mappingCount_;
        const Mapping* found = std::upper_bound<const Mapping*>(
            mappings_, end, address,
            [](uint64_t value, const Mapping& mapping) { return value < mapping.end; });
        return found == end ? nullptr : found;
    }

    void addRange(const Mapping& mapping, uint64_t start, uint64_t end) {
        start = std::max(pageDown(start), mapping.start);
        end = std::min(pageUp(end), mapping.end);
        if (start >= end || rangeCount_ == kMostRanges || !writable(mapping)) return;
        uint32_t flags = PF_R | (mapping.write ? PF_W : 0u) | (mapping.execute ? PF_X : 0u);
        ranges_[rangeCount_++] = {start, end, flags};
    }

    void addBytes(uint64_t address, uint64_t size) {
        const Mapping* mapping = mappingAt(address);
        if (mapping && mapping->start <= address) addRange(*mapping, address, address + size);
    }

    void addStack(uint64_t pointer) {
        if (pointer == 0) return;
        // After an overflow the pointer stands in the guard below its stack.
        const Mapping* mapping = mappingAt(pointer);
        const Mapping* last = mappings_ + mappingCount_;
        while (mapping && mapping < last && !mapping->read && mapping->start < pointer + (1 << 20)) ++mapping;
        if (!mapping || mapping == last) return;
        uint64_t start = std::max(pointer - kRedZone, mapping->start);
        addRange(*mapping, start, std::min(mapping->end, start + kLongestStack));
    }

    // The dynamic linker's list of modules: without it a debugger sees no library's names.
    void addModuleList() {
        addBytes(reinterpret_cast<uint64_t>(_DYNAMIC), 64 * sizeof(ElfW(Dyn)));
        uint64_t debug = 0;
        ElfW(Dyn) entry{};
        for (uint64_t at = reinterpret_cast<uint64_t>(_DYNAMIC);; at += sizeof entry) {
            if (readOwnMemory(at, &entry, sizeof entry) != sizeof entry || entry.d_tag == DT_NULL) break;
            if (entry.d_tag == DT_DEBUG) debug = entry.d_un.d_ptr;
        }
        r_debug head{};
        if (!debug || readOwnMemory(debug, &head, sizeof head) != sizeof head) return;
        addBytes(debug, sizeof head);
        auto at = reinterpret_cast<uint64_t>(head.r_map);
        for (size_t i = 0; at && i < kMostModules; ++i) {
            link_map node{};
            if (readOwnMemory(at, &node, sizeof node) != sizeof node) return;
            addBytes(at, sizeof node);
            addBytes(reinterpret_cast<uint64_t>(node.l_name), 1);
            at = reinterpret_cast<uint64_t>(node.l_next);
        }
    }

    void chooseRanges() {
        addStack(stackPointerOf(own_));
        for (size_t i = 0; i < otherCount_; ++i) addStack(stackPointerOf(others_[i]));
        addModuleList();
        bool data = kind_ & kCoreDataSegments, full = kind_ & kCoreFullMemory;
        for (size_t i = 0; i < mappingCount_; ++i) {
            const Mapping& mapping = mappings_[i];
            bool whole = full || strcmp(mapping.name, "[vdso]") == 0;
            // A module's zeroed data stands right behind its file's last writable mapping.
            bool behind = i > 0 && mappings_[i - 1].end == mapping.start && isFile(mappings_[i - 1]) &&
                          mappings_[i - 1].write && mapping.name[0] == 0;
            if (data && mapping.write && !mapping.shared && (isFile(mapping) || behind)) whole = true;
            if (whole)
                addRange(mapping, mapping.start, mapping.end);
            else if (isFile(mapping) && mapping.offset == 0 && !mapping.shared)
                addRange(mapping, mapping.start, mapping.start + kPage);
        }
    }

    void mergeRanges() {
        std::sort(ranges_, ranges_ + rangeCount_,
                  [](const Range& a, const Range& b) { return a.start < b.start; });
        size_t kept = 0;
        for (size_t i = 0; i < rangeCount_; ++i) {
            Range& last = ranges_[kept ? kept - 1 : 0];
            bool joins = kept && ranges_[i].start <= last.end &&
                         (ranges_[i].start < last.end || ranges_[i].flags == last.flags);
            if (joins)
                last.end = std::max(last.end, ranges_[i].end);
            else
                ranges_[kept++] = ranges_[i];
        }
        rangeCount_ = kept;
    }

    // --- notes ---

    bool note(uint32_t type, const char* name, const void* data, size_t size) {
        size_t nameSize = strlen(name) + 1;
        size_t total = sizeof(Elf64_Nhdr) + ((nameSize + 3) & ~size_t{3}) + ((size + 3) & ~size_t{3});
        if (total > noteLimit_ - noteSize_) return false;
        Elf64_Nhdr header{static_cast<uint32_t>(nameSize), static_cast<uint32_t>(size), type};
        char* at = notes_ + noteSize_;
        memset(at, 0, total);
        memcpy(at, &header, sizeof header);
        memcpy(at + sizeof header, name, nameSize);
        memcpy(at + sizeof header + ((nameSize + 3) & ~size_t{3}), data, size);
        noteSize_ += total;
        return true;
    }

    bool statusNote(const ThreadRegisters& thread, int signal) {
        elf_prstatus status{};
        status.pr_info.si_signo = signal;
        status.pr_info.si_code = signal ? info_->si_code : 0;
        status.pr_cursig = static_cast<short>(signal);
        status.pr_pid = thread.tid;
        status.pr_ppid = getppid();
        status.pr_pgrp = getpgrp();
        status.pr_sid = getsid(0);
        status.pr_fpvalid = thread.complete;
        memcpy(&status.pr_reg, thread.general, std::min(sizeof status.pr_reg, sizeof thread.general));
        return note(NT_PRSTATUS, "CORE", &status, sizeof status);
    }

    bool processNote() {
        elf_prpsinfo process{};
        process.pr_sname = 'R';
        process.pr_uid = getuid();
        process.pr_gid = getgid();
        process.pr_pid = getpid();
        process.pr_ppid = getppid();
        process.pr_pgrp = getpgrp();
        process.pr_sid = getsid(0);
        size_t size = readFile("/proc/self/comm", process.pr_fname, sizeof process.pr_fname - 1);
        if (size && process.pr_fname[size - 1] == '\n') process.pr_fname[size - 1] = 0;
        size = readFile("/proc/self/cmdline", process.pr_psargs, sizeof process.pr_psargs - 1);
        for (size_t i = 0; i + 1 < size; ++i)
            if (!process.pr_psargs[i]) process.pr_psargs[i] = ' ';
        return note(NT_PRPSINFO, "CORE", &process, sizeof process);
    }

    static size_t readFile(const char* path, void* buffer, size_t size) {
        int fd = open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0) return 0;
        ssize_t got = read(fd, buffer, size);
        close(fd);
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

    // Count, page size, then start, end and page offset of each file mapping, then their names.
    bool fileNote() {
        size_t count = 0, names = 0;
        for (size_t i = 0; i < mappingCount_; ++i) {
            if (!isFile(mappings_[i])) continue;
            ++count;
            names += strlen(mappings_[i].name) + 1;
        }
        size_t size = (2 + 3 * count) * sizeof(uint64_t) + names;
        auto* data = static_cast<uint64_t*>(arena_.take(size));
        if (!data) return false;
        uint64_t* number = data;
        *number++ = count;
        *number++ = kPage;
        char* name = reinterpret_cast<char*>(data + 2 + 3 * count);
        for (size_t i = 0; i < mappingCount_; ++i) {
            if (!isFile(mappings_[i])) continue;
            *number++ = mappings_[i].start;
            *number++ = mappings_[i].end;
            *number++ = mappings_[i].offset / kPage;
            size_t length = strlen(mappings_[i].name) + 1;
            memcpy(name, mappings_[i].name, length);
            name += length;
        }
        return note(NT_FILE, "CORE", data, size);
    }

    bool makeNotes() {
        noteLimit_ = (otherCount_ + 1) * 1024 + (1 << 20) + mappingCount_ * 64;
        for (size_t i = 0; i < mappingCount_; ++i) noteLimit_ += strlen(mappings_[i].name);
        notes_ = static_cast<char*>(arena_.take(noteLimit_));
        if (!notes_) return false;
        char vector[4096];
        size_t vectorSize = readFile("/proc/self/auxv", vector, sizeof vector);
        bool fits = statusNote(own_, info_->si_signo) && processNote() &&
                    note(NT_SIGINFO, "CORE", info_, sizeof *info_) &&
                    note(NT_AUXV, "CORE", vector, vectorSize) && fileNote() &&
                    note(NT_FPREGSET, "CORE", own_.floating, sizeof own_.floating);
        for (size_t i = 0; fits && i < otherCount_; ++i) {
            fits = statusNote(others_[i], 0);
            if (fits && others_[i].complete)
                fits = note(NT_FPREGSET, "CORE", others_[i].floating, sizeof others_[i].floating);
        }
        return fits;
    }

    // --- the file ---

    int writeAt(const void* data, size_t size, uint64_t offset) const {
        const auto* at = static_cast<const char*>(data);
        while (size > 0) {
            ssize_t wrote = pwrite(fd_, at, size, static_cast<off_t>(offset));
            if (wrote < 0 && errno == EINTR) continue;
            if (wrote < 0) return errno;
            if (wrote == 0) return ENOSPC;
            at += wrote;
            size -= static_cast<size_t>(wrote);
            offset += static_cast<uint64_t>(wrote);
        }
        return 0;
    }

    int writeHeaders(uint64_t notesAt, uint64_t memoryAt) const {
        Elf64_Ehdr header{};
        memcpy(header.e_ident, ELFMAG, SELFMAG);
        header.e_ident[EI_CLASS] = ELFCLASS64;
        header.e_ident[EI_DATA] = ELFDATA2LSB;
        header.e_ident[EI_VERSION] = EV_CURRENT;
        header.e_type = ET_CORE;
        header.e_machine = EM_X86_64;
        header.e_version = EV_CURRENT;
        header.e_phoff = sizeof header;
        header.e_ehsize = sizeof header;
        header.e_phentsize = sizeof(Elf64_Phdr);
        header.e_phnum = static_cast<uint16_t>(rangeCount_ + 1);
        if (int error = writeAt(&header, sizeof header, 0)) return error;
        Elf64_Phdr program{};
        program.p_type = PT_NOTE;
        program.p_offset = notesAt;
        program.p_filesz = noteSize_;
        program.p_align = 4;
        uint64_t at = sizeof header;
        if (int error = writeAt(&program, sizeof program, at)) return error;
        for (size_t i = 0; i < rangeCount_; ++i) {
            uint64_t size = ranges_[i].end - ranges_[i].start;
            program = {};
            program.p_type = PT_LOAD;
            program.p_flags = ranges_[i].flags;
            program.p_offset = memoryAt;
            program.p_vaddr = ranges_[i].start;
            program.p_filesz = program.p_memsz = size;
            program.p_align = kPage;
            at += sizeof program;
            if (int error = writeAt(&program, sizeof program, at)) return error;
            memoryAt += size;
        }
        return 0;
    }

    static bool isZero(const char* data, size_t size) {
        return data[0] == 0 && memcmp(data, data + 1, size - 1) == 0;
    }

    int writeRange(const Range& range, uint64_t offset) const {
        for (uint64_t at = range.start; at < range.end;) {
            size_t wanted = std::min<uint64_t>(kCopy, range.end - at);
            size_t got = readOwnMemory(at, copy_, wanted);
            // A page that cannot be read, such as one behind the end of a mapped file, stays a hole.
            size_t whole = std::max<size_t>(got & ~(kPage - 1), kPage);
            for (size_t page = 0; page + kPage <= got; page += kPage) {
                if (isZero(copy_ + page, kPage)) continue;
                if (int error = writeAt(copy_ + page, kPage, offset + page)) return error;
            }
            at += whole;
            offset += whole;
        }
        return 0;
    }

    int writeFile() const {
        uint64_t notesAt = sizeof(Elf64_Ehdr) + (rangeCount_ + 1) * sizeof(Elf64_Phdr);
        uint64_t memoryAt = pageUp(notesAt + noteSize_);
        if (int error = writeHeaders(notesAt, memoryAt)) return error;
        if (int error = writeAt(notes_, noteSize_, notesAt)) return error;
        uint64_t at = memoryAt;
        for (size_t i = 0; i < rangeCount_; ++i) {
            if (int error = writeRange(ranges_[i], at)) return error;
            at += ranges_[i].end - ranges_[i].start;
        }
        return ftruncate(fd_, static_cast<off_t>(at)) == 0 ? 0 : errno;
    }

    Arena arena_;
    const siginfo_t* const info_;
    const uint32_t kind_;
    ThreadRegisters own_{};
    const ThreadRegisters* others_ = nullptr;
    size_t otherCount_ = 0;
    Mapping* mappings_ = nullptr;
    size_t mappingCount_ = 0;
    Range* ranges_ = nullptr;
    size_t rangeCount_ = 0;
    char* notes_ = nullptr;
    size_t noteSize_ = 0, noteLimit_ = 0;
    char* copy_ = nullptr;
    int fd_ = -1;
};

}  // namespace

void prepareCore() {
    prepareOwnMemory();
    prepareThreadHalt();  // without it the dump lacks the other threads' registers
}

int writeCore(const char* path, const siginfo_t* info, const void* context, uint32_t kind) {
    CoreWriter writer(info, context, kind);
    size_t count = 0;
    const ThreadRegisters* others = haltThreads(count);
    int error = writer.write(path, others, count);
    releaseThreads();
    return error;
}

}  // namespace platform
