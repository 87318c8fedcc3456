// The codecs of numbers, dates and times.
#include <gtest/gtest.h>

#include "codec_contract.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_literal.h"
#include "one_codec.h"
#include "store/fields/smf_datefield.h"
#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_i32field.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_timefield.h"

using namespace codec_contract;

namespace {

SMF_DateTimeValue moment(int p, int64_t i) {
    auto n = static_cast<uint64_t>(number(p, i));
    return {{int8_t(n % 31 + 1), int8_t(n / 31 % 12 + 1), int16_t(n / 372 % 10000)},
            {int8_t(n / 3600 % 24), int8_t(n / 60 % 60), int8_t(n % 60)}};
}
std::string text(const char* format, int a, int b, int c) {
    char out[32];
    snprintf(out, sizeof out, format, a, b, c);
    return out;
}
std::string dateText(const SMF_DateValue& d) { return text("%04d-%02d-%02d", d.year, d.month, d.day); }
std::string timeText(const SMF_TimeValue& t) { return text("%02d:%02d:%02d", t.hour, t.minute, t.second); }
IPE_Object list(std::initializer_list<int64_t> items) {
    IPE_Object out = IPE_NewList();
    for (int64_t item : items) out.as<IPE_ListType>()->append(IPE_Int(item));
    return out;
}
IPE_Object clock(int64_t hour, int64_t minute, int64_t second) { return list({hour, minute, second}); }

IPE_Object narrow(int p, int64_t i) { return IPE_Int(static_cast<int32_t>(number(p, i))); }
IPE_Object natural(int p, int64_t i) { return IPE_Int(number(p, i) & INT32_MAX); }
IPE_Object wide(int p, int64_t i) { return IPE_Int(number(p, i)); }
IPE_Object date(int p, int64_t i) { return IPE_String(dateText(moment(p, i).date)); }
IPE_Object time(int p, int64_t i) {
    SMF_TimeValue t = moment(p, i).time;
    return clock(t.hour, t.minute, t.second);
}
IPE_Object timeRead(int p, int64_t i) { return IPE_String(timeText(moment(p, i).time)); }
IPE_Object dateTime(int p, int64_t i) {
    SMF_DateTimeValue m = moment(p, i);
    return IPE_String(dateText(m.date) + " " + timeText(m.time));
}

const Case cases[] = {
    {"DSAE", "", SMF_TypeI32, narrow},         {"DDAE", "D", SMF_TypeI32, narrow},
    {"DMAE", "M", SMF_TypeI32, narrow},        {"DRAE", "R", SMF_TypeI32, natural},
    {"ESAE", "", SMF_TypeI64, wide},           {"FSAE", "", SMF_TypeDate, date},
    {"FDAE", "D", SMF_TypeDate, date},         {"GSAE", "", SMF_TypeTime, time, timeRead},
    {"JDAE", "D", SMF_TypeDateTime, dateTime},
};

std::string hex(std::string_view bytes) {
    std::string out;
    for (char byte : bytes) out += text("%02x", static_cast<uint8_t>(byte), 0, 0);
    return out;
}
std::string whole(SMF_DecoderStream& stream) {
    std::string bytes(static_cast<size_t>(stream.length()), '\0');
    stream.read(bytes.data(), bytes.size());
    return bytes;
}
// The bytes of the data stream of these values.
std::string bytesOf(const char* key, const std::vector<IPE_Object>& values, uint32_t zero = 1000) {
    OneCodec codec(key, key[0] - 'A', {}, zero);
    for (const IPE_Object& value : values) codec.put(value);
    codec.close();
    return hex(codec.bytes());
}
std::string zeros(size_t bytes) { return std::string(2 * bytes, '0'); }
std::vector<IPE_Object> integers(std::initializer_list<int64_t> values) {
    std::vector<IPE_Object> out;
    for (int64_t value : values) out.push_back(IPE_Int(value));
    return out;
}
std::vector<IPE_Object> texts(std::initializer_list<const char*> values) {
    std::vector<IPE_Object> out;
    for (const char* value : values) out.push_back(IPE_String(value));
    return out;
}

// The texts of `rows` rows of a stream of any bytes, and the fault that ends them, if any.
std::string readRaw(const std::string& key, std::string_view bytes, int rows, const IPE_Object& extra = {}) {
    std::string out;
    std::string fault = faultOf([&] {
        OneCodec codec(key.substr(0, 3), key[0] - 'A');
        codec.raw(bytes, rows, extra);
        for (int row = 1; row <= rows; ++row) out += IPE_Object_Text(codec.value(row)) + " ";
    });
    return fault == "none" ? out : out + fault;
}

}  // namespace

TEST(NumberCodecs, EveryPatternReadsBack) { checkEveryPattern(cases); }

TEST(NumberCodecs, BytesOfEachScheme) {
    EXPECT_EQ(bytesOf("DSA", integers({1, -2, 0x01020304})), "01000000feffffff04030201");
    EXPECT_EQ(bytesOf("DDA", integers({5, 5, -1, 5})), "80050000000081ffffffff00");
    EXPECT_EQ(bytesOf("DMA", integers({-1, 63, 64, -64, INT32_MIN})), "413fc000c0408080808048" + zeros(21));
    EXPECT_EQ(bytesOf("DRA", integers({0, 300, 300, 300, INT32_MAX})), "010003ac0201ffffffff07" + zeros(21));
    EXPECT_EQ(bytesOf("ESA", integers({-1, 64, INT64_MIN})), "41c00080808080808080808041" + zeros(19));
    auto dates = texts({"2020-12-31", "2020-12-31", "1999-01-02", "2020-12-31", "2020-13-01"});
    EXPECT_EQ(bytesOf("FSA", dates), "1f0ce4071f0ce4070201cf071f0ce40700000000");
    EXPECT_EQ(bytesOf("FDA", dates), "02801f0ce40701810201cf070100018200000000" + zeros(12));
    EXPECT_EQ(bytesOf("GSA", {clock(1, 2, 3), clock(1, 2, 3), clock(23, 60, 60), clock(24, 0, 0)}),
              "0201020301173c3c01000000" + zeros(20));
}

TEST(NumberCodecs, RestartPointsBeginPagesRunsAndDictionaries) {
    std::vector<IPE_Object> sevens(11, IPE_Int(7)), days(11, IPE_String("2001-02-03")),
        noons(11, clock(12, 0, 0));
    EXPECT_EQ(bytesOf("DRA", sevens, 10), "0a07" + zeros(30) + "0107" + zeros(30));
    EXPECT_EQ(bytesOf("DDA", sevens, 10), "8007000000" + zeros(9) + "8007000000");
    EXPECT_EQ(bytesOf("FDA", days, 10), "0a800302d107" + zeros(26) + "01800302d107" + zeros(26));
    EXPECT_EQ(bytesOf("GSA", noons, 10), "0a0c0000" + zeros(28) + "010c0000" + zeros(28));
    // 9 times take two pages; the rest of the second is zero.
    std::vector<IPE_Object> minutes;
    std::string expected;
    for (int i = 0; i < 9; ++i) {
        minutes.push_back(clock(0, i, 0));
        expected += text("0100%02x00", i, 0, 0);
    }
    EXPECT_EQ(bytesOf("GSA", minutes), expected + zeros(28));
}

TEST(NumberCodecs, RunsHold250) {
    for (size_t count : {249, 250, 251}) {
        std::string length = text("%02x", static_cast<int>(std::min<size_t>(count, 250)), 0, 0);
        auto begins = [&](const char* key, const IPE_Object& value, const std::string& first,
                          const std::string& next) {
            std::string want = length + first + (count > 250 ? "01" + next : "00");
            EXPECT_EQ(bytesOf(key, std::vector<IPE_Object>(count, value)).substr(0, want.size()), want);
        };
        begins("DRA", IPE_Int(7), "07", "07");
        begins("FDA", IPE_String("2001-02-03"), "800302d107", "00");
        begins("GSA", clock(1, 2, 3), "010203", "010203");
    }
}

TEST(NumberCodecs, TheOldestEntryGivesWay) {
    std::vector<IPE_Object> numbers, days;
    auto add = [&](int64_t i) {
        numbers.push_back(IPE_Int(i));
        days.push_back(IPE_String(text("%04d-01-01", static_cast<int>(i), 0, 0)));
    };
    for (int64_t i = 0; i < 128; ++i) add(i);
    add(0);
    std::string dictionary = bytesOf("DDA", numbers), dates = bytesOf("FDA", days);
    EXPECT_EQ(dictionary.substr(2 * 127 * 5), "ff7f00000000");
    add(200);  // 0 is the youngest now
    add(1);
    add(0);
    EXPECT_EQ(bytesOf("DDA", numbers), dictionary + "81c8000000820100000000");
    dates.resize(2 * (128 * 6 + 2));
    std::string longer = dates + "01810101c80001820101010001" + "00";
    EXPECT_EQ(bytesOf("FDA", days).substr(0, longer.size()), longer);
}

TEST(NumberCodecs, WhatCannotBeIsNotStored) {
    auto store = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_Date day;
        SMF_Time hour;
        SMF_I32 plain, run;
        day.connect(table, "Day", "D");
        hour.connect(table, "Hour", "");
        plain.connect(table, "Plain", "");
        run.connect(table, "Run", "R");
        table.create("T", writer, 4096, 10);
        for (SMF_DateValue date :
             {SMF_DateValue{31, 12, 9999}, {1, 1, 10000}, {32, 1, 1}, {1, 13, 1}, {-1, 1, 1}, {1, 1, -1}}) {
            day.set(date);
            table.commit();
        }
        for (SMF_TimeValue time :
             {SMF_TimeValue{23, 60, 60}, {24, 0, 0}, {0, 61, 0}, {0, 0, 61}, {-1, 0, 0}}) {
            hour.set(time);
            table.commit();
        }
        plain.set(1);
        run.set(-1);
        EXPECT_EQ(faultOf([&] { table.commit(); }),
                  "DatabaseError: The encoder does not support negative numbers");
        run.set(5);
        table.commit();
    });
    OpenTable open(store, "T");
    ASSERT_EQ(open.table.rows(), 12);
    auto at = [&](int64_t row, int field) {
        open.table.seek(row);
        return IPE_Object_Text(open.table.asObject(field));
    };
    EXPECT_EQ(at(1, 0), "9999-12-31");
    for (int64_t row = 2; row <= 6; ++row) EXPECT_EQ(at(row, 0), "0000-00-00");
    EXPECT_EQ(at(7, 1), "23:60:60");
    for (int64_t row = 8; row <= 11; ++row) EXPECT_EQ(at(row, 1), "00:00:00");
    EXPECT_EQ(at(11, 2) + at(12, 2) + at(12, 3), "015");
}

TEST(NumberCodecs, DamagedBytesEndInNamedErrors) {
    using namespace std::string_literals;
    const std::string illegal = "DatabaseError: Record reader has detected illegal data";
    const std::string dates = "DatabaseError: Date decoder has detected illegal ";
    const std::string times = "DatabaseError: Time decoder has detected illegal data";
    // Each alone, where the stream ends behind it, and with bytes at hand.
    for (size_t more : {0, 70}) {
        SCOPED_TRACE(more);
        std::string tail(more, '\1');
        EXPECT_EQ(readRaw("DDAE", "\x81\7\0\0\0\1\2"s + tail, 3), "7 7 " + illegal);
        EXPECT_EQ(readRaw("DRAE", "\2\5\0\7"s + tail, 3), "5 5 " + illegal);
        EXPECT_EQ(readRaw("DRAE", "\xff\5"s + tail, 2), "5 5 ");
        EXPECT_EQ(readRaw("DRAE", "\1\x81\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\0\1\2"s + tail, 2),
                  "1 2 ");
        EXPECT_EQ(readRaw("FSAE", "\x1f\x0c\x0f\x27\x20\0\0\0"s + tail, 2),
                  "9999-12-31 " + dates + "day data");
        EXPECT_EQ(readRaw("FSAE", "\0\x0d\0\0"s + tail, 1), dates + "month data");
        EXPECT_EQ(readRaw("FSAE", "\0\0\x10\x27"s + tail, 1), dates + "year data");
        EXPECT_EQ(readRaw("FDAE", "\2\x85\1\2\3\0\1\x86\xff\0\0\0"s + tail, 3),
                  "0003-02-01 0003-02-01 " + dates + "day data");
        EXPECT_EQ(readRaw("FDAE", "\1\x80\0\x80\0\0"s + tail, 1), dates + "month data");
        EXPECT_EQ(readRaw("FDAE", "\1\x80\0\0\xff\xff"s + tail, 1), dates + "year data");
        EXPECT_EQ(readRaw("FDAE", "\1\x85\1\2\3\0\1\4\1\5"s + tail, 3), "0003-02-01 " + illegal);
        EXPECT_EQ(readRaw("FDAE", "\0\x80\1\2\3\0"s + tail, 1), illegal);
        std::string page = "\1\x18\x3c\x3c\2\1\2\3"s + std::string(24, '\0');
        EXPECT_EQ(readRaw("GSAE", page + tail, 4), "24:60:60 01:02:03 01:02:03 " + illegal);
        for (int at : {29, 30, 31}) {
            std::string bad = page;
            bad[static_cast<size_t>(at)] = static_cast<char>(at == 29 ? 25 : at == 30 ? 61 : 0xbd);
            EXPECT_EQ(readRaw("GSAE", bad + tail, 1), times) << at;
        }
    }
    for (const char* key : {"DSAE", "DDAE", "DMAE", "DRAE", "FSAE", "FDAE", "GSAE"})
        EXPECT_EQ(readRaw(key, "\x81\x82\x83", 1), illegal) << key;
}

TEST(NumberCodecs, MomentsAreTwoFieldsBehindOne) {
    auto store =
        columnStore(SMF_TypeDateTime, "D", texts({"2020-02-03 04:05:06", "0000-00-00 00:00:00"}), 10);
    OpenTable open(store, "T");
    SMF_FieldMeta& field = *open.table.meta().fields[0];
    EXPECT_EQ(field.decoder->key(), "JDAD");
    EXPECT_EQ(field.decoder->fieldRows(), 2);
    EXPECT_EQ(field.decoder->dataStream()->length() + field.decoder->jumpStream()->length(), 0);
    auto& parts = static_cast<SMF_DateTimeDecoder&>(*field.decoder);
    SMF_HeaderReader header;
    for (auto [name, type, key] : {std::tuple("Dates", 5, "FDAD"), {"Times", 6, "GSAD"}}) {
        IPE_Object at(field.decoder->extra().as<IPE_DictType>()->findText(name));
        header.read(*open.reader.store()->mainStream, at->__int__());
        EXPECT_EQ(header.string(SMF_FieldName), "Value");
        EXPECT_EQ(shown(header.object(SMF_FieldTags)), shown(field.tags));
        EXPECT_EQ(header.string(SMF_CodecKey), key);
        EXPECT_EQ(header.number(SMF_FieldType), type);
        EXPECT_EQ(header.number64(SMF_NextField), 0);
        EXPECT_EQ(header.number64(SMF_FieldRows), 2);
        EXPECT_EQ(header.number(SMF_FieldZero), 10);
    }
    EXPECT_EQ(hex(whole(*parts.dates().dataStream())), "01800302e407018100000000" + zeros(20));
    EXPECT_EQ(hex(whole(*parts.times().dataStream())), "0104050601000000" + zeros(24));
    EXPECT_EQ(faultOf([] { columnStore(SMF_TypeDateTime, "", {}, 10); }),
              "SystemError: There is no field encoder available for JS");
    // Positions that lead nowhere.
    for (const char* extra : {"", "{}", "{'Dates':'x','Times':'y'}", "{'Dates':999999999,'Times':0}",
                              "{'Dates':-1,'Times':-1}", "{'Dates':0,'Times':0}"}) {
        std::string fault = readRaw("JDAE", "", 1, *extra ? parse_literal(extra) : IPE_Object());
        EXPECT_TRUE(fault == "DatabaseError: The database has a corrupt header" ||
                    fault.starts_with("AssertionError"))
            << extra << fault;
    }
}

// Each part of a moment takes its next page when it needs the first byte of it.
TEST(NumberCodecs, PartsOfAMomentOnASharedStream) {
    using namespace std::string_literals;
    std::string entries = "\1\x80\1\2\3\0"s, times, pages;
    auto page = [&](std::string bytes) {
        bytes.resize(32);
        pages += bytes;
    };
    for (int i = 0; i < 12; ++i) entries += "\1\0"s;
    for (char i = 0; i < 8; ++i) times += "\2\0\0"s + i;
    page(entries + "\2\x81");  // 13 rows, then a run whose date stands on the next page
    page(times);
    page("\4\5\6\0\2\0"s);
    page("\1\7\7\7");
    page("\1\x80\x0b\x0c\x0d\0"s);
    page("\1\1\1\1");
    SharedField moments("JDAD", pages);
    EXPECT_EQ(moments.stream->position(), 0);
    for (int64_t i = 1; i <= 17; ++i) {
        std::string time = i < 17 ? timeText({0, 0, static_cast<int8_t>((i - 1) / 2)}) : "07:07:07";
        EXPECT_EQ(moments.row(i), (i == 14 || i == 15 ? "0006-05-04 " : "0003-02-01 ") + time);
        EXPECT_EQ(moments.stream->position(), 32 * (i < 14 ? 2 : i < 17 ? 3 : 4)) << i;
    }
    moments.decoder->restart();
    EXPECT_EQ(moments.row(18), "0013-12-11 01:01:01");
    const std::string illegal = "DatabaseError: Record reader has detected illegal data";
    EXPECT_EQ(faultOf([&] { moments.row(19); }), illegal);
    EXPECT_EQ(faultOf([&] { moments.field->asText(); }), illegal);
}

// Batches read whole values at hand; a shared stream is read a row and, in small pages, a byte at a time.
TEST(NumberCodecs, BatchesAgreeWithSingleRows) {
    std::mt19937 random(11);
    auto below = [&](unsigned limit) { return static_cast<char>(random() % limit); };
    // Item `i` of a stream of this scheme.
    auto item = [&](std::string_view key, int i) {
        char fresh = i < 4 || below(3) == 0 ? '\x80' : '\0', code = i < 4 ? static_cast<char>(i) : below(4);
        std::string count(1, static_cast<char>(1 + below(below(5) ? 2 : 250)));
        std::string four{below(25), below(13), below(60), below(20)};
        if (key == "GSAD") return count + four.substr(0, 3);
        if (key == "FSAD") return four;
        std::string entry = static_cast<char>(fresh | code) + (fresh ? four : "");
        if (key == "DDAD") return entry;
        if (key == "FDAD") return count + entry;
        std::string number(below(5), '\x83');
        number += below(128);
        return key == "DRAD" ? count + number : number;
    };
    for (const char* key : {"DSAD", "DDAD", "DMAD", "DRAD", "ESAD", "FSAD", "FDAD", "GSAD"})
        for (int round = 0; round < 100; ++round) {
            std::string bytes;
            for (int i = 0; i < 1 + round * 4; ++i) bytes += item(key, i);
            bytes.resize((bytes.size() + 31) / 32 * 32);
            if (round % 2) bytes[random() % bytes.size()] = static_cast<char>(random());
            std::string expected;
            SharedField single(key, bytes);
            std::string fault = faultOf([&] {
                for (int64_t row = 1; row <= 900; ++row) expected += single.row(row) + " ";
            });
            if (fault != "none") expected += fault;
            ASSERT_EQ(readRaw(key, bytes, 900), expected) << key << ' ' << hex(bytes);
        }
}

TEST(NumberCodecs, HandlesAndSpansAgreeWithObjects) {
    auto bytes = makeStore([&](SMF_Writer& writer) {
        SMF_WriterTable table("memory.smf");
        SMF_I64 size;
        SMF_I32 count;
        SMF_DateTime when;
        size.connect(table, "Wide", "");
        count.connect(table, "Narrow", "M");
        when.connect(table, "When", "D");
        table.create("T", writer, 4096, 1000);
        for (int64_t i = 0; i < 10000; ++i) {
            size.set(number(Random, i));
            count.set(static_cast<int32_t>(number(Random, i)));
            when.set(moment(Random, i));
            table.commit();
        }
    });
    OpenTable open(bytes, "T");
    SMF_I64 size;
    SMF_I32 count;
    SMF_DateTime when;
    size.connect(open.table, "wide");
    count.connect(open.table, "NARROW");
    when.connect(open.table, "When");
    for (int64_t row = 1; row <= open.table.rows();) {
        open.table.seek(row);
        auto values = size.span();
        auto dates = when.dates(100);
        auto times = when.times();
        ASSERT_GT(std::min({values.size(), dates.size(), times.size()}), 0u);
        for (size_t i = 0; i < values.size(); ++i)
            ASSERT_EQ(values[i], number(Random, row - 1 + static_cast<int64_t>(i)));
        for (size_t i = 0; i < dates.size(); ++i)
            ASSERT_EQ(dates[i], moment(Random, row - 1 + static_cast<int64_t>(i)).date);
        for (size_t i = 0; i < times.size(); ++i)
            ASSERT_EQ(times[i], moment(Random, row - 1 + static_cast<int64_t>(i)).time);
        ASSERT_EQ(count.get(), static_cast<int32_t>(size.get()));
        ASSERT_EQ(when.get(), moment(Random, row - 1));
        ASSERT_EQ(when.date(), when.get().date);
        ASSERT_EQ(when.time64(), when.as64());
        row += static_cast<int64_t>(dates.size());
    }
    EXPECT_EQ(faultOf([&] { count.connect(open.table, "Wide"); }),
              "DatabaseError: Incorrect field type, expecting I32, actual I64");
}
