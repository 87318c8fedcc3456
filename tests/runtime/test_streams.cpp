// Byte channels: lines under limits, exact reads, positions, output; the programs `files` and `sockets` tell
// the rest.
#include <gtest/gtest.h>

#include "../ipe/values_testing.h"
#include "../platform/scratch.h"
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
std::string line(const IPE_Object& stream,
                 std::initializer_list<std::pair<const char*, int64_t>> keywords = {}) {
    IPE_Object dict = IPE_NewDict();
    for (auto& [name, value] : keywords) IPE_Dict_Set(dict, name, I(value));
    return str(stream->__call__(IPE_Arguments(nullptr, 0, dict)));
}

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
    IPE_Object stream = IPE_New<EPA_IFileStream>(scratch.file("f", "one\ntwo\n"));
    EXPECT_EQ(line(stream), "one");
    for (int i = 0; i < 2; ++i) stream.as<EPA_IFileStream>()->close();
    EXPECT_EQ(line(stream), "two") << "what was read stays readable";
    EXPECT_EQ(raised([&] { call(stream, "tellp"); }).substr(0, 18), "IOError: [Errno 9]");

    EPA_IStringStream memory(EPA_String("0123456789"));
    memory.seek(-3, SEEK_END);
    EXPECT_EQ(memory.tell(), 7);
    memory.seek(10, SEEK_SET);
    for (int64_t bad : {int64_t{-1}, int64_t{11}, INT64_MIN, INT64_MAX})
        EXPECT_EQ(raised([&] { memory.seek(bad, SEEK_SET); }), "IOError: [Errno 22] Invalid argument: ''");
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

}  // namespace
