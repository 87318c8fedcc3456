// Connections.
//
// The library must not lose what it is working with, and the scripts that it calls in the middle of a
// statement can do anything. So calls into it are counted, and a close while one lasts only marks the
// connection: the last call to leave closes it. Functions belong to the connection and not to the library,
// so that a replaced one is destroyed outside of it.
#include "ipe_sqlite/ipe_sqlite_connection.h"

#include <sqlite3.h>

#include <strings.h>

#include "ipe/builtins/ipe_logger.h"
#include "ipe/language/ipe_codetype.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe_sqlite/ipe_sqlite_busy.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"
#include "runtime/epa_shutdown.h"
#include "runtime/xpk_stack.h"

const char IPE_Sqlite_Connection::TypeName[] = "IPE_Sqlite_Connection";

namespace {

// What the library may take of the native stack: twice the need of the deepest expressions that it admits.
constexpr size_t StackNeed = 1024 * 1024;
constexpr int StepsBetweenLooks = 4000;  // of the library's virtual machine, some tens of microseconds

int progress(void*) { return XPK_IsRunning() ? 0 : 1; }

int authorise(void*, int action, const char*, const char*, const char*, const char*) {
    if (action != SQLITE_COPY && action != SQLITE_PRAGMA && action != SQLITE_ATTACH) return SQLITE_OK;
    IPE_Log("dev", 10, "Denying operation: " + std::to_string(action));
    return SQLITE_DENY;
}

}  // namespace

IPE_Sqlite_Connection::IPE_Sqlite_Connection(const IPE_Object& module, const std::string& path,
                                             std::string_view shownPath)
    : IPE_ModuleType(TypeName), module_(module) {
    try {
        open(path, shownPath);
    } catch (...) {
        closeNow();
        throw;
    }
}

IPE_Sqlite_Connection::~IPE_Sqlite_Connection() { closeNow(); }

void IPE_Sqlite_Connection::open(const std::string& path, std::string_view shownPath) {
    int result = sqlite3_open_v2(path.c_str(), &handle_,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (result == SQLITE_OK) result = sqlite3_busy_handler(handle_, IPE_Sqlite_Busy, module_.counted());
    if (result == SQLITE_OK) result = IPE_Sqlite_PublishGet(handle_, this);
    if (result == SQLITE_OK) result = regexp_.publish(handle_);
    if (result == SQLITE_OK) result = tree_.publish(handle_);
    if (result == SQLITE_OK) result = IPE_Sqlite_PublishClosure(handle_);
    if (result != SQLITE_OK)
        XPK_Raise("RuntimeError", "Failed to connect/open database '$databasename': $errormsg")
            .string("databasename", shownPath)
            .string("errormsg", handle_ ? sqlite3_errmsg(handle_) : sqlite3_errstr(result))
            .raise();
    sqlite3_progress_handler(handle_, StepsBetweenLooks, progress, nullptr);
}

void IPE_Sqlite_Connection::close() {
    if (!isOpen()) return;
    closing_ = true;
    if (active_ == 0) closeNow();
}

void IPE_Sqlite_Connection::closeNow() noexcept {
    // A statement's end can destroy what scripts left in it, other cursors among it.
    while (!cursors_.empty()) {
        IPE_Object cursor(*cursors_.begin());
        cursors_.erase(cursors_.begin());
        cursor.as<IPE_Sqlite_Cursor>()->finalise();
    }
    // Without statements the handle always closes.
    sqlite3_close_v2(std::exchange(handle_, nullptr));
    auto functions = std::move(functions_);
    regexp_.forget();
}

void IPE_Sqlite_Connection::requireOpen() const {
    if (!isOpen())
        XPK_Raise("RuntimeError", "An operation was attempted on a closed database handle!").raise();
}

IPE_Sqlite_Connection::Activity::Activity(IPE_Sqlite_Connection& connection) : connection_(connection) {
    connection_.requireOpen();
    XPK_RequireStack(StackNeed);
    if (connection_.active_++ == 0) connection_.exit_ = nullptr;
}

IPE_Sqlite_Connection::Activity::~Activity() {
    if (--connection_.active_ == 0 && connection_.closing_) connection_.closeNow();
}

void IPE_Sqlite_Connection::leave() {
    if (exit_) std::rethrow_exception(std::exchange(exit_, nullptr));
}

void IPE_Sqlite_Connection::setSandbox(bool sandbox) {
    if (sandbox == sandbox_) return;
    sqlite3_set_authorizer(handle_, sandbox ? authorise : nullptr, nullptr);
    sandbox_ = sandbox;
}

IPE_Object IPE_Sqlite_Connection::cursor() {
    requireOpen();
    IPE_Object cursor = IPE_New<IPE_Sqlite_Cursor>(IPE_Object(this));
    cursor->__bind__();
    return cursor;
}

int64_t IPE_Sqlite_Connection::storeResultSet(std::string_view name, const IPE_Object& resultSet) {
    requireOpen();
    IPE_List all(resultSet);
    IPE_List columns(all[0]);
    std::string create = "CREATE TABLE " + std::string(name) + " (";
    std::string insert = "INSERT INTO " + std::string(name) + " VALUES (";
    for (int32_t i = 0; i < columns.count(); ++i) {
        if (i > 0) create += ", ";
        create +=
            "[" + IPE_Dict_GetString(columns[i], "name") + "] " + IPE_Dict_GetString(columns[i], "type");
        insert += i > 0 ? ",?" : "?";
    }
    create += ");";
    insert += ")";

    IPE_Object object = cursor();
    auto& cursor = *object.as<IPE_Sqlite_Cursor>();
    // Exactly one statement, whatever the names hold.
    cursor.executemany(create, IPE_ListOf({IPE_NewTuple()}));
    if (all.count() == 1) return 0;
    cursor.execute("BEGIN;");
    try {
        cursor.executemany(insert, resultSet, 1);
        cursor.execute("COMMIT;");
    } catch (...) {
        rollBack();
        throw;
    }
    return all.count() - 1;
}

// A failure of the disk ends the transaction by itself.
void IPE_Sqlite_Connection::rollBack() noexcept {
    if (handle_ && !sqlite3_get_autocommit(handle_))
        sqlite3_exec(handle_, "ROLLBACK;", nullptr, nullptr, nullptr);
}

void IPE_Sqlite_Connection::createFunction(std::string_view name, int64_t arguments, const IPE_Object& scalar,
                                           const IPE_Object& step, const IPE_Object& final) {
    requireOpen();
    if (scalar && (step || final))
        XPK_Raise("RuntimeError",
                  "You cannot supply a step or final function if you supply a scalar function: $userfunc")
            .string("userfunc", name)
            .raise();
    if (!scalar && (!step || !final))
        XPK_Raise("RuntimeError",
                  "If no scalar function is supplied then both a step and a final function must be supplied")
            .raise();
    if (final) IPE_SafeCast<IPE_CodeType>(final, "PyCode_SafeCast");
    auto function = std::make_unique<IPE_Sqlite_Function>();
    function->name = name;
    // Any count that the library does not know is refused by it.
    function->arguments = arguments < -1 || arguments > 1000 ? 1000 : static_cast<int>(arguments);
    function->scalar = scalar;
    function->step = step;
    function->final = final;
    function->connection = this;
    functions_.reserve(functions_.size() + 1);
    if (int result = function->publish(handle_); result != SQLITE_OK)
        XPK_Raise("RuntimeError", "Failed to create user defined function: $sqlmsg")
            .string("sqlmsg", result == SQLITE_MISUSE ? sqlite3_errstr(result) : sqlite3_errmsg(handle_))
            .raise();
    for (auto& old : functions_)
        if (old->arguments == function->arguments &&
            strcasecmp(old->name.c_str(), function->name.c_str()) == 0) {
            old.swap(function);
            return;
        }
    functions_.push_back(std::move(function));
}

enum {
    MethodClose,
    MethodCommit,
    MethodRollback,
    MethodCursor,
    MethodStoreResultSet,
    MethodCreateFunction,
};

void IPE_Sqlite_Connection::__bind__() {
    bindMethods({{"close", MethodClose},
                 {"commit", MethodCommit},
                 {"rollback", MethodRollback},
                 {"cursor", MethodCursor},
                 {"storeresultset", MethodStoreResultSet},
                 {"createfunction", MethodCreateFunction}});
}

IPE_Object IPE_Sqlite_Connection::__callmethod__(int method, const IPE_Arguments& arguments) {
    auto function = [&](const char* name) {
        IPE_Object value = arguments.keyword(name);
        return value.is<IPE_NoneType>() ? IPE_Object() : value;
    };
    switch (method) {
        case MethodClose:
            arguments.check("", "close");
            close();
            return {};
        case MethodCommit: arguments.check("", "commit"); return {};
        case MethodRollback: arguments.check("", "rollback"); return {};
        case MethodCursor: arguments.check("", "cursor"); return cursor();
        case MethodStoreResultSet:
            arguments.check("sl", "storeresultset");
            return IPE_Int(storeResultSet(arguments.text(0), arguments[1]));
        case MethodCreateFunction:
            arguments.check("si", "createfunction");
            createFunction(arguments.text(0), arguments.integer(1), function("scalar"), function("step"),
                           function("final"));
            return {};
    }
    return {};
}
