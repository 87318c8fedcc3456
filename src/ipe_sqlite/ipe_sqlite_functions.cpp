// Calls from SQL into scripts.
//
// No exception passes through the library: each callback turns what a script raises into an error of the
// statement. The library calls `final` for every group that it has begun, also when it gives a statement up;
// once a step has failed, or when the statement is merely cleaned up, the state is dropped unasked.
#include "ipe_sqlite/ipe_sqlite_functions.h"

#include <sqlite3.h>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "ipe/values/ipe_wholetext.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"

namespace {

// In memory of the library, which begins as zeros.
struct GroupState {
    EPA_Counted* code;  // counted
    bool failed;
};

void setError(sqlite3_context* context, const std::string& text) {
    sqlite3_result_error(context, text.empty() ? "failed!" : text.c_str(), -1);
}

// True when the body has not failed.
template <class Body>
bool guarded(sqlite3_context* context, IPE_Sqlite_Connection& connection, Body&& body) noexcept {
    try {
        try {
            body();
            return true;
        } catch (const XPK_Exception& exception) {
            if (exception.type() == "SystemExit") connection.noteExit(std::current_exception());
            setError(context, exception.message());
        }
    } catch (...) {
        sqlite3_result_error_nomem(context);
    }
    return false;
}

void pushValues(IPE_ArgumentBuffer& arguments, int count, sqlite3_value** values) {
    for (int i = 0; i < count; ++i) switch (sqlite3_value_type(values[i])) {
            case SQLITE_NULL: arguments.push(IPE_None()); break;
            case SQLITE_INTEGER: arguments.push(IPE_Int(sqlite3_value_int64(values[i]))); break;
            case SQLITE_FLOAT: arguments.push(IPE_Float(sqlite3_value_double(values[i]))); break;
            case SQLITE_TEXT: {
                const unsigned char* text = sqlite3_value_text(values[i]);
                if (!text) throw XPK_MemoryException(__FILE__, __LINE__);
                arguments.push(IPE_WholeText({reinterpret_cast<const char*>(text),
                                              static_cast<size_t>(sqlite3_value_bytes(values[i]))}));
                break;
            }
        }
}

void setText(sqlite3_context* context, std::string_view text) {
    sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void setResult(sqlite3_context* context, const IPE_Object& value) {
    if (auto* text = value.tryAs<IPE_StringType>())
        setText(context, text->view());
    else if (auto* integer = value.tryAs<IPE_IntType>())
        sqlite3_result_int64(context, integer->value);
    else if (auto* number = value.tryAs<IPE_FloatType>())
        sqlite3_result_double(context, number->value);
    else
        sqlite3_result_null(context);
}

IPE_Sqlite_Function& functionOf(sqlite3_context* context) {
    return *static_cast<IPE_Sqlite_Function*>(sqlite3_user_data(context));
}

void callScalar(sqlite3_context* context, int count, sqlite3_value** values) {
    IPE_Sqlite_Function& function = functionOf(context);
    guarded(context, *function.connection, [&] {
        IPE_ArgumentBuffer arguments;
        pushValues(arguments, count, values);
        setResult(context, IPE_CallScript(function.scalar, arguments.arguments()));
    });
}

void callStep(sqlite3_context* context, int count, sqlite3_value** values) {
    auto* state = static_cast<GroupState*>(sqlite3_aggregate_context(context, sizeof(GroupState)));
    if (!state) return sqlite3_result_error_nomem(context);
    if (state->failed) return;
    IPE_Sqlite_Function& function = functionOf(context);
    state->failed = !guarded(context, *function.connection, [&] {
        if (!state->code) state->code = function.final.as<IPE_CodeType>()->twin().detach();
        IPE_ArgumentBuffer arguments;
        arguments.push(IPE_Object(state->code));
        pushValues(arguments, count, values);
        IPE_CallScript(function.step, arguments.arguments());
    });
}

void callFinal(sqlite3_context* context) {
    auto* state = static_cast<GroupState*>(sqlite3_aggregate_context(context, 0));
    IPE_Object code = state ? IPE_Object::adopt(std::exchange(state->code, nullptr)) : IPE_Object();
    IPE_Sqlite_Function& function = functionOf(context);
    if ((state && state->failed) || !function.connection->isActive()) return;
    guarded(context, *function.connection, [&] {
        if (!code) code = function.final.as<IPE_CodeType>()->twin();
        setResult(context, IPE_CallScript(function.final, code));
    });
}

void callGet(sqlite3_context* context, int count, sqlite3_value** values) {
    static IPE_StringType* const name = IPE_StringType::intern("__get__");
    guarded(context, *static_cast<IPE_Sqlite_Connection*>(sqlite3_user_data(context)), [&] {
        IPE_Frame* frame = IPE_CurrentFrame();
        IPE_Object function = frame ? frame->interpreter->lookup(*frame, name) : IPE_Object();
        if (!function) return sqlite3_result_error(context, "No __get__ function found", -1);
        IPE_ArgumentBuffer arguments;
        pushValues(arguments, count, values);
        IPE_Object result = IPE_CallScript(function, arguments.arguments());
        setText(context, IPE_Object_Text(result ? result : IPE_None()));
    });
}

}  // namespace

int IPE_Sqlite_Function::publish(sqlite3* handle) {
    if (scalar)
        return sqlite3_create_function(handle, name.c_str(), arguments, SQLITE_UTF8, this, callScalar,
                                       nullptr, nullptr);
    return sqlite3_create_function(handle, name.c_str(), arguments, SQLITE_UTF8, this, nullptr, callStep,
                                   callFinal);
}

int IPE_Sqlite_PublishGet(sqlite3* handle, IPE_Sqlite_Connection* connection) {
    return sqlite3_create_function(handle, "get", 1, SQLITE_UTF8, connection, callGet, nullptr, nullptr);
}
