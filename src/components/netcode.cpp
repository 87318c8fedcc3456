// Base64 goes by tables: an encoder step turns 12 bits into two characters, a decoder step four characters
// into 24 bits, with one bit above them that any foreign character sets. The decoder's fast loop stops at the
// first group that is not four characters of the alphabet; a careful loop takes one group over blanks and
// line breaks and goes back, so text broken into lines runs fast between its breaks.
#include "components/netcode.h"

#include <array>
#include <cstring>
#include <new>

namespace {

constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint32_t Foreign = 1U << 24;

struct Pair {
    char text[2];
};

constexpr auto EncodePairs = [] {
    std::array<Pair, 4096> table{};
    for (size_t i = 0; i < table.size(); ++i) table[i] = {{Alphabet[i >> 6], Alphabet[i & 63]}};
    return table;
}();

// One table for each place in a group of four, its bits already in place.
constexpr auto DecodeBits = [] {
    std::array<std::array<uint32_t, 256>, 4> table{};
    for (int place = 0; place < 4; ++place) {
        table[place].fill(Foreign);
        for (uint32_t i = 0; i < 64; ++i)
            table[place][static_cast<unsigned char>(Alphabet[i])] = i << (18 - 6 * place);
    }
    return table;
}();

std::string encodeBase64(std::string_view bytes) {
    std::string out((bytes.size() + 2) / 3 * 4, '=');
    const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
    char* to = out.data();
    size_t left = bytes.size();
    for (; left >= 3; left -= 3, in += 3, to += 4) {
        memcpy(to, EncodePairs[in[0] << 4 | in[1] >> 4].text, 2);
        memcpy(to + 2, EncodePairs[(in[1] & 15) << 8 | in[2]].text, 2);
    }
    if (left == 0) return out;
    unsigned second = left == 2 ? in[1] : 0;
    memcpy(to, EncodePairs[in[0] << 4 | second >> 4].text, 2);
    if (left == 2) to[2] = Alphabet[(second & 15) << 2];
    return out;
}

bool isBlank(unsigned char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char* putBytes(char* to, uint32_t bits, int count) {
    for (int i = 0; i < count; ++i) *to++ = static_cast<char>(bits >> (16 - 8 * i));
    return to;
}

// True if only padding and blanks are left: as many as `wanted` signs, or none at all.
bool endsWell(const unsigned char* in, const unsigned char* end, int wanted) {
    int found = 0;
    for (; in < end; ++in) {
        if (*in == '=')
            ++found;
        else if (!isBlank(*in))
            return false;
    }
    return found == 0 || found == wanted;
}

bool decodeBase64(std::string_view text, std::string& out) {
    out.assign(text.size() / 4 * 3 + 3, 0);
    const auto* in = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = in + text.size();
    char* to = out.data();
    int held = 0;
    for (;;) {
        for (; end - in >= 4; in += 4) {
            uint32_t bits =
                DecodeBits[0][in[0]] | DecodeBits[1][in[1]] | DecodeBits[2][in[2]] | DecodeBits[3][in[3]];
            if (bits & Foreign) break;
            to = putBytes(to, bits, 3);
        }
        uint32_t bits = 0;
        for (held = 0; held < 4 && in < end && *in != '='; ++in) {
            if (isBlank(*in)) continue;
            uint32_t next = DecodeBits[held][*in];
            if (next & Foreign) return false;
            bits |= next;
            ++held;
        }
        to = putBytes(to, bits, held == 4 ? 3 : held >= 2 ? held - 1 : 0);
        if (held < 4) break;
    }
    if (held == 1 || !endsWell(in, end, held ? 4 - held : 0)) return false;
    out.resize(static_cast<size_t>(to - out.data()));
    return true;
}

bool isUnreserved(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

std::string encodeUrl(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 4);
    for (unsigned char c : bytes) {
        if (isUnreserved(c)) {
            out += static_cast<char>(c);
        } else {
            const char escape[] = {'%', "0123456789ABCDEF"[c >> 4], "0123456789ABCDEF"[c & 15]};
            out.append(escape, sizeof escape);
        }
    }
    return out;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

bool decodeUrl(std::string_view text, std::string& out) {
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i] == '+' ? ' ' : text[i];
            continue;
        }
        if (text.size() - i < 3) return false;
        int high = hexValue(text[i + 1]), low = hexValue(text[i + 2]);
        if (high < 0 || low < 0) return false;
        out += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return true;
}

struct NetCode {
    int format = NetCodeBase64;
    int lastError = NetCodeOk;
    std::string decoded, encoded;
};

// Runs an operation of a handle: notes its error, and turns a shortage of memory into one, since nothing may
// be thrown through the calls.
template <typename Operation>
int guarded(NetCode_Handle handle, Operation operation) {
    auto* code = static_cast<NetCode*>(handle);
    if (!code) return NetCodeBadHandle;
    try {
        code->lastError = operation(*code);
    } catch (const std::exception&) {
        code->lastError = NetCodeNoMemory;
    }
    return code->lastError;
}

}  // namespace

int NetCode_Encode(int format, std::string_view bytes, std::string& out) {
    if (format != NetCodeBase64 && format != NetCodeUrl) return NetCodeBadFormat;
    out = format == NetCodeBase64 ? encodeBase64(bytes) : encodeUrl(bytes);
    return NetCodeOk;
}

int NetCode_Decode(int format, std::string_view text, std::string& out) {
    if (format != NetCodeBase64 && format != NetCodeUrl) return NetCodeBadFormat;
    std::string decoded;
    if (!(format == NetCodeBase64 ? decodeBase64(text, decoded) : decodeUrl(text, decoded)))
        return NetCodeBadInput;
    out = std::move(decoded);
    return NetCodeOk;
}

NetCode_Handle NetCode_Create(NetCode_Event, void*) { return new (std::nothrow) NetCode; }

void NetCode_Destroy(NetCode_Handle handle) { delete static_cast<NetCode*>(handle); }

int NetCode_Set(NetCode_Handle handle, int property, int, intptr_t value, size_t length) {
    return guarded(handle, [&](NetCode& code) -> int {
        const char* bytes =
            property == NetCodeFormatProperty || length == 0 ? "" : reinterpret_cast<const char*>(value);
        switch (property) {
            case NetCodeFormatProperty:
                if (value != NetCodeBase64 && value != NetCodeUrl) return NetCodeBadFormat;
                code.format = static_cast<int>(value);
                return NetCodeOk;
            case NetCodeDecodedData: code.decoded.assign(bytes, length); return NetCodeOk;
            case NetCodeEncodedData: code.encoded.assign(bytes, length); return NetCodeOk;
            default: return NetCodeBadProperty;
        }
    });
}

int NetCode_Do(NetCode_Handle handle, int method, int, const intptr_t*, const size_t*) {
    return guarded(handle, [&](NetCode& code) -> int {
        switch (method) {
            case NetCodeEncodeMethod: return NetCode_Encode(code.format, code.decoded, code.encoded);
            case NetCodeDecodeMethod: return NetCode_Decode(code.format, code.encoded, code.decoded);
            default: return NetCodeBadMethod;
        }
    });
}

intptr_t NetCode_Get(NetCode_Handle handle, int property, int, size_t* length) {
    intptr_t word = 0;
    size_t size = 0;
    guarded(handle, [&](NetCode& code) -> int {
        if (property == NetCodeFormatProperty) {
            word = code.format;
            return NetCodeOk;
        }
        if (property != NetCodeDecodedData && property != NetCodeEncodedData) return NetCodeBadProperty;
        const std::string& bytes = property == NetCodeDecodedData ? code.decoded : code.encoded;
        word = reinterpret_cast<intptr_t>(bytes.c_str());
        size = bytes.size();
        return NetCodeOk;
    });
    if (length) *length = size;
    return word;
}

int NetCode_GetLastErrorCode(NetCode_Handle handle) {
    return handle ? static_cast<NetCode*>(handle)->lastError : static_cast<int>(NetCodeBadHandle);
}
