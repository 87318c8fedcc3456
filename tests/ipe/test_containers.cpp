// Lists, tuples, dicts and the iterator: operations, hostile elements, and the dict against a model.
#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "ipe/values/ipe_depth.h"
#include "ipe/values/ipe_iterator.h"
#include "values_testing.h"

namespace {

using Containers = ValuesTest;

// A value of its own class: neither hash nor copy, and a comparison that the test gives.
class Probe : public IPE_Type {
  public:
    explicit Probe(std::function<int()> compare = [] { return 1; })
        : IPE_Type("ProbeType"), compare_(compare) {}
    int __cmp__(const IPE_Object&) override { return compare_(); }

  private:
    std::function<int()> compare_;
};

// A list or tuple in itself, `levels` deep.
IPE_Object nested(int levels) {
    IPE_Object list = IPE_NewList();
    for (int i = 1; i < levels; ++i) list = L({list});
    return list;
}

// --- Lists and tuples

TEST_F(Containers, NativeHandlesCheckTypeAndIndex) {
    EXPECT_EQ(raised([] { IPE_List(L({I(1)}))[1]; }), "IndexError: list index out of range");
    EXPECT_EQ(raised([] { IPE_Tuple(T({I(1)}))[-1]; }), "IndexError: tuple index out of range");
    EXPECT_EQ(raised([] { IPE_List(I(1)); }), "TypeError: Require a 'ListType' but given a 'IntType'");
    EXPECT_EQ(raised([] { IPE_Tuple{IPE_Object()}; }),
              "RuntimeError: Null object passed to PyTuple_SafeCast");
}

TEST_F(Containers, CollationAndHashes) {
    EXPECT_EQ(L({S("B")})->__cmp__(L({S("a")})), -1);
    EXPECT_EQ(L({S("B")})->__collate__(L({S("a")})), 1);
    IPE_Object left = D({{S("a"), I(1)}, {I(2), L({})}});
    EXPECT_EQ(left->__cmp__(D({{I(2), L({})}, {S("a"), I(2)}})), -1);
    EXPECT_EQ(L({I(1), S("a")})->__hash__(), I(1)->__hash__() + S("a")->__hash__());
    EXPECT_EQ(raised([&] { T({I(1)})->__hash__(); }), "TypeError: __hash__ is not supported");
    EXPECT_EQ(left->__hash__(), I(1)->__hash__() + S("a")->__hash__() + I(2)->__hash__());
}

TEST_F(Containers, TextsWithJsonMarks) {
    IPE_Object all = L({T({I(1), S("x")}), D({{S("k"), S("v")}})});
    EPA_StringBuffer out;
    IPE_PrintContext context{out, true};
    IPE_StackList stack;
    all->__str__(context, stack);
    EXPECT_EQ(out.view(), "[(1, \"x\"),{\"k\": \"v\"}]");
}

TEST_F(Containers, CyclesAndDepth) {
    IPE_Object list = L({I(1)});
    call(list, "append", {list});
    IPE_Object dict = D({{S("me"), L({list})}});
    dict->__setitem__(S("d"), dict);
    for (const IPE_Object& object : {list, dict}) {
        IPE_StackList stack;
        EXPECT_EQ(raised([&] { object->translate(stack); }),
                  "RuntimeError: Cannot call translate on circular structures");
        EXPECT_EQ(stack.count(), 0);
        const char* full = "RuntimeError: Maximum stack depth exceded";
        EXPECT_EQ(raised([&] { object->__copy__(); }), full);
        EXPECT_EQ(raised([&] { object->__hash__(); }), full);
        MemorySink sink;
        EPA_DataOutput output(sink);
        EXPECT_EQ(raised([&] { object->save(output); }), full);
    }
    EXPECT_EQ(nested(IPE_DepthScope::Limit)->__cmp__(nested(IPE_DepthScope::Limit)), 0);
    EXPECT_EQ(raised([] { nested(501)->__cmp__(nested(501)); }), "RuntimeError: Maximum stack depth exceded");
    nested(200000);  // dies without a call per level
    IPE_Object deep = nested(200000);
    deep->clear();
    list->clear();
    dict->clear();
}

TEST_F(Containers, ClearedContainersRefuse) {
    IPE_Object inner = L({I(1)}), tuple = T({inner}), dict = D({{S("k"), tuple}});
    dict->clear();
    const std::string after = " is being accessed after clear() has been called.";
    EXPECT_EQ(raised([&] { inner->__getitem__(I(0)); }), "RuntimeError: List" + after);
    EXPECT_EQ(raised([&] { call(inner, "append", {I(1)}); }), "RuntimeError: List" + after);
    EXPECT_EQ(raised([&] { repr(inner); }), "RuntimeError: List" + after);
    EXPECT_EQ(raised([&] { tuple->__len__(); }), "RuntimeError: Tuple" + after);
    EXPECT_EQ(raised([&] { dict->__getitem__(S("k")); }), "RuntimeError: Dict" + after);
    EXPECT_EQ(raised([&] { dict->__setitem__(S("k"), I(1)); }), "RuntimeError: Dict" + after);
    EXPECT_EQ(raised([&] { dict->__hash__(); }), "RuntimeError: List" + after);
    uint32_t hint = 0;
    EXPECT_EQ(raised([&] { dict.as<IPE_DictType>()->findHinted(IPE_StringType::intern("k"), hint); }),
              "RuntimeError: Dict" + after);
    dict->clear();
}

// --- Sorting

TEST_F(Containers, SortsAgreeWithTheModelInEveryOrder) {
    std::mt19937 random(7);
    for (int size : {0, 1, 2, 3, 9, 100, 3000}) {
        for (int distinct : {1, 3, 100000}) {
            std::vector<int> model;
            IPE_Object ints = IPE_NewList(), floats = IPE_NewList();
            for (int i = 0; i < size; ++i) {
                model.push_back(static_cast<int>(random() % static_cast<unsigned>(distinct)));
                call(ints, "append", {I(model.back())});
                call(floats, "append", {i % 2 ? F(model.back()) : I(model.back())});
            }
            std::sort(model.begin(), model.end());
            call(ints, "sort");
            call(floats, "sort");
            for (size_t i = 0; i < model.size(); ++i) {
                ASSERT_EQ(IPE_List(ints)[static_cast<int>(i)]->__int__(), model[i]);
                ASSERT_EQ(IPE_List(floats)[static_cast<int>(i)]->__int__(), model[i]);
            }
            call(ints, "sort", {S("D")});
            call(floats, "sort", {S("D")});
            ASSERT_TRUE(ints->__cmp__(ints) == 0);
            for (size_t i = 0; i < model.size(); ++i)
                ASSERT_EQ(IPE_List(floats)[static_cast<int>(i)]->__int__(), model[model.size() - 1 - i]);
        }
    }
    EXPECT_EQ(repr(call(L({S("b"), S("A"), S("a"), S("B")}), "isort", {L({})})), "['a', 'A', 'b', 'B']");
}

TEST_F(Containers, SortSurvivesHostileComparisons) {
    constexpr int Count = 2000;
    for (int kind = 0; kind < 4; ++kind) {
        IPE_Object list = IPE_NewList();
        int calls = 0;
        std::mt19937 random(3);
        std::vector<EPA_Counted*> before, after;
        for (int i = 0; i < Count; ++i) {
            IPE_Object item = IPE_New<Probe>([&, list = list.as<IPE_ListType>()] {
                ++calls;
                if (kind == 2 && calls == 5000) XPK_Raise("ValueError", "no order").raise();
                if (kind == 3 && calls == 100) list->append(I(1));
                return kind == 0 ? 1 : kind == 1 ? -1 : static_cast<int>(random() % 3) - 1;
            });
            before.push_back(item.counted());
            call(list, "append", {item});
        }
        std::string result = raised([&] { call(list, "sort"); });
        EXPECT_EQ(result, kind == 2 ? "ValueError: no order" : "nothing");
        EXPECT_LT(calls, Count * 200) << kind;
        for (const IPE_Object& item : list.as<IPE_ListType>()->items()) after.push_back(item.counted());
        if (kind == 3) {
            EXPECT_EQ(after.size(), before.size() + 1);
            after.pop_back();
        }
        std::sort(before.begin(), before.end());
        std::sort(after.begin(), after.end());
        EXPECT_TRUE(before == after) << kind;
    }
}

// --- Dicts

uint32_t growthOf(int entries) {
    IPE_DictType* dict;
    IPE_Object holder = IPE_NewDict();
    dict = holder.as<IPE_DictType>();
    for (int i = 0; i < entries; ++i) dict->set(I(i), I(i));
    return dict->slots();
}

TEST_F(Containers, DictGrowsAtTheToldCounts) {
    EXPECT_EQ(growthOf(7), 7u);
    EXPECT_EQ(growthOf(8), 31u);
    EXPECT_EQ(growthOf(23), 31u);
    EXPECT_EQ(growthOf(24), 61u);
    IPE_Object full = IPE_NewDict();
    for (int i = 0; i < 7; ++i) full->__setitem__(I(i), I(i));
    EXPECT_TRUE(full->__getitem__(I(7)).isNull());  // no free slot ends this search
    full->__setitem__(I(0), I(9));                  // a replacement too counts what is there
    EXPECT_EQ(full.as<IPE_DictType>()->slots(), 31u);
}

// Slot order is visible in `keys`, so the probe is checked against its plain formula.
TEST_F(Containers, SlotsFollowTheProbeFormula) {
    for (uint32_t capacity : {7u, 31u, 61u}) {
        std::vector<int64_t> model(capacity, -1);
        IPE_Object dict = IPE_NewDict();
        uint32_t fill = capacity / 3 * 2 + 2;
        if (capacity > 7)
            for (int i = 0; i < 60 && dict.as<IPE_DictType>()->slots() < capacity; ++i)
                dict->__setitem__(I(1000 + i), I(0));
        for (uint32_t i = 0; i < dict.as<IPE_DictType>()->slots(); ++i)
            if (IPE_Type* key = dict.as<IPE_DictType>()->keyAt(i)) model[i] = key->__int__();
        for (int64_t key = 0; static_cast<uint32_t>(dict->__len__()) < fill; ++key) {
            uint32_t h = I(key)->__hash__();
            for (uint64_t i = 0;; ++i) {
                uint64_t slot = ((h % (capacity - 2) + 1) * i + h % capacity) % capacity;
                if (model[slot] >= 0) continue;
                model[slot] = key;
                break;
            }
            dict->__setitem__(I(key), I(0));
        }
        std::vector<int64_t> expected, found;
        for (int64_t key : model)
            if (key >= 0) expected.push_back(key);
        IPE_Object keys = call(dict, "keys");
        for (const IPE_Object& key : keys.as<IPE_ListType>()->items()) found.push_back(key->__int__());
        EXPECT_EQ(found, expected) << capacity;
    }
}

TEST_F(Containers, TombstonesAreReused) {
    IPE_Object dict = IPE_NewDict();
    for (int i = 0; i < 6; ++i) dict->__setitem__(I(i), I(i));
    dict->__delitem__(I(3));
    dict->__delitem__(I(3));
    EXPECT_EQ(dict->__len__(), 5);
    dict->__setitem__(S("new"), I(1));
    dict->__setitem__(S("newer"), I(1));
    EXPECT_EQ(dict->__len__(), 7);
    EXPECT_EQ(dict.as<IPE_DictType>()->slots(), 7u);
    EXPECT_TRUE(dict->__getitem__(I(3)).isNull());
    EXPECT_EQ(dict->__getitem__(I(5))->__int__(), 5);
}

TEST_F(Containers, DictsRefuseNull) {
    IPE_Object dict = D({{S("Name"), I(1)}});
    EXPECT_TRUE(dict->__getattr__(S("absent"), 0).isNull());
    EXPECT_EQ(raised([&] { dict->__setitem__(S("a"), IPE_Object()); }),
              "RuntimeError: Null objects passed to IPE_DictType::__setitem__");
    EXPECT_EQ(raised([&] { dict->__getitem__(IPE_Object()); }).substr(0, 14), "AssertionError");
    EXPECT_EQ(raised([&] { dict->__setitem__(IPE_New<Probe>(), I(1)); }),
              "TypeError: __hash__ is not supported");
}

TEST_F(Containers, HintsAreGuesses) {
    IPE_StringType* name = IPE_StringType::intern("hinted");
    IPE_Object first = IPE_NewDict(), second = IPE_NewDict();
    auto& a = *first.as<IPE_DictType>();
    auto& b = *second.as<IPE_DictType>();
    uint32_t hint = 0xFFFFFFFF;
    EXPECT_EQ(a.findHinted(name, hint), nullptr);
    a.setText("hinted", I(1000));  // an equal key that is not the interned one
    EXPECT_EQ(a.findHinted(name, hint)->__int__(), 1000);
    a.setHinted(name, I(2000), hint);
    EXPECT_EQ(a.count(), 1);
    EXPECT_EQ(b.findHinted(name, hint), nullptr);
    b.setHinted(name, I(5000), hint);
    EXPECT_EQ(a.findHinted(name, hint)->__int__() + b.findHinted(name, hint)->__int__(), 7000);
    a.remove(IPE_Object(name));
    EXPECT_EQ(a.findHinted(name, hint), nullptr);
    a.setHinted(name, I(3000), hint);
    for (int i = 0; i < 100; ++i) a.set(I(i), I(i));
    EXPECT_EQ(a.findHinted(name, hint)->__int__(), 3000);
    a.recycle();
    EXPECT_EQ(a.findHinted(name, hint), nullptr);
    EXPECT_EQ(a.count(), 0);
}

TEST_F(Containers, DictAgreesWithAnOrderedMap) {
    std::mt19937 random(11);
    for (int round = 0; round < 4; ++round) {
        std::map<std::string, int64_t> model;
        IPE_Object dict = IPE_NewDict();
        unsigned range = round == 0 ? 8 : round == 1 ? 200 : 5000;
        for (int step = 0; step < 30000; ++step) {
            unsigned number = random() % range;
            IPE_Object key = number % 3 == 0   ? I(number)
                             : number % 3 == 1 ? S(std::to_string(number))
                                               : L({I(number)});
            std::string name = repr(key);
            switch (random() % (round == 3 ? 5 : 4)) {
                case 0:
                case 1:
                    dict->__setitem__(key, I(step));
                    model[name] = step;
                    break;
                case 2: ASSERT_EQ(dict.as<IPE_DictType>()->remove(key), model.erase(name) == 1); break;
                default: {
                    IPE_Object value = dict->__getitem__(key);
                    ASSERT_EQ(value.isNull(), model.count(name) == 0);
                    if (!value.isNull()) {
                        ASSERT_EQ(value->__int__(), model[name]);
                    }
                }
            }
            ASSERT_EQ(static_cast<size_t>(dict->__len__()), model.size());
        }
        IPE_Object keys = call(dict, "keys");
        for (const IPE_Object& key : keys.as<IPE_ListType>()->items())
            ASSERT_EQ(dict->__getitem__(key)->__int__(), model.at(repr(key)));
    }
}

// A queue that never holds many entries must not drown in tombstones.
TEST_F(Containers, ChurnKeepsSearchesShort) {
    IPE_Object dict = IPE_NewDict();
    for (int64_t i = 0; i < 40000; ++i) dict->__setitem__(I(i), I(i));
    for (int64_t i = 0; i < 2000000; ++i) {
        if (i >= 40000) dict->__setitem__(I(i), I(1));
        dict->__delitem__(I(i));
    }
    EXPECT_EQ(dict->__len__(), 0);
}

// --- Iterator

std::string walk(const IPE_Object& subject, bool sorted = false) {
    std::string seen;
    IPE_Iterator it(subject, sorted);
    while (it.hasMore()) {
        IPE_Object key, value = it.next(key);
        seen += str(key) + "=" + str(value) + ";";
    }
    return seen;
}

TEST_F(Containers, IteratorKinds) {
    EXPECT_EQ(walk(IPE_None()), "");
    EXPECT_EQ(walk(L({S("a"), I(5)})) + walk(T({S("b")})), "0=a;1=5;0=b;");
    EXPECT_EQ(walk(S("text")) + walk(I(7)), "0=text;0=7;");
    EXPECT_EQ(walk(D({{S("b"), I(1)}, {S("a"), I(2)}, {S("c"), I(3)}}), true), "a=2;b=1;c=3;");
}

TEST_F(Containers, IteratorNoticesChanges) {
    IPE_Object list = L({I(1), I(2)});
    IPE_Iterator items(list);
    items.next();
    list->__delitem__(I(0));
    EXPECT_EQ(raised([&] { items.next(); }), "IndexError: list index out of range");
    IPE_Object dict = D({{S("k"), I(1)}}), key;
    IPE_Iterator entries(dict);
    dict->__delitem__(S("k"));
    EXPECT_EQ(raised([&] { entries.next(key); }), "KeyError: k");
    EXPECT_EQ(raised([] { IPE_Iterator(IPE_Object()).next(); }),
              "RuntimeError: next() called on null container");
}

TEST_F(Containers, NativeDictHelpers) {
    IPE_Object dict = D({{S("n"), I(5000000000)}, {S("s"), S("text")}});
    EXPECT_EQ(IPE_Dict_GetInt64(dict, "n"), 5000000000);
    EXPECT_EQ(IPE_Dict_GetString(dict, "s") + IPE_Dict_GetString(dict, "n"), "text5000000000");
    EXPECT_EQ(IPE_Dict_GetString(dict, "x", "none"), "none");
    EXPECT_EQ(IPE_Dict_GetInt32(dict, "x", -3), -3);
    EXPECT_EQ(raised([&] { IPE_Dict_Get(dict, "x"); }), "KeyError: x");
    EXPECT_EQ(raised([] { IPE_Dict_Get(L({}), "x"); }),
              "TypeError: Require a 'DictType' but given a 'ListType'");
    EXPECT_EQ(raised([] { IPE_Dict_Set({}, "x", I(1)); }),
              "RuntimeError: Null object passed to PyDict_SafeCast");
}

}  // namespace
