// EPA_OFileStream: an output stream to a file.
#pragma once

#include <cstdio>

#include "platform/pf_stdio.h"
#include "runtime/streams/epa_fileerror.h"
#include "runtime/streams/epa_ostream.h"

class EPA_OFileStream : public EPA_OStream {
  public:
    EPA_OFileStream() = default;
    ~EPA_OFileStream() override;

    // Closes first. `mode` is the C library's. Failure raises IOError "[Errno $errno] $decode: '$name'", or
    // with `noThrow` leaves the stream closed.
    void open(const EPA_FileName& name, std::string_view mode, bool noThrow = false);
    void open(std::string_view name, std::string_view mode, bool noThrow = false);
    // Wraps a file that stays its owner's: neither close nor destruction closes it.
    void open(FILE* file, std::string_view name);

    bool isOpen() override { return file_ != nullptr; }
    void flush() override;
    void reset() override {}  // what a file has taken stays
    // Raises IOError when the last buffered bytes cannot be written. Nothing on a closed stream.
    void close() override;
    void seek(int64_t offset, int origin) override;
    int64_t tell() override;
    // RuntimeError "File stream is not open for writing" on a closed stream.
    void write(const void* bytes, size_t size) override;
    using EPA_OStream::write;
    const std::string& fileName() const noexcept { return name_; }

  private:
    FILE* require();

    platform::StdioFile owned_;
    FILE* file_ = nullptr;
    std::string name_;
};
