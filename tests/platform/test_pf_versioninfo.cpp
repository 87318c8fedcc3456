#include "platform/pf_versioninfo.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/pf_notejson.h"
#include "scratch.h"

using namespace platform;

namespace {

// Numbers of these widths, one behind the other.
std::string pack(std::initializer_list<std::pair<uint64_t, int>> numbers, bool big = false) {
    std::string out;
    for (auto [value, width] : numbers)
        for (int i = 0; i < width; ++i)
            out.push_back(static_cast<char>(value >> (8 * (big ? width - 1 - i : i))));
    return out;
}

std::string zeros(size_t count) { return std::string(count, '\0'); }

std::string padded(std::string text) { return text + zeros(3 - (text.size() + 3) % 4); }

std::string wide(const std::string& text) {
    std::string out;
    for (char c : text) out += {c, '\0'};
    return out + zeros(2);
}

// A record of the version resource; `children` are aligned already.
std::string record(const std::string& key, const std::string& value, const std::string& children) {
    std::string body = padded(padded(zeros(6) + wide(key)) + value) + children;
    return pack({{body.size(), 2}, {value.size(), 2}, {1, 2}}) + body.substr(6);
}

std::string peFile(const std::string& resource) {
    std::string root;
    for (auto [id, next] : {std::pair{16u, 0x80000018u}, {1u, 0x80000030u}, {0x409u, 0x48u}})
        root += zeros(14) + pack({{1, 2}, {id, 4}, {next, 4}});
    root += pack({{0x1000 + 0x58, 4}, {resource.size(), 4}, {0, 8}}) + resource;
    std::string optional =
        pack({{0x20B, 2}}) + zeros(106) + pack({{16, 4}}) + zeros(16) + pack({{0x1000, 4}, {root.size(), 4}});
    std::string file = "MZ" + zeros(58) + pack({{64, 4}}) + "PE" + zeros(2) + pack({{0x8664, 2}, {1, 2}}) +
                       zeros(12) + pack({{240, 2}, {0, 2}}) + optional + zeros(240 - optional.size()) +
                       ".rsrc" + zeros(3) + pack({{root.size(), 4}, {0x1000, 4}, {root.size(), 4}});
    return file + pack({{file.size() + 20, 4}}) + zeros(16) + root;
}

std::string sample() {
    std::string strings =
        padded(record("CompanyName", wide("Example"), "")) + record("FileVersion", wide("1.2.3"), "");
    std::string table = record("040904b0", "", strings);
    return peFile(record("VS_VERSION_INFO", std::string(52, 'f'), record("StringFileInfo", "", table)));
}

std::string elfFile(bool big, const std::string& json) {
    std::string note = pack({{4, 4}, {json.size(), 4}, {0xCAFE1A7E, 4}}, big) + "FDO" + zeros(1) + json;
    return std::string("\177ELF\1") + (big ? '\2' : '\1') + zeros(22) + pack({{52, 4}}, big) + zeros(10) +
           pack({{32, 2}, {1, 2}}, big) + zeros(6) +
           pack({{4, 4}, {84, 4}, {0, 8}, {note.size(), 4}, {0, 8}, {4, 4}}, big) + note;
}

}  // namespace

TEST(VersionInfo, PeStrings) {
    Scratch scratch;
    VersionStrings strings;
    ASSERT_EQ(readVersionStrings(scratch.file("a.dll", sample()), strings), 0);
    EXPECT_EQ(strings, (VersionStrings{{"CompanyName", "Example"}, {"FileVersion", "1.2.3"}}));
}

TEST(VersionInfo, DamagedPeFilesEndQuietly) {
    Scratch scratch;
    VersionStrings strings;
    std::string whole = sample();
    for (size_t cut = 0; cut < whole.size(); cut += 3) {
        ASSERT_EQ(readVersionStrings(scratch.file("cut", whole.substr(0, cut)), strings), 0);
        ASSERT_TRUE(strings.empty()) << cut;
    }
    for (size_t at = 0; at < whole.size(); ++at) {
        for (char value : {'\0', '\x7F', '\xFF'}) {
            std::string bad = whole;
            bad[at] = value;
            ASSERT_EQ(readVersionStrings(scratch.file("flip", bad), strings), 0) << at;
        }
    }
}

TEST(VersionInfo, ElfNotes) {
    Scratch scratch;
    VersionStrings strings;
    std::string json = "{\"type\":\"deb\", \"version\":\"1-2\",\"n\":7,\"deep\":{\"a\":[1,{}]}}";
    for (bool big : {false, true}) {
        ASSERT_EQ(readVersionStrings(scratch.file("a.so", elfFile(big, json + std::string(3, 0))), strings),
                  0);
        EXPECT_EQ(strings, (VersionStrings{{"n", "7"}, {"type", "deb"}, {"version", "1-2"}}));
    }
    std::string whole = elfFile(false, json);
    for (size_t at = 0; at < 100; ++at) {
        std::string bad = whole;
        bad[at] = '\xFF';
        ASSERT_EQ(readVersionStrings(scratch.file("flip", bad), strings), 0) << at;
    }
    EXPECT_EQ(readVersionStrings("/proc/self/exe", strings), 0);
    EXPECT_EQ(readVersionStrings(scratch.file("text", "hello"), strings), 0);
    EXPECT_TRUE(strings.empty());
    EXPECT_EQ(readVersionStrings(scratch.path(), strings), EISDIR);
    EXPECT_EQ(readVersionStrings(scratch / "missing", strings), ENOENT);
    ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(readVersionStrings(scratch / "fifo", strings), EOPNOTSUPP);
}

TEST(VersionInfo, NoteJson) {
    VersionStrings out;
    EXPECT_TRUE(parseNoteJson(" { \"a\\u00e9\\ud83d\\ude00\\ud800\" : \"\\n\\\"\" , \"b\":true } ", out));
    EXPECT_EQ(out, (VersionStrings{{"a\u00e9\U0001F600\uFFFD", "\n\""}, {"b", "true"}}));
    out.clear();
    std::string deep = "{\"a\":" + std::string(5000, '[') + std::string(5000, ']') + "}";
    for (std::string bad :
         {"", "{", "{}x", "[]", "{\"a\"}", "{\"a\":}", "{\"a\":1,}", "{\"a\":\"\n\"}", "{\"a\":\"\\x\"}",
          "{\"a\":\"\\u12\"}", "{\"a\":\"\xFF\"}", "{\"a\":nul}", deep.c_str()}) {
        EXPECT_FALSE(parseNoteJson(bad, out)) << bad.substr(0, 20);
    }
    EXPECT_TRUE(out.empty());
}
