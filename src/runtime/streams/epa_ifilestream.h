// EPA_IFileStream: an input stream over a file. Module `ipe.ifilestream` gives it to scripts.
//
// create(name, mode="rb", nothrow=0, binary=1). With nothrow a failed open gives a closed stream, which reads
// as an ended source. With binary=0 the bytes EF BB BF at the start are consumed. Script methods beside those
// of the base:
//   seekp(offset, origin="set")   origin "set" or "start", "cur", "end"; gives the new position
//   tellp()                       the position of the next byte that a read gives
// Failures raise IOError "[Errno $errno] $decode: '$name'".
#pragma once

#include "platform/pf_stdio.h"
#include "runtime/streams/epa_fileerror.h"
#include "runtime/streams/epa_istream.h"

class EPA_IFileStream : public EPA_IStream {
  public:
    EPA_IFileStream() = default;
    explicit EPA_IFileStream(std::string_view name) { open(name); }

    struct Options {
        bool noThrow = false;
        bool binary = true;
    };
    // Closes first. The name is UTF-8 text with either separator.
    void open(const EPA_FileName& name, std::string_view mode, Options options);
    void open(const EPA_FileName& name, std::string_view mode) { open(name, mode, Options()); }
    void open(std::string_view name);  // mode "rb"
    void close();                      // nothing on a closed stream
    bool isOpen() const noexcept { return file_ != nullptr; }
    const std::string& fileName() const noexcept { return name_; }
    // The file's own position, below the buffer.
    void seekRaw(int64_t offset, int origin);

    bool isEof() override;
    bool isClosed() override;
    size_t readRaw(void* buffer, size_t size) override;
    void seek(int64_t offset, int origin) override;
    int64_t tell() override;

    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

  protected:
    int methodNumber(std::string_view name) const override;

  private:
    IPE_Object seekp(const IPE_Arguments& arguments);

    platform::StdioFile file_;
    std::string name_;
};

// The module's function.
IPE_Object EPA_CreateIFileStream(const IPE_Arguments& arguments);
