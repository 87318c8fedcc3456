// Header records, read.
//
// Elements may come in any order, so the numbers are decoded once the end has been met and the key is known.
#include "store/smf_headerreader.h"

#include <cstring>
#include <unordered_set>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_literal.h"
#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store/smf_file.h"

namespace {

// Bytes of the raw file, read in pieces.
class RawSource {
  public:
    RawSource(SMF_File& file, int64_t position) : file_(file), position_(position) {
        if (position < 0) SMF_CorruptHeader(file.name());
    }
    int64_t position() const { return position_; }
    void take(void* out, size_t size) {
        auto* to = static_cast<char*>(out);
        while (size > 0) {
            if (at_ == got_) {
                at_ = 0;
                got_ = file_.read(position_, piece_, sizeof piece_);
                if (got_ == 0) SMF_CorruptHeader(file_.name());
            }
            size_t n = std::min(size, got_ - at_);
            std::memcpy(to, piece_ + at_, n);
            at_ += n;
            to += n;
            size -= n;
            position_ += static_cast<int64_t>(n);
        }
    }

  private:
    SMF_File& file_;
    int64_t position_;
    size_t at_ = 0, got_ = 0;
    char piece_[512];
};

class StreamSource {
  public:
    StreamSource(SMF_DecoderStream& stream, int64_t position) : stream_(stream) {
        if (position < 0 || position >= stream.length()) SMF_CorruptHeader(stream.file().name());
        stream.seek(position);
    }
    int64_t position() const { return stream_.position(); }
    void take(void* out, size_t size) {
        if (static_cast<uint64_t>(stream_.length() - stream_.position()) < size)
            SMF_CorruptHeader(stream_.file().name());
        stream_.read(out, size);
    }

  private:
    SMF_DecoderStream& stream_;
};

template <class Source>
uint8_t takeByte(Source& source) {
    uint8_t byte;
    source.take(&byte, 1);
    return byte;
}

template <class Source>
uint32_t takeBigEndian(Source& source) {
    uint8_t b[4];
    source.take(b, 4);
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

// Grows with what is really there, so that a wrong length costs no memory.
template <class Source>
std::string takeString(Source& source, uint32_t length, uint8_t mask) {
    constexpr size_t Piece = 4096;
    std::string text;
    while (text.size() < length) {
        size_t start = text.size();
        text.resize(std::min<size_t>(length, start + Piece));
        source.take(text.data() + start, text.size() - start);
    }
    for (char& c : text) c = static_cast<char>(static_cast<uint8_t>(c) ^ mask);
    return text;
}

}  // namespace

void SMF_HeaderReader::read(SMF_File& file, int64_t position) {
    fileName_ = file.name();
    RawSource source(file, position);
    parse(source);
}

void SMF_HeaderReader::read(SMF_DecoderStream& mainStream, int64_t position) {
    fileName_ = mainStream.file().name();
    StreamSource source(mainStream, position);
    parse(source);
}

template <class Source>
void SMF_HeaderReader::parse(Source& source) {
    numbers_.clear();
    strings_.clear();
    bool haveKey = false;
    uint32_t key = 0;
    for (;;) {
        auto mask = static_cast<uint8_t>(source.position());
        uint8_t tag = takeByte(source);
        uint8_t code = tag ^ mask;
        if (code == SMF_RecordEnd) break;
        if (code == SMF_Key ? haveKey : has(code)) SMF_CorruptHeader(fileName_);
        if (code == SMF_Key) {
            key = takeBigEndian(source);
            haveKey = true;
        } else if (code < SMF_Key) {
            if (numbers_.size() == MaxNumbers) SMF_CorruptHeader(fileName_);
            numbers_.emplace_back(code, static_cast<int32_t>(takeBigEndian(source)));
        } else {
            if (strings_.size() == MaxStrings) SMF_CorruptHeader(fileName_);
            uint32_t length = static_cast<uint8_t>(takeByte(source) ^ tag);
            if (length == 0xFF) length = takeBigEndian(source);
            if (length > MaxStringLength) SMF_CorruptHeader(fileName_);
            strings_.emplace_back(code, takeString(source, length, tag));
        }
    }
    if (!haveKey) SMF_CorruptHeader(fileName_);
    for (auto& entry : numbers_)
        entry.second = static_cast<int32_t>(static_cast<uint32_t>(entry.second) ^ key);
}

bool SMF_HeaderReader::has(int code) const noexcept {
    for (const auto& entry : numbers_)
        if (entry.first == code) return true;
    for (const auto& entry : strings_)
        if (entry.first == code) return true;
    return false;
}

int32_t SMF_HeaderReader::number(int code) const {
    for (const auto& entry : numbers_)
        if (entry.first == code) return entry.second;
    SMF_CorruptHeader(fileName_);
}

int64_t SMF_HeaderReader::number64(int code) const {
    return int64_t{number(code)} + int64_t{number(code + 1)} * (int64_t{1} << 31);
}

const std::string& SMF_HeaderReader::string(int code) const {
    for (const auto& entry : strings_)
        if (entry.first == code) return entry.second;
    SMF_CorruptHeader(fileName_);
}

IPE_Object SMF_HeaderReader::object(int code) const {
    const std::string& text = string(code);
    try {
        return parse_literal(text);
    } catch (const XPK_MemoryException&) {
        throw;
    } catch (const XPK_Exception&) {
        SMF_CorruptHeader(fileName_);
    }
}

IPE_Object SMF_HeaderReader::dictionary(int code) const {
    IPE_Object value = object(code);
    if (!value.is<IPE_DictType>()) SMF_CorruptHeader(fileName_);
    return value;
}

std::vector<std::pair<std::string, std::string>> SMF_HeaderReader::chain(
    int code, SMF_File& file, SMF_DecoderStream* mainStream) const {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::unordered_set<int32_t> seen;
    SMF_HeaderReader record;
    int64_t left = mainStream ? mainStream->length() : file.size();
    for (int32_t at = number(code); at != -1; at = record.number(SMF_PairNext)) {
        if (!seen.insert(at).second) SMF_CorruptHeader(fileName_);
        if (mainStream)
            record.read(*mainStream, at);
        else
            record.read(file, at);
        const std::string &key = record.string(SMF_PairKey), &value = record.string(SMF_PairValue);
        // Records that lie within each other's texts could make far more of a file than it holds.
        left -= static_cast<int64_t>(key.size() + value.size());
        if (left < 0) SMF_CorruptHeader(fileName_);
        pairs.emplace_back(key, value);
    }
    return pairs;
}
