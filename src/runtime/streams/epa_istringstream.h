// EPA_IStringStream: an input stream over a text in memory.
#pragma once

#include "runtime/epa_string.h"
#include "runtime/streams/epa_istream.h"

class EPA_IStringStream : public EPA_IStream {
  public:
    explicit EPA_IStringStream(EPA_String data) : data_(std::move(data)) {}

    bool isEof() override { return position_ >= data_.length(); }
    bool isClosed() override { return isEof(); }
    size_t readRaw(void* buffer, size_t size) override;
    // A position outside the data raises IOError with EINVAL, "Invalid argument"; the end itself is inside.
    void seek(int64_t offset, int origin) override;
    int64_t tell() override { return position_ - static_cast<int64_t>(buffered()); }

  private:
    EPA_String data_;
    int64_t position_ = 0;
};
