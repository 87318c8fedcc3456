// Stores: against a model, from several threads, and through passports and the exception bridge. The program
// builtins.py tells their operations one by one.

#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "ipe/values/ipe_exceptiondetails.h"
#include "ipe/values/ipe_globals.h"
#include "ipe/values/ipe_store.h"
#include "ipe/values/ipe_timeouttype.h"
#include "managed_threads.h"

namespace {

template <class... Values>
IPE_Object run(IPE_Store& store, std::string_view operation, const Values&... values) {
    const IPE_Object items[] = {S(operation), values...};
    return store.execute(IPE_Arguments(items, 1 + static_cast<int>(sizeof...(values))));
}

// A value without __copy__.
class Uncopyable : public IPE_Type {
  public:
    Uncopyable() : IPE_Type("Uncopyable") {}
};

class Store : public testing::Test {
  protected:
    XPK_ThreadScope thread{true};
    IPE_Object handle = IPE_New<IPE_Store>();
    IPE_Store& store = IPE_StoreOf(handle);
};

TEST_F(Store, ValuesThatCannotBeCopied) {
    IPE_Object odd = IPE_New<Uncopyable>();
    store.set("a", I(1));
    store.set("a", odd);
    EXPECT_FALSE(store.has("a"));
    run(store, "dict_set", S("d"), S("k"), I(1));
    run(store, "dict_set", S("d"), S("k"), odd);
    EXPECT_EQ(store.keys(S("d")).as<IPE_ListType>()->count(), 0);
    run(store, "list_append", S("l"), odd);
    EXPECT_EQ(store.get("l").as<IPE_ListType>()->count(), 0);
    store.push(S("q"), odd);
    EXPECT_EQ(store.queued(S("q")), 0);
    store.set("mixed", IPE_ListOf({odd, I(5)}));
    EXPECT_EQ(store.get("mixed").as<IPE_ListType>()->count(), 1);
    EXPECT_EQ(raised([&] { store.setKey(S("d"), odd, I(1)); }), "TypeError: __hash__ is not supported");
    EXPECT_EQ(raised([&] { store.set("t", IPE_TupleOf({odd})); }),
              "TypeError: __copy__ is not supported for element in tuple");
}

TEST_F(Store, LocksAreStatusBoards) {
    EXPECT_EQ(store.lockEntry(S("users")), IPE_None());
    IPE_Object mine = store.tryLock(S("users"));
    ASSERT_TRUE(mine.is<IPE_DictType>());
    EXPECT_EQ(store.tryLock(S("users")), IPE_None());
    IPE_Dict_Set(mine, "message", S("half"));
    store.setLock(S("users"), mine);
    EXPECT_EQ(IPE_Dict_GetString(store.lockEntry(S("users")), "message"), "half");
    store.releaseLock(S("users"));
    store.releaseLock(S("users"));
    EXPECT_TRUE(store.tryLock(S("users")).is<IPE_DictType>());
    EXPECT_TRUE(store.has("__locks"));
}

// Random operations on few names, each compared with plain containers.
TEST_F(Store, AgainstAModel) {
    std::map<std::string, int64_t> numbers;
    std::map<std::string, std::map<int64_t, int64_t>> dicts;
    std::map<std::string, std::vector<int64_t>> queues;
    std::mt19937 random(7);
    for (int i = 0; i < 20000; ++i) {
        std::string n = std::to_string(random() % 4);
        IPE_Object number = S("n" + n), dict = S("d" + n), queue = S("q" + n);
        int64_t v = random() % 300, k = random() % 8;
        switch (random() % 8) {
            case 0: EXPECT_EQ(store.add(number, v)->__int__(), numbers[n] += v); break;
            case 1:
                store.set(number, I(v));
                numbers[n] = v;
                break;
            case 2:
                store.setKey(dict, I(k), I(v));
                dicts[n][k] = v;
                break;
            case 3:
                store.removeKey(dict, I(k));
                dicts[n].erase(k);
                break;
            case 4: {
                IPE_Object found = store.getKey(dict, I(k));
                ASSERT_EQ(!found.isNull(), dicts[n].count(k) == 1);
                if (found) {
                    EXPECT_EQ(found->__int__(), dicts[n][k]);
                }
                break;
            }
            case 5:
            case 6:
                store.push(queue, I(v));
                queues[n].push_back(v);
                break;
            case 7: {
                IPE_Object popped = store.pop(queue);
                ASSERT_EQ(popped == IPE_None(), queues[n].empty());
                if (queues[n].empty()) break;
                EXPECT_EQ(popped->__int__(), queues[n].front());
                queues[n].erase(queues[n].begin());
            }
        }
        EXPECT_EQ(store.queued(queue), static_cast<int64_t>(queues[n].size()));
    }
    EXPECT_EQ(store.names().as<IPE_ListType>()->count(), 12);
    for (auto& [n, entries] : dicts)
        EXPECT_EQ(store.keys(S("d" + n)).as<IPE_ListType>()->count(), static_cast<int32_t>(entries.size()));
}

TEST_F(Store, ManyThreads) {
    handle.counted()->markShared();
    constexpr int Threads = 4, Rounds = 2000;
    store.set("limit", I(5000));
    std::atomic<int> granted{0}, popped{0}, locked{0};
    std::vector<std::vector<int64_t>> stamps(Threads);
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t)
        threads.emplace_back([&, t] {
            XPK_ThreadScope scope(false);
            for (int i = 0; i < Rounds; ++i) {
                IPE_Object text = S("text " + std::to_string(i % 50));
                store.add(S("sum"), 3);
                if (store.incrementBelow(S("gate"), S("limit"))) ++granted;
                store.setKey(S("d"), text, text);
                if (IPE_Object value = store.getKey(S("d"), text)) {
                    EXPECT_TRUE(IPE_Object_Equal(value, text));
                }
                store.append(S("l"), text);
                store.removeItem(S("l"), text);
                store.set("shared", IPE_ListOf({text, I(1000 + i)}));
                IPE_Object list = store.get("shared");
                list.as<IPE_ListType>()->append(text);
                EXPECT_EQ(list.as<IPE_ListType>()->count(), 3);
                store.push(S("q"), text);
                if (!(store.pop(S("q")) == IPE_None())) ++popped;
                if (!(store.tryLock(S("lock")) == IPE_None())) {
                    EXPECT_EQ(++locked, 1);
                    --locked;
                    store.releaseLock(S("lock"));
                }
                stamps[static_cast<size_t>(t)].push_back(IPE_Store::timestamp());
                if (i % 100 == 0) store.names();
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(store.get("sum")->__int__(), 3 * Threads * Rounds);
    EXPECT_EQ(granted, 5000);
    EXPECT_EQ(popped + store.queued(S("q")), Threads * Rounds);
    EXPECT_EQ(store.get("l").as<IPE_ListType>()->count(), 0);
    std::set<int64_t> all;
    for (auto& own : stamps) {
        EXPECT_TRUE(std::is_sorted(own.begin(), own.end()));
        all.insert(own.begin(), own.end());
    }
    EXPECT_EQ(all.size(), static_cast<size_t>(Threads * Rounds));
}

TEST_F(Store, Globals) {
    EXPECT_THROW(IPE_GlobalStore(), XPK_AssertException);
    IPE_StartGlobals();
    IPE_Store& globals = IPE_GlobalStore();
    EXPECT_TRUE(globals.get("platform")->is_text("windows"));
    EXPECT_EQ(globals.get("_call_frequency")->__int__(), 1'000'000'000);
    EXPECT_EQ(globals.get("_debug")->__int__(), 0);
    EXPECT_NE(std::string(globals.get("__program_name")->c_str()).find("/test_store"), std::string::npos);
    EXPECT_TRUE(globals.get("__program_args").is<IPE_ListType>());
    IPE_StopGlobals();
    EXPECT_EQ(IPE_FindGlobalStore(), nullptr);
}

using Passports = ManagedThreads;

TEST_F(Passports, VariablesAcrossThreads) {
    EPA_Semaphore ready(0, 10), go(0, 10);
    std::atomic<int> targets{0};
    manager().release();
    for (int i = 0; i < 2; ++i)
        start([&](EPA_ThreadPassportImpl& passport) {
            IPE_ThreadStore().setKey("job", "id", I(passport.slot() + 1000));
            ready.release();
            go.wait();
            if (IPE_ThreadStore().has("stop")) targets += passport.slot();
            passport.resetVariables();
            if (IPE_ThreadStore().has("job")) targets += 100;
        });
    for (int i = 0; i < 2; ++i) ready.wait();
    IPE_ThreadStore().set("job", S("no dictionary"));
    IPE_Object list = IPE_NewList();
    manager().collect(S("job"), list);
    ASSERT_EQ(list.as<IPE_ListType>()->count(), 3);
    EXPECT_TRUE(list.as<IPE_ListType>()->at(0)->is_text("no dictionary"));
    EXPECT_EQ(IPE_Dict_GetInt64(list.as<IPE_ListType>()->at(2), "id"), 1002);
    manager().assignWhere(S("job"), S("id"), I(1002), I(1), S("stop"));
    manager().assignWhere(S("absent"), S("id"), I(1002), I(1), S("stop"));
    EXPECT_FALSE(IPE_ThreadStore().has("stop"));
    go.release(2);
    manager().stop();
    EXPECT_EQ(targets, 2);
}

TEST_F(Passports, SleepsEndWithShutdown) {
    IPE_TimeoutType timeout;
    timeout.sleep(-1);
    timeout.sleep(1);
    EXPECT_EQ(raised([&] { timeout.__getattr__(S("wake"), 0); }),
              "AttributeNotFoundException: The Timeout does not have an attribute named wake");
    IPE_Object object = IPE_New<IPE_TimeoutType>();
    std::thread other([] { request_shutdown(); });
    IPE_Object hour = I(3'600'000);
    EXPECT_EQ(object->__callmethod__(0, IPE_Arguments(&hour, 1)), IPE_None());
    other.join();
}

TEST_F(Store, ExceptionsThereAndBack) {
    IPE_SetStackReporter([](IPE_Object details) {
        IPE_Dict_Set(details, "statement", S("x = 1"));
        XPK_Raise("Inner", "a stack that cannot be shown").raise();
    });
    IPE_Object details;
    try {
        XPK_Raise("TypeError", "Require $need of $count").string("need", "an int").number("count", 4).raise();
    } catch (const XPK_Exception& e) {
        details = e.details();
    }
    IPE_SetStackReporter(nullptr);
    ASSERT_TRUE(details.is<IPE_DictType>());
    EXPECT_EQ(IPE_Dict_GetString(details, "__type"), "TypeError");
    EXPECT_EQ(IPE_Dict_GetString(details, "__list"), "need,count");
    EXPECT_EQ(IPE_Dict_GetString(IPE_Dict_Get(details, "__strings"), "need"), "an int");
    EXPECT_EQ(IPE_Dict_GetInt64(IPE_Dict_Get(details, "__numbers"), "count"), 4);
    EXPECT_GT(IPE_Dict_GetInt64(details, "__line"), 0);
    EXPECT_TRUE(IPE_Dict_Get(details, "ipestack").is<IPE_ListType>());
    EXPECT_EQ(IPE_Dict_GetString(details, "statement"), "x = 1");

    XPK_TraceScope scope;
    XPK_TraceString(scope.state(), "outer", "here");
    IPE_Dict_Set(IPE_Dict_Get(details, "__strings"), "long", S(std::string(300, 'y')));
    XPK_Exception back(details);
    EXPECT_EQ(back.message(), "Require an int of 4");
    EXPECT_EQ(*back.record().findString("outer"), "here");
    EXPECT_EQ(back.record().findString("long")->size(), 255u);
    EXPECT_EQ(back.details(), details);
    EXPECT_EQ(thread.state().trace.depth, 1);
}

TEST_F(Store, HostileDetails) {
    IPE_Object cleared = IPE_NewDict();
    cleared->clear();
    IPE_Object wrong = IPE_NewDict();
    for (const char* key : {"__file", "__line", "__type", "__list", "__show", "__strings", "__numbers"})
        IPE_Dict_Set(wrong, key, IPE_ListOf({I(1)}));
    IPE_Object crowded = IPE_NewDict(), strings = IPE_NewDict();
    for (int i = 0; i < 1000; ++i) strings.as<IPE_DictType>()->set(I(i), S("not a name"));
    for (int i = 0; i < 1000; ++i) IPE_Dict_Set(strings, "s" + std::to_string(i), S("v"));
    IPE_Dict_Set(strings, "cleared", cleared);
    IPE_Dict_Set(crowded, "__strings", strings);
    IPE_Dict_Set(crowded, "__numbers", cleared);
    for (const IPE_Object& details : {IPE_Object(), IPE_None(), cleared, wrong, crowded}) {
        XPK_Exception e(details);
        EXPECT_EQ(e.type(), "DevlopmentErroreListIs0");
        EXPECT_EQ(e.message(), "Development Errror (eShow == 0)");
        EXPECT_LE(e.record().strings.size(), 129u);
        EXPECT_EQ(e.record().strings.empty(), !(details == crowded));
    }
}

}  // namespace
