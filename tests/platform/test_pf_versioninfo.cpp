#include "platform/pf_versioninfo.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/pf_notejson.h"
#include "scratch.h"

using namespace platform;

namespace {

void put(std::string& out, uint64_t value, int width) {
    for (int i = 0; i < width; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

void pad(std::string& out) {
    while (out.size() % 4) out.push_back(0);
}

std::string wide(const std::string& text) {
    std::string out;
    for (char c : text) put(out, static_cast<uint8_t>(c), 2);
    return out + std::string(2, '\0');
}

// A record of the version resource; `children` are aligned already.
std::string record(const std::string& key, const std::string& value, const std::string& children) {
    std::string body = std::string(6, 0) + wide(key);
    pad(body);
    body += value;
    pad(body);
    body += children;
    std::string head;
    put(head, body.size(), 2);
    put(head, value.size(), 2);
    put(head, 1, 2);
    return head + body.substr(6);
}

std::string padded(std::string text) {
    pad(text);
    return text;
}

std::string peFile(const std::string& resource) {
    std::string root;
    auto folder = [&](uint32_t id, uint32_t next) {
        root += std::string(14, 0);
        put(root, 1, 2);
        put(root, id, 4);
        put(root, next, 4);
    };
    folder(16, 0x80000018);
    folder(1, 0x80000030);
    folder(0x409, 0x48);
    put(root, 0x1000 + 0x58, 4);
    put(root, resource.size(), 4);
    put(root, 0, 8);
    root += resource;
    std::string file = "MZ" + std::string(58, 0);
    put(file, 64, 4);
    file += std::string("PE\0\0", 4);
    put(file, 0x8664, 2);
    put(file, 1, 2);
    file += std::string(12, 0);
    put(file, 240, 2);
    put(file, 0, 2);
    std::string optional;
    put(optional, 0x20B, 2);
    optional += std::string(106, 0);
    put(optional, 16, 4);
    optional += std::string(16, 0);
    put(optional, 0x1000, 4);
    put(optional, root.size(), 4);
    file += optional + std::string(240 - optional.size(), 0);
    file += std::string(".rsrc\0\0\0", 8);
    put(file, root.size(), 4);
    put(file, 0x1000, 4);
    put(file, root.size(), 4);
    put(file, file.size() + 20, 4);
    file += std::string(16, 0);
    return file + root;
}

std::string sample() {
    std::string strings =
        padded(record("CompanyName", wide("Example"), "")) + record("FileVersion", wide("1.2.3"), "");
    std::string table = record("040904b0", "", strings);
    return peFile(record("VS_VERSION_INFO", std::string(52, 'f'), record("StringFileInfo", "", table)));
}

std::string elfFile(bool big, const std::string& json) {
    auto put = [big](std::string& out, uint64_t value, int width) {
        for (int i = 0; i < width; ++i)
            out.push_back(static_cast<char>(value >> (8 * (big ? width - 1 - i : i))));
    };
    std::string file = std::string("\177ELF") + '\1' + (big ? '\2' : '\1') + std::string(22, 0);
    put(file, 52, 4);
    file += std::string(10, 0);
    put(file, 32, 2);
    put(file, 1, 2);
    file += std::string(6, 0);
    std::string note;
    put(note, 4, 4);
    put(note, json.size(), 4);
    put(note, 0xCAFE1A7E, 4);
    note += std::string("FDO\0", 4) + json;
    put(file, 4, 4);
    put(file, 84, 4);
    put(file, 0, 8);
    put(file, note.size(), 4);
    put(file, 0, 8);
    put(file, 4, 4);
    return file + note;
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
