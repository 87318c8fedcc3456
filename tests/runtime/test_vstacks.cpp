// Value stacks: what a level that closes leaves to the one above, and where the depth ends.
#include <memory>
#include <random>

#include "../ipe/values_testing.h"
#include "runtime/stacks/epa_vstackdigest.h"
#include "runtime/stacks/epa_vstacknumber.h"
#include "runtime/stacks/epa_vstackstring.h"

namespace {

template <class Action>
bool asserts(Action action) {
    return raised(action).starts_with("AssertionError");
}

using VStacks = ValuesTest;

struct Folder {
    Folder(int64_t size, int64_t greatest) : size(size), greatest(greatest) {}
    int64_t size, greatest;
    std::vector<std::unique_ptr<Folder>> folders;
};

std::unique_ptr<Folder> randomTree(std::mt19937_64& random, int depth) {
    auto number = [&] { return static_cast<int64_t>(random()) >> 8; };
    auto folder = std::make_unique<Folder>(number(), number());
    for (uint64_t n = depth > 0 ? random() % 6 : 0; n > 0; --n)
        folder->folders.push_back(randomTree(random, depth - 1));
    return folder;
}
int64_t sizeOf(const Folder& folder) {
    int64_t sum = folder.size;
    for (const auto& below : folder.folders) sum += sizeOf(*below);
    return sum;
}
int64_t greatestOf(const Folder& folder) {
    int64_t most = std::max<int64_t>(0, folder.greatest);
    for (const auto& below : folder.folders) most = std::max(most, greatestOf(*below));
    return most;
}

}  // namespace

// Sums and maxima are compared with a recount below; here is what that walk does not meet.
TEST_F(VStacks, ClosingALevelRollsUpByMode) {
    EPA_VStackI32 maximum, latest;
    maximum.mode = EPA_VStackI32::Maximum;
    latest.mode = EPA_VStackI32::Latest;
    maximum.propagate = latest.propagate = true;
    for (EPA_VStackI32* stack : {&maximum, &latest}) {
        stack->push();
        stack->apply(3);
        stack->apply(-7);
        EXPECT_EQ(stack->current(), stack == &latest ? -7 : 3);
        stack->pop();
        EXPECT_EQ(stack->current(), stack == &latest ? 0 : 3) << "the latest stays on its level";
    }
}

TEST_F(VStacks, AModeThatIsNoneIsNamed) {
    EPA_VStackI32 narrow;
    EPA_VStackI64 wide;
    narrow.mode = 3;
    wide.mode = -1;
    EXPECT_EQ(raised([&] { narrow.apply(1); }), "SystemError: Illegal vStackI32 mode");
    EXPECT_EQ(raised([&] { wide.apply(1); }), "SystemError: Illegal vStackI64 mode");
    wide.push();
    EXPECT_EQ(raised([&] { wide.pop(); }), "nothing");  // the value is dropped without a look at the mode
    wide.push();
    wide.propagate = true;
    EXPECT_EQ(raised([&] { wide.pop(); }), "SystemError: Illegal vStackI64 mode");
    EXPECT_EQ(wide.top(), 1);
}

TEST_F(VStacks, EveryStackHas512Levels) {
    EPA_VStackI32 i32;
    EPA_VStackI64 i64;
    EPA_VStackString text;
    EPA_VStackDigest digest;
    for (EPA_VStackBase* stack : std::initializer_list<EPA_VStackBase*>{&i32, &i64, &text, &digest}) {
        EXPECT_TRUE(asserts([&] { stack->pop(); }));
        for (int i = 1; i < EPA_VStackBase::Levels; ++i) stack->push();
        EXPECT_TRUE(asserts([&] { stack->push(); }));
        for (int i = 1; i < EPA_VStackBase::Levels; ++i) stack->pop();
        EXPECT_TRUE(asserts([&] { stack->pop(); }));
    }
}

TEST_F(VStacks, AGangChecksBeforeItTouchesAMember) {
    EPA_VStackI32 first;
    {
        EPA_VStackGang gang;
        gang.attach(first);
    }
    EXPECT_EQ(first.gang(), nullptr) << "a stack outlives its gang";
    EPA_VStackGang gang;
    gang.attach(first);
    EXPECT_TRUE(asserts([&] { gang.attach(first); }));
    first.push();
    EXPECT_TRUE(asserts([&] { gang.pop(); }));
    EXPECT_EQ(first.top(), 1);
    first.pop();
    for (int i = 1; i < EPA_VStackBase::Levels; ++i) gang.push();
    EXPECT_TRUE(asserts([&] { gang.push(); }));
    EXPECT_EQ(first.top(), 511);
    EXPECT_EQ(gang.depth(), 511);

    std::vector<std::unique_ptr<EPA_VStackI32>> more;
    for (int i = 1; i < EPA_VStackGang::MostMembers; ++i)
        gang.attach(*more.emplace_back(std::make_unique<EPA_VStackI32>()));
    EPA_VStackI32 last;
    EXPECT_TRUE(asserts([&] { gang.attach(last); }));
    more.erase(more.begin() + 10);  // leaves the gang, and makes room
    gang.attach(last);
    EXPECT_EQ(gang.count(), EPA_VStackGang::MostMembers);
    EXPECT_TRUE(asserts([&] { EPA_VStackGang().detach(last); }));
}

TEST_F(VStacks, NamesJoinToThePathOfTheOpenLevels) {
    EPA_VStackString names;
    EPA_StringBuffer path;
    names.set("never written");
    names.joined(path);
    EXPECT_EQ(path.view(), "/");
    names.push();
    names.set("größe");
    names.push();
    names.set("b");
    names.pop();
    names.push();
    names.joined(path);
    EXPECT_EQ(path.view(), "/größe//");  // a level opens empty
}

TEST_F(VStacks, DigestsDependOnThePairsAlone) {
    EPA_VStackDigest sets;
    sets.add(S("a"), I(1));
    EXPECT_EQ(sets.digest(), "910cd008");  // of the text [("a", 1)]
    sets.add(S("b"), I(2));
    std::string both = sets.digest();
    sets.push();
    EXPECT_EQ(sets.digest(), "");
    sets.add(S("b"), I(2));
    sets.add(S("a"), I(1));
    EXPECT_EQ(sets.digest(), both);
    sets.pop();
    EXPECT_EQ(sets.digest(), both);
}

TEST_F(VStacks, ARandomTreeAgreesWithARecount) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 20; ++round) {
        auto tree = randomTree(random, 7);
        EPA_VStackI64 size, greatest;
        EPA_VStackI32 own;
        size.mode = EPA_VStackI64::Sum;
        greatest.mode = EPA_VStackI64::Maximum;
        own.mode = EPA_VStackI32::Sum;
        size.propagate = greatest.propagate = true;
        EPA_VStackGang gang;
        gang.attach(size);
        gang.attach(own);
        gang.attach(greatest);
        std::function<void(const Folder&)> walk = [&](const Folder& folder) {
            size.apply(folder.size);
            greatest.apply(folder.greatest);
            for (const auto& below : folder.folders) {
                own.apply(1);
                gang.push();
                walk(*below);
                EXPECT_EQ(size.current(), sizeOf(*below));
                EXPECT_EQ(greatest.current(), greatestOf(*below));
                EXPECT_EQ(own.current(), static_cast<int32_t>(below->folders.size()));
                gang.pop();
            }
        };
        walk(*tree);
        EXPECT_EQ(size.current(), sizeOf(*tree));
        EXPECT_EQ(gang.depth(), 0);
    }
}
