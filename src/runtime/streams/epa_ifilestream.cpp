// Input from files.
//
// Positions are those that a reader sees: a seek relative to the current place and a tell take the bytes into
// account that wait in the block buffer, and a seek drops them.

#include "runtime/streams/epa_ifilestream.h"

#include <cerrno>
#include <cstring>

#include "ipe/object/ipe_moduleregistry.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

void EPA_IFileStream::open(const EPA_FileName& name, std::string_view mode, Options options) {
    close();
    dropBuffer();
    name_ = name.text;
    int error = name.error ? name.error : platform::openStdio(name.bytes, mode, file_);
    if (error && !options.noThrow) EPA_RaiseFileError(error, name_);
    if (error || options.binary) return;
    char mark[3];
    size_t got = readRaw(mark, sizeof mark);
    if (got != sizeof mark || std::memcmp(mark, "\xEF\xBB\xBF", sizeof mark) != 0) seekRaw(0, SEEK_SET);
}

void EPA_IFileStream::open(std::string_view name) { open(EPA_FileNameOf(IPE_String(name)), "rb"); }

void EPA_IFileStream::close() { file_.reset(); }

void EPA_IFileStream::seekRaw(int64_t offset, int origin) {
    if (!file_) EPA_RaiseFileError(EBADF, name_);
    if (::fseeko(file_.get(), offset, origin) != 0) EPA_RaiseFileError(errno, name_);
}

bool EPA_IFileStream::isEof() { return !file_ || std::feof(file_.get()); }

bool EPA_IFileStream::isClosed() { return isEof(); }

size_t EPA_IFileStream::readRaw(void* buffer, size_t size) {
    if (!file_ || size == 0) return 0;
    size_t got = std::fread(buffer, 1, size, file_.get());
    if (got == 0 && std::ferror(file_.get())) EPA_RaiseFileError(errno, name_);
    return got;
}

void EPA_IFileStream::seek(int64_t offset, int origin) {
    if (origin == SEEK_CUR) {
        offset += tell();
        origin = SEEK_SET;
    }
    seekRaw(offset, origin);
    dropBuffer();
}

int64_t EPA_IFileStream::tell() {
    if (!file_) EPA_RaiseFileError(EBADF, name_);
    off_t at = ::ftello(file_.get());
    if (at < 0) EPA_RaiseFileError(errno, name_);
    return static_cast<int64_t>(at) - static_cast<int64_t>(buffered());
}

int EPA_IFileStream::methodNumber(std::string_view name) const {
    if (name == "seekp") return SeekP;
    if (name == "tellp") return TellP;
    return EPA_IStream::methodNumber(name);
}

IPE_Object EPA_IFileStream::seekp(const IPE_Arguments& arguments) {
    arguments.check("i", "seekp");
    IPE_Object origin = arguments.keyword("origin");
    std::string_view text = origin.isNull() ? "set" : origin->c_str();
    int from = text == "end" ? SEEK_END : text == "cur" ? SEEK_CUR : SEEK_SET;
    if (from == SEEK_SET && text != "set" && text != "start") EPA_RaiseFileError(EINVAL, name_);
    seek(arguments.integer(0), from);
    return IPE_Int(tell());
}

IPE_Object EPA_IFileStream::__callmethod__(int method, const IPE_Arguments& arguments) {
    if (method == SeekP) return seekp(arguments);
    if (method == TellP) return IPE_Int(tell());
    return EPA_IStream::__callmethod__(method, arguments);
}

IPE_Object EPA_CreateIFileStream(const IPE_Arguments& arguments) {
    arguments.check("o|", "create");
    IPE_Object stream = IPE_New<EPA_IFileStream>();
    IPE_Object mode = arguments.keyword("mode");
    EPA_IFileStream::Options options;
    options.noThrow = arguments.keywordInt("nothrow", 0) != 0;
    options.binary = arguments.keywordInt("binary", 1) != 0;
    stream.as<EPA_IFileStream>()->open(EPA_FileNameOf(arguments[0]), mode.isNull() ? "rb" : mode->c_str(),
                                       options);
    stream->__bind__();
    return stream;
}

namespace {
const IPE_NativeModule registered("ipe.ifilestream", "create", EPA_CreateIFileStream);
}  // namespace
