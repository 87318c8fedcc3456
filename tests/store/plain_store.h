// A small maker of store files that shares no code with the writer: records without shuffle, blocks that hold
// their bytes as literals. It can make what the writer never makes: older layouts, odd numbers, damage.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace plain {

inline std::string little(uint64_t value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> 8 * i);
    return out;
}

inline std::string big32(uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

// A header record. Elements are written in the order in which they were given.
struct Record {
    std::vector<std::pair<int, int32_t>> numbers;
    std::vector<std::pair<int, std::string>> texts;
    uint32_t key = 0;
    bool withKey = true;

    Record& number(int code, int32_t value) {
        numbers.emplace_back(code, value);
        return *this;
    }
    Record& number64(int code, int64_t value) {
        number(code, static_cast<int32_t>(value & 0x7FFFFFFF));
        return number(code + 1, static_cast<int32_t>(value >> 31 & 0x7FFFFFFF));
    }
    Record& text(int code, std::string value) {
        texts.emplace_back(code, std::move(value));
        return *this;
    }
    // The bytes at a position of the raw file or the main stream.
    std::string at(int64_t position) const {
        std::string out;
        auto mask = [&] { return static_cast<uint8_t>(position + static_cast<int64_t>(out.size())); };
        for (const auto& [code, value] : numbers) {
            out += static_cast<char>(code ^ mask());
            out += big32(static_cast<uint32_t>(value) ^ key);
        }
        if (withKey) {
            out += static_cast<char>(199 ^ mask());
            out += big32(key);
        }
        for (const auto& [code, value] : texts) {
            auto tag = static_cast<uint8_t>(code ^ mask());
            out += static_cast<char>(tag);
            if (value.size() < 255) {
                out += static_cast<char>(value.size() ^ tag);
            } else {
                out += static_cast<char>(255 ^ tag);
                out += big32(static_cast<uint32_t>(value.size()));
            }
            for (char c : value) out += static_cast<char>(c ^ tag);
        }
        return out += static_cast<char>(255 ^ mask());
    }
};

// A zlib stream of stored blocks (RFC 1950, RFC 1951), for at most 65,535 bytes.
inline std::string zlibStored(const std::string& bytes) {
    uint32_t a = 1, b = 0;  // Adler-32
    for (unsigned char c : bytes) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    return std::string("\x78\x01\x01") + little(bytes.size(), 2) + little(~bytes.size() & 0xFFFF, 2) + bytes +
           big32(b << 16 | a);
}

// An LZ4 block of literals alone.
inline std::string lz4Literals(const std::string& bytes) {
    std::string out;
    if (bytes.size() < 15) {
        out += static_cast<char>(bytes.size() << 4);
    } else {
        out += '\xF0';
        size_t rest = bytes.size() - 15;
        for (; rest >= 255; rest -= 255) out += '\xFF';
        out += static_cast<char>(rest);
    }
    return out + bytes;
}

// A file under construction.
struct File {
    std::string bytes;

    int64_t append(const std::string& more) {
        auto at = static_cast<int64_t>(bytes.size());
        bytes += more;
        return at;
    }
    int64_t append(const Record& record) { return append(record.at(static_cast<int64_t>(bytes.size()))); }

    // Appends the blocks of a stream and their table, and fills the numbers of its header. `mode` 0 stores
    // plain blocks; `wide` selects the current layout. In the current layout the last block has one byte
    // more.
    Record stream(const std::string& content, int mode, size_t blockSize, bool wide = true) {
        std::vector<int64_t> table;
        size_t count = content.empty() ? (wide ? 1 : 0) : (content.size() + blockSize - 1) / blockSize;
        for (size_t i = 0; i < count; ++i) {
            std::string block = content.substr(i * blockSize, blockSize);
            if (wide && i + 1 == count && mode) block += '\0';
            if (!mode) block.resize(blockSize);
            std::string packed = mode == 1 ? zlibStored(block) : mode == 2 ? lz4Literals(block) : block;
            table.push_back(append(mode ? little(packed.size(), 4) + packed : packed));
        }
        auto at = static_cast<int64_t>(bytes.size());
        for (int64_t entry : table) append(little(static_cast<uint64_t>(entry), wide ? 8 : 4));
        Record header;
        header.number(10, mode)
            .number(12, static_cast<int32_t>(blockSize))
            .number(13, static_cast<int32_t>(count));
        if (wide)
            header.number64(62, static_cast<int64_t>(content.size())).number64(64, at);
        else
            header.number(14, static_cast<int32_t>(at));
        return header;
    }
};

}  // namespace plain
