// The store functions of scripts: names, dictionaries, queues, the atomic operations, and walks over threads.
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "builtin_calls.h"
#include "ipe/values/ipe_globals.h"
#include "runtime/epa_threadmanager.h"

namespace {

class BuiltinStores : public BuiltinCalls {
  protected:
    void SetUp() override {
        EPA_ThreadManager::create();
        IPE_StartGlobals();
    }
    void TearDown() override {
        IPE_StopGlobals();
        EPA_ThreadManager::destroy();
    }
};

TEST_F(BuiltinStores, NamesAreSetReadAndDeleted) {
    for (std::string kind : {"global", "thread"}) {
        auto name = [&](const char* rest) { return kind + rest; };
        EXPECT_EQ(error(name("_get").c_str(), {S("x")}), "RuntimeError: There is no " + kind + " variable x");
        EXPECT_EQ(show(name("_get").c_str(), {S("x"), I(5)}), "5");
        IPE_Object list = L({I(1), IPE_New<IPE_ModuleShared>()});
        call(name("_set").c_str(), {S("x"), list});
        list.as<IPE_ListType>()->append(I(2));
        EXPECT_EQ(show(name("_get").c_str(), {S("x")}), "[1]");  // a stripped copy, taken at the time
        EXPECT_NE(call(name("_get").c_str(), {S("x")}), call(name("_get").c_str(), {S("x")}));
        EXPECT_NE(show(name("_get").c_str(), {}).find("'x'"), std::string::npos);
        call(name("_set").c_str(), {S("x")});
        EXPECT_EQ(show(name("_get").c_str(), {S("x"), IPE_None()}), "None");
        call(name("_execute").c_str(), {S("dict_set"), S("d"), S("k"), I(1)});
        call(name("_delete").c_str(), {S("d"), S("k")});
        EXPECT_EQ(show(name("_get").c_str(), {S("d")}), "{}");
        call(name("_delete").c_str(), {S("d")});
        EXPECT_EQ(show(name("_get").c_str(), {S("d"), I(0)}), "0");
    }
    call("global_set", {S("here"), I(1)});
    EXPECT_EQ(show("thread_get", {S("here"), IPE_None()}), "None");
}

TEST_F(BuiltinStores, QueuesGiveTheOldestFirst) {
    EXPECT_EQ(show("global_qempty", {S("q")}), "0");
    EXPECT_EQ(show("global_qpop", {S("q")}), "None");
    for (int i = 0; i < 3; ++i) call("global_qpush", {S("q"), L({I(i)})});
    EXPECT_EQ(show("global_qempty", {S("q")}), "3");
    EXPECT_EQ(show("global_qpop", {S("q")}), "[0]");
    call("global_qpush", {S("q"), S("last")});
    EXPECT_EQ(show("global_qpop", {S("q")}), "[1]");
    EXPECT_EQ(show("global_qpop", {S("q")}), "[2]");
    EXPECT_EQ(show("global_qpop", {S("q")}), "'last'");
    EXPECT_EQ(show("global_qpop", {S("q")}), "None");
    EXPECT_EQ(show("global_qempty", {S("q")}), "0");
}

TEST_F(BuiltinStores, AtomicOperations) {
    auto run = [&](std::initializer_list<IPE_Object> values) { return show("global_execute", values); };
    EXPECT_EQ(run({S("inc"), S("n")}), "1");
    EXPECT_EQ(run({S("inc"), S("n")}), "2");
    EXPECT_EQ(run({S("dec"), S("n")}), "1");
    call("global_set", {S("limit"), I(2)});
    EXPECT_EQ(run({S("inc_less_than"), S("n"), S("limit")}), "True");
    EXPECT_EQ(run({S("inc_less_than"), S("n"), S("limit")}), "False");
    EXPECT_EQ(show("global_get", {S("n")}), "2");
    run({S("set_if_exists"), S("none"), I(1)});
    EXPECT_EQ(show("global_get", {S("none"), IPE_None()}), "None");
    run({S("set_if_exists"), S("n"), I(9)});
    EXPECT_EQ(show("global_get", {S("n")}), "9");
    run({S("list_append"), S("l"), I(1)});
    run({S("list_append"), S("l"), I(1)});
    EXPECT_EQ(run({S("list_remove"), S("l"), I(1)}), "True");
    EXPECT_EQ(show("global_get", {S("l")}), "[1]");
    EXPECT_EQ(run({S("list_remove"), S("l"), I(7)}), "False");
    run({S("dict_list_append"), S("d"), S("k"), I(3)});
    EXPECT_EQ(run({S("dict_get"), S("d"), S("k"), IPE_None()}), "[3]");
    EXPECT_EQ(run({S("dict_list_remove"), S("d"), S("k"), I(3)}), "True");
    EXPECT_EQ(run({S("dict_get"), S("d"), S("z"), I(4)}), "4");
    run({S("dict_item_add"), S("d"), S("sum"), I(5)});
    run({S("dict_item_add"), S("d"), S("sum"), I(-2)});
    EXPECT_EQ(run({S("dict_get"), S("d"), S("sum"), I(0)}), "3");
    run({S("dict_del"), S("d"), S("k")});
    EXPECT_EQ(run({S("dict_keys"), S("d")}), "['sum']");
    EXPECT_EQ(run({S("dict_keys"), S("nowhere")}), "[]");
    IPE_Object bulk = IPE_NewDict();
    IPE_Dict_Set(bulk, "b1", I(1));
    IPE_Dict_Set(bulk, "b2", L({}));
    run({S("bulk_set"), bulk});
    EXPECT_EQ(show("global_get", {S("b1")}), "1");
    EXPECT_EQ(errorType("global_execute", {S("explode")}), "RuntimeError");
    std::set<std::string> stamps;
    for (int i = 0; i < 300; ++i) stamps.insert(run({S("timestamp")}));
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
