// The store functions of scripts over several threads; builtins.py tells what each of them does.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "builtin_calls.h"

namespace {

using BuiltinStores = BuiltinRuns;

TEST_F(BuiltinStores, TimestampsDiffer) {
    std::set<std::string> stamps;
    for (int i = 0; i < 300; ++i) stamps.insert(show("global_execute", {S("timestamp")}));
    EXPECT_EQ(stamps.size(), 300u);
}

// Two worker threads with values of their own; the walks see those and this thread's.
std::mutex lock;
std::condition_variable changed;
int ready = 0;
bool finish = false;
std::string found[2];

void worker(EPA_ThreadPassportImpl& passport) {
    passport.announce("test_%i");
    long number = reinterpret_cast<long>(passport.argument());
    IPE_Object entry = IPE_NewDict();
    IPE_Dict_Set(entry, "number", IPE_String(std::to_string(number)));
    IPE_ThreadStore().set("job", entry);
    std::unique_lock guard(lock);
    ++ready;
    changed.notify_all();
    changed.wait(guard, [] { return finish; });
    IPE_Object mark = IPE_ThreadStore().get("mark");
    found[number] = mark ? IPE_Object_ToString(mark) : "none";
}

TEST_F(BuiltinStores, WalksOverAllThreads) {
    EPA_ThreadManager& manager = EPA_ThreadManager::instance();
    manager.release();
    for (long i = 0; i < 2; ++i) manager.start(worker, reinterpret_cast<void*>(i));
    {
        std::unique_lock guard(lock);
        changed.wait(guard, [] { return ready == 2; });
    }
    EXPECT_EQ(show("get_value_from_shared_storage_on_all_passports", {S("job")}),
              "[{'number': '0'}, {'number': '1'}]");
    EXPECT_EQ(show("get_value_from_shared_storage_on_all_passports", {S("other")}), "[]");
    call("set_value_into_shared_storage_where", {S("job"), S("number"), S("1"), S("mark"), L({I(7)})});
    call("set_value_into_shared_storage_where", {S("job"), S("absent"), S("1"), S("mark"), I(8)});
    {
        std::lock_guard guard(lock);
        finish = true;
        changed.notify_all();
    }
    manager.stop();
    EXPECT_EQ(found[0], "none");
    EXPECT_EQ(found[1], "[7]");
}

}  // namespace
