// Processor faults, each made for real in a child process: thrown as an exception, caught, and the dump
// looked at.

#include <elf.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/procfs.h>

#include <atomic>
#include <cfenv>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <thread>

#include "platform/pf_crash.h"
#include "platform/pf_process.h"
#include "scratch.h"

using namespace platform;

namespace {

struct FaultError {
    uint32_t code;
    FaultAccess access;
    uint64_t address, touched;
    std::string dump;
    std::string text;
};

[[noreturn]] void translate(const Fault& fault) {
    char text[256];
    formatFault(fault, text, sizeof text);
    throw FaultError{fault.code, fault.access, fault.address, fault.touched, fault.dumpName, text};
}

volatile int zero = 0;
char dataSegment[3 * 4096] = "the data segment of this program";

[[gnu::noinline]] int readAt(volatile int* at) { return *at; }
[[gnu::noinline]] void writeAt(volatile int* at) { *at = 1; }
[[gnu::noinline]] int overflow(int depth) {
    volatile char frame[4096];
    frame[depth % 4096] = static_cast<char>(depth);
    return depth < zero ? depth : overflow(depth + 1) + frame[0];
}

class Crash : public testing::Test {
  protected:
    void SetUp() override {
#if defined(QUILL_SANITIZED) || defined(__clang__) || !defined(__x86_64__)
        GTEST_SKIP() << "faults are not thrown in this build";
#endif
    }

    // Runs `body` in a child with handlers installed; gives its wait status. Its standard error goes to
    // root/err.
    int inChild(const std::function<int()>& body) const {
        pid_t child = fork();
        if (child == 0) {
            if (chdir(root.path().c_str()) != 0 || !freopen("err", "w", stderr)) _exit(90);
            if (setDumpName(root / "prog") || installCrashHandlers(translate) || installThread()) _exit(91);
            int code = 92;
            try {
                code = body();
            } catch (...) {
                _exit(93);
            }
            removeThread();
            _exit(code);
        }
        int status = -1;
        waitpid(child, &status, 0);
        return status;
    }

    // The fault of `body`, thrown and caught in a child, as numbers for the parent; "" if it went otherwise.
    std::string faultOf(const std::function<void()>& body) const {
        int status = inChild([&] {
            std::ofstream out("out");
            try {
                body();
                out << "no fault";
            } catch (const FaultError& error) {
                struct stat info;
                if (error.dump.empty() || stat(error.dump.c_str(), &info) != 0) out << "no dump ";
                out << faultName(error.code) << (error.access == FaultAccess::write ? " write" : "");
                if (error.code == kAccessViolation) out << " " << std::hex << error.touched;
            }
            return 0;
        });
        return status == 0 ? slurp(root / "out")
                           : "status " + std::to_string(status) + " " + slurp(root / "err");
    }

    std::string dumpPath() const {
        for (const auto& entry : std::filesystem::directory_iterator(root.path()))
            if (entry.path().extension() == ".dmp") return entry.path();
        return {};
    }

    Scratch root;
};

struct Core {
    size_t statuses = 0, notes = 0;
    uint64_t firstAddress = 0;
    int firstSignal = 0;
    bool valid = false;
    std::string content;
    std::vector<Elf64_Phdr> loads;

    bool holds(uint64_t address, const void* bytes, size_t size) const {
        for (const Elf64_Phdr& load : loads)
            if (address >= load.p_vaddr && address + size <= load.p_vaddr + load.p_filesz)
                return memcmp(content.data() + load.p_offset + (address - load.p_vaddr), bytes, size) == 0;
        return false;
    }
};

void readNotes(const char* at, const char* end, Core& core) {
    while (at + sizeof(Elf64_Nhdr) <= end) {
        Elf64_Nhdr header;
        memcpy(&header, at, sizeof header);
        const char* data = at + sizeof header + ((header.n_namesz + 3) & ~3u);
        if (header.n_type == NT_PRSTATUS && core.statuses++ == 0) {
            elf_prstatus status;
            memcpy(&status, data, sizeof status);
            core.firstSignal = status.pr_cursig;
            core.firstAddress = status.pr_reg[16];
        }
        ++core.notes;
        at = data + ((header.n_descsz + 3) & ~3u);
    }
    core.valid = at == end;
}

Core readCore(const std::string& content) {
    Core core;
    core.content = content;
    Elf64_Ehdr header;
    if (content.size() < sizeof header) return core;
    memcpy(&header, content.data(), sizeof header);
    if (memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_type != ET_CORE) return core;
    for (size_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr program;
        memcpy(&program, content.data() + header.e_phoff + i * sizeof program, sizeof program);
        if (program.p_offset + program.p_filesz > content.size()) return core;
        if (program.p_type == PT_LOAD) core.loads.push_back(program);
        if (program.p_type == PT_NOTE)
            readNotes(content.data() + program.p_offset, content.data() + program.p_offset + program.p_filesz,
                      core);
    }
    return core;
}

}  // namespace

TEST_F(Crash, eachFaultHasItsName) {
    const std::pair<const char*, std::function<void()>> faults[] = {
        {"ACCESS_VIOLATION 0", [] { readAt(nullptr); }},
        {"ACCESS_VIOLATION 0", [] { reinterpret_cast<void (*)()>(static_cast<uintptr_t>(zero))(); }},
        {"ACCESS_VIOLATION write 10", [] { writeAt(reinterpret_cast<int*>(0x10)); }},
        {"ACCESS_VIOLATION ffffffffffffffff", [] { readAt(reinterpret_cast<int*>(0x8000000000000000)); }},
        {"INT_DIVIDE_BY_ZERO", [] { zero = 1 / zero; }},
        {"BREAKPOINT", [] { asm volatile("int3"); }},
        {"ILLEGAL_INSTRUCTION", [] { asm volatile("ud2"); }},
        {"PRIV_INSTRUCTION", [] { asm volatile("hlt"); }},
        {"SINGLE_STEP",
         [] {
             asm volatile("pushf; orl $0x100, (%%rsp); popf; nop" ::: "memory", "cc");
         }},
        {"STACK_OVERFLOW", [] { zero = overflow(0); }},
        {"IN_PAGE_ERROR",
         [this] {
             FILE* file = fopen(root.file("map", "x").c_str(), "r");
             char* at = static_cast<char*>(mmap(nullptr, 8192, PROT_READ, MAP_PRIVATE, fileno(file), 0));
             readAt(reinterpret_cast<int*>(at + 4096));
         }},
        // Library code that the compiler expects to call back.
        {"ACCESS_VIOLATION 0", [] {
             int values[4] = {4, 3, 2, 1};
             qsort(values, 4, sizeof *values, [](const void*, const void*) { return readAt(nullptr); });
         }}};
    for (const auto& [name, body] : faults) EXPECT_EQ(faultOf(body), name);
    const struct {
        int trap;
        double over, under;
        const char* name;
    } quotients[] = {{FE_DIVBYZERO, 1, 0, "FLT_DIVIDE_BY_ZERO"},
                     {FE_OVERFLOW, 1e300, 1e-300, "FLT_OVERFLOW"},
                     {FE_INVALID, 0, 0, "FLT_INVALID_OPERATION"},
                     {FE_INEXACT, 1, 3, "FLT_INEXACT_RESULT"}};
    for (auto& row : quotients) {
        volatile double over = row.over, under = row.under;
        EXPECT_EQ(faultOf([&] {
                      feenableexcept(row.trap);
                      over = over / under;
                  }),
                  row.name);
    }
}

// Threads that fault while another one writes its dump, over and over: each gets its own exception, and its
// scopes end. A stack that overran can do so again.
TEST_F(Crash, manyThreadsAtOnce) {
    EXPECT_EQ(inChild([] {
                  alarm(60);
                  static std::atomic<int> caught{0}, released{0};
                  struct Scope {
                      ~Scope() { ++released; }
                  };
                  auto provoke = [] {
                      for (int round = 0; round < 4; ++round) {
                          try {
                              Scope outer;
                              std::string held(1000, 'x');
                              Scope inner;
                              round % 2 ? overflow(0) : readAt(nullptr);
                          } catch (const FaultError& error) {
                              caught += !error.dump.empty() &&
                                        error.code == (round % 2 ? kStackOverflow : kAccessViolation);
                          }
                      }
                  };
                  provoke();
                  std::vector<std::thread> threads;
                  for (int i = 0; i < 8; ++i)
                      threads.emplace_back([&] {
                          installThread();
                          provoke();
                          removeThread();
                      });
                  for (std::thread& thread : threads) thread.join();
                  return caught == 36 && released == 72 ? 0 : 1;
              }),
              0)
        << slurp(root / "err");
}

TEST_F(Crash, whatCannotBeThrownEndsAfterTheDump) {
    auto endsBy = [&](const std::function<int()>& body) {
        int status = inChild(body);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
    };
    EXPECT_EQ(endsBy([] { return kill(getpid(), SIGSEGV); }), SIGSEGV);
    EXPECT_TRUE(readCore(slurp(dumpPath())).valid);
    EXPECT_NE(slurp(root / "err").find("sent by another"), std::string::npos);
    EXPECT_EQ(endsBy([] {
                  std::thread([] { readAt(nullptr); }).join();
                  return 0;
              }),
              SIGSEGV);
    EXPECT_NE(slurp(root / "err").find("without translator"), std::string::npos);
    // A fault under the allocator's lock must not hang.
    EXPECT_EQ(endsBy([] {
                  alarm(20);
                  auto* block = static_cast<char*>(malloc(100'000));
                  memset(block + 100'000, 0x7E, 1 << 12);
                  memset(block - 16, 0x7E, 8);
                  for (int i = 1; i < 1000; ++i) free(malloc(static_cast<size_t>(i) * 977));
                  char* volatile wild = reinterpret_cast<char*>(0x7E7E7E7E7E70);
                  free(wild);
                  return 0;
              }) > 0,
              true);
    EXPECT_EQ(endsBy([] {
                  [&]() noexcept { readAt(nullptr); }();
                  return 0;
              }),
              SIGABRT);
    EXPECT_NE(slurp(root / "err").find("last processor fault of this thread was ACCESS_VIOLATION"),
              std::string::npos);
}

// The compiler takes memcpy for a function that cannot throw: its call is covered by a handler only when it
// stands between calls that can.
TEST_F(Crash, faultInMemcpyIsThrownWhereTheTablesCoverIt) {
    EXPECT_EQ(faultOf([] {
                  FILE* volatile bad = reinterpret_cast<FILE*>(8);
                  fputs("x", bad);
              }).substr(0, 16),
              "ACCESS_VIOLATION");
    static char to[4000];
    static int good = 1;
    static char* volatile from = reinterpret_cast<char*>(16);
    static volatile size_t size = 3000;
    EXPECT_EQ(faultOf([] {
                  std::string scope(100, 'x');
                  readAt(&good);
                  memcpy(to, from, size);
                  readAt(&good);
              }).substr(0, 16),
              "ACCESS_VIOLATION");
    int status = inChild([] {
        std::string scope(100, 'x');
        readAt(&good);
        memcpy(to, from, size);
        return to[17];
    });
    bool thrown = WIFEXITED(status) && WEXITSTATUS(status) == 93;
    bool told =
        WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT &&
        slurp(root / "err").find("processor fault of this thread was ACCESS_VIOLATION") != std::string::npos;
    EXPECT_TRUE(thrown || told) << status;
    EXPECT_TRUE(readCore(slurp(dumpPath())).valid);
}

TEST_F(Crash, dumpShowsAllThreads) {
    uint64_t marker = 0x51756C6C4D41524B;
    uint64_t address = 0;
    ASSERT_EQ(inChild([&] {
                  uint64_t onStack = marker;
                  std::atomic<int> ready{0};
                  for (int i = 0; i < 3; ++i)
                      std::thread([&] {
                          ++ready;
                          for (;;) pause();
                      }).detach();
                  while (ready < 3) usleep(1000);
                  try {
                      readAt(nullptr);
                  } catch (const FaultError& error) {
                      std::ofstream("out") << error.address << " " << reinterpret_cast<uint64_t>(&onStack)
                                           << " " << reinterpret_cast<uint64_t>(dataSegment);
                  }
                  return onStack == marker ? 0 : 1;
              }),
              0);
    uint64_t stack = 0, data = 0;
    std::istringstream(slurp(root / "out")) >> address >> stack >> data;
    struct stat info;
    ASSERT_EQ(stat(dumpPath().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    Core core = readCore(slurp(dumpPath()));
    EXPECT_TRUE(core.valid);
    EXPECT_EQ(core.statuses, 4u);
    EXPECT_EQ(core.notes, 4u * 2 + 4);
    EXPECT_EQ(core.firstSignal, SIGSEGV);
    EXPECT_EQ(core.firstAddress, address);
    EXPECT_TRUE(core.holds(stack, &marker, sizeof marker));
    EXPECT_FALSE(core.holds(data, dataSegment, sizeof dataSegment));
    if (system("command -v gdb >/dev/null") == 0) {
        std::string self;
        programPath(self);
        std::string command = "gdb -batch -nx -ex bt -ex 'info threads' '" + self + "' '" + dumpPath() +
                              "' > '" + (root / "gdb") + "' 2>&1";
        EXPECT_EQ(system(command.c_str()), 0);
        EXPECT_NE(slurp(root / "gdb").find("#0  "), std::string::npos);
        EXPECT_NE(slurp(root / "gdb").find("readAt"), std::string::npos) << slurp(root / "gdb");
    }
}

TEST_F(Crash, markerFilesChooseTheKind) {
    auto kindWith = [&](const std::vector<std::string>& files) {
        for (const std::string& file : files) std::ofstream(root / file);
        int status = inChild([] { return static_cast<int>(readDumpKind()); });
        for (const std::string& file : files) std::filesystem::remove(root / file);
        return WEXITSTATUS(status);
    };
    EXPECT_EQ(kindWith({}), 0);
    EXPECT_EQ(kindWith({"dbghelp_dump=all.txt"}), 0x26);
    EXPECT_EQ(kindWith({"dbghelp_dump=AlL.txt", "dbghelp_dump=1.txt", "dbghelp_dump=8.x.txt"}), 0x2F);
    EXPECT_EQ(
        kindWith({"dbghelp_dump=.txt", "dbghelp_dump=1.dat", "dbghelp_dump.txt", "dbghelp_dump=x9.txt"}), 0);
    auto holdsData = [&](const char* file, bool heap) {
        std::filesystem::remove(dumpPath());
        std::ofstream(root / file);
        uint64_t at = 0;
        inChild([&] {
            auto* block = new uint64_t[4]{0x123456789ABCDEF0, 1, 2, 3};
            try {
                readAt(nullptr);
            } catch (const FaultError&) {
                std::ofstream("out") << reinterpret_cast<uint64_t>(block);
            }
            return 0;
        });
        std::filesystem::remove(root / file);
        std::istringstream(slurp(root / "out")) >> at;
        Core core = readCore(slurp(dumpPath()));
        uint64_t content[4] = {0x123456789ABCDEF0, 1, 2, 3};
        return core.valid &&
               core.holds(reinterpret_cast<uint64_t>(dataSegment), dataSegment, sizeof dataSegment) &&
               core.holds(at, content, sizeof content) == heap;
    };
    EXPECT_TRUE(holdsData("dbghelp_dump=1.txt", false));
    EXPECT_TRUE(holdsData("dbghelp_dump=all.txt", true));
}

TEST_F(Crash, noDumpNoMatter) {
    EXPECT_EQ(inChild([this] {
                  setDumpName(root / "missing/prog");
                  try {
                      readAt(nullptr);
                  } catch (const FaultError& error) {
                      return error.dump.empty() ? 0 : 1;
                  }
                  return 2;
              }),
              0);
}

TEST(Fault, messages) {
    const struct {
        uint32_t code;
        FaultAccess access;
        const char* text;
    } rows[] = {{kAccessViolation, FaultAccess::write,
                 "Exception (0xC0000005) at address 0x004011A6. Unable to write location: 0x00000008"},
                {kIntDivideByZero, FaultAccess::none, "Exception (0xC0000094) at address 0x004011A6."},
                {0x12345, FaultAccess::none, "Unknown exception."}};
    for (auto& row : rows) {
        char text[256] = "", little[12] = "";
        Fault fault{.code = row.code, .address = 0x4011A6, .access = row.access, .touched = 8};
        EXPECT_EQ(formatFault(fault, text, sizeof text), strlen(row.text));
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(formatFault(fault, little, sizeof little), sizeof little - 1);
    }
}
