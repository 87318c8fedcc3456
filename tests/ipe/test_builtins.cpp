// The built-in functions whose results a script cannot judge: the calendar, the machine, chance, the console.
// The others stand in the program builtins.py.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "builtin_calls.h"
#include "ipe/language/ipe_exceptiontype.h"
#include "platform/pf_process.h"

namespace {

class Builtins : public BuiltinCalls {};

TEST_F(Builtins, WeekdayAgreesWithTheCalendar) {
    EXPECT_EQ(show("weekday", {I(2000), I(1), I(1)}), "6");
    EXPECT_EQ(show("weekday", {T({I(2024), I(2), I(29)})}), "4");
    for (int64_t day = -200000; day < 400000; day += 97) {
        time_t seconds = day * 86400;
        tm fields{};
        gmtime_r(&seconds, &fields);
        ASSERT_EQ(
            call("weekday", {I(fields.tm_year + 1900), I(fields.tm_mon + 1), I(fields.tm_mday)})->__int__(),
            fields.tm_wday)
            << fields.tm_year + 1900 << '-' << fields.tm_mon + 1 << '-' << fields.tm_mday;
    }
    // Months and days beyond their range run on into the next.
    EXPECT_EQ(show("weekday", {L({I(2000), I(13), I(1)})}), show("weekday", {I(2001), I(1), I(1)}));
    EXPECT_EQ(show("weekday", {I(2001), I(0), I(1)}), show("weekday", {I(2000), I(12), I(1)}));
    EXPECT_EQ(show("weekday", {I(2000), I(1), I(-6)}), "6");
    EXPECT_LT(call("weekday", {})->__int__(), 7);
}

TEST_F(Builtins, Machine) {
    char name[256] = {};
    ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
    EXPECT_EQ(text("hostos", {S("name")}), name);
    EXPECT_NE(text("hostos", {S("domain")}), "");
    EXPECT_NE(text("hostos", {S("version")}).find("Linux"), std::string::npos);
    EXPECT_EQ(text("hostos", {}), text("hostos", {S("version")}));
    IPE_Object memory = call("hostos", {S("memory")});
    EXPECT_GT(IPE_Dict_GetInt64(memory, "capacity"), IPE_Dict_GetInt64(memory, "available"));
    EXPECT_GT(IPE_Dict_GetInt64(memory, "available"), 0);
    EXPECT_EQ(errorType("hostos", {S("colour")}), "RuntimeError");

    IPE_List drives(call("drive_list", {}));
    for (int32_t i = 0; i < drives.count(); ++i) EXPECT_EQ(drives[i]->c_str()[0], '/');
    IPE_Object size = call("drive_size", {S("/")});
    EXPECT_GE(IPE_Dict_GetInt64(size, "capacity"), IPE_Dict_GetInt64(size, "available"));
    EXPECT_GT(IPE_Dict_GetInt64(size, "capacity"), 0);
    EXPECT_EQ(error("drive_size", {S("/no such place")}).rfind("RuntimeError: GetDiskFreeSpaceEx (2)", 0),
              0u);

    EXPECT_EQ(call("threadid", {})->__int__(), platform::threadId());
}

TEST_F(Builtins, Chance) {
    for (int i = 0; i < 50; ++i) {
        std::string token = text("rtoken8", {});
        ASSERT_EQ(token.size(), 8u);
        ASSERT_EQ(token.find_first_not_of("0123456789"), std::string::npos);
    }
    bool seen[3] = {};
    for (int i = 0; i < 500; ++i) seen[call("rchoice", {L({I(0), I(1), I(2)})})->__int__()] = true;
    EXPECT_TRUE(seen[0] && seen[1] && seen[2]);
    EXPECT_EQ(show("rchoice", {S("x")}), "'x'");
    EXPECT_EQ(errorType("rchoice", {L({})}), "IndexError");
}

TEST_F(Builtins, MessageBoxesShowExceptions) {
    testing::internal::CaptureStderr();
    call("messagebox", {S("hello"), S("Caption")});
    std::string shown = testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("Caption: hello"), std::string::npos);
    IPE_Object exception;
    try {
        XPK_Raise("RuntimeError", "broken $part").string("part", "wheel").raise();
    } catch (const XPK_Exception& raised) {
        exception = IPE_New<IPE_ExceptionType>(raised);
    }
    IPE_Dict_Set(exception.as<IPE_ExceptionType>()->details(), "line", I(7));
    testing::internal::CaptureStderr();
    call("messagebox", {exception, S("Error")});
    shown = testing::internal::GetCapturedStderr();
    EXPECT_NE(shown.find("Error: broken wheel\n\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find(" ( 7 )\n"), std::string::npos) << shown;
}

}  // namespace
