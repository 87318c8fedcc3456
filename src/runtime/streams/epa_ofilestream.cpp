// Output to files. Buffering is the C library's; errors of late writes surface in flush and close.

#include "runtime/streams/epa_ofilestream.h"

#include <cerrno>

#include "ipe/values/ipe_stringtype.h"

EPA_OFileStream::~EPA_OFileStream() = default;

void EPA_OFileStream::open(const EPA_FileName& name, std::string_view mode, bool noThrow) {
    close();
    name_ = name.text;
    int error = name.error ? name.error : platform::openStdio(name.bytes, mode, owned_);
    if (error && !noThrow) EPA_RaiseFileError(error, name_);
    file_ = owned_.get();
}

void EPA_OFileStream::open(std::string_view name, std::string_view mode, bool noThrow) {
    open(EPA_FileNameOf(IPE_String(name)), mode, noThrow);
}

void EPA_OFileStream::open(FILE* file, std::string_view name) {
    close();
    file_ = file;
    name_ = name;
}

FILE* EPA_OFileStream::require() {
    if (!file_) XPK_Raise("RuntimeError", "File stream is not open for writing").raise();
    return file_;
}

void EPA_OFileStream::flush() {
    if (file_ && std::fflush(file_) != 0) EPA_RaiseFileError(errno, name_);
}

void EPA_OFileStream::close() {
    FILE* file = std::exchange(file_, nullptr);
    if (!file) return;
    int error =
        owned_ ? (std::fclose(owned_.release()) == 0 ? 0 : errno) : (std::fflush(file) == 0 ? 0 : errno);
    if (error) EPA_RaiseFileError(error, name_);
}

void EPA_OFileStream::seek(int64_t offset, int origin) {
    if (::fseeko(require(), offset, origin) != 0) EPA_RaiseFileError(errno, name_);
}

int64_t EPA_OFileStream::tell() {
    off_t at = ::ftello(require());
    if (at < 0) EPA_RaiseFileError(errno, name_);
    return at;
}

void EPA_OFileStream::write(const void* bytes, size_t size) {
    FILE* file = require();
    if (size && std::fwrite(bytes, 1, size, file) != size) EPA_RaiseFileError(errno, name_);
}
