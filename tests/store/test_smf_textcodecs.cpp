// The codecs and value classes of texts, trees and flags.
#include <algorithm>

#include "codec_contract.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/values/ipe_containers.h"
#include "one_codec.h"
#include "store/codecs/smf_agingtable.h"
#include "store/fields/smf_flagfield.h"
#include "store/fields/smf_stringfield.h"
#include "store/fields/smf_treefield.h"
#include "store/filters/smf_textmatcher.h"
#include "store/smf_labels.h"

using namespace codec_contract;
using namespace std::string_literals;

namespace {

IPE_Object listOf(const std::vector<std::string>& texts) {
    IPE_Object list = IPE_NewList();
    for (const std::string& text : texts) list.as<IPE_ListType>()->append(IPE_String(text));
    return list;
}

IPE_Object textOf(int pattern, int64_t i) {
    int64_t n = number(pattern, i);
    return IPE_String(n % 16 ? "t" + std::to_string(n) : "");
}
IPE_Object nameOf(int pattern, int64_t i) {
    auto n = static_cast<uint64_t>(number(pattern, i));
    std::string base = "name" + std::to_string(n) + std::string(n % 7 ? 0 : n % 300, 'x');
    return IPE_String(base + (n % 5 ? "." + std::to_string(n % 1000) : ""));
}
std::vector<std::string> pathOf(int pattern, int64_t i) {
    auto n = static_cast<uint64_t>(number(pattern, i));
    std::vector<std::string> parts;
    for (uint64_t depth = n % 5; depth > 0; --depth)
        parts.push_back("d" + std::to_string(n / depth % 131) + std::string(n % 11 ? 0 : 64, 'y'));
    return parts;
}
IPE_Object treeOf(int pattern, int64_t i) { return listOf(pathOf(pattern, i)); }
IPE_Object flagsOf(int pattern, int64_t i) {
    auto n = static_cast<uint64_t>(number(pattern, i));
    std::string text;
    for (char bit = 0; bit < 9; ++bit)
        if (n >> bit & 1) text += (text.empty() ? "" : ",") + std::string(1, static_cast<char>('a' + bit));
    return IPE_String(text);
}

const char* const NineFlags = "a;b;c;d;e;f;g;h;i;";
const Case cases[] = {
    {"ASBE", "", SMF_TypeString, textOf},
    {"ADBE", "D", SMF_TypeString, textOf},
    {"AFBE", "F", SMF_TypeString, nameOf},
    {"ISBE", "", SMF_TypeTree, treeOf, nullptr, {{"R", "T"}}},
    {"HSAE", "", SMF_TypeFlag, flagsOf, nullptr, {{"SN", NineFlags}}},
    {"HDAE", "D", SMF_TypeFlag, flagsOf, nullptr, {{"SN", NineFlags}}},
};

const OneCodec::Tags Reversed = {{"R", IPE_String("T")}};
const OneCodec::Tags NineTags = {{"SN", IPE_String(NineFlags)}};

std::string encoded(const char* key, int32_t type, const OneCodec::Tags& tags,
                    const std::vector<IPE_Object>& values, std::string* readBack = nullptr) {
    OneCodec codec(key, type, tags);
    for (const IPE_Object& value : values) codec.put(value);
    codec.close();
    if (readBack) *readBack = codec.all();
    return codec.bytes();
}
std::vector<IPE_Object> strings(std::initializer_list<std::string> texts) {
    std::vector<IPE_Object> values;
    for (const std::string& text : texts) values.push_back(IPE_String(text));
    return values;
}
std::string decoded(const char* key, int32_t type, const std::string& bytes, int64_t rows,
                    const OneCodec::Tags& tags = {}) {
    OneCodec codec(key, type, tags);
    codec.raw(bytes, rows);
    return codec.all();
}

}  // namespace

TEST(TextCodecs, EveryPatternReadsBack) { checkEveryPattern(cases); }

TEST(TextCodecs, ASharedStreamGivesTheSameValues) {
    const OneCodec::Tags tags = {{"SN", IPE_String(NineFlags)}, {"R", IPE_String("T")}};
    for (const Case& c : cases) {
        std::vector<IPE_Object> values;
        for (int64_t i = 0; i < 1000; ++i) values.push_back(c.value(Random, i));
        const std::string key(c.key, 3);
        SharedField field(key + "D", encoded(key.c_str(), c.type, tags, values), tags);
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(field.row(static_cast<int64_t>(i) + 1), IPE_Object_Text(values[i])) << c.key;
    }
}

TEST(TextCodecs, TextsStandAsTheFormatSays) {
    std::string x200(200, 'x'), x128(128, 'x');
    EXPECT_EQ(encoded("ASB", SMF_TypeString, {}, strings({"ab", "", x200})), "\2ab\0\xC8\1"s + x200);
    EXPECT_EQ(encoded("ADB", SMF_TypeString, {}, strings({"a", "b", "a", "", ""})),
              "\x80\1a\x81\1b\0\x82\0\2"s);
    std::string names = "\13archive.tar\x81\2gz\0\x82\7profile\4end.\0\21x.123456789012345\0"s +
                        "\1x\x83\16abcdefghijklmn\1b\1\x80\1"s + x128 + "\0"s;
    names.resize(1024);
    EXPECT_EQ(encoded("AFB", SMF_TypeString, {},
                      strings({"archive.tar.gz", ".profile", "end.", "x.123456789012345", "x.abcdefghijklmn",
                               "b.gz", x128})),
              names);
}

TEST(TextCodecs, TreesAndFlagsStandAsTheFormatSays) {
    IPE_Object path = listOf({"a", "b", "c"});
    std::vector<IPE_Object> paths = {path, path, listOf({"a", "b", "d"}), listOf({"x"}), listOf({})};
    paths.push_back(listOf({"y"}));
    std::string rest = "\1\x84\1d\0\1\x85\1x\x81\0\1\0\1\x86\1y\1"s;
    EXPECT_EQ(encoded("ISB", SMF_TypeTree, Reversed, paths), "\2\x81\1c\x80\2\x82\1a\x83\1b"s + rest);
    EXPECT_EQ(encoded("ISA", SMF_TypeTree, Reversed, paths), "\1\x81\1c\x80\2\x82\1a\x83\1b\1\1\0"s + rest);
    // Without the reversed flag the leaf is the first component, and the value reads back reversed.
    std::string back;
    EXPECT_EQ(encoded("ISB", SMF_TypeTree, {}, {listOf({"a", "b"})}, &back), "\1\x81\1a\x80\1\x82\1b"s);
    EXPECT_EQ(back, "['b', 'a'] ");
    auto flags = strings({"a", "a", "b,i", "b,i", "a"});
    EXPECT_EQ(encoded("HSA", SMF_TypeFlag, NineTags, flags), "\1\0\1\0\2\1\2\1\1\0"s);
    EXPECT_EQ(encoded("HDA", SMF_TypeFlag, NineTags, flags), "\1\x80\1\0\1\0\2\x81\2\1\1\0"s);
}

TEST(TextCodecs, RunsHold250) {
    // The run at the very beginning is not made longer.
    std::vector<IPE_Object> flags(252, IPE_String("a")), paths(251, listOf({"a"}));
    EXPECT_EQ(encoded("HDA", SMF_TypeFlag, NineTags, flags), "\1\x80\1\0\xFA\0\1\0"s);
    EXPECT_EQ(encoded("ISB", SMF_TypeTree, Reversed, paths), "\xFA\x81\1a\x80\0\1\1\0"s);
}

// --- The dictionaries told as scans: their bytes must be those of the encoders.

namespace {

// Entries First to Last with their ages, scanned.
struct AgingScan {
    struct Entry {
        std::string key;
        int64_t age = 0;
    };
    AgingScan(size_t first, size_t last) : first(first), entries(last + 1) {}
    std::pair<int, bool> touch(const std::string& key) {
        ++tick;
        size_t lowest = first;
        for (size_t i = first; i < entries.size(); ++i) {
            if (entries[i].age == 0) {
                lowest = i;
                break;
            }
            if (entries[i].key == key) {
                entries[i].age = tick;
                return {static_cast<int>(i), true};
            }
            if (entries[i].age < entries[lowest].age) lowest = i;
        }
        entries[lowest] = {key, tick};
        return {static_cast<int>(lowest), false};
    }
    size_t first;
    std::vector<Entry> entries;
    int64_t tick = 0;
};

struct OneBucket {
    uint32_t operator()(std::string_view) const noexcept { return 5; }
};

template <class Table>
void compare(size_t first, size_t last, int distinct) {
    Table table;
    std::mt19937 random(static_cast<unsigned>(distinct));
    for (int round = 0; round < 6; ++round) {
        AgingScan scan(first, last);
        table.clear();
        for (int i = 0; i < 1 << (2 * round + 3); ++i) {
            // Some keys come often, as in real columns.
            int value = static_cast<int>(random() % static_cast<unsigned>(1 + random() % distinct));
            std::string key = std::to_string(value);
            auto place = table.touch(std::string_view(key));
            ASSERT_EQ(std::make_pair(int{place.index}, place.known), scan.touch(key)) << round << ' ' << i;
            ASSERT_EQ(table.find(std::string_view(key)), place.index);
            ASSERT_EQ(table.at(place.index), key);
        }
    }
}

// The code byte of a text; `isNew` when the text follows.
char touched(AgingScan& scan, const std::string& text, bool& isNew) {
    auto [index, known] = scan.touch(text);
    isNew = !known;
    return static_cast<char>(known ? index : index | 0x80);
}

void putText(std::string& out, const std::string& text) {
    size_t n = text.size();
    for (; n >= 0x80; n >>= 7) out += static_cast<char>(n | 0x80);
    out += static_cast<char>(n);
    out += text;
}

struct TreeScan {
    std::vector<std::pair<std::string, int>> texts = std::vector<std::pair<std::string, int>>(128);
    struct Branch {
        int age = 0;
        std::vector<int> ids;
    };
    std::vector<Branch> branches = std::vector<Branch>(128);
    std::vector<std::string> previous;
    size_t runAt = std::string::npos;
    int tick = 0, count = 0;
    std::string out;

    int emit(const std::string& text) {
        int from = text.size() < 64 ? 1 : 0x78, to = text.size() < 64 ? 0x77 : 0x7F, chosen = 0;
        for (int i = from; i <= to; ++i) {
            auto& [known, age] = texts[static_cast<size_t>(i)];
            if (age != 0 && known != text) continue;
            if (age == 0) {
                chosen = i;
                break;
            }
            age = tick;
            out += static_cast<char>(i);
            return i;
        }
        texts[static_cast<size_t>(chosen)] = {text, tick};
        out += static_cast<char>(chosen | 0x80);
        putText(out, text);
        return chosen;
    }
    int branchOf(const std::vector<std::string>& branch) {
        std::vector<int> ids;
        for (const std::string& part : branch) {
            auto known = std::find_if(texts.begin(), texts.end(),
                                      [&](const auto& text) { return text.second && text.first == part; });
            if (known == texts.end()) return -1;
            ids.push_back(static_cast<int>(known - texts.begin()));
        }
        for (size_t i = 0; i < 128 && branches[i].age; ++i)
            if (branches[i].ids == ids) return static_cast<int>(i);
        return -1;
    }
    void put(const std::vector<std::string>& path) {
        ++tick;
        if (runAt != std::string::npos && count < 250 && path == previous) {
            out[runAt] = static_cast<char>(++count);
            return;
        }
        runAt = out.size();
        count = 1;
        previous = path;
        out += '\1';
        if (path.empty()) {
            out += '\0';
            return;
        }
        emit(path.back());
        std::vector<std::string> branch(path.begin(), path.end() - 1);
        if (int known = branchOf(branch); known >= 0) {
            out += static_cast<char>(known);
            return;
        }
        size_t chosen = 0;
        for (size_t i = 0; i < 128; ++i) {
            if (branches[i].age < branches[chosen].age) chosen = i;
            if (branches[i].age == 0) break;
        }
        out += static_cast<char>(chosen | 0x80);
        out += static_cast<char>(branch.size());
        std::vector<int> ids;
        for (const std::string& part : branch) ids.push_back(emit(part));
        branches[chosen] = {tick, ids};
    }
};

}  // namespace

TEST(AgingTable, FindsTheEntryOfTheScan) {
    for (int distinct : {1, 2, 127, 128, 129, 200, 1000}) {
        SCOPED_TRACE(distinct);
        compare<SMF_AgingTable<std::string>>(0, 127, distinct);
        compare<SMF_AgingTable<std::string, 1>>(1, 127, distinct);
        compare<SMF_AgingTable<std::string, 120, 127, OneBucket>>(120, 127, distinct);
        compare<SMF_AgingTable<std::string, 7, 7>>(7, 7, distinct);
    }
}

TEST(AgingTable, StepsAgeOnTheirOwn) {
    SMF_AgingTable<uint32_t, 0, 2> table;
    for (uint32_t key : {10u, 11u, 12u}) table.insert(key);
    EXPECT_EQ(table.find(10u), 0);  // leaves it the oldest
    EXPECT_EQ(table.insert(13u), 0);
    table.refresh(1);
    EXPECT_EQ(table.insert(14u), 2);
    EXPECT_EQ(table.find(12u), -1);
    EXPECT_EQ(table.size(), 3u);
}

TEST(TextCodecs, DictionariesChooseAsTheirScans) {
    for (int spread : {100, 130, 200}) {
        std::mt19937_64 random(static_cast<uint64_t>(spread));
        AgingScan texts(0, 127), extensions(1, 127), flags(0, 127);
        TreeScan tree;
        std::string textBytes, nameBytes, flagBytes, tag;
        std::vector<IPE_Object> textValues, nameValues, flagValues, treeValues;
        for (int i = 0; i < 4000; ++i) {
            bool isNew;
            // Skewed, so that some entries stay in use while others give way.
            std::string text =
                std::to_string(std::min(random() % static_cast<uint64_t>(spread), random() % 300));
            textValues.push_back(IPE_String(text));
            textBytes += touched(texts, text, isNew);
            if (isNew) putText(textBytes, text);
            nameValues.push_back(IPE_String("n." + text));
            nameBytes += "\1n"s + touched(extensions, text, isNew);
            if (isNew) putText(nameBytes, text);
            // Two bytes of flags; equal neighbours would make runs, which other tests see.
            IPE_Object set = flagsOf(Rising, std::stoi(text) % 512);
            flagValues.push_back(set);
            char low = static_cast<char>(std::stoi(text) & 0xFF),
                 high = static_cast<char>(std::stoi(text) >> 8);
            tag = {low, high};
            if (i > 1 && shown(flagValues[flagValues.size() - 2]) == shown(set)) {
                flagValues.pop_back();
            } else {
                flagBytes += "\1"s + touched(flags, tag, isNew);
                if (isNew) flagBytes += tag;
            }
            std::vector<std::string> path;
            for (uint64_t depth = random() % 4; depth > 0; --depth) {
                uint64_t n = std::min(random() % static_cast<uint64_t>(spread), random() % 300);
                path.push_back(std::to_string(n) + std::string(n % 9 ? 0 : 70, 'z'));
            }
            for (uint64_t repeat = random() % 3; repeat < 3; ++repeat) {
                tree.put(path);
                treeValues.push_back(listOf(path));
            }
        }
        nameBytes.resize((nameBytes.size() + 1023) / 1024 * 1024);
        EXPECT_TRUE(encoded("ADB", SMF_TypeString, {}, textValues) == textBytes);
        EXPECT_TRUE(encoded("AFB", SMF_TypeString, {}, nameValues) == nameBytes);
        EXPECT_TRUE(encoded("HDA", SMF_TypeFlag, NineTags, flagValues) == flagBytes);
        std::string back;
        EXPECT_TRUE(encoded("ISB", SMF_TypeTree, Reversed, treeValues, &back) == tree.out);
        std::string expected;
        for (const IPE_Object& value : treeValues) expected += shown(value) + " ";
        EXPECT_TRUE(back == expected);
    }
}

TEST(TextCodecs, TheOverflowEntryHoldsOneTextAtATime) {
    std::vector<IPE_Object> paths;
    for (int i = 0; i < 122; ++i) paths.push_back(listOf({"p" + std::to_string(i)}));
    std::string back, bytes = encoded("ISB", SMF_TypeTree, Reversed, paths, &back);
    EXPECT_TRUE(bytes.ends_with("\1\xF7\4p118\0\1\x80\4p119\0\1\x80\4p120\0\1\x80\4p121\0"s));
    EXPECT_TRUE(back.ends_with("['p119'] ['p120'] ['p121'] "));
}

TEST(TextCodecs, OemTextBecomesUtf8) {
    EXPECT_EQ(decoded("ASA", SMF_TypeString, "\3a\x81z\1c", 2), "'aüz' 'c' ");
    EXPECT_EQ(decoded("ADA", SMF_TypeString, "\x80\1\x84\0\x81\1x"s, 3), "'ä' 'ä' 'x' ");
    EXPECT_EQ(decoded("AFA", SMF_TypeString, "\1\x99\x81\2\xE1z\1b\1"s, 2), "'Ö.ßz' 'b.ßz' ");
    EXPECT_EQ(decoded("ISA", SMF_TypeTree, "\2\x81\1\x9A\x80\1\x82\1z"s, 2, Reversed),
              "['z', 'Ü'] ['z', 'Ü'] ");
    EXPECT_EQ(SMF_CreateDecoder("KSAD")->key(), "ASAD");
}

TEST(TextCodecs, HostileBytesEndInTheirErrors) {
    const std::string illegal = "!Record reader has detected illegal data",
                      text = "!String decoder has detected illegal data";
    EXPECT_EQ(decoded("ADB", SMF_TypeString, "\x80\1a\0\5"s, 9), "'a' 'a' " + text);
    EXPECT_EQ(decoded("ASB", SMF_TypeString, "\1a\xFF\xFF\x7F"s, 9), "'a' " + illegal);
    EXPECT_EQ(decoded("AFB", SMF_TypeString, "\1a\5"s, 9), "!String_AFBD decoder has detected illegal data");
    EXPECT_EQ(decoded("AFA", SMF_TypeString, "\1a\5"s, 9), "!String_AFAD decoder has detected illegal data");
    std::string base(4097, 'b');
    EXPECT_EQ(decoded("AFA", SMF_TypeString, "\x81\x20"s + base + "\0"s, 1), text);
    EXPECT_EQ(decoded("AFB", SMF_TypeString, "\x81\x20"s + base + "\0"s, 1), "'" + base + "' ");
    // An extension without text is a dot; one given to entry 0 does not stay.
    EXPECT_EQ(decoded("AFB", SMF_TypeString, "\1a\x81\0\1b\1\1c\x80\1x\1d\0"s, 4), "'a.' 'b.' 'c.x' 'd' ");
    for (const std::string& bytes : {"\0\x81\1a\x80\0"s, "\1\5\x80\0"s, "\1\x81\1a\3"s, "\1\x81\1a\x80\1\7"s})
        EXPECT_EQ(decoded("ISB", SMF_TypeTree, bytes, 1, Reversed), illegal);
    EXPECT_EQ(decoded("ISB", SMF_TypeTree, "\1\x81\1a\x80\x40"s + std::string(64, '\1'), 1, Reversed),
              "!Field decoder has detected illegal data");
    EXPECT_TRUE(decoded("ISB", SMF_TypeTree, "\1\x81\1a\x80\x3F"s + std::string(63, '\1'), 1, Reversed)
                    .starts_with("['a', 'a'"));
    EXPECT_EQ(decoded("HDA", SMF_TypeFlag, "\0\x80\1\0"s, 1, NineTags), illegal);
    EXPECT_EQ(decoded("HDA", SMF_TypeFlag, "\2\x80\1\0\1\4"s, 3, NineTags), "'a' 'a' " + illegal);
    // A bit without a name.
    EXPECT_EQ(decoded("HSA", SMF_TypeFlag, "\0\x80"s, 1, NineTags), "!list index out of range");
}

TEST(TextCodecs, TextsThatAreTooLongAreRefusedBeforeTheyAreStored) {
    auto fault = [](const char* key, size_t size) {
        OneCodec codec(key, SMF_TypeString);
        codec.put(IPE_String("a"));
        std::string fault = faultOf([&] { codec.put(IPE_String(std::string(size, 'x'))); });
        codec.close();
        EXPECT_EQ(codec.rows(), fault == "none" ? 2 : 1);
        EXPECT_EQ(codec.all().size(), fault == "none" ? size + 7 : 4);
        return fault;
    };
    const std::string large = "DatabaseError: String length is larger than 2x block",
                      name = "DatabaseError: The text is too long for the encoder";
    EXPECT_EQ(fault("ASB", 8192 - 4), "none");
    EXPECT_EQ(fault("ASB", 8192 - 3), large);
    EXPECT_EQ(fault("ADB", 8192 - 6), "none");
    EXPECT_EQ(fault("ADB", 8192 - 5), large);
    EXPECT_EQ(fault("AFB", 0x7FFF), "none");
    EXPECT_EQ(fault("AFB", 0x8000), name);
    EXPECT_EQ(fault("AFA", 4096), "none");
    EXPECT_EQ(fault("AFA", 4097), name);
    OneCodec tree("ISB", SMF_TypeTree, Reversed);
    EXPECT_EQ(faultOf([&] { tree.put(listOf({std::string(8193, 'x')})); }), large);
    // A value so long that its count cannot be reached again opens a new run instead.
    IPE_Object wide = listOf({std::string(8192, 'x'), std::string(8192, 'y'), "z"});
    for (int i = 0; i < 2; ++i) tree.put(wide);
    tree.close();
    EXPECT_EQ(tree.all(), shown(wide) + " " + shown(wide) + " ");
}

TEST(TextCodecs, ValuesOfABatchOutliveTheirEntries) {
    auto bytes = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_Tree tree;
        SMF_String name;
        tree.connect(table, "Tree");
        name.connect(table, "Name", "F");
        table.create("T", writer, 4096, 5000);
        for (int i = 0; i < 9000; ++i) {
            tree.set(std::to_string(i / 3) + "." + std::to_string(i / 300));
            name.set("n" + std::to_string(i) + (i % 3 ? "." + std::to_string(i % 150) : ""));
            table.commit();
        }
    });
    OpenTable open(bytes, "T");
    SMF_Tree tree;
    SMF_String name;
    tree.connect(open.table, "Tree");
    name.connect(open.table, "Name");
    std::string text;
    for (int row = 1; row <= 9000;) {
        open.table.seek(row);
        auto trees = tree.span();
        auto names = name.span(trees.size());
        ASSERT_FALSE(names.empty());
        for (size_t k = 0; k < names.size(); ++k) {
            int i = row - 1 + static_cast<int>(k);
            ASSERT_EQ(trees[k].count, 2u);
            ASSERT_EQ(trees[k].parts[0], std::to_string(i / 3));
            ASSERT_EQ(trees[k].parts[1], std::to_string(i / 300));
            text.clear();
            name.decoder()->appendText(names[k], text);
            ASSERT_EQ(text, "n" + std::to_string(i) + (i % 3 ? "." + std::to_string(i % 150) : ""));
        }
        ASSERT_EQ(name.get().substr(0, 2), "n" + std::to_string(row - 1).substr(0, 1));
        ASSERT_EQ(tree.text(), std::to_string((row - 1) / 300) + "\\" + std::to_string((row - 1) / 3));
        row += static_cast<int>(names.size());
    }
}

TEST(TextCodecs, EntriesKeepTheirTextsWhenSymbolsBeginAnew) {
    constexpr int Rows = 1'070'000;  // more than the table of symbols takes
    auto textAt = [](int i) { return i % 100 ? std::to_string(i) : "kept"; };
    auto bytes = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_String text;
        text.connect(table, "Text", "D");
        table.create("T", writer, 65536, 10 * Rows);
        for (int i = 0; i < Rows; ++i) {
            text.set(textAt(i));
            table.commit();
        }
    });
    OpenTable open(bytes, "T");
    SMF_String text;
    text.connect(open.table, "Text");
    open.table.top();
    uint32_t epoch = text.decoder()->symbolEpoch(), changes = 0;
    for (int i = 0; i < Rows; ++i) {
        open.table.next();
        ASSERT_EQ(text.get(), textAt(i));
        if (text.decoder()->symbolEpoch() != epoch) ++changes;
        epoch = text.decoder()->symbolEpoch();
    }
    EXPECT_EQ(changes, 1u);
}

// The decoder of the second table may well lie where that of the first one lay.
TEST(TextCodecs, WhatAMatcherKnowsOfOneTableIsForgottenAtTheNext) {
    SMF_TextMatcher matcher("alph", true);
    for (const char* name : {"alpha.txt", "betaa.txt", "alpha.txt"}) {
        auto bytes = columnStore(SMF_TypeString, "F", std::vector(10, IPE_String(name)), 100);
        OpenTable open(bytes, "T");
        SMF_String text;
        text.connect(open.table, "Value");
        open.table.top();
        open.table.next();
        EXPECT_EQ(matcher.matches(text), name[0] == 'a');
    }
}

// --- Value classes.

TEST(TextFields, MasksHideNames) {
    EXPECT_EQ(SMF_PathMask(""), "");
    EXPECT_EQ(SMF_PathMask("a"), "a");
    EXPECT_EQ(SMF_PathMask("äb"), "äb");
    // SHA-1 of "abc" is a9993e36 4706...: six bytes in Base64.
    EXPECT_EQ(SMF_PathMask("abc"), "a_qZk+NkcG_c");
    EXPECT_EQ(SMF_FileMask("abc.txt"), "a_qZk+NkcG_c.txt");
    EXPECT_EQ(SMF_FileMask("abc"), "a_qZk+NkcG_c");
    EXPECT_EQ(SMF_FileMask("abc.1234567890123456"), "a_qZk+NkcG_c.1234567890123456");
    EXPECT_EQ(SMF_FileMask(".1234567890123456abc"), ".1234567890123456__qZk+NkcG");
    // Bytes that are no UTF-8 count as characters.
    EXPECT_EQ(SMF_PathMask("\xFF\xC3"), "\xFF\xC3");
    EXPECT_EQ(SMF_PathMask("\xFFmm\xC3").substr(0, 2), "\xFF_");
}

TEST(TextFields, TransformsMakeWhatScriptsSee) {
    auto seen = [](OneCodec::Tags tags) {
        OneCodec codec("ASB", SMF_TypeString, tags);
        codec.put(IPE_String("abc"));
        codec.close();
        std::string out = shown(codec.value(1)) + " " + codec.field().asText();
        return out;
    };
    EXPECT_EQ(seen({{"Transform", IPE_String("PathName")}}), "'a_qZk+NkcG_c' abc");
    EXPECT_EQ(seen({{"Transform", IPE_String("FileName")}}), "'a_qZk+NkcG_c' abc");
    EXPECT_EQ(seen({{"Transform", IPE_String("Fixed")}, {"Fixed", IPE_String("f")}}), "'f' f");
    EXPECT_EQ(seen({{"API", IPE_String("shout")}}), "'abc' abc");  // no script runs
    XPK_ThreadScope thread(true);
    IPE_Interpreter interpreter;
    IPE_Frame frame(interpreter, IPE_Frame::Root);
    IPE_FrameScope scope(frame);
    EXPECT_EQ(seen({{"API", IPE_String("shout")}}), "'abc' abc");  // no `api` there
    IPE_Object api = IPE_New<IPE_ModuleShared>();
    api->__setattr__(IPE_String("shout"), IPE_New<IPE_BridgeType>([](const IPE_Arguments& arguments) {
                         return IPE_String(IPE_Object_Text(arguments[0]) + "!");
                     }));
    frame.globals->__setattr__(IPE_String("api"), api);
    EXPECT_EQ(seen({{"API", IPE_String("shout")}}), "'abc!' abc");
}

TEST(TextFields, TreesSplitAtDotsAndStayShallow) {
    OneCodec codec("ISB", SMF_TypeTree, {{"S", IPE_String("/")}, {"R", IPE_String("T")}});
    SMF_Field& field = codec.field();
    auto assigned = [&](std::string_view text) {
        field.assignText(text);
        return shown(field.asObject()) + " " + field.asText();
    };
    EXPECT_EQ(assigned("a.b"), "['a', 'b'] a/b");
    EXPECT_EQ(assigned(".b"), "['', 'b'] /b");
    EXPECT_EQ(assigned(""), "[''] ");
    const std::string deep = "RuntimeError: Branch is too deep for SMF_TreeField to store";
    EXPECT_EQ(faultOf([&] { field.assignText(std::string(63, '.')); }), "none");
    EXPECT_EQ(faultOf([&] { field.assignText(std::string(64, '.')); }), deep);
    EXPECT_EQ(faultOf([&] { field.assignObject(listOf(std::vector<std::string>(65))); }), deep);
    IPE_Object schema = IPE_NewDict();
    codec.field().meta().exportTo(*schema.as<IPE_DictType>());
    EXPECT_EQ(IPE_Dict_GetString(schema, "R") + IPE_Dict_GetString(schema, "S"), "T.");
}

TEST(TextFields, FlagsTakeTheirNamesFromTags) {
    auto data = [](OneCodec::Tags tags) {
        OneCodec codec("HSA", SMF_TypeFlag, tags);
        return static_cast<SMF_FlagField&>(codec.field()).data();
    };
    EXPECT_EQ(data({{"SN", IPE_String("a;b;")}}).shortNames, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(data({{"SN", IPE_String("a;b;c;d;e;f")}}).bytes, 1);
    EXPECT_EQ(data({{"SN", IPE_String("a;b;c;d;e;f;g")}}).bytes, 2);
    EXPECT_EQ(data({{"C", IPE_String("1000000000")}}).bytes, 16);
    SMF_FlagData old = data({{"C", IPE_Int(2)},
                             {"S0.", IPE_String("0111061440")},
                             {"L0.", IPE_String("0111:60:1")},
                             {"S1.", IPE_String("?")}});
    EXPECT_EQ(old.shortNames, (std::vector<std::string>{"R", ""}));
    EXPECT_EQ(old.longNames, (std::vector<std::string>{"ReadOnly", ""}));
    OneCodec codec("HSA", SMF_TypeFlag, {{"SN", IPE_String("a;b;a")}});
    codec.field().assignText("a,nothing,b,,");
    EXPECT_EQ(shown(codec.field().asObject()), "'a,b,a'");
}

TEST(TextFields, LabelsHaveTheirNumbers) {
    struct {
        uint32_t id;
        const char* text;
    } const labels[] = {
        {0x69F001, "Name"}, {0x122F008, ""}, {0x142F014, "CantCompress"}, {0x603F016, ""}, {0, ""},
    };
    for (const auto& label : labels) EXPECT_EQ(SMF_LabelText(label.id), label.text) << std::hex << label.id;
    EXPECT_EQ(SMF_LabelIdentifier("0142061440"), 0x142F000u);
    EXPECT_EQ(SMF_LabelIdentifier("00690012"), 0x69000Cu);
    EXPECT_EQ(SMF_LabelIdentifier("0142:60:7"), 0x142F007u);
    EXPECT_EQ(SMF_LabelIdentifier("0142-60:0041"), 0x142F029u);
    EXPECT_EQ(SMF_LabelIdentifier("0142:60-0041"), 0x142F029u);
    for (const char* text : {"", "0142:60", "0142-60-041", "0142:60-041"})
        EXPECT_EQ(SMF_LabelIdentifier(text), 0u) << text;
}
