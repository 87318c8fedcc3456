// Statements.
//
// Strings are bound without a copy: they never change, so the statement holds a reference to each and the
// library gives it back when it is done. A row of `executemany` so costs no allocation.
//
// The library counts changes for the connection and leaves the count alone in a statement that changes
// nothing; the running total tells the two apart.
#include "ipe_sqlite/ipe_sqlite_statement.h"

#include <sqlite3.h>

#include "ipe/language/ipe_interpreter.h"
#include "ipe/language/ipe_scriptcall.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_wholetext.h"
#include "runtime/epa_shutdown.h"

namespace {

constexpr size_t LongestSql = 1'000'000'000;  // the library's own limit
constexpr size_t ShownSql = 255;              // bytes of a statement kept for messages

IPE_StringType* const marshalKey = IPE_StringType::intern("__marshalfunc");

void releaseText(void* text) { (reinterpret_cast<IPE_StringType*>(text) - 1)->release(); }

IPE_Object marshalFunction(IPE_DictType* named) {
    IPE_Object function(named ? named->findName(marshalKey) : nullptr);
    auto* name = function.tryAs<IPE_StringType>();
    IPE_Frame* frame = IPE_CurrentFrame();
    if (name && frame) function = frame->interpreter->lookup(*frame, name);
    return function.is<IPE_NoneType>() ? IPE_Object() : function;
}

const char* storageClass(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL: return "NULL";
        case SQLITE_INTEGER: return "INTEGER";
        case SQLITE_TEXT: return "TEXT";
        case SQLITE_FLOAT: return "REAL";
        case SQLITE_BLOB: return "BLOB";
        default: return "UNKNOWN";
    }
}

}  // namespace

IPE_Sqlite_Parameters::IPE_Sqlite_Parameters(const IPE_Object& set) {
    if (set.is<IPE_TupleType>())
        sequence = set.as<IPE_TupleType>();
    else if (set.is<IPE_DictType>())
        named = set.as<IPE_DictType>();
    else
        sequence = PyList_SafeCast(set);
}

IPE_Sqlite_Parameters::IPE_Sqlite_Parameters(const IPE_Arguments& arguments) {
    const IPE_Object& first = arguments.at(0);
    if (first.is<IPE_DictType>() ||
        (arguments.size() == 1 && (first.is<IPE_ListType>() || first.is<IPE_TupleType>()))) {
        *this = IPE_Sqlite_Parameters(first);
    } else {
        values = arguments;
    }
}

void IPE_Sqlite_Statement::Finaliser::operator()(sqlite3_stmt* statement) const noexcept {
    sqlite3_finalize(statement);
}

sqlite3* IPE_Sqlite_Statement::handle() const noexcept { return sqlite3_db_handle(statement_.get()); }

IPE_Sqlite_Statement::IPE_Sqlite_Statement(sqlite3* handle, std::string_view& sql, bool lasting)
    : description_(IPE_None()), metadata_(IPE_None()) {
    // The library would take the text for shorter than it is.
    if (sql.find('\0') != std::string_view::npos)
        XPK_Raise("RuntimeError", "Error during prepare: $sqlite_exec_errormsg")
            .string("sqlite_exec_errormsg", "a NUL in the text of a statement")
            .string("sql", sql.substr(0, ShownSql))
            .raise();
    sqlite3_stmt* statement = nullptr;
    const char* tail = sql.data() + sql.size();
    int result = SQLITE_TOOBIG;
    if (sql.size() <= LongestSql)
        result = sqlite3_prepare_v3(handle, sql.empty() ? "" : sql.data(), static_cast<int>(sql.size()),
                                    lasting ? SQLITE_PREPARE_PERSISTENT : 0, &statement, &tail);
    if (result != SQLITE_OK)
        XPK_Raise("RuntimeError", "Error during prepare: $sqlite_exec_errormsg")
            .string("sqlite_exec_errormsg",
                    sql.size() <= LongestSql ? sqlite3_errmsg(handle) : sqlite3_errstr(result))
            .string("sql", sql.substr(0, ShownSql))
            .raise();
    statement_.reset(statement);
    const size_t used = sql.empty() ? 0 : static_cast<size_t>(tail - sql.data());
    sql_ = sql.substr(0, std::min(used, ShownSql));
    sql.remove_prefix(used);
    columns_ = sqlite3_column_count(statement);
}

int IPE_Sqlite_Statement::parameters() const noexcept {
    return sqlite3_bind_parameter_count(statement_.get());
}

// --- Parameters

void IPE_Sqlite_Statement::bind(const IPE_Sqlite_Parameters& parameters) {
    if (parameters.named) return bindNamed(*parameters.named);
    const int expected = this->parameters();
    if (parameters.count() != expected)
        XPK_Raise("RuntimeError",
                  "Incorrect number of parameters in list! Expected $bind_expected, got $bind_actual.")
            .number("bind_expected", expected)
            .number("bind_actual", parameters.count())
            .raise();
    for (int i = 0; i < expected; ++i) bindValue(i + 1, parameters[i], nullptr);
}

void IPE_Sqlite_Statement::bindNamed(IPE_DictType& named) {
    const int count = parameters();
    for (int i = 1; i <= count; ++i) {
        const char* name = sqlite3_bind_parameter_name(statement_.get(), i);
        if (!name)
            XPK_Raise("RuntimeError",
                      "Incorrect number of parameters in list! Expected $bind_expected, got $bind_actual.")
                .number("bind_expected", count)
                .number("bind_actual", i - 1)
                .raise();
        IPE_Object value(named.findText(name + 1));
        if (!value) XPK_Raise("KeyError", "$key").string("key", name + 1).raise();
        bindValue(i, value, &named);
    }
}

void IPE_Sqlite_Statement::bindValue(int index, const IPE_Object& value, IPE_DictType* named) {
    if (bindPlain(index, value)) return;
    IPE_Object made = value;
    if (IPE_Object function = marshalFunction(named)) {
        made = IPE_CallScript(function, value);
        if (!made) made = IPE_None();
        if (bindPlain(index, made)) return;
    }
    XPK_Raise("RuntimeError", "Cannot bind parameter of type '$param_type' to sqlite parameter")
        .string("param_type", made ? made.typeName() : "")
        .raise();
}

bool IPE_Sqlite_Statement::bindPlain(int index, const IPE_Object& value) {
    sqlite3_stmt* statement = statement_.get();
    int result;
    if (auto* integer = value.tryAs<IPE_IntType>()) {
        result = sqlite3_bind_int64(statement, index, integer->value);
    } else if (auto* text = value.tryAs<IPE_StringType>()) {
        text->retain();
        result = sqlite3_bind_text64(statement, index, text->text(), text->bytes(), releaseText, SQLITE_UTF8);
    } else if (auto* number = value.tryAs<IPE_FloatType>()) {
        result = sqlite3_bind_double(statement, index, number->value);
    } else if (value.is<IPE_NoneType>()) {
        result = sqlite3_bind_null(statement, index);
    } else {
        return false;
    }
    if (result != SQLITE_OK)
        XPK_Raise("RuntimeError", "Failed to bind parameter: $sqlite3_errmsg")
            .string("sqlite3_errmsg", sqlite3_errmsg(handle()))
            .raise();
    return true;
}

// --- Steps

int IPE_Sqlite_Statement::step() { return sqlite3_step(statement_.get()); }

void IPE_Sqlite_Statement::fail(int result, const char* show) {
    std::string message = sqlite3_errmsg(handle());
    statement_ = nullptr;
    rowWaits_ = false;
    if ((result & 0xFF) == SQLITE_INTERRUPT && !XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
    XPK_Raise raise("RuntimeError",
                    (result & 0xFF) == SQLITE_BUSY ? "Could not execute query. Database is busy!" : show);
    raise.string("sqlite_exec_errormsg", message).string("sql", sql_).raise();
}

void IPE_Sqlite_Statement::begin() {
    const int64_t before = sqlite3_total_changes64(handle());
    const int result = step();
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        fail(result, "Error during execute: $sqlite_exec_errormsg");
    if (returnsRows())
        describe(result == SQLITE_ROW);
    else
        rowCount_ = sqlite3_total_changes64(handle()) == before ? 0 : sqlite3_changes64(handle());
    rowWaits_ = result == SQLITE_ROW;
    if (!rowWaits_) statement_ = nullptr;
}

int64_t IPE_Sqlite_Statement::run() {
    const int64_t before = sqlite3_total_changes64(handle());
    const int result = step();
    if (result != SQLITE_DONE) fail(result, "Error during execute: $sqlite_exec_errormsg");
    const int64_t changed = sqlite3_total_changes64(handle()) == before ? 0 : sqlite3_changes64(handle());
    sqlite3_reset(statement_.get());
    return changed;
}

IPE_Object IPE_Sqlite_Statement::fetch(bool texts, bool lists) {
    if (!statement_) return {};
    if (!rowWaits_) {
        const int result = step();
        if (result == SQLITE_DONE) {
            statement_ = nullptr;
            return {};
        }
        if (result != SQLITE_ROW) fail(result, "Error trying to fetch the next row: $sqlite_exec_errormsg");
    }
    rowWaits_ = false;
    IPE_Object row = lists ? IPE_NewList() : IPE_NewTuple();
    auto& values = *row.as<IPE_SequenceType>();
    // A schema that changed under the statement can have changed its columns.
    const int columns = sqlite3_data_count(statement_.get());
    values.reserve(static_cast<size_t>(columns));
    for (int i = 0; i < columns; ++i) values.append(value(i, texts));
    return row;
}

// --- Rows

void IPE_Sqlite_Statement::describe(bool hasRow) {
    description_ = IPE_NewList();
    metadata_ = IPE_NewList();
    columns_ = sqlite3_column_count(statement_.get());
    for (int i = 0; i < columns_; ++i) {
        const char* name = sqlite3_column_name(statement_.get(), i);
        const char* declared = sqlite3_column_decltype(statement_.get(), i);
        if (!declared) declared = hasRow ? storageClass(statement_.get(), i) : "NULL";
        IPE_Object type = IPE_String(declared);
        const IPE_Object& none = IPE_None();
        description_.as<IPE_ListType>()->append(
            IPE_TupleOf({IPE_String(name ? name : ""), type, none, none, none, none, none}));
        metadata_.as<IPE_ListType>()->append(std::move(type));
    }
}

IPE_Object IPE_Sqlite_Statement::value(int column, bool text) {
    sqlite3_stmt* statement = statement_.get();
    IPE_Object value;
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL: value = IPE_None(); break;
        case SQLITE_INTEGER: value = IPE_Int(sqlite3_column_int64(statement, column)); break;
        case SQLITE_FLOAT: value = IPE_Float(sqlite3_column_double(statement, column)); break;
        case SQLITE_TEXT: {
            const unsigned char* bytes = sqlite3_column_text(statement, column);
            if (!bytes) throw XPK_MemoryException(__FILE__, __LINE__);
            return IPE_WholeText({reinterpret_cast<const char*>(bytes),
                                  static_cast<size_t>(sqlite3_column_bytes(statement, column))});
        }
        case SQLITE_BLOB: XPK_Raise("RuntimeError", "BLOB values are not supported!").raise();
        default: return text ? IPE_String("<unknown data type>") : IPE_None();
    }
    return text ? IPE_Object_AsString(value) : value;
}
