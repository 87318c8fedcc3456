// File objects.
//
// A file object is a C library file and little more; what it adds is the error report, the block forms and
// the rule that sizes come from scripts and files and are therefore not believed: a read grows its buffer
// with what really arrives, and an inflated block with what the stream really gives, up to the length that
// the block declares.

#include "ipe/builtins/ipe_filetype.h"

#include <openssl/evp.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "components/netcode.h"
#include "ipe/object/ipe_moduletype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_packed.h"
#include "ipe/values/ipe_savedreader.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/xml/ipe_pyxparser.h"
#include "runtime/epa_unicode.h"
#include "runtime/streams/epa_osocketstream.h"

const char IPE_FileType::TypeName[] = "FileType";

namespace {

constexpr size_t kLineFirst = 4096;
constexpr size_t kReadFirst = 8096;
constexpr size_t kStep = 1u << 20;
constexpr size_t kDigestBlock = 65536;
constexpr uint32_t kSwapAbove = 0x1000000;
constexpr char kTooBig[] = "in memory file operation on file > 10MB";

enum Method {
    ReadLine,
    Write,
    ReadLines,
    Close,
    Save,
    Load,
    Read,
    ReadU32,
    Md5,
    XmlTokens,
    ReadEval,
    LoadBase64,
    Sha1,
    SaveBase64,
};

constexpr struct {
    const char* name;
    Method method;
    bool plain = false;  // takes no arguments
} kMethods[] = {
    {"readline", ReadLine, true},
    {"write", Write},
    {"readlines", ReadLines, true},
    {"close", Close, true},
    {"save", Save},
    {"load", Load, true},
    {"read", Read},
    {"read_U32", ReadU32, true},
    {"md5", Md5, true},
    {"xmltokens", XmlTokens},
    {"readeval", ReadEval},
    {"load_base64", LoadBase64},
    {"sha1", Sha1, true},
    {"save_base64", SaveBase64},
};

class FileSink : public EPA_ByteSink {
  public:
    explicit FileSink(IPE_FileType& file) : file_(file) {}
    void write(const void* bytes, size_t size) override {
        file_.writeBytes({static_cast<const char*>(bytes), size});
    }

  private:
    IPE_FileType& file_;
};

class FileSource : public EPA_ByteSource {
  public:
    explicit FileSource(IPE_FileType& file) : file_(file) {}
    size_t readRaw(void* buffer, size_t size) override { return file_.readSome(buffer, size); }

  private:
    IPE_FileType& file_;
};

// A file object that a socket stream sends.
class FileToSend final : public EPA_SendSource {
  public:
    explicit FileToSend(IPE_FileType& file) : file_(file) {}
    int64_t seek(int64_t offset, int origin) override { return file_.seek(offset, origin); }
    size_t read(void* buffer, size_t size) override { return file_.readSome(buffer, size); }

  private:
    IPE_FileType& file_;
};

const bool sendable = [] {
    EPA_SetSendSourceOpener([](const IPE_Object& value) -> std::unique_ptr<EPA_SendSource> {
        auto* file = value.tryAs<IPE_FileType>();
        return file ? std::make_unique<FileToSend>(*file) : nullptr;
    });
    return true;
}();

// The file as a stream of lines. It reads ahead, so the file is its own until it ends.
class FileLines final : public EPA_IStream {
  public:
    explicit FileLines(IPE_FileType& file) : file_(file) {}
    bool isEof() override { return ended_; }
    bool isClosed() override { return ended_; }
    size_t readRaw(void* buffer, size_t size) override {
        size_t got = file_.readSome(buffer, size);
        ended_ = got < size;
        return got;
    }
    void seek(int64_t offset, int origin) override {
        file_.seek(offset, origin);
        dropBuffer();
        ended_ = false;
    }
    int64_t tell() override { return file_.seek(0, SEEK_CUR) - static_cast<int64_t>(buffered()); }

  private:
    IPE_FileType& file_;
    bool ended_ = false;
};

class Digest {
  public:
    explicit Digest(bool sha1) : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        XPK_Assert(context_ &&
                   EVP_DigestInit_ex(context_.get(), sha1 ? EVP_sha1() : EVP_md5(), nullptr) == 1);
    }
    void add(const void* bytes, size_t size) { EVP_DigestUpdate(context_.get(), bytes, size); }
    std::string hex(const char* digits) {
        unsigned char bytes[EVP_MAX_MD_SIZE];
        unsigned size = 0;
        EVP_DigestFinal_ex(context_.get(), bytes, &size);
        std::string text;
        for (unsigned i = 0; i < size; ++i) {
            text += digits[bytes[i] >> 4];
            text += digits[bytes[i] & 15];
        }
        return text;
    }

  private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

// Inflates a zlib stream that declares its length. False if the stream is damaged or gives more.
bool inflateBlock(std::string_view packed, size_t length, std::string& out) {
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK) return false;
    std::unique_ptr<z_stream, decltype(&inflateEnd)> guard(&stream, inflateEnd);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    out.clear();
    int state = Z_OK;
    while (state == Z_OK) {
        size_t done = out.size();
        // One byte more than declared tells a stream that goes on from one that ends.
        size_t room = std::min(std::max(done, kReadFirst), length + 1 - done);
        out.resize(done + room);
        stream.next_out = reinterpret_cast<Bytef*>(out.data() + done);
        stream.avail_out = static_cast<uInt>(room);
        state = inflate(&stream, Z_NO_FLUSH);
        out.resize(done + room - stream.avail_out);
        if (out.size() > length) return false;
    }
    return state == Z_STREAM_END;
}

std::string utf16Bytes(std::string_view text) {
    EPA_Unicode unicode;
    unicode.setUtf8(text.data(), text.size());
    std::u16string_view units(unicode.toUtf16());
    return std::string(reinterpret_cast<const char*>(units.data()), units.size() * 2);
}

std::string nativeBytes(std::string_view text) {
    EPA_Unicode unicode;
    unicode.setUtf8(text.data(), text.size());
    return unicode.toNative();
}

}  // namespace

IPE_FileType::IPE_FileType(const EPA_FileName& name, std::string_view mode, Encoding encoding)
    : IPE_Type(TypeName), name_(name.text), mode_(mode), encoding_(encoding) {
    int error = name.error ? name.error : platform::openStdio(name.bytes, mode, file_);
    if (error) fail(error);
}

void IPE_FileType::fail(int error) { EPA_RaiseFileError(error, name_.view()); }

FILE* IPE_FileType::require() {
    if (!file_) XPK_Raise("ValueError", "I/O operation on closed file").raise();
    return file_.get();
}

FILE* IPE_FileType::turn(Direction direction) {
    FILE* file = require();
    bool changes = direction_ != Direction::None && direction_ != direction;
    // A pipe cannot seek and has one direction only, so a refusal does no harm.
    if (changes) (void)::fseeko(file, 0, SEEK_CUR);
    direction_ = direction;
    return file;
}

bool IPE_FileType::__nonzero__() { return file_ && !std::feof(file_.get()); }

int64_t IPE_FileType::seek(int64_t offset, int origin) {
    FILE* file = require();
    if (::fseeko(file, offset, origin) != 0) fail(errno);
    direction_ = Direction::None;
    off_t at = ::ftello(file);
    if (at < 0) fail(errno);
    return at;
}

size_t IPE_FileType::readSome(void* buffer, size_t size) {
    FILE* file = turn(Direction::Reading);
    size_t got = std::fread(buffer, 1, size, file);
    if (got < size && std::ferror(file)) {
        int error = errno;
        std::clearerr(file);
        fail(error);
    }
    return got;
}

void IPE_FileType::writeBytes(std::string_view bytes) {
    FILE* file = turn(Direction::Writing);
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) fail(errno);
}

void IPE_FileType::close() {
    require();
    if (std::fclose(file_.release()) != 0) fail(errno);
}

IPE_Object IPE_FileType::readLine() {
    FILE* file = turn(Direction::Reading);
    lineBuffer_.clear();
    if (lineBuffer_.capacity() < kLineFirst) lineBuffer_.reserve(kLineFirst);
    int c;
    while ((c = ::getc_unlocked(file)) != EOF) {
        lineBuffer_.push_back(static_cast<char>(c));
        if (c == '\n') break;
        XPK_Assert(lineBuffer_.size() < static_cast<size_t>(ReadLimit));
    }
    if (c == EOF && std::ferror(file)) {
        int error = errno;
        std::clearerr(file);
        fail(error);
    }
    return IPE_String(lineBuffer_);
}

IPE_Object IPE_FileType::readLines() {
    IPE_Object list = IPE_NewList();
    FILE* file = require();
    do {
        IPE_Object line = readLine();
        if (!lineBuffer_.empty() || !std::feof(file)) list.as<IPE_ListType>()->append(std::move(line));
    } while (!std::feof(file));
    return list;
}

void IPE_FileType::readBytes(int64_t size) {
    require();
    readBuffer_.clear();
    for (size_t left = static_cast<size_t>(size); left > 0;) {
        size_t step = std::min(left, std::max(readBuffer_.size(), kStep)), done = readBuffer_.size();
        readBuffer_.resize(done + step);
        size_t got = readSome(readBuffer_.data() + done, step);
        if (got < step) {
            readBuffer_.clear();
            fail(ENODATA);
        }
        left -= got;
    }
}

void IPE_FileType::readPacked(int64_t size) {
    readBytes(size);
    std::string packed = std::move(readBuffer_);
    uint32_t length = readU32();
    if (length > kSwapAbove) length = __builtin_bswap32(length);
    XPK_Assert(static_cast<int64_t>(length) < ReadLimit);
    XPK_Assert(inflateBlock(packed, length, readBuffer_));
}

void IPE_FileType::readBlock(const IPE_Arguments& arguments, int64_t limit) {
    int64_t size = arguments.integer(0);
    bool packed = arguments.hasKeywords() && arguments.keywordTrue("is_zlib");
    require();
    XPK_Assert(size >= 0 && size < (packed ? PackedLimit : limit));
    packed ? readPacked(size) : readBytes(size);
}

IPE_Object IPE_FileType::read(const IPE_Arguments& arguments) {
    arguments.check("i", "read");
    readBlock(arguments, ReadLimit);
    if (arguments.hasKeywords() && arguments.keywordTrue("as_base64")) {
        return IPE_String(NetCode_Encode(NetCodeBase64, readBuffer_));
    }
    return IPE_String(readBuffer_);
}

IPE_Object IPE_FileType::readEval(const IPE_Arguments& arguments) {
    arguments.check("i", "readeval");
    readBlock(arguments, PackedLimit);
    readBuffer_.resize(std::min(readBuffer_.find('\0'), readBuffer_.size()));
    EPA_Unicode text;
    if (arguments.keywordTrue("is_utf8")) {
        text.setUtf8(readBuffer_.data(), readBuffer_.size());
    } else {
        text.setNative(readBuffer_.c_str());
    }
    if (arguments.keywordTrue("sanitize")) text.sanitise();
    return parse_literal(text.toUtf8());
}

uint32_t IPE_FileType::readU32() {
    uint32_t value = 0;
    if (readSome(&value, sizeof value) != sizeof value) fail(ENODATA);
    return value;
}

IPE_Object IPE_FileType::digest(bool sha1) {
    if (seek(0, SEEK_END) > DigestLimit) EPA_RaiseFileError(1, kTooBig, name_.view());
    seek(0, SEEK_SET);
    Digest digest(sha1);
    std::string block(kDigestBlock, '\0');
    int64_t total = 0;
    while (size_t got = readSome(block.data(), block.size())) {
        total += static_cast<int64_t>(got);
        // The file may have grown since it was measured.
        if (total > DigestLimit) EPA_RaiseFileError(1, kTooBig, name_.view());
        digest.add(block.data(), got);
    }
    return IPE_String(digest.hex(sha1 ? "0123456789abcdef" : "0123456789ABCDEF"));
}

IPE_Object IPE_FileType::xmlTokens(const IPE_Arguments& arguments) {
    arguments.check("|o", "xmltokens");
    require();
    bool strict = arguments.size() == 0 || arguments[0]->__nonzero__();
    IPE_Object lines = IPE_New<FileLines>(*this);
    return IPE_PyxTokens(*static_cast<FileLines*>(lines.get()), strict);
}

IPE_Object IPE_FileType::loadBase64(const IPE_Arguments& arguments) {
    arguments.check("|ii", "load_base64");
    int64_t length = 0;
    if (arguments.size() > 0) {
        length = arguments.size() > 1 ? arguments.integer(1) : 0;
        seek(arguments.integer(0), SEEK_SET);
    } else {
        int64_t here = seek(0, SEEK_CUR);
        length = seek(0, SEEK_END) - here;
        seek(here, SEEK_SET);
    }
    XPK_Assert(length >= 0);
    if (length > DigestLimit) EPA_RaiseFileError(1, kTooBig, name_.view());
    readBuffer_.resize(static_cast<size_t>(length));
    readBuffer_.resize(readSome(readBuffer_.data(), readBuffer_.size()));
    return IPE_String(readBuffer_.empty() ? std::string() : NetCode_Encode(NetCodeBase64, readBuffer_));
}

void IPE_FileType::saveBase64(const IPE_Arguments& arguments) {
    arguments.check("s", "save_base64");
    require();
    std::string bytes;
    XPK_Assert(NetCode_Decode(NetCodeBase64, arguments.text(0), bytes) == NetCodeOk);
    if (arguments.hasKeywords() && arguments.keywordTrue("zlib")) {
        bytes = IPE_UnpackBlock(bytes);
        // A packed text counts its terminator, which is no part of the text.
        if (!bytes.empty() && bytes.back() == '\0') bytes.pop_back();
    }
    writeBytes(bytes);
}

void IPE_FileType::write(const IPE_Arguments& arguments) {
    arguments.check("o", "write");
    require();
    const IPE_Object& value = arguments[0];
    auto* string = value.tryAs<IPE_StringType>();
    std::string representation = string ? std::string() : IPE_Object_ToString(value);
    std::string_view text = string ? string->view() : representation;
    bool wide = encoding_ == Utf16 || (arguments.hasKeywords() && arguments.keywordTrue("utf16"));
    if (wide) {
        writeBytes(utf16Bytes(text));
    } else if (encoding_ == Native) {
        writeBytes(nativeBytes(text));
    } else {
        writeBytes(text);
    }
}

void IPE_FileType::saveValue(const IPE_Object& value) {
    require();
    FileSink sink(*this);
    EPA_DataOutput out(sink);
    IPE_WriteObjectFile(out, value);
}

IPE_Object IPE_FileType::loadValue() {
    require();
    FileSource source(*this);
    EPA_DataInput in(source);
    return IPE_ReadObjectFile(in);
}

IPE_Object IPE_FileType::__getattr__(const IPE_Object& key, int depth) {
    std::string_view name = key->c_str();
    for (auto& row : kMethods) {
        if (name == row.name) return IPE_MethodOf(this, row.method);
    }
    return IPE_Type::__getattr__(key, depth);
}

IPE_Object IPE_FileType::__callmethod__(int method, const IPE_Arguments& arguments) {
    for (auto& row : kMethods)
        if (row.method == method && row.plain) arguments.check("", row.name);
    switch (method) {
        case ReadLine: return readLine();
        case ReadLines: return readLines();
        case Read: return read(arguments);
        case ReadU32: return IPE_Int(readU32());
        case ReadEval: return readEval(arguments);
        case Md5: return digest(false);
        case Sha1: return digest(true);
        case XmlTokens: return xmlTokens(arguments);
        case LoadBase64: return loadBase64(arguments);
        case Load: return loadValue();
        case Write: write(arguments); break;
        case SaveBase64: saveBase64(arguments); break;
        case Save:
            arguments.check("o", "save");
            saveValue(arguments[0]);
            break;
        case Close: close(); break;
        default: break;
    }
    return IPE_None();
}

IPE_Object IPE_Open(const IPE_Arguments& arguments) {
    arguments.check("o|s", "open");
    IPE_FileType::Encoding encoding = IPE_FileType::Bytes;
    if (arguments.hasKeyword("utf16")) {
        if (arguments.keywordTrue("utf16")) encoding = IPE_FileType::Utf16;
    } else if (arguments.hasKeywords() && arguments.keywordTrue("native")) {
        encoding = IPE_FileType::Native;
    }
    std::string_view mode = arguments.size() > 1 ? arguments.text(1) : "r";
    return IPE_New<IPE_FileType>(EPA_FileNameOf(arguments[0]), mode, encoding);
}
