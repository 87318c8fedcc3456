// Calls built-in functions by name as the interpreter would: spec first, then the function.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ipe/language/ipe_moduleshared.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

class BuiltinCalls : public testing::Test {
  protected:
    using Values = std::vector<IPE_Object>;
    using Keywords = std::vector<std::pair<const char*, IPE_Object>>;

    XPK_ThreadScope thread{true};

    static IPE_Object S(std::string_view text) { return IPE_String(text); }
    static IPE_Object I(int64_t value) { return IPE_Int(value); }
    static IPE_Object F(double value) { return IPE_Float(value); }
    static IPE_Object L(std::initializer_list<IPE_Object> items) { return IPE_ListOf(items); }
    static IPE_Object T(std::initializer_list<IPE_Object> items) { return IPE_TupleOf(items); }

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
