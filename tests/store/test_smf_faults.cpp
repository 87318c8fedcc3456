// Failures of the machine: reads, writes, flushes and allocations that fail, and writers that are killed.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>

#include "every_codec.h"
#include "runtime/streams/epa_fileerror.h"

namespace {

// Allocations left until one fails; negative: none fails.
std::atomic<int64_t> allocationsLeft{-1};

bool allocationFails() {
    return allocationsLeft.load(std::memory_order_relaxed) >= 0 && allocationsLeft.fetch_sub(1) == 0;
}

// Counts its operations and lets one of them fail.
class FailingFile final : public SMF_File {
  public:
    FailingFile(std::shared_ptr<std::string> bytes, int64_t& left, bool& closed)
        : SMF_File("failing"), inner_(std::move(bytes)), left_(left), closed_(closed) {}
    ~FailingFile() override { closed_ = true; }
    int64_t size() override { return inner_.size(); }
    size_t read(int64_t offset, void* buffer, size_t size) override {
        step();
        return inner_.read(offset, buffer, size);
    }
    void write(int64_t offset, const void* bytes, size_t size) override {
        step();
        inner_.write(offset, bytes, size);
    }
    void flush() override { step(); }
    void close() override { step(); }

  private:
    void step() {
        if (left_-- == 0) EPA_RaiseFileError(ENOSPC, name());
    }
    SharedFile inner_;
    int64_t& left_;
    bool& closed_;
};

bool isWhole(const std::shared_ptr<std::string>& bytes) {
    try {
        SMF_Reader reader;
        reader.open(std::make_unique<SharedFile>(bytes));
        return true;
    } catch (const XPK_Exception&) {
        return false;
    }
}

}  // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(size_t size) {
    if (allocationFails()) throw std::bad_alloc();
    if (void* block = std::malloc(size ? size : 1)) return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

TEST(Faults, EveryWriteMayFail) {
    for (int64_t fail = 0;; ++fail) {
        auto bytes = std::make_shared<std::string>();
        int64_t left = fail;
        bool closed = false;
        std::string fault = faultOf([&] {
            SMF_Writer writer;
            writer.open(std::make_unique<FailingFile>(bytes, left, closed));
            every_codec::fill(writer, 400);
            writer.close();
        });
        EXPECT_TRUE(closed);
        if (left >= 0) {
            EXPECT_EQ(fault, "none");
            EXPECT_TRUE(isWhole(bytes));
            EXPECT_GT(fail, 60);
            break;
        }
        EXPECT_EQ(fault, "IOError: [Errno 28] No space left on device: 'failing'") << fail;
        // A store whose last header was written is whole even if the close of the file fails.
        if (isWhole(bytes)) {
            EXPECT_NO_THROW(every_codec::readAll(std::make_unique<SharedFile>(bytes))) << fail;
        }
    }
}

TEST(Faults, AFailedStoreTakesNoMore) {
    auto bytes = std::make_shared<std::string>();
    int64_t left = 4;
    bool closed = false;
    SMF_Writer writer;
    writer.open(std::make_unique<FailingFile>(bytes, left, closed));
    EXPECT_EQ(faultOf([&] { every_codec::fill(writer, 100000, 1000); }).substr(0, 7), "IOError");
    EXPECT_EQ(faultOf([&] { every_codec::fill(writer, 1, 20, "U"); }),
              "DatabaseError: The store is incomplete since an earlier failure");
    left = 1000;
    EXPECT_EQ(faultOf([&] { writer.close(); }),
              "DatabaseError: The store is incomplete since an earlier failure");
    EXPECT_TRUE(closed);
    EXPECT_FALSE(writer.isOpen());
    EXPECT_FALSE(isWhole(bytes));
}

TEST(Faults, EveryReadMayFail) {
    auto bytes = makeStore([](SMF_Writer& writer) { every_codec::fill(writer, 100); });
    for (int64_t fail = 0;; ++fail) {
        int64_t left = fail;
        bool closed = false;
        std::string fault =
            faultOf([&] { every_codec::readAll(std::make_unique<FailingFile>(bytes, left, closed)); });
        EXPECT_TRUE(closed);
        if (left >= 0) {
            EXPECT_EQ(fault, "none");
            EXPECT_GT(fail, 60);
            break;
        }
        EXPECT_EQ(fault, "IOError: [Errno 28] No space left on device: 'failing'") << fail;
    }
}

TEST(Faults, EveryAllocationMayFail) {
    auto bytes = makeStore([](SMF_Writer& writer) { every_codec::fill(writer, 30); });
    std::string wanted = every_codec::readAll(std::make_unique<SharedFile>(bytes));
    auto survives = [](const std::function<void()>& action) {
        for (int64_t fail = 0;; ++fail) {
            std::string fault = "none";
            allocationsLeft = fail;
            try {
                action();
            } catch (const std::bad_alloc&) {
                fault = "memory";
            } catch (const XPK_Exception& e) {
                allocationsLeft = -1;
                fault = e.type();
            }
            bool reached = allocationsLeft.exchange(-1) < 0;
            if (!reached) return fail;
            EXPECT_TRUE(fault == "memory" || fault == "MemoryAllocError" || fault == "none")
                << fault << " at " << fail;
        }
    };
    int64_t reads =
        survives([&] { EXPECT_EQ(every_codec::readAll(std::make_unique<SharedFile>(bytes)), wanted); });
    int64_t writes = survives([&] {
        auto target = std::make_shared<std::string>();
        SMF_Writer writer;
        writer.open(std::make_unique<SharedFile>(target));
        every_codec::fill(writer, 30);
        writer.close();
    });
    EXPECT_GT(reads, 100);
    EXPECT_GT(writes, 100);
}

// A writer killed at any moment leaves a file that is refused, or whole. QUILL_KILLS sets the number of
// writers.
TEST(Faults, KilledWriters) {
    const char* many = std::getenv("QUILL_KILLS");
    int kills = many ? std::atoi(many) : 50, whole = 0;
    auto folder = std::filesystem::temp_directory_path() / ("quill_kill_" + std::to_string(::getpid()));
    std::filesystem::create_directory(folder);
    std::string path = folder / "killed.smf";
    std::srand(1);
    for (int i = 0; i < kills; ++i) {
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            SMF_Writer writer;
            writer.open(path);
            every_codec::fill(writer, 6000, 100);
            writer.close();
            ::pause();
            ::_exit(0);
        }
        ::usleep(static_cast<useconds_t>(std::rand() % 30000));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        if (!std::filesystem::exists(path)) continue;
        std::string fault = faultOf([&] { every_codec::readAll(SMF_OpenForReading(path)); });
        if (fault == "none")
            ++whole;
        else
            EXPECT_EQ(fault, "DatabaseError: The database has a corrupt header");
    }
    std::filesystem::remove_all(folder);
    std::cout << whole << " of " << kills << " were whole\n";
    EXPECT_LT(whole, kills);
}
