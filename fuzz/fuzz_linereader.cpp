// The line reader of the input streams over any bytes, which come in pieces and now and then not at all.
// Without limits the lines are those of the text; with limits a line is never longer than allowed and every
// error is one of the three by name.
//
// Bytes: pieces, maxlength, maxloops, a flag for assertoneof, then the text.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_target.h"
#include "runtime/streams/epa_istream.h"

namespace {

class Pieces final : public EPA_IStream {
  public:
    Pieces(std::string_view text, uint8_t seed) : left_(text), seed_(seed) {}
    bool isEof() override { return false; }
    bool isClosed() override { return left_.empty(); }
    size_t readRaw(void* buffer, size_t size) override {
        seed_ = seed_ * 5 + 3;
        size_t taken = std::min({size, left_.size(), size_t(seed_ >> 3) % 9});
        memcpy(buffer, left_.data(), taken);
        left_.remove_prefix(taken);
        return taken;
    }
    void seek(int64_t, int) override {}
    int64_t tell() override { return 0; }

  private:
    std::string_view left_;
    unsigned seed_;
};

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        size_t end = std::min(text.find('\n'), text.size());
        std::string line(text.substr(0, end));
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

void readLimited(Pieces& stream, const EPA_LineLimits& limits, size_t most) {
    EPA_StringBuffer line;
    for (size_t count = 0; !stream.atEnd(); ++count) {
        if (count > most) abort();  // it must come forward, errors or not
        try {
            stream.readLine(line, limits);
        } catch (const XPK_Exception& error) {
            if (error.type() != "IOLineLengthError" && error.type() != "IOLineLoopsError" &&
                error.type() != "IOReachedEOFError")
                abort();
            continue;
        }
        if (limits.maxLength > 0 && line.length() > static_cast<size_t>(limits.maxLength)) abort();
        if (line.view().find_first_of("\r\n") != std::string_view::npos) abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    std::string_view text = fuzzText(data + 4, size - 4);
    fuzzRun([&] {
        IPE_Object plain = IPE_New<Pieces>(text, data[0]);
        auto& stream = *static_cast<Pieces*>(plain.get());
        EPA_StringBuffer line;
        for (const std::string& want : linesOf(text)) {
            stream.readLine(line);
            if (line.view() != want) abort();
        }
        if (!stream.atEnd()) abort();

        EPA_LineLimits limits;
        limits.maxLength = data[1];
        limits.maxLoops = data[2];
        limits.assertOnEof = data[3] & 1;
        IPE_Object limited = IPE_New<Pieces>(text, data[0]);
        readLimited(*static_cast<Pieces*>(limited.get()), limits, text.size() + 1);
    });
    return 0;
}
