// IPE_FileType: the file object that `open` gives to scripts.
//
// open(path, mode="r", utf16=..., native=...): a true keyword `utf16` makes `write` give UTF-16 in the host's
// order, a true `native` the code page of the process; `utf16` alone decides when it is present. Every
// failure of a file is IOError "[Errno $errno] $decode: '$name'"; a method on a closed file raises ValueError
// "I/O operation on closed file". A file that ends before a read is satisfied has the number ENODATA.
//
// Methods:
//   readline()                       the next line with its newline, "" at the end
//   readlines()                      list of the lines left
//   read(size, is_zlib, as_base64)   exactly `size` bytes up to the first NUL; all of them as Base64
//   readeval(size, is_zlib, is_utf8, sanitize)   the value of a literal read so
//   read_U32()                       4 bytes in the host's order
//   write(value, utf16)              the text of a string, the representation of anything else
//   save(value), load()              an object file (ipe/values/ipe_savedreader.h)
//   md5(), sha1()                    digests of the whole file, upper and lower case; up to 10 MB
//   xmltokens(strict=True)           list of the XML tokens of what is left (ipe/xml/ipe_pyxparser.h)
//   load_base64([offset, length])    a block, by default the rest, up to 10 MB
//   save_base64(text, zlib)          writes what the text decodes to, inflated when it is a packed block
//   close()
//
// True while open and not at the end. Closes on destruction. Belongs to one thread at a time.
#pragma once

#include <string>

#include "ipe/object/ipe_arguments.h"
#include "ipe/object/ipe_type.h"
#include "platform/pf_stdio.h"
#include "runtime/epa_string.h"
#include "runtime/streams/epa_fileerror.h"

class IPE_FileType final : public IPE_Type {
  public:
    static const char TypeName[];
    enum Encoding { Bytes = 0, Utf16 = 1, Native = 2 };
    static constexpr int64_t DigestLimit = 0xA00000;   // bytes of md5, sha1, load_base64
    static constexpr int64_t PackedLimit = 0x3200000;  // sizes from here on are assertions
    static constexpr int64_t ReadLimit = 0x40000000;   // likewise, for a plain read

    // Opens, or raises IOError.
    IPE_FileType(const EPA_FileName& name, std::string_view mode, Encoding encoding);

    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    bool __nonzero__() override;

    // For native readers and writers of whole files, such as the streams. Raise as the methods do.
    size_t readSome(void* buffer, size_t size);
    void writeBytes(std::string_view bytes);
    int64_t seek(int64_t offset, int origin);  // gives the new position
    void close();
    const EPA_String& name() const noexcept { return name_; }
    const EPA_String& mode() const noexcept { return mode_; }

  private:
    enum class Direction { None, Reading, Writing };
    FILE* require();
    // The C library wants a seek between reads and writes of one file.
    FILE* turn(Direction direction);
    [[noreturn]] void fail(int error);

    IPE_Object readLine();
    IPE_Object readLines();
    void readBytes(int64_t size);   // into readBuffer_
    void readPacked(int64_t size);  // likewise, inflated
    void readBlock(const IPE_Arguments& arguments, int64_t limit);
    IPE_Object read(const IPE_Arguments& arguments);
    IPE_Object readEval(const IPE_Arguments& arguments);
    uint32_t readU32();
    IPE_Object digest(bool sha1);
    IPE_Object xmlTokens(const IPE_Arguments& arguments);
    IPE_Object loadBase64(const IPE_Arguments& arguments);
    void saveBase64(const IPE_Arguments& arguments);
    void write(const IPE_Arguments& arguments);
    void saveValue(const IPE_Object& value);
    IPE_Object loadValue();

    platform::StdioFile file_;
    EPA_String name_;
    EPA_String mode_;
    std::string lineBuffer_;
    std::string readBuffer_;
    Encoding encoding_;
    Direction direction_ = Direction::None;
};

// The built-in function `open`, spec "o|s".
IPE_Object IPE_Open(const IPE_Arguments& arguments);
