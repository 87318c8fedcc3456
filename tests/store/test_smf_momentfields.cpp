// The value objects of dates and times, and their numbers.
#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_datefield.h"
#include "store/fields/smf_datetimefield.h"
#include "store/fields/smf_timefield.h"
#include "store_support.h"

namespace {

// Central Europe, told by rule so that the machine's zone files do not matter.
const bool zoned = [] {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    return true;
}();

template <class Field>
struct Standing {
    explicit Standing(int32_t type)
        : meta(std::make_shared<SMF_FieldMeta>(type, "F", 0)), field(meta, record) {}
    std::string assigned(const IPE_Object& value) {
        field.assignObject(value);
        return field.asText();
    }
    std::string assigned(std::string_view text) { return assigned(IPE_String(text)); }
    std::shared_ptr<SMF_FieldMeta> meta;
    SMF_RecordData record;
    Field field;
};

IPE_Object sequence(IPE_Object out, std::initializer_list<int64_t> items) {
    for (int64_t item : items) static_cast<IPE_SequenceType*>(out.get())->append(IPE_Int(item));
    return out;
}

int64_t platform(const SMF_DateValue& d, const SMF_TimeValue& t) {
    std::tm parts{};
    parts.tm_year = d.year - 1900, parts.tm_mon = d.month - 1, parts.tm_mday = d.day;
    parts.tm_hour = t.hour, parts.tm_min = t.minute, parts.tm_sec = t.second;
    parts.tm_isdst = -1;
    return mktime(&parts);
}

}  // namespace

TEST(MomentFields, NumbersCoverTheirYearsOnly) {
    Standing<SMF_DateField> date(SMF_TypeDate);
    Standing<SMF_DateTimeField> moment(SMF_TypeDateTime);
    auto day = [&](const char* text) { return date.assigned(text) == text ? date.field.as64() : -1; };
    auto at = [&](const char* text) { return moment.assigned(text) == text ? moment.field.as64() : -1; };
    EXPECT_EQ(day("1969-12-31"), 0);
    EXPECT_EQ(day("1970-01-01"), -3600);
    EXPECT_EQ(day("1974-06-01"), platform({1, 6, 1974}, {}));
    EXPECT_EQ(day("2030-12-31"), platform({31, 12, 2030}, {}));
    EXPECT_EQ(day("2031-01-01"), 0);
    EXPECT_EQ(at("1974-12-31 23:59:59"), 0);
    EXPECT_EQ(at("1975-01-01 00:00:00"), 157762800);
    EXPECT_EQ(at("2020-03-29 01:59:59"), 1585443599);  // a second before the clock goes forward
    EXPECT_EQ(at("2020-03-29 03:00:00"), 1585443600);
    EXPECT_EQ(at("2030-12-31 23:59:59"), 1924988399);
    EXPECT_EQ(moment.field.as32(), 1924988399);
    EXPECT_EQ(at("2031-01-01 00:00:00"), 0);
}

TEST(MomentFields, TheDayTableAgreesWithThePlatform) {
    std::mt19937 random(7);
    auto below = [&](unsigned limit) { return static_cast<int>(random() % limit); };
    for (int i = 0; i < 30000; ++i) {
        // Half of them in the months in which the clock changes.
        int month = i % 2 ? below(13) : below(2) * 7 + 3;
        SMF_DateValue d{int8_t(below(32)), int8_t(month), int16_t(1975 + below(56))};
        SMF_TimeValue t{int8_t(below(25)), int8_t(below(61)), int8_t(below(61))};
        // Of an hour that comes twice the platform takes either.
        if (month == 10 && t.hour < 3) t.hour = 3;
        ASSERT_EQ(SMF_TimeOfDateTime(d, t), platform(d, t)) << d.year << ' ' << month << ' ' << int{d.day};
        ASSERT_EQ(SMF_TimeOfDate(d), platform(d, {}));
        time_t seconds = static_cast<int64_t>(random() % 4000000000u) - (i % 3 ? 0 : 2000000000);
        if (i % 5 == 0) seconds = 1585443600 + below(200000) - 100000;
        std::tm parts = *localtime(&seconds);
        ASSERT_TRUE(SMF_LocalMoment(seconds, d, t));
        ASSERT_EQ(
            std::tuple(d.year - 1900, d.month - 1, +d.day, +t.hour, +t.minute, +t.second),
            std::tuple(parts.tm_year, parts.tm_mon, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec))
            << seconds;
    }
}

TEST(MomentFields, AssignedForms) {
    Standing<SMF_DateField> date(SMF_TypeDate);
    EXPECT_EQ(date.assigned("2020-02-03"), "2020-02-03");
    EXPECT_EQ(date.assigned("2020/02x03 tail"), "2020-02-03");
    EXPECT_EQ(date.assigned("2x2"), "2020-00-00");
    EXPECT_EQ(date.assigned(""), "0000-00-00");
    EXPECT_EQ(date.assigned(IPE_Int(1585443600)), "2020-03-29");
    EXPECT_EQ(date.assigned(IPE_Int(INT64_MAX)), "0000-00-00");
    EXPECT_EQ(date.assigned(IPE_Int(-1)), "1970-01-01");
    EXPECT_EQ(date.assigned(IPE_Int(0)), "0000-00-00");
    date.assigned("2020-02-03");
    EXPECT_EQ(date.assigned(IPE_None()), "0000-00-00");

    Standing<SMF_DateTimeField> moment(SMF_TypeDateTime);
    EXPECT_EQ(moment.assigned("2020-02-03 04:05:06"), "2020-02-03 04:05:06");
    EXPECT_EQ(moment.assigned("2020-02-03 04:5"), "2020-02-03 04:50:00");
    EXPECT_EQ(moment.assigned(IPE_Int(1585443600)), "2020-03-29 03:00:00");
    EXPECT_EQ(moment.assigned(IPE_None()), "0000-00-00 00:00:00");
    EXPECT_EQ(moment.assigned(sequence(IPE_NewTuple(), {2001, 2, 3, 4, 5, 6})), "2001-02-03 04:05:06");
    EXPECT_EQ(moment.assigned(sequence(IPE_NewList(), {70000, 2, 3, 4, 256, 6})), "0000-00-00 00:00:00");
    for (const IPE_Object& wrong : {sequence(IPE_NewList(), {2001, 2, 3}), IPE_NewDict(), IPE_Object()})
        EXPECT_TRUE(faultOf([&] { moment.field.assignObject(wrong); }).starts_with("AssertionError"));

    Standing<SMF_TimeField> time(SMF_TypeTime);
    EXPECT_EQ(time.assigned(sequence(IPE_NewList(), {4, 5, 6})), "04:05:06");
    EXPECT_EQ(faultOf([&] { time.field.assignText("04:05:06"); }),
              "NotImplementedError: TimeField::assignUTF8");
    SMF_Moment parts = time.field.asYMDHMS();
    EXPECT_EQ(std::tuple(parts.year, parts.day, parts.hour, parts.minute, parts.second),
              std::tuple(0, 0, 4, 5, 6));
    EXPECT_FALSE(time.field.maskYMDHMS().day);
    EXPECT_TRUE(time.field.maskYMDHMS().hour);
    EXPECT_EQ(time.assigned(IPE_Int(0)), "00:00:00");
    EXPECT_TRUE(faultOf([&] { time.assigned(IPE_Int(1)); }).starts_with("AssertionError"));
}

TEST(MomentFields, FixedValuesAndDefaults) {
    Standing<SMF_DateTimeField> moment(SMF_TypeDateTime);
    moment.meta->setTag("IPEDefault", IPE_String("1999-01-02 03:04:05"));
    moment.field.reset();
    EXPECT_EQ(moment.field.asText(), "1999-01-02 03:04:05");
    moment.meta->setTag("Fixed", IPE_String("2020-03-29 03:00:00"));
    moment.meta->setTag("Transform", IPE_String("Fixed"));
    EXPECT_EQ(moment.field.as64(), 1585443600);
    EXPECT_EQ(moment.field.asYMDHMS().month, 3);
    EXPECT_EQ(moment.field.asText(), "2020-03-29 03:00:00");
}
