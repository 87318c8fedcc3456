// File objects: lines, blocks, encodings, digests, saved values, and every named failure.
#include <gtest/gtest.h>
#include <zlib.h>

#include "../platform/scratch.h"
#include "components/netcode.h"
#include "ipe/builtins/ipe_filetype.h"
#include "ipe/nt/ipe_dirtyutf16type.h"
#include "ipe/values/ipe_packed.h"
#include "values_testing.h"

namespace {

using Files = ValuesTest;

IPE_Object openFile(const IPE_Object& path, std::string_view mode = "r", IPE_Object keywords = {}) {
    IPE_Object items[] = {path, S(mode)};
    return IPE_Open(IPE_Arguments(items, 2, keywords));
}
IPE_Object openFile(const std::string& path, std::string_view mode = "r", IPE_Object keywords = {}) {
    return openFile(S(path), mode, keywords);
}
IPE_Object with(std::initializer_list<std::string_view> names) {
    IPE_Object keywords = IPE_NewDict();
    for (auto name : names) IPE_Dict_Set(keywords, name, IPE_True());
    return keywords;
}

std::string packedBlock(std::string_view text, bool swapped, int64_t claim = -1) {
    uLongf size = compressBound(text.size());
    std::string block(size, 0);
    compress(reinterpret_cast<Bytef*>(block.data()), &size, reinterpret_cast<const Bytef*>(text.data()),
             text.size());
    block.resize(size);
    uint32_t length = static_cast<uint32_t>(claim < 0 ? text.size() : claim);
    if (swapped) length = __builtin_bswap32(length);
    return block + std::string(reinterpret_cast<char*>(&length), 4);
}

TEST_F(Files, Lines) {
    Scratch scratch;
    std::string longLine(10000, 'x');
    IPE_Object file = openFile(scratch.file("f", "a\r\n\n" + longLine + "\nlast"));
    EXPECT_TRUE(file->__nonzero__());
    EXPECT_EQ(str(call(file, "readline")), "a\r\n");
    EXPECT_EQ(str(call(file, "readline")), "\n");
    EXPECT_EQ(str(call(file, "readline")), longLine + "\n");
    EXPECT_EQ(str(call(file, "readline")), "last");
    EXPECT_EQ(str(call(file, "readline")), "");
    EXPECT_FALSE(file->__nonzero__());
    EXPECT_EQ(repr(call(openFile(scratch.file("g", "a\n\nb\n")), "readlines")),
              repr(L({S("a\n"), S("\n"), S("b\n")})));
    EXPECT_EQ(repr(call(openFile(scratch.file("h", "a\nb")), "readlines")), repr(L({S("a\n"), S("b")})));
    EXPECT_EQ(repr(call(openFile(scratch.file("i", "")), "readlines")), "[]");
}

TEST_F(Files, OpeningAndClosing) {
    Scratch scratch;
    std::string missing = scratch / "missing";
    EXPECT_EQ(raised([&] { openFile(missing); }),
              "IOError: [Errno 2] No such file or directory: '" + missing + "'");
    EXPECT_EQ(raised([&] { openFile(scratch.path()); }).substr(0, 19), "IOError: [Errno 21]");
    EXPECT_EQ(raised([&] { openFile(missing, "q"); }).substr(0, 19), "IOError: [Errno 22]");
    EXPECT_EQ(raised([&] { openFile(missing, "r,ccs=UTF-16"); }).substr(0, 19), "IOError: [Errno 22]");
    EXPECT_EQ(raised([&] { openFile(I(5)); }), "TypeError: Require a 'StringType' but given a 'IntType'");
    std::string dirty = scratch.file("\xFF\\", "found");
    IPE_Object name = L({S(scratch.path()), IPE_New<IPE_DirtyUTF16Type>(std::u16string(u"\xDCFF\xDC5C"))});
    EXPECT_EQ(str(call(openFile(name), "readline")), "found");
    IPE_Object file = openFile(scratch.path() + "\\new", "w");
    call(file, "write", {S("text")});
    EXPECT_TRUE(call(file, "close").is<IPE_NoneType>());
    EXPECT_EQ(slurp(scratch / "new"), "text");
    EXPECT_FALSE(file->__nonzero__());
    for (const char* method :
         {"readline", "readlines", "close", "load", "md5", "sha1", "load_base64", "read_U32"}) {
        EXPECT_EQ(raised([&] { call(file, method); }), "ValueError: I/O operation on closed file") << method;
    }
    EXPECT_EQ(raised([&] { call(file, "write", {I(1)}); }), "ValueError: I/O operation on closed file");
    EXPECT_EQ(raised([&] { call(file, "seek"); }).substr(0, 26), "AttributeNotFoundException");
    IPE_Object full = openFile("/dev/full", "w");
    call(full, "write", {S("x")});
    EXPECT_EQ(raised([&] { call(full, "close"); }),
              "IOError: [Errno 28] No space left on device: '/dev/full'");
    EXPECT_EQ(raised([&] { call(openFile("/dev/full", "w"), "readline"); }).substr(0, 18),
              "IOError: [Errno 9]");
}

TEST_F(Files, WritingAndTurning) {
    Scratch scratch;
    std::string path = scratch / "f";
    IPE_Object file = openFile(path, "w+");
    call(file, "write", {S("h\u00e9")});
    call(file, "write", {L({I(1), S("x")})});
    call(file, "write", {S("\u20ac\U0001F600")}, with({"utf16"}));
    call(file, "close");
    EXPECT_EQ(slurp(path), "h\u00e9" + repr(L({I(1), S("x")})) + std::string("\xAC\x20\x3D\xD8\x00\xDE", 6));
    IPE_Object wide = openFile(path, "w", with({"utf16"}));
    call(wide, "write", {S("ab")});
    call(wide, "close");
    EXPECT_EQ(slurp(path), std::string("a\0b\0", 4));
    // utf16=0 decides alone.
    call(openFile(path, "w", D({{S("utf16"), I(0)}, {S("native"), I(1)}})), "write", {S("\u00e9")});
    EXPECT_EQ(slurp(path), "\u00e9");
    IPE_Object both = openFile(scratch.file("g", "one\ntwo\nthree\n"), "r+");
    EXPECT_EQ(str(call(both, "readline")), "one\n");
    call(both, "write", {S("TWO")});
    EXPECT_EQ(str(call(both, "readline")), "\n");
    call(both, "close");
    EXPECT_EQ(slurp(scratch / "g"), "one\nTWO\nthree\n");
}

TEST_F(Files, Blocks) {
    Scratch scratch;
    std::string bytes("A\0BC", 4);
    IPE_Object file = openFile(scratch.file("f", bytes + bytes + "\x01\x02\x03\x84xy"));
    EXPECT_EQ(str(call(file, "read", {I(4)})), "A");
    EXPECT_EQ(str(call(file, "read", {I(4)}, with({"as_base64"}))), "QQBCQw==");
    EXPECT_EQ(call(file, "read_U32")->__int__(), 0x84030201);
    EXPECT_EQ(raised([&] { call(file, "read_U32"); }).substr(0, 19), "IOError: [Errno 61]");
    EXPECT_EQ(raised([&] { call(file, "read", {I(3)}); }).substr(0, 19), "IOError: [Errno 61]");
    for (int64_t size : {int64_t{-1}, int64_t{0x40000000}}) {
        EXPECT_EQ(raised([&] { call(file, "read", {I(size)}); }).substr(0, 14), "AssertionError");
    }
    EXPECT_EQ(
        raised([&] { call(openFile("/dev/zero"), "read", {I(0x3200000)}, with({"is_zlib"})); }).substr(0, 14),
        "AssertionError");

    std::string text = "{'a': [1, 2]}";
    for (bool swapped : {false, true}) {
        std::string block = packedBlock(text, swapped);
        IPE_Object packed = openFile(scratch.file("z", block + block));
        IPE_Object size = I(static_cast<int64_t>(block.size() - 4));
        EXPECT_EQ(str(call(packed, "read", {size}, with({"is_zlib"}))), text);
        EXPECT_EQ(repr(call(packed, "readeval", {size}, with({"is_zlib", "is_utf8"}))),
                  repr(D({{S("a"), L({I(1), I(2)})}})));
    }
    std::string zeros(10 << 20, '\0'), good = packedBlock(zeros, false);
    IPE_Object big = openFile(scratch.file("big", good));
    IPE_Object all =
        call(big, "read", {I(static_cast<int64_t>(good.size() - 4))}, with({"is_zlib", "as_base64"}));
    EXPECT_EQ(all.as<IPE_StringType>()->bytes(), ((10u << 20) + 2) / 3 * 4);
    std::string torn = packedBlock(text, false);
    torn[5] = static_cast<char>(~torn[5]);
    for (const std::string& bad : {torn, packedBlock(text, false, 3), packedBlock(text, true, 0xFFFFFFFF),
                                   packedBlock(text, false, 12)}) {
        IPE_Object damaged = openFile(scratch.file("bad", bad));
        EXPECT_EQ(raised([&] {
                      call(damaged, "read", {I(static_cast<int64_t>(bad.size() - 4))}, with({"is_zlib"}));
                  }).substr(0, 14),
                  "AssertionError");
    }
    EXPECT_EQ(
        str(call(openFile(scratch.file("e", "'a\xFF'")), "readeval", {I(4)}, with({"is_utf8", "sanitize"}))),
        "a\U0010FFF02FF");
    EXPECT_EQ(raised([&] {
                  call(openFile(scratch.file("e", "sys_exit()")), "readeval", {I(10)}, with({"is_utf8"}));
              }).substr(0, 18),
              "IPESyntaxException");
}

TEST_F(Files, DigestsAndBase64) {
    Scratch scratch;
    IPE_Object file = openFile(scratch.file("f", "abc"));
    EXPECT_EQ(str(call(file, "md5")), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(str(call(file, "sha1")), "a9993e364706816aba3e25717850c26c9cd0d89d");
    EXPECT_EQ(str(call(file, "load_base64", {I(1), I(5)})), "YmM=");
    EXPECT_EQ(str(call(file, "load_base64")), "");
    call(file, "load_base64", {I(0), I(1)});
    EXPECT_EQ(str(call(file, "load_base64")), "YmM=");
    std::string huge = scratch.file("huge");
    ASSERT_EQ(::truncate(huge.c_str(), 0xA00000), 0);
    EXPECT_EQ(str(call(openFile(huge), "md5")), "F1C9645DBC14EFDDC7D8A322685F26EB");
    ASSERT_EQ(::truncate(huge.c_str(), 0xA00001), 0);
    std::string text = "IOError: [Errno 1] in memory file operation on file > 10MB: '" + huge + "'";
    for (const char* method : {"md5", "sha1", "load_base64"}) {
        EXPECT_EQ(raised([&] { call(openFile(huge), method); }), text);
    }
    std::string target = scratch / "out";
    IPE_Object out = openFile(target, "w");
    call(out, "save_base64", {S("AAEC")});
    std::string base64 = IPE_PackText("packed");
    call(out, "save_base64", {S(base64)}, with({"zlib"}));
    EXPECT_EQ(raised([&] { call(out, "save_base64", {S("!")}); }).substr(0, 14), "AssertionError");
    EXPECT_EQ(raised([&] { call(out, "save_base64", {S("AAEC")}, with({"zlib"})); }).substr(0, 14),
              "AssertionError");
    call(out, "close");
    EXPECT_EQ(slurp(target).substr(0, 9), std::string("\0\1\2packed", 9));
}

TEST_F(Files, SavedValues) {
    Scratch scratch;
    std::string path = scratch / "f";
    IPE_Object value = D({{S("k"), L({I(-5), T({IPE_None(), S("\u20ac")})})}, {I(1), F(0.5)}});
    IPE_Object out = openFile(path, "w");
    call(out, "save", {value});
    call(out, "save", {I(7)});
    call(out, "close");
    EXPECT_EQ(slurp(path).substr(0, 12), std::string("IBF\x1A\0\0\0\2\0\0\0\0", 12));
    IPE_Object in = openFile(path);
    EXPECT_EQ(call(in, "load")->__cmp__(value), 0);
    EXPECT_EQ(call(in, "load")->__int__(), 7);
    EXPECT_EQ(raised([&] { call(in, "load"); }), "IOError: stream eof");
    EXPECT_EQ(raised([&] { call(openFile(scratch.file("g", "X")), "load"); }).substr(0, 14),
              "AssertionError");
}

}  // namespace
