// Short names for tests of values, and the check of a raised exception by type and message.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "ipe/object/ipe_arguments.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "runtime/epa_dataoutput.h"
#include "runtime/xpk_threadstate.h"

inline IPE_Object S(std::string_view text) { return IPE_String(text); }
inline IPE_Object I(int64_t value) { return IPE_Int(value); }
inline IPE_Object F(double value) { return IPE_Float(value); }
inline IPE_Object L(std::initializer_list<IPE_Object> items) { return IPE_ListOf(items); }
inline IPE_Object T(std::initializer_list<IPE_Object> items) { return IPE_TupleOf(items); }
inline IPE_Object D(std::initializer_list<std::pair<IPE_Object, IPE_Object>> entries) {
    IPE_Object dict = IPE_NewDict();
    for (auto& [key, value] : entries) dict.as<IPE_DictType>()->set(key, value);
    return dict;
}
inline std::string str(const IPE_Object& object) { return IPE_Object_Text(object); }
inline std::string repr(const IPE_Object& object, bool json = false) {
    return IPE_Object_ToString(object, json);
}
inline IPE_Object call(const IPE_Object& object, std::string_view method,
                       std::initializer_list<IPE_Object> arguments = {}, IPE_Object keywords = {}) {
    IPE_Object function = object->__getattr__(S(method), 0);
    return function->__call__(IPE_Arguments(arguments.begin(), static_cast<int>(arguments.size()), keywords));
}

// "Type: message" of what `body` raises, or "nothing".
template <class Body>
std::string raised(Body&& body) {
    try {
        body();
    } catch (const XPK_Exception& e) {
        return e.type() + ": " + e.message();
    }
    return "nothing";
}

// Messages take their fields from the thread's state, so each test runs with one.
class ValuesTest : public testing::Test {
    XPK_ThreadScope scope_{true};
};

struct MemorySink : EPA_ByteSink {
    std::string bytes;
    void write(const void* data, size_t size) override { bytes.append(static_cast<const char*>(data), size); }
};
struct MemorySource : EPA_ByteSource {
    explicit MemorySource(std::string_view text) : left(text) {}
    std::string_view left;
    size_t readRaw(void* buffer, size_t size) override {
        size_t taken = left.copy(static_cast<char*>(buffer), size < 7 ? size : 7);  // in small pieces
        left.remove_prefix(taken);
        return taken;
    }
};
