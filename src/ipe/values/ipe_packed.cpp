// Packing at level 9, and unpacking in steps that double, so that a small block cannot claim much memory.
#include "ipe/values/ipe_packed.h"

#include <zlib.h>

#include <algorithm>

#include "components/netcode.h"
#include "runtime/xpk_exception.h"

namespace {

constexpr size_t HeaderSize = 5;
constexpr uint32_t LengthLimit = 1u << 30;

// Ends the stream on every way out.
struct Inflater {
    z_stream stream{};
    Inflater() { XPK_Assert(inflateInit(&stream) == Z_OK); }
    ~Inflater() { inflateEnd(&stream); }
};

}  // namespace

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
    return (marked ? "~" : "") + NetCode_Encode(NetCodeBase64, block);
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

std::string IPE_Unpack(std::string_view packed) {
    if (!packed.empty() && packed[0] == '~') packed.remove_prefix(1);
    std::string block;
    XPK_Assert(NetCode_Decode(NetCodeBase64, packed, block) == NetCodeOk);
    std::string text = IPE_UnpackBlock(block);
    size_t end = text.find('\0');
    if (end != std::string::npos) text.resize(end);
    return text;
}
