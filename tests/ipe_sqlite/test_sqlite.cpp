// Databases from native code, and the faults that scripts cannot make: waits, stops, damage, a full disk.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <thread>

#include "../ipe/values_testing.h"
#include "../platform/scratch.h"
#include "ipe_sqlite/ipe_sqlite.h"
#include "ipe_sqlite/ipe_sqlite_busy.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"
#include "ipe_sqlite/ipe_sqlite_regexp.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"

namespace {

using Clock = std::chrono::steady_clock;
using Parameters = IPE_Sqlite_Parameters;

class Sqlite : public ValuesTest {
  protected:
    Scratch scratch;

    static IPE_Object module() { return IPE_Sqlite::shared(); }
    static IPE_Object open(const std::string& path) { return module().as<IPE_Sqlite>()->connect(S(path)); }
    static IPE_Object cursor(const IPE_Object& database) {
        return database.as<IPE_Sqlite_Connection>()->cursor();
    }
    static IPE_Sqlite_Cursor& of(const IPE_Object& cursor) { return *cursor.as<IPE_Sqlite_Cursor>(); }
    static std::string query(const IPE_Object& cursor, const char* sql) {
        of(cursor).execute(sql);
        return repr(of(cursor).fetchall());
    }
    // Runs `work` in a child whose server stops after a tenth of a second; the milliseconds it took, or -1
    // when it gave false.
    static int stopped(const std::function<bool()>& work) {
        int result = asNobody([&] {
            std::thread stopper([] {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                request_shutdown();
            });
            auto begin = Clock::now();
            bool right = work();
            auto spent = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
            stopper.join();
            return right ? static_cast<int>(std::min<int64_t>(spent.count() / 100, 200)) : 255;
        });
        return result == 255 ? -1 : result * 100;
    }
};

// What native code in the place of a script function works on.
IPE_Object inner;
void publish(const IPE_Object& database, const char* name, int count, IPE_NativeFunction function) {
    database.as<IPE_Sqlite_Connection>()->createFunction(name, count, IPE_New<IPE_BridgeType>(function), {},
                                                         {});
}

TEST_F(Sqlite, WaitsGrowAndAreBounded) {
    auto wait = [](int calls, int64_t poll) {
        IPE_Sqlite_BusyWait wait = IPE_Sqlite_BusyWaitOf(calls, poll);
        return std::pair(wait.delay, wait.total);
    };
    for (int64_t poll : {1, 49, 50, 120, 5000}) {
        int64_t total = 0;
        for (int i = 0; i < 300; ++i) {
            int64_t delay = std::min<int64_t>(50 * (i + 1), poll);
            total += delay;
            ASSERT_EQ(wait(i, poll), std::pair(delay, total)) << i << " " << poll;
        }
    }
    EXPECT_EQ(wait(9, 0), std::pair(int64_t(1), int64_t(10)));
    EXPECT_EQ(wait(9, INT64_MIN), wait(9, 1));
    EXPECT_GT(wait(INT32_MAX, INT64_MAX).second, 900'000);

    // 50 + 100 fit into 200 milliseconds, 150 more do not.
    std::string path = scratch / "locked";
    IPE_Object holder = open(path), holding = cursor(holder), waiter = open(path), waiting = cursor(waiter);
    of(holding).execute("create table t (x); begin immediate; insert into t values (1)");
    module()->__setattr__(S("busytimeout"), I(200));
    auto begin = Clock::now();
    EXPECT_EQ(raised([&] { of(waiting).execute("insert into t values (2)"); }),
              "RuntimeError: Could not execute query. Database is busy!");
    auto spent = Clock::now() - begin;
    EXPECT_GE(spent, std::chrono::milliseconds(150));
    EXPECT_LT(spent, std::chrono::milliseconds(1500));
    EXPECT_EQ(IPE_Sqlite_Busy(module().counted(), 2), 0);
    // A setting that is taken away, or is no number.
    module()->__delattr__(S("busytimeout"));
    EXPECT_EQ(module().as<IPE_Sqlite>()->busyTimeout(), IPE_Sqlite::BusyTimeout);
    module()->__setattr__(S("busypolltime"), S("x"));
    module()->__setattr__(S("busytimeout"), L({}));
    EXPECT_EQ(IPE_Sqlite_Busy(module().counted(), 0), 0);
    module()->__setattr__(S("busytimeout"), I(IPE_Sqlite::BusyTimeout));
    module()->__setattr__(S("busypolltime"), I(IPE_Sqlite::BusyPollTime));
    std::thread release([&] {
        XPK_ThreadScope state(false);
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        of(holding).execute("commit");
    });
    EXPECT_EQ(of(waiting).execute("insert into t values (2)"), 1);
    release.join();
    EXPECT_EQ(query(waiting, "select x from t"), "[(1), (2)]");
}

TEST_F(Sqlite, AStopEndsStatementsWaitsAndMatches) {
    const char* endless =
        "with recursive n(i) as (select 1 union all select i + 1 from n) select count(*) from n";
    int spent = stopped([&] {
        IPE_Object database = open(":memory:"), running = cursor(database);
        return raised([&] { of(running).execute(endless); }) == "SystemExit: ";
    });
    EXPECT_GE(spent, 0);
    EXPECT_LT(spent, 1000);
    for (bool managed : {false, true}) {
        spent = stopped([&] {
            if (managed) EPA_ThreadManager::create();
            return IPE_Sqlite_Busy(module().counted(), 100) == 1 &&
                   IPE_Sqlite_Busy(module().counted(), 0) == 0;
        });
        EXPECT_GE(spent, 0);
        EXPECT_LT(spent, managed ? 1500 : 3000);
    }
    spent = stopped([&] {
        IPE_Sqlite_Regexp regexp;
        return regexp.setPattern("(a+)+[bc]$") &&
               regexp.search(std::string(1'000'000, 'a')) == IPE_Sqlite_Regexp::Answer::Failed;
    });
    EXPECT_GE(spent, 0);
    EXPECT_LT(spent, 3000);
}

TEST_F(Sqlite, MatchesLongTextsAcrossStretches) {
    IPE_Sqlite_Regexp regexp;
    auto search = [&](const char* pattern, const std::string& text) {
        EXPECT_TRUE(regexp.setPattern(pattern)) << regexp.error();
        return regexp.search(text) == IPE_Sqlite_Regexp::Answer::Yes;
    };
    std::string filler;
    for (int i = 0; i < 700; ++i) filler += "ä-";
    EXPECT_TRUE(search("xyz$", filler + "XYZ"));
    EXPECT_FALSE(search("^xyz", filler + "XYZ"));
    EXPECT_TRUE(search("\\Gä", filler));
    EXPECT_FALSE(search("(*NO_START_OPT)(*COMMIT)xyz", filler + "xyz"));
    for (size_t length : {511, 512, 513, 1024}) {
        EXPECT_TRUE(search("q?$", std::string(length, 'a')));
        EXPECT_TRUE(search("aq", std::string(length, 'a') + "q"));
        EXPECT_FALSE(search("qa", std::string(length, 'a') + "q"));
    }
    EXPECT_EQ(regexp.search(filler + "\xff"), IPE_Sqlite_Regexp::Answer::Failed);
    EXPECT_FALSE(regexp.setPattern(std::string(100'000, '(')));
    EXPECT_LT(regexp.error().size(), 1000u);
    EXPECT_TRUE(search("", ""));
}

TEST_F(Sqlite, ASandboxLastsForOneExecution) {
    IPE_Object database = open(":memory:"), cursor = this->cursor(database);
    IPE_Sqlite_Cursor::Options sandbox{.sandbox = true};
    for (const char* refused :
         {"pragma user_version", "select 1; attach ':memory:' as other", "vacuum into 'x'"})
        EXPECT_EQ(raised([&] { of(cursor).execute(refused, {}, sandbox); }).substr(0, 20),
                  "RuntimeError: Error ")
            << refused;
    EXPECT_EQ(of(cursor).execute("create table t (x); insert into t values (1)", {}, sandbox), 0);
    EXPECT_EQ(query(cursor, "pragma user_version"), "[(0)]");
    // A function that leaves the sandbox does not take the statements behind it along.
    inner = this->cursor(database);
    publish(database, "leave", 0, [](const IPE_Arguments&) {
        of(inner).execute("select 1");
        return IPE_Object();
    });
    EXPECT_EQ(raised([&] { of(cursor).execute("select leave(); pragma user_version", {}, sandbox); }),
              "RuntimeError: Error during prepare: not authorized");
    inner = nullptr;
}

TEST_F(Sqlite, ManyRowsAndListsThatChangeMeanwhile) {
    IPE_Object database = open(":memory:"), cursor = this->cursor(database);
    of(cursor).execute("create table t (a, b, c); create table u (a)");
    IPE_Object rows = IPE_NewList();
    for (int i = 0; i < 20'000; ++i)
        rows.as<IPE_ListType>()->append(T({I(i), S("name " + std::to_string(i)), i % 2 ? F(i) : IPE_None()}));
    of(cursor).execute("begin");
    EXPECT_EQ(of(cursor).executemany("insert into t values (?, ?, ?)", rows), 20'000);
    of(cursor).execute("commit");
    EXPECT_EQ(
        query(cursor, "select count(*), sum(a), max(length(b)), count(c) from t where b = 'name ' || a"),
        "[(20000, 199990000, 10, 10000)]");
    EXPECT_EQ(of(cursor).execute("select * from t where a >= ?", Parameters(L({I(19'998)}))), -1);
    EXPECT_EQ(repr(of(cursor).fetchmany(5)),
              "[(19998, 'name 19998', None), (19999, 'name 19999', 19999.00000000000000000)]");

    // A script function empties the row and the list that are being bound.
    inner = L({L({S(std::string(100, 'x'))}), L({S("y")})});
    publish(database, "wipe", 1, [](const IPE_Arguments& arguments) {
        auto& items = inner.as<IPE_ListType>()->items();
        if (auto* set = items[0].tryAs<IPE_ListType>()) set->items().clear();
        items.clear();
        return arguments[0];
    });
    EXPECT_EQ(of(cursor).executemany("insert into u values (wipe(?))", inner), 1);
    EXPECT_EQ(query(cursor, "select length(a) from u"), "[(100)]");
    inner = L({I(1)});
    EXPECT_EQ(raised([&] { of(cursor).execute("select wipe(?); select ?", Parameters(inner)); }),
              "RuntimeError: Incorrect number of parameters in list! Expected 1, got 0.");
    inner = nullptr;
    EXPECT_EQ(raised([&] { of(cursor).executemany("insert into u values (?)", L({T({L({})})})); }),
              "RuntimeError: Cannot bind parameter of type 'ListType' to sqlite parameter");
    EXPECT_EQ(raised([&] { of(cursor).executemany("", L({T({I(1)})})); }),
              "RuntimeError: Incorrect number of parameters in list! Expected 0, got 1.");
    std::string deep = "select " + std::string(2000, '(') + "1" + std::string(2000, ')');
    EXPECT_EQ(raised([&] { of(cursor).execute(deep); }).substr(0, 36),
              "RuntimeError: Error during prepare: ");
    EXPECT_EQ(of(cursor).execute(" ; -- nothing\n/* at all"), -1);
    // Marks that only the library passes over are no statements, a text with a NUL is none at all.
    const char* mark = "\xef\xbb\xbf";
    EXPECT_EQ(of(cursor).execute(mark + std::string(";") + mark + "select 1"), -1);
    EXPECT_EQ(repr(of(cursor).fetchall()), "[(1)]");
    EXPECT_EQ(raised([&] { of(cursor).execute(mark + std::string(";") + mark, Parameters(L({I(1)}))); }),
              "RuntimeError: Incorrect number of parameters in list! Expected 0, got 1.");
    for (const IPE_Object& set : {L({}), L({I(1)})})
        EXPECT_EQ(raised([&] {
                      of(cursor).execute({"select 1;\0", 10}, Parameters(set));
                  }),
                  "RuntimeError: Error during prepare: a NUL in the text of a statement");
    of(cursor).execute("select cast(x'610062' as text)");
    IPE_Object row = of(cursor).fetchone();
    EXPECT_EQ(IPE_Tuple(row)[0].as<IPE_StringType>()->view(), std::string_view("a\0b", 3));
}

TEST_F(Sqlite, ClosingLeavesNothingBehind) {
    std::string path = scratch / "closed";
    IPE_Object database = open(path), first = cursor(database), second = cursor(database);
    of(first).execute("create table t (x); insert into t values (1), (2); select x from t");
    ASSERT_TRUE(of(first).nextset() && of(first).nextset());
    database.as<IPE_Sqlite_Connection>()->close();
    const std::string closed = "RuntimeError: An operation was attempted on a closed database handle!";
    EXPECT_EQ(raised([&] { of(first).fetchone(); }), closed);
    EXPECT_EQ(raised([&] { of(second).executemany("insert into t values (?)", L({})); }), closed);
    IPE_Object other = open(path), writing = cursor(other);
    module()->__setattr__(S("busytimeout"), I(0));
    EXPECT_EQ(of(writing).execute("drop table t"), 0);  // no lock is left
    module()->__setattr__(S("busytimeout"), I(IPE_Sqlite::BusyTimeout));
    // The cursor keeps its connection.
    database = open(path);
    first = cursor(database);
    database = nullptr;
    EXPECT_EQ(query(first, "select 1"), "[(1)]");
}

TEST_F(Sqlite, DamageAndFullDisksAreNamed) {
    std::string path = scratch / "damaged";
    {
        IPE_Object database = open(path), cursor = this->cursor(database);
        of(cursor).execute("create table t (x text); begin");
        of(cursor).execute(
            "insert into t select printf('%01000d', i * 7919) from (with recursive n(i) as (select 1 union "
            "all select i + 1 from n where i < 500) select i from n); commit");
    }
    std::string whole = slurp(path);
    ASSERT_GT(whole.size(), 100'000u);
    auto read = [&](std::string content) {
        IPE_Object database = open(scratch.file("try", content)), cursor = this->cursor(database);
        return raised([&] { query(cursor, "select x from t"); });
    };
    EXPECT_EQ(read(whole), "nothing");
    EXPECT_EQ(read(std::string(5000, 'x')), "RuntimeError: Error during prepare: file is not a database");
    std::string malformed = "database disk image is malformed";
    EXPECT_NE(read(whole.substr(0, 4096 * 3)).find(malformed), std::string::npos);
    unsigned seed = 7;
    for (int i = 0; i < 200; ++i) {
        std::string flipped = whole;
        for (int k = 0; k < 20; ++k) flipped[100 + rand_r(&seed) % 12'000] ^= char(1 << rand_r(&seed) % 8);
        std::string answer = read(flipped);
        // A flipped bit can also make a text a BLOB.
        EXPECT_TRUE(answer == "nothing" || answer.starts_with("RuntimeError: Error ") ||
                    answer == "RuntimeError: BLOB values are not supported!")
            << answer;
    }
    // A disk that takes no more than 64 KB: nothing of the transaction stays, and the handle works on.
    int result = asNobody([&] {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit{64 * 1024, 64 * 1024};
        setrlimit(RLIMIT_FSIZE, &limit);
        Scratch own;
        IPE_Object database = open(own / "full"), cursor = this->cursor(database);
        of(cursor).execute("create table t (x); insert into t values ('kept')");
        IPE_Object rows = L({L({D({{S("name"), S("x")}, {S("type"), S("TEXT")}})})});
        for (int i = 0; i < 300; ++i) rows.as<IPE_ListType>()->append(T({S(std::string(3000, 'x'))}));
        std::string fault =
            raised([&] { database.as<IPE_Sqlite_Connection>()->storeResultSet("big", rows); });
        if (!fault.starts_with("RuntimeError: Error during execute: d"))
            return 1;  // database or disk is full
        if (query(cursor, "select x, (select count(*) from big) from t") != "[('kept', 0)]") return 2;
        return query(cursor, "pragma integrity_check") == "[('ok')]" ? 0 : 3;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(Sqlite, TheModuleIsForAllThreads) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t] {
            XPK_ThreadScope state(false);
            for (int i = 0; i < 300; ++i) {
                IPE_Object own = module();
                own->__setattr__(S("mine" + std::to_string(t)), L({I(i)}));
                EXPECT_EQ(repr(own->__getattr__(S("mine" + std::to_string(t)), 0)),
                          "[" + std::to_string(i) + "]");
                IPE_Object database = call(own, "connect", {S(":memory:")}),
                           cursor = Sqlite::cursor(database);
                EXPECT_EQ(query(cursor, "select 'A b' < 'a/c' collate tree"), "[(0)]");
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(raised([] { module()->__setattr__(S("connect"), I(1)); }),
              "TypeError: __setattr__ is not supported");
    EXPECT_EQ(raised([] { module()->__setattr__(S("x"), module()); }),
              "TypeError: __setattr__ is not supported");
}

}  // namespace
