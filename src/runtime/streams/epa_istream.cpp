// Reading of lines and blocks.
//
// The line reader works on runs: it looks for the line end with memchr and copies what stands before it, byte
// by byte only where a CR must be dropped or a limit watched. A source may give nothing for a while without
// having ended (a socket whose peer is slow); each empty read counts as a loop, so the script's limit also
// ends that, and so does the end of the process.

#include "runtime/streams/epa_istream.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_shutdown.h"
#include "runtime/streams/epa_ofilestream.h"

const char EPA_IStream::TypeName[] = "IStream";

namespace {
[[noreturn]] void raiseEof() { XPK_Raise("IOError", "stream eof").raise(); }
}  // namespace

EPA_LineLimits EPA_LineLimits::of(const IPE_Arguments& arguments) {
    EPA_LineLimits limits;
    if (!arguments.hasKeywords()) return limits;
    limits.maxLength = arguments.keywordInt("maxlength", 0);
    limits.maxLoops = arguments.keywordInt("maxloops", 0);
    limits.assertOnEof = arguments.keywordInt("assertoneof", 0) != 0;
    return limits;
}

bool EPA_IStream::refill() {
    started_ = true;
    if (eof_ || isEof()) {
        eof_ = true;
        return false;
    }
    // Not zeroed: a peer that sends short lines then costs one page of the block.
    if (!block_) block_.reset(new char[BlockSize]);
    cursor_ = end_ = 0;  // also when the read raises
    end_ = readRaw(block_.get(), BlockSize);
    if (end_ == 0 && (isClosed() || !XPK_IsRunning())) eof_ = true;
    return !eof_;
}

bool EPA_IStream::takeLine(EPA_StringBuffer& line, int64_t maxLength) {
    const char* from = block_.get() + cursor_;
    const char* stop = static_cast<const char*>(std::memchr(from, '\n', end_ - cursor_));
    const char* last = stop ? stop : block_.get() + end_;
    bool plain = maxLength <= 0 && !std::memchr(from, '\r', static_cast<size_t>(last - from));
    if (plain) {
        line.append(std::string_view(from, static_cast<size_t>(last - from)));
    } else {
        for (; from < last; ++from) {
            if (*from == '\r') continue;
            if (maxLength > 0 && line.length() >= static_cast<size_t>(maxLength)) {
                cursor_ = static_cast<size_t>(from - block_.get());
                XPK_Raise("IOLineLengthError", "readline > maxlength").raise();
            }
            line.append(*from);
        }
    }
    cursor_ = static_cast<size_t>(last - block_.get()) + (stop ? 1 : 0);
    return stop;
}

void EPA_IStream::readLine(EPA_StringBuffer& line, const EPA_LineLimits& limits) {
    line.truncate(0);
    started_ = true;
    for (int64_t loops = 0;;) {
        if (cursor_ < end_ && takeLine(line, limits.maxLength)) return;
        if (eof_ || isEof()) {
            eof_ = true;
            break;
        }
        const bool more = refill();
        if (limits.maxLoops > 0 && ++loops > limits.maxLoops) {
            XPK_Raise("IOLineLoopsError", "loops > maxloops").raise();
        }
        if (!more) break;
    }
    if (limits.assertOnEof) {
        XPK_Raise("IOReachedEOFError", "Reached EOF without seeing the CRLF").raise();
    }
}

size_t EPA_IStream::readSome(void* buffer, size_t size) {
    while (cursor_ >= end_) {
        if (!refill()) return 0;
    }
    size_t taken = std::min(size, end_ - cursor_);
    std::memcpy(buffer, block_.get() + cursor_, taken);
    cursor_ += taken;
    return taken;
}

void EPA_IStream::readExact(void* buffer, size_t size) {
    for (size_t done = 0; done < size;) {
        size_t got = readSome(static_cast<char*>(buffer) + done, size - done);
        if (got == 0) raiseEof();
        done += got;
    }
}

bool EPA_IStream::atEnd() {
    while (cursor_ >= end_) {
        if (!refill()) return true;
    }
    return false;
}

IPE_Object EPA_IStream::readLines(const EPA_LineLimits& limits) {
    IPE_Object list = IPE_NewList();
    while (!atEnd()) {
        readLine(line_, limits);
        list.as<IPE_ListType>()->append(IPE_String(line_.view()));
    }
    return list;
}

void EPA_IStream::copyToFile(const IPE_Object& name, int64_t count) {
    XPK_Assert(count >= 0);
    EPA_OFileStream file;
    file.open(EPA_FileNameOf(name), "wb");
    std::vector<char> block(static_cast<size_t>(std::min<int64_t>(count, CopyBlock)));
    while (count > 0 && XPK_IsRunning()) {
        size_t got = readSome(block.data(), static_cast<size_t>(std::min<int64_t>(count, CopyBlock)));
        if (got == 0) raiseEof();
        file.write(block.data(), got);
        count -= static_cast<int64_t>(got);
    }
    file.close();
}

IPE_Object EPA_IStream::__call__(const IPE_Arguments& arguments) {
    if (!arguments.hasKeyword("bytes")) {
        readLine(line_, EPA_LineLimits::of(arguments));
        return IPE_String(line_.view());
    }
    int64_t bytes = arguments.keywordInt("bytes", 0);
    XPK_Assert(bytes >= 0 && bytes < ExactLimit);
    IPE_Object text = IPE_StringType::makeUninitialised(static_cast<size_t>(bytes));
    readExact(text.as<IPE_StringType>()->data(), static_cast<size_t>(bytes));
    std::string_view whole = text.as<IPE_StringType>()->view();
    // A string ends at its first NUL, as every text of the language does.
    return whole.find('\0') == std::string_view::npos ? text : IPE_String(whole);
}

int EPA_IStream::methodNumber(std::string_view name) const {
    if (name == "readlines") return ReadLines;
    if (name == "copytofile") return CopyToFile;
    return -1;
}

IPE_Object EPA_IStream::__getattr__(const IPE_Object& key, int depth) {
    int method = methodNumber(key->c_str());
    return method < 0 ? IPE_Type::__getattr__(key, depth) : IPE_MethodOf(this, method);
}

IPE_Object EPA_IStream::__callmethod__(int method, const IPE_Arguments& arguments) {
    switch (method) {
        case ReadLines: return readLines(EPA_LineLimits::of(arguments));
        case CopyToFile:
            arguments.check("oi", "copytofile");
            copyToFile(arguments[0], arguments.integer(1));
            return {};
        default: return {};
    }
}
