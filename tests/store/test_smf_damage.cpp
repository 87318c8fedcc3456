// Damaged stores: each byte flipped, each length, blocks swapped. Each ends in a named error or in values of
// bounded size, with nothing read outside a buffer (the sanitizers watch).
#include <map>

#include "every_codec.h"
#include "plain_store.h"
#include "store/smf_decoderstream.h"

namespace {

std::shared_ptr<std::string> sample() {
    static const std::shared_ptr<std::string> bytes =
        makeStore([](SMF_Writer& writer) { every_codec::fill(writer, 60); });
    return bytes;
}

// What reading the bytes ends in: an error's type, or "read".
std::string outcome(std::string bytes) {
    try {
        every_codec::readAll(std::make_unique<SMF_MemoryFile>("damaged", std::move(bytes)), 200);
    } catch (const XPK_Exception& e) {
        return e.type();
    }
    return "read";
}

// Errors that name what is wrong with a file.
bool isNamed(const std::string& type) {
    return type == "read" || type == "DatabaseError" || type == "AssertionError" || type == "SystemError" ||
           type == "IndexError";
}

}  // namespace

TEST(Damage, EveryByteFlipped) {
    std::map<std::string, int> seen;
    for (size_t at = 0; at < sample()->size(); ++at) {
        std::string bytes = *sample();
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 3 == 0 ? 0xFF : at % 3 == 1 ? 0x01 : 0x80));
        std::string type = outcome(std::move(bytes));
        EXPECT_TRUE(isNamed(type)) << type << " at " << at;
        ++seen[type];
    }
    EXPECT_GT(seen["read"], 0);
    EXPECT_GT(seen["DatabaseError"], 0);
}

TEST(Damage, EveryLength) {
    for (size_t length = 0; length < sample()->size(); ++length) {
        std::string type = outcome(sample()->substr(0, length));
        EXPECT_TRUE(isNamed(type)) << type << " at " << length;
        if (length < 72) {
            EXPECT_EQ(type, "DatabaseError") << length;
        }
    }
}

// The entries of all block tables exchanged: streams get blocks of other streams, of other sizes and
// contents.
TEST(Damage, BlocksOfOtherStreams) {
    SMF_MemoryFile file("whole", *sample());
    SMF_HeaderReader header, record;
    header.read(file, 0);
    record.read(file, header.number64(SMF_MainStream));
    int64_t mainTable = record.number64(SMF_Table64);
    // Offsets of block table entries: each table follows the last block of its stream.
    std::vector<size_t> entries;
    const std::string& bytes = *sample();
    for (size_t at = 72; at + 8 <= static_cast<size_t>(mainTable); ++at) {
        uint64_t value = 0;
        for (int i = 7; i >= 0; --i)
            value = value << 8 | static_cast<uint8_t>(bytes[at + static_cast<size_t>(i)]);
        if (value >= 72 && value < at && bytes[at + 7] == 0) entries.push_back(at);
    }
    ASSERT_GT(entries.size(), 20u);
    for (size_t i = 0; i < entries.size(); ++i)
        for (size_t j = i + 1; j < entries.size(); j += 1 + i % 5) {
            std::string swapped = bytes;
            swapped.replace(entries[i], 8, bytes, entries[j], 8);
            swapped.replace(entries[j], 8, bytes, entries[i], 8);
            std::string type = outcome(std::move(swapped));
            EXPECT_TRUE(isNamed(type)) << type << " " << i << " " << j;
        }
}

// Bytes of the streams themselves, damaged in front of the compression, so that the codecs meet them.
TEST(Damage, EveryByteOfEveryStream) {
    SMF_Reader reader;
    reader.open(std::make_unique<SharedFile>(sample()));
    SMF_ReaderTable table;
    table.connect(reader, "T");
    SMF_DecoderStream& main = *reader.store()->mainStream;
    std::string headers(static_cast<size_t>(main.length()), 0);
    main.seek(0);
    main.read(headers.data(), headers.size());
    for (size_t at = 0; at < headers.size(); ++at)
        for (int mask : {0x01, 0x80, 0xFF}) {
            std::string damaged = headers;
            damaged[at] = static_cast<char>(damaged[at] ^ mask);
            plain::File file{*sample()};
            plain::Record record = file.stream(damaged, 1, 0x100000);
            file.bytes.replace(31, record.at(31).size(), record.at(31));
            std::string type = outcome(std::move(file.bytes));
            EXPECT_TRUE(isNamed(type)) << type << " header byte " << at;
        }
}
