// The built-in functions whose results a script cannot judge: the calendar, the machine, chance, the console,
// the interpreter's own. The others stand in the program builtins.py.
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "ipe/language/ipe_exceptiontype.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_moduleshared.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/values/ipe_globals.h"
#include "platform/pf_process.h"
#include "runtime/epa_threadmanager.h"
#include "values_testing.h"

namespace {

class Builtins : public ValuesTest {
  protected:
    using Values = std::vector<IPE_Object>;

    void SetUp() override {
        EPA_ThreadManager::create();
        IPE_StartGlobals();
    }
    void TearDown() override {
        IPE_StopGlobals();
        EPA_ThreadManager::destroy();
    }
    // Calls a built-in function by name as the interpreter would: spec first, then the function.
    static IPE_Object call(const char* name, const Values& values) {
        const IPE_Builtin* row = IPE_FindBuiltin(name);
        IPE_Arguments arguments(values.data(), static_cast<int>(values.size()));
        if (row->spec) arguments.check(row->spec, row->name);
        return row->function(arguments);
    }
    // The representation of the result.
    static std::string show(const char* name, const Values& values) {
        IPE_Object result = call(name, values);
        return IPE_Object_ToString(result ? result : IPE_None());
    }
    // The text of a result that is a string.
    static std::string text(const char* name, const Values& values) {
        return std::string(PyString_SafeCast(call(name, values))->view());
    }
    static std::string error(const char* name, const Values& values) {
        return raised([&] { call(name, values); });
    }
    // Runs the lines as a module in an interpreter of their own.
    static void run(const std::string& lines) {
        static int number = 0;
        std::string name = "probe" + std::to_string(++number);
        load_source_text("", "class " + name + ":\n" + lines, name + ".py");
        IPE_Interpreter().run(name);
    }
};

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
    EXPECT_TRUE(error("hostos", {S("colour")}).starts_with("RuntimeError: "));

    IPE_List drives(call("drive_list", {}));
    for (int32_t i = 0; i < drives.count(); ++i) EXPECT_EQ(drives[i]->c_str()[0], '/');
    IPE_Object size = call("drive_size", {S("/")});
    EXPECT_GE(IPE_Dict_GetInt64(size, "capacity"), IPE_Dict_GetInt64(size, "available"));
    EXPECT_GT(IPE_Dict_GetInt64(size, "capacity"), 0);
    EXPECT_TRUE(
        error("drive_size", {S("/no such place")}).starts_with("RuntimeError: GetDiskFreeSpaceEx (2)"));

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
    EXPECT_TRUE(error("rchoice", {L({})}).starts_with("IndexError: "));
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

TEST_F(Builtins, TellsNothingWhereNoScriptRuns) {
    EXPECT_EQ(show("interpreter", {S("callstack")}), "[]");
    EXPECT_EQ(show("interpreter", {S("statement")}), "[]");
    EXPECT_TRUE(error("interpreter", {S("builtin")}).starts_with("RuntimeError: "));
}

TEST_F(Builtins, CountsAndTracesForNewInterpreters) {
    run("interpreter('get_coverage', 'reset')\n");
    EXPECT_FALSE(IPE_Interpreter::profileByDefault);
    run("interpreter('profile', 'global')\ninterpreter('trace', 'global')\n");
    EXPECT_TRUE(IPE_Interpreter::profileByDefault);
    EXPECT_TRUE(IPE_Interpreter::traceByDefault);
    run("interpreter('profile', 'disable')\ninterpreter('trace', 'disable')\ninterpreter('trace', "
        "'local')\n");
    EXPECT_FALSE(IPE_Interpreter::profileByDefault);
    EXPECT_FALSE(IPE_Interpreter::traceByDefault);
    EXPECT_EQ(raised([] { run("interpreter('profile', 'sideways')\n"); }),
              "RuntimeError: Unknown option passed to interpeter");
}

TEST_F(Builtins, ProcessAndThread) {
    EXPECT_EQ(show("interpreter", {S("memory_pack")}), "None");
    EXPECT_EQ(show("interpreter", {S("asm_int_3")}), "None");
    EXPECT_EQ(show("interpreter", {S("priority"), I(0)}), "None");
    EXPECT_TRUE(
        error("interpreter", {S("priority"), I(3)}).starts_with("RuntimeError: SetThreadPriority (22)"));
    IPE_Object threads = call("interpreter", {S("thread_summary")});
    EXPECT_EQ(IPE_Dict_GetInt64(threads, "maximum"), 256);
    EXPECT_EQ(IPE_Dict_GetInt64(threads, "running"), 1);
    EXPECT_EQ(error("interpreter", {S("dance")}), "RuntimeError: Unknown option passed to interpeter");
}

// Every built-in is called by a script program or, if it would disturb that, here.
TEST_F(Builtins, NoBuiltinIsUntested) {
    std::string tests;
    auto take = [&](const std::filesystem::path& path) {
        std::ifstream file(path);
        tests.append(std::istreambuf_iterator<char>(file), {});
    };
    take(QUILL_SOURCE_DIR "/tests/ipe/test_builtins.cpp");
    for (const auto& entry : std::filesystem::directory_iterator(QUILL_SOURCE_DIR "/tests/scripts"))
        if (entry.path().extension() == ".py") take(entry.path());
    IPE_Interpreter interpreter;
    IPE_List names(interpreter.builtins().__dir__());
    EXPECT_GE(names.count(), 84);
    for (int32_t i = 0; i < names.count(); ++i) {
        std::regex call("(^|[^\\w.])" + std::string(names[i]->c_str()) + "[(,)]|call\\(\"" +
                        names[i]->c_str() + "\"");
        EXPECT_TRUE(std::regex_search(tests, call)) << names[i]->c_str();
    }
}

}  // namespace
