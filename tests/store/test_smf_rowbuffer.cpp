// Records stored in columns: the same bytes as one by one.
#include <random>

#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_flagfield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_stringfield.h"
#include "store/smf_decoderstream.h"
#include "store/smf_rowbuffer.h"
#include "store_support.h"

namespace {

constexpr uint32_t Block = 4096;

// Rows of runs and of single values, with numbers of every length and texts around the sizes at which their
// forms change.
struct Row {
    int32_t run, number;
    int64_t wide, seconds;
    std::string text;
    SMF_FlagValue flags;
};

std::vector<Row> makeRows(size_t count) {
    std::mt19937_64 source(7);
    std::vector<Row> rows;
    const size_t sizes[] = {0, 1, 2, 3, 4, 7, 8, 15, 16, 17, 31, 32, 33, 63, 100, 127, 128, 129, 255, 300};
    for (size_t i = 0; i < count; ++i) {
        Row row;
        row.run = static_cast<int32_t>(i / 300 * 70 + (i % 97 == 0));
        row.number = static_cast<int32_t>(source() >> source() % 32);
        row.wide = static_cast<int64_t>(source() >> source() % 64) * (i % 2 ? 1 : -1);
        row.seconds = i % 5 == 0   ? 0
                      : i % 7 == 0 ? INT64_MAX
                      : i % 3      ? 1'700'000'000
                                   : static_cast<int64_t>(source() % 2'000'000'000) - 100'000'000;
        size_t size = sizes[source() % std::size(sizes)];
        for (size_t c = 0; c < size; ++c) row.text += static_cast<char>('a' + (i + c) % 26);
        if (i % 2) row.text += "." + std::string(i % 17, static_cast<char>('a' + i % 9));
        if (i % 50 > 40) row.flags.set(static_cast<int>(i % 3));
        rows.push_back(std::move(row));
    }
    return rows;
}

IPE_Object flagTags(const char* format) {
    IPE_Object tags = IPE_NewDict();
    tags.as<IPE_DictType>()->setText("Format", IPE_String(format));
    tags.as<IPE_DictType>()->setText("SN", IPE_String("a;b;c"));
    return tags;
}

const char* const I32Formats[] = {"", "D", "M", "R"};
const char* const TextFormats[] = {"", "D", "F"};
const char* const FlagFormats[] = {"", "D"};

int32_t numberFor(const char* format, const Row& row) { return *format == 'R' ? row.run : row.number; }

std::shared_ptr<std::string> storeSingly(const std::vector<Row>& rows, bool zlib, uint32_t zero) {
    return makeStore([&](SMF_Writer& writer) {
        writer.setCompressed(zlib);
        SMF_WriterTable table("memory.smf");
        SMF_I32 i32[4];
        SMF_String texts[3];
        SMF_I64 wide;
        SMF_DateTime moment;
        int32_t flags[2];
        for (size_t i = 0; i < 4; ++i) i32[i].connect(table, std::string("I") + I32Formats[i], I32Formats[i]);
        for (size_t i = 0; i < 3; ++i)
            texts[i].connect(table, std::string("T") + TextFormats[i], TextFormats[i]);
        wide.connect(table, "Wide", "");
        moment.connect(table, "Moment", "D");
        for (size_t i = 0; i < 2; ++i)
            flags[i] =
                table.addField(std::string("F") + FlagFormats[i], SMF_TypeFlag, flagTags(FlagFormats[i]));
        table.create("T", writer, Block, zero);
        for (const Row& row : rows) {
            for (size_t i = 0; i < 4; ++i) i32[i].set(numberFor(I32Formats[i], row));
            for (const SMF_String& text : texts) text.set(row.text);
            wide.set(row.wide);
            moment.field().assign64(row.seconds);
            for (int32_t flag : flags) static_cast<SMF_FlagField&>(table.field(flag)).set(row.flags);
            table.commit();
        }
    });
}

std::shared_ptr<std::string> storeInColumns(const std::vector<Row>& rows, bool zlib, uint32_t zero) {
    return makeStore([&](SMF_Writer& writer) {
        writer.setCompressed(zlib);
        SMF_WriterTable table("memory.smf");
        SMF_RowBuffer buffer(table);
        SMF_I32Column i32[4];
        SMF_TextColumn texts[3];
        SMF_I64Column wide;
        SMF_SecondsColumn moment;
        SMF_FlagColumn flags[2];
        for (size_t i = 0; i < 4; ++i)
            i32[i].connect(buffer, std::string("I") + I32Formats[i], I32Formats[i]);
        for (size_t i = 0; i < 3; ++i)
            texts[i].connect(buffer, std::string("T") + TextFormats[i], TextFormats[i]);
        wide.connect(buffer, "Wide", "");
        moment.connect(buffer, "Moment", "D");
        for (size_t i = 0; i < 2; ++i)
            flags[i].connect(buffer, std::string("F") + FlagFormats[i], flagTags(FlagFormats[i]));
        table.create("T", writer, Block, zero);
        for (const Row& row : rows) {
            for (size_t i = 0; i < 4; ++i) i32[i].set(numberFor(I32Formats[i], row));
            for (SMF_TextColumn& text : texts) text.set(row.text);
            wide.set(row.wide);
            moment.set(row.seconds);
            for (SMF_FlagColumn& flag : flags) flag.set(row.flags);
            buffer.next();
        }
        buffer.flush();
        buffer.flush();  // nothing more
    });
}

std::string bytesOf(SMF_DecoderStream* stream) {
    std::string bytes(static_cast<size_t>(stream->length()), 0);
    if (!bytes.empty()) stream->seek(0);
    for (size_t at = 0; at < bytes.size(); at += Block)
        stream->read(bytes.data() + at, std::min<size_t>(Block, bytes.size() - at));
    return bytes;
}

// Every stream of a store's table, those of a moment's two parts too, by the name of its field.
std::vector<std::pair<std::string, std::string>> streamsOf(const std::shared_ptr<std::string>& store) {
    std::vector<std::pair<std::string, std::string>> streams;
    OpenTable open(store, "T");
    auto add = [&](const std::string& name, SMF_FieldDecoder& decoder) {
        streams.emplace_back(name + " data", bytesOf(decoder.dataStream()));
        streams.emplace_back(name + " jumps", bytesOf(decoder.jumpStream()));
    };
    for (const auto& field : open.table.meta().fields) {
        add(field->name, *field->decoder);
        if (field->type != SMF_TypeDateTime) continue;
        auto& moment = static_cast<SMF_DateTimeDecoder&>(*field->decoder);
        add("Dates", moment.dates());
        add("Times", moment.times());
    }
    return streams;
}

class RowBuffer : public testing::Test {
    XPK_ThreadScope scope_{true};
};

}  // namespace

TEST_F(RowBuffer, StoresTheBytesOfSingleRecords) {
    // Whole buffers and parts of one; restart points within a buffer, at its end, and beyond it.
    for (size_t count : {size_t{0}, size_t{1}, SMF_RowBuffer::Rows, 5 * SMF_RowBuffer::Rows + 9})
        for (uint32_t zero : {10u, 256u, 1000u}) {
            std::vector<Row> rows = makeRows(count);
            auto singly = storeSingly(rows, zero == 256, zero);
            auto columns = storeInColumns(rows, zero == 256, zero);
            EXPECT_EQ(OpenTable(columns, "T").table.rows(), static_cast<int64_t>(count));
            auto expected = streamsOf(singly), made = streamsOf(columns);
            ASSERT_EQ(made.size(), expected.size());
            for (size_t i = 0; i < made.size(); ++i) {
                EXPECT_EQ(made[i].first, expected[i].first);
                EXPECT_TRUE(made[i].second == expected[i].second)
                    << made[i].first << " of " << count << " rows, interval " << zero;
            }
        }
}

TEST_F(RowBuffer, RefusesWhatACommitRefuses) {
    auto fault = [](const char* format, auto&& set) {
        SMF_Writer writer;
        writer.open(std::make_unique<SharedFile>(std::make_shared<std::string>()));
        SMF_WriterTable table("memory.smf");
        SMF_RowBuffer buffer(table);
        std::string message = set(table, buffer, writer, format);
        // The store is lost.
        EXPECT_EQ(faultOf([&] { writer.close(); }),
                  "DatabaseError: The store is incomplete since an earlier failure");
        return message;
    };
    auto number = [](SMF_WriterTable& table, SMF_RowBuffer& buffer, SMF_Writer& writer, const char* format) {
        SMF_I32Column column;
        column.connect(buffer, "Value", format);
        table.create("T", writer, Block, 10);
        column.set(-1);
        buffer.next();
        return faultOf([&] { buffer.flush(); });
    };
    auto text = [](SMF_WriterTable& table, SMF_RowBuffer& buffer, SMF_Writer& writer, const char* format) {
        SMF_TextColumn column;
        column.connect(buffer, "Value", format);
        table.create("T", writer, Block, 10);
        column.set(std::string(0x8000, 'x'));
        buffer.next();
        return faultOf([&] { buffer.flush(); });
    };
    EXPECT_EQ(fault("R", number), "DatabaseError: The encoder does not support negative numbers");
    EXPECT_EQ(fault("F", text), "DatabaseError: The text is too long for the encoder");
    for (const char* format : {"", "D"})
        EXPECT_EQ(fault(format, text), "DatabaseError: String length is larger than 2x block");
}
