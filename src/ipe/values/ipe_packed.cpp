// Packing at level 9, and unpacking in steps that double, so that a small block cannot claim much memory.
#include "ipe/values/ipe_packed.h"

#include <zlib.h>

#include <algorithm>
#include <array>

#include "runtime/xpk_exception.h"

namespace {

constexpr size_t HeaderSize = 5;
constexpr uint32_t LengthLimit = 1u << 30;
constexpr char Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> digitValues() {
    std::array<int8_t, 256> values{};
    values.fill(-1);
    for (int8_t i = 0; i < 64; ++i) values[static_cast<unsigned char>(Digits[i])] = i;
    return values;
}
constexpr auto DigitValues = digitValues();

// Ends the stream on every way out.
struct Inflater {
    z_stream stream{};
    Inflater() { XPK_Assert(inflateInit(&stream) == Z_OK); }
    ~Inflater() { inflateEnd(&stream); }
};

}  // namespace

std::string IPE_Base64Encode(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    auto byte = [&](size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0u; };
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = byte(i) << 16 | byte(i + 1) << 8 | byte(i + 2);
        text += Digits[group >> 18];
        text += Digits[group >> 12 & 63];
        text += i + 1 < bytes.size() ? Digits[group >> 6 & 63] : '=';
        text += i + 2 < bytes.size() ? Digits[group & 63] : '=';
    }
    return text;
}

bool IPE_Base64Decode(std::string_view text, std::string& bytes) {
    bytes.clear();
    bytes.reserve(text.size() / 4 * 3);
    uint32_t group = 0;
    int count = 0;
    for (char c : text) {
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        if (c == '=') break;
        int value = DigitValues[static_cast<unsigned char>(c)];
        if (value < 0) return false;
        group = group << 6 | static_cast<uint32_t>(value);
        if (++count < 4) continue;
        bytes += static_cast<char>(group >> 16);
        bytes += static_cast<char>(group >> 8);
        bytes += static_cast<char>(group);
        group = 0;
        count = 0;
    }
    if (count == 1) return false;
    if (count >= 2) bytes += static_cast<char>(count == 2 ? group >> 4 : group >> 10);
    if (count == 3) bytes += static_cast<char>(group >> 2);
    return true;
}

std::string IPE_PackText(std::string_view text, bool marked) {
    XPK_Assert(text.size() < LengthLimit);
    std::string source(text);
    uLong size = source.size() + 1;  // with the terminator
    uLongf packed = compressBound(size);
    std::string block(HeaderSize + packed, '\0');
    for (size_t i = 0; i < 4; ++i) block[1 + i] = static_cast<char>(size >> (8 * i));
    int result = compress2(reinterpret_cast<Bytef*>(block.data()) + HeaderSize, &packed,
                           reinterpret_cast<const Bytef*>(source.c_str()), size, 9);
    XPK_Assert(result == Z_OK);
    block.resize(HeaderSize + packed);
    return (marked ? "~" : "") + IPE_Base64Encode(block);
}

std::string IPE_UnpackBlock(std::string_view block) {
    XPK_Assert(block.size() >= HeaderSize && block.size() < LengthLimit);
    uint32_t length = 0;
    for (size_t i = 0; i < 4; ++i)
        length |= static_cast<uint32_t>(static_cast<unsigned char>(block[1 + i])) << (8 * i);
    XPK_Assert(length <= LengthLimit);
    // One byte more than told: the terminator of a writer that does not count it.
    size_t most = size_t{length} + 1;
    Inflater inflater;
    z_stream& stream = inflater.stream;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(block.data() + HeaderSize));
    stream.avail_in = static_cast<uInt>(block.size() - HeaderSize);
    std::string bytes;
    size_t room = 4096;
    for (;;) {
        size_t have = bytes.size();
        bytes.resize(std::min(most, std::max(have * 2, room)));
        stream.next_out = reinterpret_cast<Bytef*>(bytes.data()) + have;
        stream.avail_out = static_cast<uInt>(bytes.size() - have);
        int result = inflate(&stream, Z_NO_FLUSH);
        size_t left = stream.avail_out;
        if (result == Z_STREAM_END) {
            bytes.resize(bytes.size() - left);
            return bytes;
        }
        // Full up to the told length without an end, or no way on: the block is damaged.
        XPK_Assert(result == Z_OK && left == 0 && bytes.size() < most);
    }
}

std::string IPE_UnpackText(std::string_view packed) {
    if (!packed.empty() && packed[0] == '~') packed.remove_prefix(1);
    std::string block;
    XPK_Assert(IPE_Base64Decode(packed, block));
    std::string text = IPE_UnpackBlock(block);
    size_t end = text.find('\0');
    if (end != std::string::npos) text.resize(end);
    return text;
}
