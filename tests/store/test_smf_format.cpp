// The file format: the worked example of docs/store-format.md, header records, streams and directories.
#include <fstream>
#include <sstream>

#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "plain_store.h"
#include "store/fields/smf_i32field.h"
#include "store/smf_decoderstream.h"
#include "store/smf_error.h"
#include "store_support.h"

namespace {

constexpr uint32_t Key = 0x01020304;

// The example of the documentation, made by hand: table "T", one I32 field "N" of scheme S, rows 1 and -2.
std::string example() {
    plain::File file;
    file.bytes.resize(72);  // the two raw records, whose numbers are known at the end
    plain::Record data = file.stream(plain::little(1, 4) + plain::little(0xFFFFFFFE, 4), 2, 4096);
    plain::Record jumps = file.stream(plain::little(0, 8), 2, 65536);

    std::string main;
    auto place = [&](plain::Record record) {
        record.key = Key;
        auto at = static_cast<int64_t>(main.size());
        main += record.at(at);
        return at;
    };
    plain::Record root;
    root.number64(66, 0);
    place(root);
    int64_t dataAt = place(data), jumpsAt = place(jumps);
    int64_t fieldAt = place(plain::Record()
                                .number64(70, 0)
                                .number(131, 3)
                                .number64(76, 2)
                                .number64(72, dataAt)
                                .number64(74, jumpsAt)
                                .number(136, 10)
                                .text(220, "N")
                                .text(222, "{}")
                                .text(221, "DSAD"));
    int64_t tableAt = place(plain::Record()
                                .number(109, 0)
                                .number64(68, 2)
                                .number64(70, fieldAt)
                                .number64(66, 0)
                                .number(107, 10)
                                .number(110, 4096)
                                .text(210, "T")
                                .text(211, "{}"));
    // The root record, rewritten in place.
    root = plain::Record().number64(66, tableAt);
    root.key = Key;
    main.replace(0, root.at(0).size(), root.at(0));

    plain::Record mainHeader = file.stream(main, 1, 0x100000);
    mainHeader.key = Key;
    plain::Record header;
    header.number(1, 3).number(2, 0).number(106, 0).number64(60, 31);
    header.key = Key;
    file.bytes.replace(0, 31, header.at(0));
    file.bytes.replace(31, 41, mainHeader.at(31));
    return file.bytes;
}

// The bytes of the hexadecimal dump in the documentation: lines "    0000  01 02 ...".
std::string documented() {
    std::ifstream in(QUILL_SOURCE_DIR "/docs/store-format.md");
    std::string out, line;
    while (std::getline(in, line)) {
        unsigned offset = 0;
        int used = 0;
        if (std::sscanf(line.c_str(), "    %4x %n", &offset, &used) != 1 || line.compare(0, 4, "    ") != 0 ||
            used != 10)
            continue;
        EXPECT_EQ(offset, out.size());
        std::istringstream bytes(line.substr(static_cast<size_t>(used)));
        for (unsigned byte; bytes >> std::hex >> byte;) out += static_cast<char>(byte);
    }
    return out;
}

std::shared_ptr<std::string> shared(std::string bytes) {
    return std::make_shared<std::string>(std::move(bytes));
}

}  // namespace

TEST(Format, TheWorkedExampleIsReadAndIsWhatItSays) {
    std::string bytes = example();
    EXPECT_EQ(documented(), bytes);
    OpenTable open(shared(bytes), "T");
    SMF_I32 n;
    n.connect(open.table, "n");
    open.table.top();
    open.table.next();
    EXPECT_EQ(n.get(), 1);
    open.table.next();
    EXPECT_EQ(n.get(), -2);
    EXPECT_FALSE(open.reader.compressed());
    EXPECT_EQ(open.reader.store()->file->damage().count, 0);
}

TEST(Format, TheWriterMakesTheDocumentedLayout) {
    auto bytes = makeStore([](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_I32 n;
        n.connect(table, "N", "S");
        table.create("T", writer, 100, 3);
        for (int32_t value : {1, -2}) {
            n.set(value);
            table.commit();
        }
    });
    OpenTable open(bytes, "T");
    // The first two records have their fixed places and sizes; 107 and 110 stand as given, 136 and 12 as
    // raised.
    SMF_HeaderReader header;
    header.read(*open.reader.store()->file, 0);
    EXPECT_EQ(header.numbers().size(), 5u);
    EXPECT_EQ(header.number64(SMF_MainStream), 31);
    header.read(*open.reader.store()->file, 31);
    EXPECT_EQ(header.numbers().size(), 7u);
    EXPECT_EQ(header.number(SMF_BlockSize), 0x100000);
    EXPECT_EQ(open.table.meta().zero, 3u);
    EXPECT_EQ(open.table.meta().blockSize, 100u);
    SMF_FieldDecoder& decoder = *open.table.meta().fields[0]->decoder;
    EXPECT_EQ(decoder.zeroInterval(), 10);
    EXPECT_EQ(decoder.dataStream()->blockSize(), 4096);
    EXPECT_EQ(decoder.jumpStream()->blockSize(), 65536);
    EXPECT_EQ(decoder.fieldRows(), 2);
}

// Numbers keep their place and length; strings and the count of numbers are final once the record stands.
TEST(Format, HeaderRecordsHoldWhatTheyAreGiven) {
    auto bytes = std::make_shared<std::string>();
    SharedFile file(bytes);
    SMF_HeaderWriter writer(file);
    EXPECT_EQ(faultOf([&] { writer.update(); }), "SystemError: update has been called before append");
    for (int code = 1; code < 16; ++code) writer.setNumber(code, code * 1000 - 7000);
    writer.setNumber64(100, (int64_t{1} << 61) + 12345678901);
    std::string texts[] = {"", std::string(254, 'x'), std::string(255, 'y'), std::string(70000, 'z')};
    for (int i = 0; i < 4; ++i) writer.setString(200 + i, texts[i]);
    // A reader's record has room for 16 numbers; this one has 17.
    writer.append();
    SMF_HeaderReader reader;
    EXPECT_EQ(faultOf([&] { reader.read(file, 0); }), "DatabaseError: The database has a corrupt header");

    SMF_HeaderWriter second(file);
    second.setNumber64(100, (int64_t{1} << 61) + 12345678901);
    for (int i = 0; i < 4; ++i) second.setString(200 + i, texts[i]);
    second.append();
    size_t length = bytes->size();
    second.setNumber64(100, 77);
    second.update();
    EXPECT_EQ(bytes->size(), length);
    reader.read(file, second.home());
    EXPECT_EQ(reader.number64(100), 77);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(reader.string(200 + i), texts[i]);
    EXPECT_EQ(faultOf([&] { reader.number(5); }), "DatabaseError: The database has a corrupt header");
    EXPECT_EQ(faultOf([&] { second.setNumber(5, 1); }), "DatabaseError: Cannot add additional numbers");
    EXPECT_EQ(faultOf([&] { second.setString(200, ""); }), "DatabaseError: Cannot update committed strings");

    SMF_HeaderWriter full(file);
    for (int code = 0; code < 31; ++code) full.setNumber(code, 0);
    EXPECT_EQ(faultOf([&] { full.setNumber(50, 0); }), "DatabaseError: Too many numbers");
    for (int code = 200; code < 208; ++code) full.setString(code, "");
    EXPECT_EQ(faultOf([&] { full.setString(208, ""); }), "DatabaseError: Too many strings");
}

TEST(Format, CorruptRecordsAreRefused) {
    auto fault = [](const plain::Record& record, size_t cut = std::string::npos) {
        SMF_MemoryFile file("m", record.at(0).substr(0, cut));
        return faultOf([&] {
            SMF_HeaderReader reader;
            reader.read(file, 0);
        });
    };
    const char* corrupt = "DatabaseError: The database has a corrupt header";
    EXPECT_EQ(fault(plain::Record().number(1, 5).text(200, "abc")), "none");
    plain::Record keyless = plain::Record().number(1, 5);
    keyless.withKey = false;
    EXPECT_EQ(fault(keyless), corrupt);
    EXPECT_EQ(fault(plain::Record().number(1, 5).number(1, 5)), corrupt);
    EXPECT_EQ(fault(plain::Record().text(200, "a").text(200, "a")), corrupt);
    for (size_t cut = 0; cut < 20; ++cut)
        EXPECT_EQ(fault(plain::Record().number(1, 5).text(200, "abcdefg"), cut), corrupt) << cut;
    plain::Record five;
    for (int i = 0; i < 5; ++i) five.text(200 + i, "");
    EXPECT_EQ(fault(five), corrupt);
}

// Writes that cross blocks, rewrites in the last two blocks, and the limits of both.
TEST(Format, StreamsKeepTheirLastTwoBlocksOpen) {
    for (bool zlib : {true, false}) {
        auto bytes = std::make_shared<std::string>();
        SharedFile file(bytes);
        SMF_EncoderStream stream(file, nullptr, zlib, 100);
        ASSERT_EQ(stream.blockSize(), 4096u);
        std::string content;
        for (int i = 0; i < 3000; ++i) content += std::to_string(i * i);
        for (size_t at = 0; at < content.size();) {
            size_t n = std::min(content.size() - at, size_t{1} + at % 4096);
            stream.write(content.data() + at, n);
            at += n;
        }
        auto end = static_cast<int64_t>(content.size());
        stream.rewrite(end - 4096, "REWRITTEN", 9);
        content.replace(static_cast<size_t>(end - 4096), 9, "REWRITTEN");
        EXPECT_EQ(faultOf([&] { stream.rewrite(end - 9000, "x", 1); }),
                  "DatabaseError: String length is larger than 2x block");
        EXPECT_EQ(faultOf([&] { stream.rewrite(end - 1, "xx", 2); }),
                  "DatabaseError: String length is larger than 2x block");
        std::string large(8193, 'l');
        EXPECT_FALSE(stream.fits(large.size()));
        EXPECT_EQ(faultOf([&] { stream.write(large.data(), large.size()); }),
                  "DatabaseError: String length is larger than 2x block");
        ASSERT_EQ(stream.position(), end);
        // Up to the end of a block exactly: its last block is one byte longer than a block.
        size_t rest = 4096 - content.size() % 4096;
        ASSERT_TRUE(stream.fits(rest - 2));
        stream.write(large.data(), rest);
        content += large.substr(0, rest);
        stream.finish();

        SMF_HeaderReader header;
        header.read(file, 0);
        SMF_DecoderStream in(file, header, "test");
        ASSERT_EQ(in.length(), static_cast<int64_t>(content.size()));
        ASSERT_EQ(in.blockCount() * 4096, in.length());
        EXPECT_TRUE(in.verify());
        std::string got(content.size(), 0);
        in.seek(0);
        in.read(got.data(), got.size());
        EXPECT_EQ(got, content);
        for (int64_t at = in.length() - 1; at >= 0; at -= 777) {
            in.seek(at);
            EXPECT_EQ(in.readByte(), static_cast<uint8_t>(content[static_cast<size_t>(at)]));
        }
        in.seek(in.length() - 1);
        in.readByte();
        EXPECT_EQ(faultOf([&] { in.readByte(); }), "DatabaseError: Record reader has detected illegal data");
        EXPECT_EQ(faultOf([&] { in.seek(in.length()); }).substr(0, 14), "AssertionError");
    }
}

// What a damaged block lacks reads as zero, and the file says which block it was.
TEST(Format, DamagedBlocksReadAsZero) {
    auto fault = [](const std::function<void(std::string&, plain::Record&)>& damage) {
        plain::File file;
        file.bytes.resize(64);
        plain::Record header = file.stream(std::string(5000, 'a'), 2, 4096);
        damage(file.bytes, header);
        file.bytes.replace(0, header.at(0).size(), header.at(0));
        SMF_MemoryFile memory("m", file.bytes);
        std::string got(5000, '?');
        std::string error = faultOf([&] {
            SMF_HeaderReader reader;
            reader.read(memory, 0);
            SMF_DecoderStream in(memory, reader, "s");
            in.seek(4096);
            in.read(got.data(), 904);
            in.seek(0);
            in.read(got.data(), got.size());
        });
        if (error != "none") return error;
        return std::to_string(memory.damage().count) + " " +
               std::to_string(std::count(got.begin(), got.end(), 'a')) + " " +
               std::to_string(std::count(got.begin(), got.end(), '\0'));
    };
    EXPECT_EQ(fault([](std::string&, plain::Record&) {}), "0 5000 0");
    // The first block begins at 64: length, token, literal length bytes, literals.
    auto put = [](size_t at, const std::string& damage) {
        return [=](std::string& bytes, plain::Record&) { bytes.replace(at, damage.size(), damage); };
    };
    EXPECT_EQ(fault(put(68, "\x1F")), "1 904 4096");
    EXPECT_EQ(fault(put(64, "\x01")), "1 904 4096");
    EXPECT_EQ(fault(put(64, plain::little(0x7FFFFFFF, 4))), "1 904 4096");
    EXPECT_EQ(fault(put(64, plain::little(0xFFFFFFFF, 4))).substr(0, 14), "AssertionError");
    auto set = [](int code, int32_t value) {
        return [=](std::string&, plain::Record& header) {
            for (auto& entry : header.numbers)
                if (entry.first == code) entry.second = value;
        };
    };
    const char* corrupt = "DatabaseError: The database has a corrupt header";
    for (int32_t value : {0, -1, INT32_MAX}) EXPECT_EQ(fault(set(12, value)), corrupt) << value;
    for (int32_t value : {-1, 1, INT32_MAX}) EXPECT_EQ(fault(set(13, value)), corrupt) << value;
    for (int32_t value : {-1, INT32_MAX}) EXPECT_EQ(fault(set(62, value)), corrupt) << value;
    for (int32_t value : {-1, INT32_MAX}) EXPECT_EQ(fault(set(64, value)), corrupt) << value;
    // One block named 200 times makes more than a file of this size can hold.
    auto again = [](std::string& bytes, plain::Record& header) {
        for (auto& entry : header.numbers) {
            if (entry.first == 12) entry.second = 1 << 30;
            if (entry.first == 13) entry.second = 200;
            if (entry.first == 63) entry.second = 99;
            if (entry.first == 64) entry.second = static_cast<int32_t>(bytes.size());
        }
        for (int i = 0; i < 200; ++i) bytes += plain::little(64, 8);
    };
    EXPECT_EQ(fault(again), corrupt);
}

TEST(Format, TablesAreFoundAndLimited) {
    auto bytes = makeStore([](SMF_Writer& writer) {
        for (int i = 0; i < 1024; ++i) {
            SMF_WriterTable table("m");
            table.create("T" + std::to_string(i), writer, 0, 0);
        }
        SMF_WriterTable more("m");
        EXPECT_EQ(faultOf([&] { more.create("more", writer, 0, 0); }),
                  "DatabaseError: writer.MaxTables exceded");
    });
    OpenTable open(bytes, "T1023");
    EXPECT_EQ(open.reader.tables().size(), 1024u);
    EXPECT_EQ(open.reader.location("T1024"), -1);
    EXPECT_EQ(faultOf([&] { open.table.connect(open.reader, "t0"); }),
              "DatabaseError: Unable to determine internal table location t0");
    // 0 rows: top and next leave position 1.
    open.table.connect(open.reader, "T0");
    open.table.top();
    open.table.next();
    EXPECT_EQ(open.table.position(), 1);
    EXPECT_EQ(faultOf([&] { open.table.seek(1); }), "DatabaseError: Seek past end of table");
}

// A store is whole only after its close; a header that cannot be closed is refused when it is made.
TEST(Format, IncompleteStoresAreRefused) {
    auto bytes = std::make_shared<std::string>();
    SMF_Writer writer;
    writer.open(std::make_unique<SharedFile>(bytes));
    SMF_WriterTable table("m"), wide("m");
    SMF_I32 n;
    n.connect(table, "N", "R");
    table.create("T", writer, 4096, 10);
    n.set(5);
    table.commit();
    SMF_Reader reader;
    EXPECT_EQ(faultOf([&] { reader.open(std::make_unique<SharedFile>(shared(*bytes))); }),
              "DatabaseError: The database has a corrupt header");
    // Options beyond two blocks of the main stream.
    wide.meta().setOption("o", IPE_String(std::string(0x200000, 'o')));
    EXPECT_EQ(faultOf([&] { wide.create("W", writer, 4096, 10); }),
              "DatabaseError: String length is larger than 2x block");
    n.set(-1);
    EXPECT_EQ(faultOf([&] { table.commit(); }),
              "DatabaseError: The encoder does not support negative numbers");
    n.set(6);
    table.commit();
    writer.close();
    OpenTable open(bytes, "T");
    EXPECT_EQ(open.table.rows(), 2);
    EXPECT_EQ(open.reader.tables().size(), 1u);
}

TEST(Format, FieldsAddedLateAndTypesWithoutAClass) {
    auto bytes = makeStore([](SMF_Writer& writer) {
        SMF_WriterTable table("m");
        SMF_I32 n, late;
        n.connect(table, "N", "R");
        table.create("T", writer, 4096, 10);
        late.connect(table, "Late", "R");
        n.set(7);
        late.set(-1);
        table.commit();
        SMF_WriterTable none("m");
        none.addField("x", 1, {});
        EXPECT_EQ(faultOf([&] { none.create("none", writer, 0, 0); }),
                  "SystemError: There is no field encoder available for BS");
    });
    OpenTable open(bytes, "T");
    EXPECT_EQ(open.table.rows(), 1);
    EXPECT_EQ(open.table.meta().fields.size(), 1u);
    // A handle of a table that is connected anew has to be connected anew, too.
    SMF_I32 n;
    n.connect(open.table, "N");
    open.table.connect(open.reader, "T");
    EXPECT_EQ(faultOf([&] { n.get(); }), "DatabaseError: Field is not connected to a table");
}
