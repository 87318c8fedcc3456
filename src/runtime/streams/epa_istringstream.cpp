// Input from a text. The data are shared, not copied; the block buffer above serves lines as it does for
// files.

#include "runtime/streams/epa_istringstream.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "runtime/streams/epa_fileerror.h"

size_t EPA_IStringStream::readRaw(void* buffer, size_t size) {
    size_t got = std::min(size, data_.length() - static_cast<size_t>(position_));
    std::memcpy(buffer, data_.c_str() + position_, got);
    position_ += static_cast<int64_t>(got);
    return got;
}

void EPA_IStringStream::seek(int64_t offset, int origin) {
    int64_t base = origin == SEEK_END ? data_.length() : origin == SEEK_CUR ? tell() : 0;
    bool inside =
        origin >= SEEK_SET && origin <= SEEK_END && offset >= -base && offset <= data_.length() - base;
    if (!inside) EPA_RaiseFileError(EINVAL, "Invalid argument", "");
    position_ = base + offset;
    dropBuffer();
}
