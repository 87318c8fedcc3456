// Trace frames, and the records that exceptions take from them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "runtime/epa_shutdown.h"
#include "runtime/xpk_exception.h"

namespace {

template <class Action>
XPK_Exception caught(Action action) {
    try {
        action();
    } catch (const XPK_Exception& exception) {
        return exception;
    }
    ADD_FAILURE() << "nothing was raised";
    return XPK_Exception("", 0, "", "", "");
}

class Exceptions : public testing::Test {
  protected:
    XPK_ThreadScope thread{true};
    XPK_ThreadState* state = &thread.state();
};

TEST_F(Exceptions, FieldsFollowTheScopes) {
    XPK_TraceScope outer;
    XPK_TraceString(state, "store", "a.smf");
    {
        XPK_TraceScope ended;
        XPK_TraceString(state, "gone", "x");
        XPK_TraceNumber(state, "gone_too", 1);
    }
    XPK_Exception e = caught([] {
        XPK_Raise("TypeError", "Require a '$need' but given a '${have}', $$5, $page $other")
            .string("need", "IntType")
            .string("have", "DictType")
            .number("page", -7)
            .raise();
    });
    EXPECT_EQ(e.message(), "Require a 'IntType' but given a 'DictType', $5, -7 other");
    EXPECT_EQ(e.type(), "TypeError");
    EXPECT_EQ(e.record().fieldList, "need,have,page");
    ASSERT_NE(e.record().findString("store"), nullptr);
    EXPECT_EQ(*e.record().findString("store"), "a.smf");
    EXPECT_EQ(e.record().findString("gone"), nullptr);
    EXPECT_EQ(e.record().findNumber("gone_too"), nullptr);
    EXPECT_EQ(e.record().strings[0].first, "cpp_file");
    EXPECT_EQ(e.record().numbers[0].first, "src_line");
    EXPECT_EQ(state->trace.depth, 1);
}

TEST_F(Exceptions, PlaceAndTextsMayBeMissing) {
    XPK_Exception e("", 0, {}, {}, {});
    EXPECT_TRUE(e.record().strings.empty());
    EXPECT_TRUE(e.record().numbers.empty());
    EXPECT_EQ(e.type(), "DevlopmentErroreListIs0");
    EXPECT_EQ(e.message(), "Development Errror (eShow == 0)");
    XPK_Exception longTexts("f", 1, std::string(500, 't'), std::string(900, 'l'), "$unfinished ${brace");
    EXPECT_EQ(longTexts.type().size(), 127u);
    EXPECT_EQ(longTexts.record().fieldList.size(), 511u);
    EXPECT_EQ(longTexts.message(), "unfinished ${brace");
}

TEST_F(Exceptions, NullAndLongValues) {
    XPK_TraceScope scope;
    XPK_TraceString(state, nullptr, "x");
    XPK_TraceNumber(state, nullptr, 1);
    XPK_TraceString(state, "empty", static_cast<const char*>(nullptr));
    const std::string value = std::string(254, 'a') + 'b' + std::string(45, 'c');
    for (size_t size : {254, 255, 300})
        XPK_TraceString(state, std::to_string(size).c_str(), value.substr(0, size));
    XPK_Exception e("f", 1, "T", "", "$empty");
    EXPECT_EQ(e.message(), "[value==NULL!]");
    EXPECT_EQ(e.record().strings.size(), 5u);
    EXPECT_EQ(e.record().numbers.size(), 1u);
    for (size_t size : {254, 255, 300})
        EXPECT_EQ(*e.record().findString(std::to_string(size)), value.substr(0, std::min<size_t>(size, 255)));
}

TEST_F(Exceptions, OneEntryTooMany) {
    XPK_TraceScope scope;
    for (int i = 0; i < 128; ++i) XPK_TraceString(state, "s", std::to_string(i));
    for (int i = 0; i < 128; ++i) XPK_TraceNumber(state, "n", i);
    XPK_Exception strings = caught([&] { XPK_TraceString(state, "s", "128"); });
    EXPECT_EQ(strings.type(), "SystemError");
    EXPECT_EQ(strings.message(), "The trace system does not support > 128 active strings");
    ASSERT_EQ(strings.record().strings.size(), 129u);
    EXPECT_EQ(strings.record().strings[128].second, "127");
    XPK_Exception numbers = caught([&] { XPK_TraceNumber(state, "n", 128); });
    EXPECT_EQ(numbers.message(), "The trace system does not support > 128 active strings");
    // Asserting needs no trace space.
    EXPECT_EQ(caught([] { XPK_Assert(false); }).type(), "AssertionError");
}

TEST_F(Exceptions, TraceTextIsBounded) {
    XPK_TraceScope scope;
    std::string key(8192 - 10, 'k');
    XPK_TraceString(state, key.c_str(), "12345678");  // fills the buffer to the last byte
    EXPECT_EQ(state->trace.frames[state->trace.depth].free, 8192);
    for (bool number : {false, true}) {
        XPK_Exception e = caught([&] {
            if (number)
                XPK_TraceNumber(state, "", 1);
            else
                XPK_TraceString(state, "", "");
        });
        EXPECT_EQ(e.message(), "The trace system does not support > 8192 bytes of trace data");
        EXPECT_EQ(e.record().findString(key)->size(), 8u);
    }
    XPK_TraceScope inner;  // the limits are of the whole chain
    EXPECT_EQ(caught([&] { XPK_TraceString(state, "k", "v"); }).type(), "SystemError");
}

TEST_F(Exceptions, TooManyFramesAskForShutdown) {
    ASSERT_TRUE(XPK_IsRunning());
    {
        std::vector<std::unique_ptr<XPK_TraceScope>> scopes;
        for (int i = 1; i < 512; ++i) scopes.push_back(std::make_unique<XPK_TraceScope>());
        EXPECT_TRUE(XPK_IsRunning());
        EXPECT_EQ(state->trace.depth, 511);
        XPK_TraceScope beyond;
        EXPECT_EQ(state->trace.depth, 511);
        EXPECT_FALSE(XPK_IsRunning());
    }
    EXPECT_EQ(state->trace.depth, 0);
    epa_detail::running = true;
}

TEST_F(Exceptions, SystemErrors) {
    XPK_ThrowSystemError("CreateFile", 0);
    XPK_Exception e = caught([] { XPK_ThrowSystemError("CreateFile", ENOENT); });
    EXPECT_EQ(e.type(), "RuntimeError");
    EXPECT_EQ(e.record().fieldList, "errno,decode");
    EXPECT_EQ(e.message(), "CreateFile (2) No such file or directory");
    EXPECT_EQ(XPK_DecodeError(123456), "FormatMessage Failed");
}

TEST_F(Exceptions, CopiesShareAndShorthandsNameThePlace) {
    XPK_Exception first = XPK_AssertException("here.cpp", 12);
    EXPECT_EQ(first.message(), "Assertion Error here.cpp 12");
    EXPECT_EQ(XPK_MemoryException("there.cpp", 3).message(), "Memory Allocation Error there.cpp 3");
    XPK_Exception second = XPK_MemoryException("x", 1);
    second = first;
    EXPECT_EQ(&second.record(), &first.record());
    char buffer[64] = "old";
    first.getShow(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "Assertion Error $src_file $src_line");
    first.getShow(buffer, 35);  // one too small for the terminator
    EXPECT_STREQ(buffer, "");
}

TEST(Exception, NeedsNoThreadState) {
    ASSERT_EQ(XPK_CurrentThread(), nullptr);
    XPK_Exception e = caught([] { XPK_Raise("T", "$a $n").string("a", "x").number("n", 4).raise(); });
    EXPECT_EQ(e.message(), "x 4");
    EXPECT_EQ(XPK_CurrentThread(), nullptr);
}

// A bridge that fails: building an exception must not lose it, and lack of memory wins.
TEST_F(Exceptions, FailuresWhileBuilding) {
    static int calls;
    calls = 0;
    XPK_SetDetailsBridge({[](const XPK_ExceptionRecord&) -> IPE_Object {
                              ++calls;
                              XPK_Raise("Inner", "inner").raise();
                          },
                          nullptr});
    EXPECT_EQ(caught([] { XPK_Raise("Outer", "outer").raise(); }).type(), "Outer");
    EXPECT_GE(calls, 1);
    EXPECT_LE(calls, 16);
    for (auto build :
         {+[](const XPK_ExceptionRecord&) -> IPE_Object { throw std::bad_alloc(); },
          +[](const XPK_ExceptionRecord&) -> IPE_Object { throw XPK_MemoryException("m", 1); }}) {
        XPK_SetDetailsBridge({build, nullptr});
        XPK_Exception e = caught([] { XPK_Raise("Outer", "outer").raise(); });
        EXPECT_EQ(e.type(), "MemoryAllocError");
        EXPECT_EQ(caught([] { XPK_Assert(false); }).type(), "MemoryAllocError");
        EXPECT_EQ(state->trace.depth, 0);
    }
    XPK_SetDetailsBridge({});
}

}  // namespace
