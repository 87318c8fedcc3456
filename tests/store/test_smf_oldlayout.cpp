// Files of the older layouts, which nothing writes any more: rows in one shared stream, 32-bit jumps,
// directories by number 106 and by pairs, options and tags as chains, texts in the OEM code page, flags named
// by the label table.
#include "ipe/values/ipe_dicttype.h"
#include "plain_store.h"
#include "store/fields/smf_i32field.h"
#include "store/filters/smf_recordfilter.h"
#include "store/filters/smf_rowsieve.h"
#include "store_support.h"

namespace {

struct OldHeader {
    const char* name;
    int32_t type;
    const char* key;
    size_t page;  // 0 for schemes without pages
    std::vector<std::pair<std::string, std::string>> tags;
};
struct OldField : OldHeader {
    // The bytes that the decoder takes for row `i` of an interval that begins at row `start`.
    std::string (*encode)(int64_t i, int64_t start);
    std::string (*shown)(int64_t i);
};

std::string text(const std::string& bytes) { return std::string(1, static_cast<char>(bytes.size())) + bytes; }

const OldField fields[] = {
    {{"Number", 3, "DSAD", 0, {}},
     [](int64_t i, int64_t) { return plain::little(static_cast<uint64_t>(i * 3 - 5), 4); },
     [](int64_t i) { return std::to_string(i * 3 - 5); }},
    {{"Name", 10, "KSAD", 0, {{"style", "pathname"}}},
     [](int64_t i, int64_t) { return text("Gr\x81n" + std::to_string(i)); },
     [](int64_t i) { return "Gr\xC3\xBCn" + std::to_string(i); }},
    {{"Small", 3, "DMAD", 32, {}},
     [](int64_t i, int64_t) {
         return i % 2 ? std::string("\x41", 1) : std::string("\xC0", 1) + static_cast<char>(i % 60);
     },
     [](int64_t i) { return i % 2 ? std::string("-1") : std::to_string(64 + i % 60 * 128); }},
    // Runs of five days; the entry is new in each interval.
    {{"Day", 5, "FDAD", 32, {}},
     [](int64_t i, int64_t start) {
         if ((i - start) % 5) return std::string();
         return std::string("\x05", 1) + static_cast<char>(0x80 | (i - start) / 5 % 128) +
                static_cast<char>(1 + i / 5 % 28) + "\x06" + plain::little(1999, 2);
     },
     [](int64_t i) {
         char out[16];
         std::snprintf(out, sizeof out, "1999-06-%02d", static_cast<int>(1 + i / 5 % 28));
         return std::string(out);
     }},
    // A leaf of its own and a branch that the interval's first row defines.
    {{"Tree", 8, "ISAD", 0, {{"R", "T"}}},
     [](int64_t i, int64_t start) {
         std::string out("\x01\x80", 2);
         out += text("l\x84" + std::to_string(i));
         if (i == start) return out + std::string("\x80\x02\x81", 3) + text("top") + '\x82' + text("sub");
         return out + '\0';
     },
     [](int64_t i) { return "['top', 'sub', 'l\xC3\xA4" + std::to_string(i) + "']"; }},
    {{"Bits",
      7,
      "HSAD",
      0,
      {{"C", "4"},
       {"S0.", "0102061440"},
       {"S1.", "0102061442"},
       {"S2.", "0102061444"},
       {"S3.", "0102061446"}}},
     [](int64_t i, int64_t) { return std::string(1, static_cast<char>(i % 16)); },
     [](int64_t i) {
         std::string out;
         for (int bit = 0; bit < 4; ++bit)
             if (i >> bit & 1) out += std::string(out.empty() ? "" : ",") + "RHSA"[bit];
         return out;
     }},
};

// The shared stream of all rows, with the position of each restart point. Pages enter it when their decoder
// needs its first byte of them.
std::string recordsOf(int64_t rows, int64_t zero, std::vector<int64_t>& jumps) {
    std::string out;
    int64_t interval = zero ? zero : rows;
    for (int64_t start = 0; start < rows; start += interval) {
        jumps.push_back(static_cast<int64_t>(out.size()));
        int64_t end = std::min(rows, start + interval);
        for (int64_t i = start; i < end; ++i)
            for (const OldField& field : fields) {
                std::string bytes = field.encode(i, start);
                if (!field.page) {
                    out += bytes;
                    continue;
                }
                std::string whole;
                size_t before = 0;
                for (int64_t k = start; k < end; ++k) {
                    if (k == i) before = whole.size();
                    whole += field.encode(k, start);
                }
                whole.resize((whole.size() + field.page - 1) / field.page * field.page);
                size_t from = (before + field.page - 1) / field.page,
                       to = (before + bytes.size() + field.page - 1) / field.page;
                for (size_t page = from; page < to; ++page)
                    out += whole.substr(page * field.page, field.page);
            }
    }
    return out;
}

std::string oldFile(int64_t rows, int64_t zero, bool directory, int mode, int32_t loop = 0) {
    plain::File file;
    size_t headerSize = plain::Record().number(2, 0).number(106, 0).number(108, 0).at(0).size();
    file.bytes.resize(headerSize);
    std::vector<int64_t> jumps;
    std::string records = recordsOf(rows, zero, jumps), jumpBytes;
    for (int64_t at : jumps) jumpBytes += plain::little(static_cast<uint64_t>(at), 4);
    plain::Record dataHeader = file.stream(records, mode, 4096, false),
                  jumpHeader = file.stream(jumpBytes, mode, 4096, false);
    int64_t data = file.append(dataHeader), jump = file.append(jumpHeader);
    auto chain = [&](const std::vector<std::pair<std::string, std::string>>& pairs) {
        int64_t next = -1;
        for (size_t i = pairs.size(); i-- > 0;)
            next = file.append(plain::Record()
                                   .number(20, static_cast<int32_t>(next))
                                   .text(200, pairs[i].first)
                                   .text(201, pairs[i].second));
        return static_cast<int32_t>(next);
    };
    int64_t next = -1;
    for (size_t i = std::size(fields); i-- > 0;) {
        int32_t tags = chain(fields[i].tags);
        next = file.append(plain::Record()
                               .number(130, static_cast<int32_t>(next))
                               .number(131, fields[i].type)
                               .number(132, tags)
                               .text(220, fields[i].name)
                               .text(221, fields[i].key));
    }
    int32_t options = chain({{"made", "long ago"}});
    auto tableAt = static_cast<int64_t>(file.bytes.size());
    file.append(plain::Record()
                    .number(100, options)
                    .number(101, static_cast<int32_t>(rows))
                    .number(102, 0)
                    .number(103, static_cast<int32_t>(std::size(fields)))
                    .number(104, static_cast<int32_t>(data))
                    .number(105, zero ? static_cast<int32_t>(jump) : -1)
                    .number(106, loop ? static_cast<int32_t>(tableAt) : -1)
                    .number(107, static_cast<int32_t>(zero))
                    .number(130, static_cast<int32_t>(next))
                    .text(210, "Old"));
    int32_t pairs = chain({{"Old", std::to_string(tableAt)}});
    std::string header = plain::Record()
                             .number(2, directory ? 1 : 0)
                             .number(106, static_cast<int32_t>(tableAt))
                             .number(108, pairs)
                             .at(0);
    file.bytes.replace(0, headerSize, header);
    return file.bytes;
}

std::string rowOf(SMF_ReaderTable& table) {
    std::string out;
    for (size_t f = 0; f < std::size(fields); ++f) {
        IPE_Object value = table.asObject(static_cast<int64_t>(f));
        out += (fields[f].type == 8 ? IPE_Object_ToString(value) : IPE_Object_Text(value)) + "|";
    }
    return out;
}

std::string wanted(int64_t i) {
    std::string out;
    for (const OldField& field : fields) out += field.shown(i) + "|";
    return out;
}

std::shared_ptr<std::string> shared(std::string bytes) {
    return std::make_shared<std::string>(std::move(bytes));
}

}  // namespace

TEST(OldLayout, RowsReadForwardAndBySeek) {
    for (bool directory : {false, true})
        for (int mode : {0, 1, 2})
            for (int64_t zero : {0, 20, 1000}) {
                SCOPED_TRACE(std::to_string(directory) + " " + std::to_string(mode) + " " +
                             std::to_string(zero));
                OpenTable open(shared(oldFile(300, zero, directory, mode)), "Old");
                SMF_ReaderTable& table = open.table;
                ASSERT_EQ(table.rows(), 300);
                EXPECT_FALSE(open.reader.hasMainStream());
                SMF_I32 number;
                number.connect(table, "number");
                table.top();
                table.next();
                for (int64_t i = 0; i < 300; ++i, table.next()) {
                    ASSERT_EQ(rowOf(table), wanted(i)) << i;
                    ASSERT_EQ(number.get(), i * 3 - 5);
                }
                EXPECT_EQ(table.position(), 301);
                EXPECT_EQ(open.reader.store()->file->damage().count, 0);
                for (int64_t row : {300, 1, 2, 299, 21, 20, 19, 150, 150, 151, 40, 41, 300}) {
                    table.seek(row);
                    ASSERT_EQ(rowOf(table), wanted(row - 1)) << row;
                    ASSERT_EQ(number.get(), row * 3 - 8);
                    ASSERT_EQ(table.position(), row);
                }
                table.seek(0);
                table.next();
                EXPECT_EQ(rowOf(table), wanted(0));
                EXPECT_EQ(faultOf([&] { table.seek(301); }), "DatabaseError: Seek past end of table");
                SMF_RecordFilter filter(table, nullptr);
                filter.compile("Number > 300 and Name = '7$' and Day >= 1999-06-10");
                SMF_RowSieve sieve;
                table.seek(1);
                std::vector<int64_t> found, expected;
                for (; sieve.find(table, filter.conjunction(), 300) && table.position() < 300; table.next())
                    found.push_back(table.position());
                for (int64_t i = 102; i < 300; ++i)
                    if (i % 10 == 7 && i / 5 % 28 >= 9) expected.push_back(i + 1);
                EXPECT_EQ(found, expected);
            }
}

TEST(OldLayout, OptionsTagsAndEmptyTables) {
    OpenTable open(shared(oldFile(0, 20, false, 1)), "Old");
    EXPECT_EQ(IPE_Object_ToString(open.table.meta().options), "{'made': 'long ago'}");
    EXPECT_EQ(open.table.meta().fields[1]->tagText("style"), "pathname");
    EXPECT_EQ(open.table.meta().blockSize, 4096u);
    open.table.top();
    open.table.next();
    EXPECT_EQ(open.table.position(), 1);
}

TEST(OldLayout, DamageIsNamed) {
    auto fault = [](std::string bytes) {
        return faultOf([&] {
            OpenTable open(shared(std::move(bytes)), "Old");
            open.table.top();
            for (open.table.next(); open.table.position() <= open.table.rows(); open.table.next())
                rowOf(open.table);
            for (int64_t row = open.table.rows(); row > 0; row -= 7) open.table.seek(row);
        });
    };
    EXPECT_EQ(fault(oldFile(30, 20, false, 1)), "none");
    EXPECT_EQ(fault(oldFile(30, 20, false, 1, 1)), "DatabaseError: The database has a corrupt header");
    EXPECT_EQ(fault(plain::Record().number(2, 0).number(106, 0).at(0)),
              "DatabaseError: The database file is empty");
    std::string whole = oldFile(30, 20, true, 2);
    for (size_t at = 0; at < whole.size(); ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ (at % 2 ? 0x81 : 0x18));
        std::string type = fault(std::move(bytes));
        type = type.substr(0, type.find(':'));
        EXPECT_TRUE(type == "none" || type == "DatabaseError" || type == "AssertionError" ||
                    type == "SystemError" || type == "IndexError")
            << type << " at " << at;
    }
}

// Numbers that no writer makes: jumps without records, more rows than a position can count, names that lie
// within each other.
TEST(OldLayout, OddNumbersEnd) {
    auto table = [](int32_t jump, int32_t zero, int32_t rowsHigh) {
        plain::File file;
        size_t headerSize = plain::Record().number(2, 0).number(106, 0).at(0).size();
        file.bytes.resize(headerSize);
        int64_t jumps = file.append(file.stream(std::string(8, 0), 0, 4096, false));
        int64_t at = file.append(plain::Record()
                                     .number(100, -1)
                                     .number(101, 5)
                                     .number(102, rowsHigh)
                                     .number(103, 0)
                                     .number(104, -1)
                                     .number(105, jump ? static_cast<int32_t>(jumps) : -1)
                                     .number(106, -1)
                                     .number(107, zero)
                                     .number(130, -1)
                                     .text(210, "Old"));
        file.bytes.replace(0, headerSize,
                           plain::Record().number(2, 0).number(106, static_cast<int32_t>(at)).at(0));
        return shared(file.bytes);
    };
    for (int32_t jump : {0, 1})
        for (int32_t zero : {0, 1, 20}) {
            OpenTable open(table(jump, zero, INT32_MAX), "Old");
            open.table.seek(open.table.rows());
            EXPECT_EQ(open.table.position(), open.table.rows());
        }

    // 200 table headers, the name of each reaching to the end that they share.
    constexpr size_t Count = 200, Step = 22;
    size_t headerSize = plain::Record().number(2, 0).number(106, 0).at(0).size();
    std::string bytes = plain::Record().number(2, 0).number(106, static_cast<int32_t>(headerSize)).at(0);
    size_t end = headerSize + Count * Step + 300;
    for (size_t i = 0; i < Count; ++i) {
        size_t at = bytes.size();
        int32_t next = i + 1 < Count ? static_cast<int32_t>(at + Step) : -1;
        std::string head = plain::Record().number(106, next).at(static_cast<int64_t>(at));
        head.pop_back();
        auto tag = static_cast<char>(210 ^ static_cast<uint8_t>(at + head.size()));
        head += tag;
        head += static_cast<char>(tag ^ '\xFF');
        head += plain::big32(static_cast<uint32_t>(end - at - head.size() - 4));
        head.resize(Step, 'x');
        bytes += head;
    }
    bytes.resize(end, 'x');
    bytes += static_cast<char>(255 ^ static_cast<uint8_t>(end));
    SMF_Reader reader;
    EXPECT_EQ(faultOf([&] { reader.open(std::make_unique<SharedFile>(shared(bytes))); }),
              "DatabaseError: The database has a corrupt header");
}
