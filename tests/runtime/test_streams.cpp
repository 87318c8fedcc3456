// Byte channels: lines under limits, exact reads, positions, copies.
#include <gtest/gtest.h>

#include "../ipe/values_testing.h"
#include "../platform/scratch.h"
#include "ipe/object/ipe_moduletype.h"
#include "runtime/streams/epa_ifilestream.h"
#include "runtime/streams/epa_istringstream.h"
#include "runtime/streams/epa_ofilestream.h"

namespace {

using Streams = ValuesTest;

// Gives one byte at a time, and nothing at every second read.
class SlowStream : public EPA_IStream {
  public:
    explicit SlowStream(std::string text) : text_(std::move(text)) {}
    bool isEof() override { return false; }
    bool isClosed() override { return at_ >= text_.size(); }
    size_t readRaw(void* buffer, size_t) override {
        if (++reads_ % 2 || at_ >= text_.size()) return 0;
        *static_cast<char*>(buffer) = text_[at_++];
        return 1;
    }
    void seek(int64_t, int) override {}
    int64_t tell() override { return static_cast<int64_t>(at_); }

  private:
    std::string text_;
    size_t at_ = 0;
    int reads_ = 0;
};

IPE_Object text(std::string_view data) { return IPE_New<EPA_IStringStream>(EPA_String(data)); }
IPE_Object read(const IPE_Object& stream,
                std::initializer_list<std::pair<const char*, int64_t>> keywords = {}) {
    IPE_Object dict = IPE_NewDict();
    for (auto& [name, value] : keywords) IPE_Dict_Set(dict, name, I(value));
    return stream->__call__(IPE_Arguments(nullptr, 0, dict));
}
std::string line(const IPE_Object& stream,
                 std::initializer_list<std::pair<const char*, int64_t>> keywords = {}) {
    return str(read(stream, keywords));
}

// Lines in pieces and their limits: the fuzz target of the line reader; what scripts get of them: the program
// `sockets`.
TEST_F(Streams, Lines) {
    EXPECT_EQ(line(text("part"), {{"assertoneof", 0}}), "part");
    EXPECT_EQ(line(text("12345\r\n"), {{"maxlength", 5}}), "12345") << "CR does not count";
    std::string huge(300000, 'x');
    EXPECT_EQ(line(text(huge + "\nnext")), huge) << "longer than the block";
    EXPECT_EQ(repr(call(text(""), "readlines")), "[]");
    EXPECT_EQ(line(IPE_New<SlowStream>("ab\n"), {{"maxloops", 6}}), "ab");
    EXPECT_EQ(raised([] {
                  line(IPE_New<SlowStream>("abcdefgh\n"), {{"maxloops", 6}});
              }),
              "IOLineLoopsError: loops > maxloops");
    EXPECT_EQ(line(IPE_New<SlowStream>("abc"), {{"bytes", 3}}), "abc");
    EXPECT_EQ(raised([] { line(IPE_New<SlowStream>("abc"), {{"bytes", 4}}); }), "IOError: stream eof");
    for (int64_t size : {int64_t{1048576}, int64_t{-1}})
        EXPECT_EQ(raised([&] { line(text("x"), {{"bytes", size}}); }).substr(0, 14), "AssertionError");
}

TEST_F(Streams, Positions) {
    Scratch scratch;
    IPE_Object stream = IPE_New<EPA_IFileStream>(scratch.file("f", "one\ntwo\nthree\n"));
    EXPECT_EQ(line(stream), "one");
    EXPECT_EQ(call(stream, "tellp")->__int__(), 4) << "the buffer holds the rest already";
    const std::tuple<int64_t, IPE_Object, int64_t, const char*> seeks[] = {
        {4, D({{S("origin"), S("cur")}}), 8, "three"},
        {-6, D({{S("origin"), S("end")}}), 8, "three"},
        {0, {}, 0, "one"}};
    for (auto& [to, origin, at, next] : seeks) {
        EXPECT_EQ(call(stream, "seekp", {I(to)}, origin)->__int__(), at);
        EXPECT_EQ(line(stream), next);
    }
    EXPECT_EQ(raised([&] { call(stream, "seekp", {I(-1)}); }).substr(0, 19), "IOError: [Errno 22]");
    auto* file = stream.as<EPA_IFileStream>();
    file->close();
    file->close();
    EXPECT_EQ(line(stream, {}), "two") << "what was read stays readable";
    EXPECT_EQ(raised([&] { call(stream, "tellp"); }).substr(0, 18), "IOError: [Errno 9]");

    EPA_IStringStream memory(EPA_String("0123456789"));
    memory.seek(-3, SEEK_END);
    EXPECT_EQ(memory.tell(), 7);
    memory.seek(10, SEEK_SET);
    for (int64_t bad : {int64_t{-1}, int64_t{11}, INT64_MIN, INT64_MAX}) {
        EXPECT_EQ(raised([&] { memory.seek(bad, SEEK_SET); }), "IOError: [Errno 22] Invalid argument: ''");
    }
}

TEST_F(Streams, FileModule) {
    Scratch scratch;
    // The component publishes the module; all components together would start the whole server.
    IPE_Object create = IPE_New<IPE_BridgeType>(EPA_CreateIFileStream);
    auto open = [&](const std::string& path, IPE_Object keywords = {}) {
        IPE_Object name = S(path);
        return create->__call__(IPE_Arguments(&name, 1, keywords));
    };
    std::string marked = scratch.file("marked", "\xEF\xBB\xBFtext"), plain = scratch.file("plain", "ab");
    EXPECT_EQ(line(open(marked)), "\xEF\xBB\xBFtext");
    EXPECT_EQ(line(open(marked, D({{S("binary"), I(0)}}))), "text");
    EXPECT_EQ(line(open(plain, D({{S("binary"), I(0)}}))), "ab");
    std::string missing = scratch / "missing";
    EXPECT_EQ(raised([&] { open(missing); }),
              "IOError: [Errno 2] No such file or directory: '" + missing + "'");
    IPE_Object closed = open(missing, D({{S("nothrow"), I(1)}}));
    EXPECT_EQ(line(closed), "");
    EXPECT_EQ(raised([&] { line(closed, {{"bytes", 1}}); }), "IOError: stream eof");
}

TEST_F(Streams, Output) {
    Scratch scratch;
    std::string path = scratch / "out";
    IPE_Object stream = IPE_New<EPA_OFileStream>();
    auto* file = stream.as<EPA_OFileStream>();
    EXPECT_EQ(raised([&] { file->write("x"); }), "RuntimeError: File stream is not open for writing");
    file->open(path, "wb");
    IPE_Object items[] = {S("a"), I(12), L({I(1)})};
    stream->__call__(IPE_Arguments(items, 3, D({{S("flush"), IPE_True()}})));
    EXPECT_EQ(slurp(path), "a12" + str(L({I(1)})));
    file->close();
    EXPECT_FALSE(file->isOpen());
    file->open(scratch / "no/such", "wb", true);
    EXPECT_FALSE(file->isOpen());
    EXPECT_EQ(raised([&] { file->open(scratch / "no/such", "wb"); }).substr(0, 18), "IOError: [Errno 2]");
    file->open("/dev/full", "wb");
    file->write("x");
    EXPECT_EQ(raised([&] { file->close(); }).substr(0, 19), "IOError: [Errno 28]");
    FILE* own = std::fopen(path.c_str(), "wb");
    {
        EPA_OFileStream wrapper;
        wrapper.open(own, path);
        wrapper.write("kept");
    }
    std::fputs(" open", own);
    std::fclose(own);
    EXPECT_EQ(slurp(path), "kept open");
}

TEST_F(Streams, CopyToFile) {
    Scratch scratch;
    std::string data(400000, 'd'), path = scratch / "copy";
    IPE_Object stream = text("head\n" + data + "tail");
    EXPECT_EQ(line(stream), "head");
    call(stream, "copytofile", {S(path), I(400000)});
    EXPECT_EQ(slurp(path), data);
    EXPECT_EQ(line(stream), "tail");
    EXPECT_EQ(raised([&] { call(stream, "copytofile", {S(path), I(1)}); }), "IOError: stream eof");
    EXPECT_EQ(raised([&] { call(stream, "copytofile", {S(path), I(-1)}); }).substr(0, 14), "AssertionError");
}

}  // namespace
