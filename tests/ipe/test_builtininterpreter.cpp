// The built-in `interpreter`, called from running modules, and the inspection object.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "builtin_calls.h"
#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_programloader.h"
#include "ipe/object/ipe_moduleregistry.h"

namespace {

class BuiltinInterpreter : public BuiltinRuns {
  protected:
    // Runs the lines as a module in an interpreter of their own, and gives the representation of what they
    // put under the global name "out".
    static std::string run(const std::string& lines) {
        static int number = 0;
        std::string name = "probe" + std::to_string(++number);
        load_source_text("", "class " + name + ":\n" + lines, name + ".py");
        IPE_Interpreter interpreter;
        interpreter.run(name);
        IPE_Object out = IPE_GlobalStore().get("out");
        return out ? IPE_Object_ToString(out) : "";
    }
    static std::string runError(const std::string& lines) {
        try {
            run(lines);
        } catch (const XPK_Exception& exception) {
            return exception.type() + ": " + exception.message();
        }
        return "";
    }
};

TEST_F(BuiltinInterpreter, TellsNothingWhereNoScriptRuns) {
    EXPECT_EQ(show("interpreter", {S("callstack")}), "[]");
    EXPECT_EQ(show("interpreter", {S("statement")}), "[]");
    EXPECT_EQ(errorType("interpreter", {S("builtin")}), "RuntimeError");
}

TEST_F(BuiltinInterpreter, CountsAndTracesForNewInterpreters) {
    run("interpreter('get_coverage', 'reset')\n");
    EXPECT_FALSE(IPE_Interpreter::profileByDefault);
    run("interpreter('profile', 'global')\ninterpreter('trace', 'global')\n");
    EXPECT_TRUE(IPE_Interpreter::profileByDefault);
    EXPECT_TRUE(IPE_Interpreter::traceByDefault);
    run("interpreter('profile', 'disable')\ninterpreter('trace', 'disable')\ninterpreter('trace', "
        "'local')\n");
    EXPECT_FALSE(IPE_Interpreter::profileByDefault);
    EXPECT_FALSE(IPE_Interpreter::traceByDefault);
    EXPECT_EQ(runError("interpreter('profile', 'sideways')\n"),
              "RuntimeError: Unknown option passed to interpeter");
}

TEST_F(BuiltinInterpreter, ProcessAndThread) {
    call("interpreter", {S("global_set"), S("colour"), L({I(1)})});
    EXPECT_EQ(show("global_get", {S("colour")}), "[1]");
    IPE_Object globals = call("interpreter", {S("global")});
    EXPECT_EQ(IPE_Object_ToString(IPE_Dict_Get(globals, "colour")), "[1]");
    IPE_Dict_Set(globals, "colour", I(2));  // a snapshot
    EXPECT_EQ(show("global_get", {S("colour")}), "[1]");
    EXPECT_EQ(show("interpreter", {S("memory_pack")}), "None");
    EXPECT_EQ(show("interpreter", {S("asm_int_3")}), "None");
    EXPECT_EQ(show("interpreter", {S("priority"), I(0)}), "None");
    EXPECT_EQ(error("interpreter", {S("priority"), I(3)}).rfind("RuntimeError: SetThreadPriority (22)", 0),
              0u);
    IPE_Object threads = call("interpreter", {S("thread_summary")});
    EXPECT_EQ(IPE_Dict_GetInt64(threads, "maximum"), 256);
    EXPECT_EQ(IPE_Dict_GetInt64(threads, "running"), 1);
    EXPECT_EQ(error("interpreter", {S("dance")}), "RuntimeError: Unknown option passed to interpeter");
    EXPECT_EQ(errorType("interpreter", {}), "TypeError");
}

TEST_F(BuiltinInterpreter, InspectionObject) {
    IPE_Object object = call("smart_inspect", {S("get")});
    EXPECT_EQ(object, call("smart_inspect", {S("get")}));
    auto ask = [&](const char* name) { return object->__getattr__(S(name), 0)->__call__(IPE_Arguments()); };
    IPE_Object memory = ask("memory");
    EXPECT_GT(IPE_Dict_GetInt64(memory, "resident"), 1 << 20);
    EXPECT_EQ(IPE_Dict_Get(memory, "pools")->__len__(), 10);
    IPE_ModuleRegistry::register_("inspected.leaf", IPE_New<IPE_ModuleBranch>());
    EXPECT_EQ(IPE_Object_ToString(IPE_Dict_Get(ask("modules"), "inspected")), "['leaf']");
    EXPECT_EQ(IPE_Dict_GetInt64(ask("threads"), "maximum"), 256);
    EXPECT_EQ(errorType("getattr", {object, S("spell")}), "AttributeNotFoundException");
    EXPECT_EQ(errorType("smart_inspect", {S("set")}), "RuntimeError");
}

// Every built-in is called by a script program or, if it would disturb that, through its row in
// test_builtins.
TEST_F(BuiltinInterpreter, NoBuiltinIsUntested) {
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
