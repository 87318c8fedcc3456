// The files of an index: when they are trusted, and what happens to them under kills, crowds, damage and full
// disks.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "index_census.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_literal.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_threadstate.h"

namespace {

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void put(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

class IndexFiles : public ::testing::Test {
  protected:
    IndexFiles() {
        IPE_StartGlobals();
        ::setenv("XDG_CACHE_HOME", (folder.folder + "/cache").c_str(), 1);
        writeCensus(census, file);
    }
    ~IndexFiles() override { IPE_StopGlobals(); }

    // Opens the file index; true if that built it. Its figures are those of the census, or the test fails.
    bool open(bool compare = true) {
        FSI_Reader reader(censusOptions(file), {});
        FSI_PathLevelHelper index(reader);
        index.open({});
        if (compare) expectIndex(index, census);
        return index.wasBuilt();
    }

    CensusFolder folder;
    std::string file = folder.file();
    std::string note = file + ":~FS~V.TXT", data = file + ":~FD~V.SMF", fresh = file + ":~FD~V.NEW";
    ModelCensus census = randomCensus(21, 300, 4);
};

// Runs `work` in a process of its own; it ends with what that gives.
template <class Work>
pid_t inChild(Work work) {
    pid_t child = ::fork();
    if (child == 0) {
        int result = 99;
        try {
            result = work();
        } catch (const XPK_Exception& e) {
            std::cerr << e.type() << ": " << e.message() << "\n";
        }
        ::_exit(result);
    }
    return child;
}

int resultOf(pid_t child) {
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

TEST_F(IndexFiles, AreTrustedOnlyWhenWhole) {
    EXPECT_TRUE(open());
    EXPECT_FALSE(open());
    const std::string wholeNote = contentOf(note), wholeData = contentOf(data);
    IPE_Object parsed = parse_literal(wholeNote);
    EXPECT_EQ(IPE_Dict_GetInt64(parsed, "created"), 1);
    EXPECT_EQ(IPE_Dict_GetInt64(parsed, "version"), 16);

    auto changed = [&](const char* key, const IPE_Object& value) {
        IPE_Object copy = parse_literal(wholeNote);
        IPE_Dict_Set(copy, key, value);
        return IPE_Object_ToString(copy);
    };
    for (const std::string& text :
         {std::string(), std::string("{"), std::string("[1]"), std::string(100000, 'x'), std::string(3, '\0'),
          wholeNote.substr(0, wholeNote.size() / 2), changed("created", IPE_Int(0)),
          changed("version", IPE_Int(15)), changed("options", IPE_String("~v")),
          changed("data_size", IPE_String("big"))}) {
        put(note, text);
        EXPECT_TRUE(open()) << text.substr(0, 40);
    }
    for (const std::string& text : {std::string(), wholeData.substr(0, wholeData.size() / 2),
                                    std::string(wholeData.size(), '\0'), contentOf(file)}) {
        put(data, text);
        put(note, changed("data_size", IPE_Int(static_cast<int64_t>(text.size()))));
        EXPECT_TRUE(open());
    }
    put(data, contentOf(data) + "x");
    EXPECT_TRUE(open());
    std::filesystem::remove(data);
    EXPECT_TRUE(open());
    EXPECT_FALSE(open());
    // Another census under the same name, of the same size even.
    std::filesystem::last_write_time(file,
                                     std::filesystem::last_write_time(file) + std::chrono::nanoseconds(1));
    EXPECT_TRUE(open());
    census = randomCensus(22, 200, 3);
    writeCensus(census, file);
    EXPECT_TRUE(open());
    EXPECT_FALSE(open());
}

TEST_F(IndexFiles, StandInACacheWhereTheCensusIsReadOnly) {
    // A folder in the note's place keeps even the administrator from writing there.
    std::filesystem::create_directory(note);
    EXPECT_TRUE(open());
    EXPECT_FALSE(open());
    EXPECT_FALSE(std::filesystem::exists(data));
    // Another census has another cache, and a link to this one the same.
    std::filesystem::create_symlink(file, folder.file("link.smf"));
    std::filesystem::create_directory(folder.file("link.smf:~FS~V.TXT"));
    size_t folders = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator(folder.folder + "/cache/quillsrv"))
        ++folders;
    EXPECT_EQ(folders, 1u);

    // A note that is a link is not written through.
    std::filesystem::remove(note);
    put(folder.file("precious"), "precious");
    std::filesystem::create_symlink(folder.file("precious"), note);
    EXPECT_FALSE(open());
    EXPECT_EQ(contentOf(folder.file("precious")), "precious");

    // A read-only note beside the census that is whole is used as it is.
    std::filesystem::remove(note);
    EXPECT_TRUE(open());
    if (::geteuid() != 0) {
        ::chmod(note.c_str(), 0444);
        EXPECT_FALSE(open());
    }
    // Without any place there is a named error.
    std::filesystem::remove(note);
    std::filesystem::create_directory(note);
    std::filesystem::remove_all(folder.folder + "/cache");
    put(folder.folder + "/cache", "in the way");
    pid_t child = inChild([&] {
        ::setenv("HOME", "/dev/null", 1);
        std::string fault = ::geteuid() == 0 ? "IOError" : faultOf([&] { open(false); });
        return fault.substr(0, 7) == "IOError" ? 0 : 1;
    });
    EXPECT_EQ(resultOf(child), 0);
}

TEST_F(IndexFiles, LongKeysAndNames) {
    auto build = [&](const std::string& path, const std::string& item) {
        IPE_Object options = censusOptions(path), base = IPE_ListOf({IPE_String(item)});
        IPE_Dict_Set(options, "base", base);
        FSI_Reader reader(options, {});
        EXPECT_EQ(reader.pathNameHelper().path(1), "/" + item + "/");
        return reader.pathNameHelper().wasBuilt();
    };
    const std::string item(300, 'a'), other = std::string(299, 'a') + "B";
    EXPECT_TRUE(build(file, item));
    EXPECT_FALSE(build(file, item));
    EXPECT_TRUE(build(file, other));
    // Keys that differ in case alone share their files, one at a time.
    EXPECT_TRUE(build(file, std::string(299, 'a') + "b"));
    EXPECT_TRUE(build(file, other));
    std::string longest = folder.folder + "/" + std::string(250, 'n');
    writeCensus(census, longest);
    EXPECT_TRUE(build(longest, item));
    EXPECT_FALSE(build(longest, item));
}

TEST_F(IndexFiles, KilledBuildsAreBuiltAnew) {
    const char* many = std::getenv("QUILL_KILLS");
    const int kills = many ? std::atoi(many) : 50;
    census = randomCensus(23, 2000, 4);
    writeCensus(census, file);
    int whole = 0;
    std::srand(1);
    for (int i = 0; i < kills; ++i) {
        std::filesystem::remove(note);
        pid_t child = inChild([&] {
            open(false);
            ::pause();
            return 0;
        });
        ::usleep(static_cast<useconds_t>(std::rand() % 60000));
        ::kill(child, SIGKILL);
        EXPECT_EQ(resultOf(child), -SIGKILL);
        whole += !open(i % 10 == 0);
        EXPECT_FALSE(open(false));
        EXPECT_FALSE(std::filesystem::exists(fresh));
    }
    std::cout << whole << " of " << kills << " were whole\n";
    EXPECT_LT(whole, kills);
}

TEST_F(IndexFiles, ACrowdBuildsOnce) {
    for (int round = 0; round < 5; ++round) {
        std::filesystem::remove(note);
        pid_t children[2];
        for (pid_t& child : children) child = inChild([&] { return open(false) ? 1 : 0; });
        std::atomic<int> built{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&] {
                XPK_ThreadScope scope(false);
                built += open(false);
            });
        for (std::thread& thread : threads) thread.join();
        for (pid_t child : children) built += resultOf(child);
        EXPECT_EQ(built, 1);
    }
    EXPECT_FALSE(open());
}

TEST_F(IndexFiles, DamageIsToldAndBuiltAnew) {
    EXPECT_TRUE(open());
    int told = 0, quiet = 0;
    std::mt19937 random(5);
    for (int i = 0; i < 40; ++i) {
        const std::string whole = contentOf(data);
        std::string spoilt = whole;
        // The size stays, so that only reading finds it.
        size_t at = 64 + random() % (spoilt.size() - 128);
        for (size_t k = 0; k < 32; ++k) spoilt[at + k] = static_cast<char>(random());
        put(data, spoilt);
        bool rebuilt = false;
        std::string fault = faultOf([&] {
            FSI_Reader reader(censusOptions(file), {});
            FSI_PathLevelHelper index(reader);
            index.open({});
            rebuilt = index.wasBuilt();
            for (int64_t n = 1; n <= index.paths(); ++n) {
                index.locateNumber(n);
                for (int f = 0; f < FSI_FigureCount; ++f) index.figure(static_cast<FSI_Figure>(f));
                index.pathText();
            }
        });
        if (fault == "none" &&
            !rebuilt) {  // bytes that nobody reads, or others than before: no checksum tells
            ++quiet;
            put(data, whole);
            continue;
        }
        if (fault != "none") {
            ++told;
            EXPECT_EQ(contentOf(note), "") << fault;
            EXPECT_TRUE(fault.starts_with("DatabaseError")) << fault;
        }
        EXPECT_EQ(open(), fault != "none");
    }
    std::cout << told << " told, " << quiet << " quiet\n";
    EXPECT_GT(told, 5);
}

TEST_F(IndexFiles, AFullDiskIsNamedAndNothingIsLeft) {
    EXPECT_TRUE(open());
    auto size = static_cast<rlim_t>(std::filesystem::file_size(data));
    rlimit before;
    ::getrlimit(RLIMIT_FSIZE, &before);
    auto handler = ::signal(SIGXFSZ, SIG_IGN);
    for (rlim_t limit : {rlim_t{0}, rlim_t{1000}, size / 2, size * 3 / 4}) {
        std::filesystem::remove(note);
        rlimit small{limit, before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &small);
        std::string fault = faultOf([&] { open(false); });
        ::setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_TRUE(fault.starts_with("IOError: [Errno 27]")) << limit << fault;
        EXPECT_EQ(contentOf(note), "");
        EXPECT_FALSE(std::filesystem::exists(fresh));
    }
    ::signal(SIGXFSZ, handler);
    EXPECT_TRUE(open());
}

TEST_F(IndexFiles, WaitersShowTheBuildersProgress) {
    IPE_Store& store = IPE_GlobalStore();
    IPE_Object name = IPE_String(note), message = IPE_ListOf({IPE_String("text"), IPE_String("42")});
    ASSERT_FALSE(store.tryLock(name).is<IPE_NoneType>());
    IPE_Object entry = IPE_NewDict();
    IPE_Dict_Set(entry, "message", message);
    store.setLock(name, entry);
    auto shown = [&] { return store.getKey(IPE_String("msg_helper"), IPE_String("progress")); };
    std::thread waiter([&] {
        XPK_ThreadScope scope(false);
        EXPECT_TRUE(open(false));
    });
    for (int i = 0; i < 1000 && shown().isNull(); ++i) ::usleep(5000);
    EXPECT_FALSE(shown().isNull() || !IPE_Object_Equal(shown(), message));
    store.releaseLock(name);
    waiter.join();
    EXPECT_TRUE(store.lockEntry(name).is<IPE_NoneType>());
    // A script's own value where messages go is an error, and the lock does not stay.
    ASSERT_FALSE(store.tryLock(name).is<IPE_NoneType>());
    IPE_Object kept = store.get(IPE_String("msg_helper"));
    store.set(IPE_String("msg_helper"), IPE_Int(5));
    std::thread failing([&] {
        XPK_ThreadScope scope(false);
        EXPECT_EQ(faultOf([&] { open(false); }).substr(0, 9), "TypeError");
    });
    ::usleep(200000);
    store.releaseLock(name);
    failing.join();
    store.set(IPE_String("msg_helper"), kept);
    EXPECT_TRUE(store.lockEntry(name).is<IPE_NoneType>());
    EXPECT_FALSE(open());
    // The last message of a build is that of its end.
    EXPECT_EQ(IPE_Object_Text(shown()),
              IPE_Object_Text(IPE_ListOf(
                  {IPE_String("\xF4\x8F\xBF\xBAprogress.building_file_index,Indexing Files - ${0}%]"),
                   IPE_String("0")})));
}

TEST_F(IndexFiles, ShutdownEndsWaiting) {
    EXPECT_TRUE(open());
    int held = ::open(note.c_str(), O_RDWR);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    for (bool named : {false, true}) {
        pid_t child = inChild([&] {
            if (named) IPE_GlobalStore().tryLock(IPE_String(note));
            std::thread stopper([] {
                XPK_ThreadScope scope(false);
                ::usleep(100000);
                request_shutdown();
            });
            std::string fault = faultOf([&] { open(false); });
            stopper.join();
            return fault == "SystemExit: " ? 0 : 1;
        });
        EXPECT_EQ(resultOf(child), 0);
    }
    ::close(held);
}
