// Calls built-in functions by name as the interpreter would: spec first, then the function.
#pragma once

#include <unistd.h>

#include "ipe/language/ipe_moduleshared.h"
#include "ipe/values/ipe_globals.h"
#include "runtime/epa_threadmanager.h"
#include "values_testing.h"

class BuiltinCalls : public ValuesTest {
  protected:
    using Values = std::vector<IPE_Object>;
    using Keywords = std::vector<std::pair<const char*, IPE_Object>>;

    static IPE_Object call(const char* name, const Values& values, const Keywords& keywords = {}) {
        const IPE_Builtin* row = IPE_FindBuiltin(name);
        if (!row) XPK_Raise("NameError", "There is no variable named '$name'").string("name", name).raise();
        IPE_Object dict;
        if (!keywords.empty()) {
            dict = IPE_NewDict();
            for (const auto& [key, value] : keywords) IPE_Dict_Set(dict, key, value);
        }
        IPE_Arguments arguments(values.data(), static_cast<int>(values.size()), dict);
        if (row->spec) arguments.check(row->spec, row->name);
        return row->function(arguments);
    }
    // The representation of the result.
    static std::string show(const char* name, const Values& values, const Keywords& keywords = {}) {
        IPE_Object result = call(name, values, keywords);
        return IPE_Object_ToString(result ? result : IPE_None());
    }
    // The text of a result that is a string.
    static std::string text(const char* name, const Values& values, const Keywords& keywords = {}) {
        return std::string(PyString_SafeCast(call(name, values, keywords))->view());
    }
    // "Type: message" of the exception that the call raises, empty if it does not.
    static std::string error(const char* name, const Values& values, const Keywords& keywords = {}) {
        try {
            call(name, values, keywords);
        } catch (const XPK_Exception& exception) {
            return exception.type() + ": " + exception.message();
        }
        return "";
    }
    static std::string errorType(const char* name, const Values& values, const Keywords& keywords = {}) {
        std::string all = error(name, values, keywords);
        return all.substr(0, all.find(':'));
    }
};

// With the global store and a thread manager.
class BuiltinRuns : public BuiltinCalls {
  protected:
    void SetUp() override {
        EPA_ThreadManager::create();
        IPE_StartGlobals();
    }
    void TearDown() override {
        IPE_StopGlobals();
        EPA_ThreadManager::destroy();
    }
};
