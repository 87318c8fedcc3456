// Cursors.
#include "ipe_sqlite/ipe_sqlite_cursor.h"

#include <sqlite3.h>

#include "ipe/values/ipe_numbers.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"

const char IPE_Sqlite_Cursor::TypeName[] = "IPE_Sqlite_Cursor";

namespace {

IPE_StringType* const descriptionKey = IPE_StringType::intern("description");
IPE_StringType* const metadataKey = IPE_StringType::intern("metadata");
IPE_StringType* const rowCountKey = IPE_StringType::intern("rowcount");
IPE_StringType* const arraySizeKey = IPE_StringType::intern("arraysize");

// What stands between statements and means nothing: blanks, semicolons, comments.
std::string_view withoutPadding(std::string_view sql) {
    for (;;) {
        size_t begin = sql.find_first_not_of(" \t\n\f\r;");
        if (begin == std::string_view::npos) return {};
        sql.remove_prefix(begin);
        size_t end;
        if (sql.starts_with("--"))
            end = sql.find('\n');
        else if (sql.starts_with("/*"))
            end = sql.find("*/", 2);
        else
            return sql;
        if (end == std::string_view::npos) return {};
        sql.remove_prefix(end + (sql[0] == '/' ? 2 : 1));
    }
}

}  // namespace

// Around every call that touches statements; the connection may close when it ends.
class IPE_Sqlite_Cursor::Use {
  public:
    explicit Use(IPE_Sqlite_Cursor& cursor) : cursor_(cursor), activity_(cursor.connection()) {
        if (cursor_.busy_)
            XPK_Raise("RuntimeError", "Error during execute: $sqlite_exec_errormsg")
                .string("sqlite_exec_errormsg", sqlite3_errstr(SQLITE_MISUSE))
                .raise();
        cursor_.busy_ = true;
    }
    ~Use() { cursor_.busy_ = false; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

  private:
    IPE_Sqlite_Cursor& cursor_;
    IPE_Sqlite_Connection::Activity activity_;
};

IPE_Sqlite_Cursor::IPE_Sqlite_Cursor(const IPE_Object& connection)
    : IPE_ModuleType(TypeName), connection_(connection) {
    this->connection().add(this);
    attributes_->setName(arraySizeKey, IPE_Int(1));
    publish(IPE_None(), IPE_None(), -1);
}

IPE_Sqlite_Cursor::~IPE_Sqlite_Cursor() {
    connection().remove(this);
    finalise();
}

IPE_Sqlite_Connection& IPE_Sqlite_Cursor::connection() const noexcept {
    return *connection_.as<IPE_Sqlite_Connection>();
}

void IPE_Sqlite_Cursor::finalise() noexcept {
    current_ = 0;
    auto ended = std::move(statements_);
    statements_.clear();
}

void IPE_Sqlite_Cursor::publish(const IPE_Object& description, const IPE_Object& metadata, int64_t rowCount) {
    attributes_->setName(descriptionKey, description);
    attributes_->setName(metadataKey, metadata);
    attributes_->setName(rowCountKey, IPE_Int(rowCount));
    rowCount_ = rowCount;
}

void IPE_Sqlite_Cursor::publishCurrent() {
    if (current_ >= statements_.size()) return publish(IPE_None(), IPE_None(), -1);
    const IPE_Sqlite_Statement& statement = statements_[current_];
    publish(statement.description(), statement.metadata(), statement.rowCount());
}

void IPE_Sqlite_Cursor::start(bool sandbox) {
    finalise();
    publish(IPE_None(), IPE_None(), -1);
    options_ = {};
    options_.sandbox = sandbox;
}

int64_t IPE_Sqlite_Cursor::execute(std::string_view sql, const IPE_Sqlite_Parameters& parameters,
                                   const Options& options) {
    Use use(*this);
    start(options.sandbox);
    options_ = options;
    try {
        runAll(sql, parameters);
    } catch (...) {
        finalise();
        connection().leave();
        throw;
    }
    publishCurrent();
    return rowCount_;
}

// Parameters that no statement takes are an error, which the last one raises before it runs.
void IPE_Sqlite_Cursor::runAll(std::string_view sql, const IPE_Sqlite_Parameters& parameters) {
    bool taken = parameters.isEmpty() || parameters.named;
    statements_.reserve(StatementLimit);
    while (statements_.size() < StatementLimit) {
        sql = withoutPadding(sql);
        // An empty text still meets the library, for its errors, and the count of parameters.
        if (sql.empty() && (taken || !statements_.empty())) return;
        // A function of the statement before may have changed either.
        connection().requireOpen();
        connection().setSandbox(options_.sandbox);
        IPE_Sqlite_Statement statement(connection().handle(), sql);
        const bool last = statements_.size() + 1 == StatementLimit || withoutPadding(sql).empty();
        // A mark that only the library passes over, or the end.
        if (statement.isEmpty() && !sql.empty()) continue;
        if (statement.isEmpty() && taken) return;
        if (statement.parameters() > 0 || (last && !taken)) {
            statement.bind(parameters);
            taken = true;
        }
        statement.begin();
        statements_.push_back(std::move(statement));
    }
}

int64_t IPE_Sqlite_Cursor::executemany(std::string_view sql, const IPE_Object& sets, int32_t first,
                                       bool sandbox) {
    Use use(*this);
    auto* list = sets.is<IPE_TupleType>() ? sets.as<IPE_SequenceType>() : PyList_SafeCast(sets);
    start(sandbox);
    connection().setSandbox(sandbox);
    sql = withoutPadding(sql);
    IPE_Sqlite_Statement statement(connection().handle(), sql, true);
    if (!withoutPadding(sql).empty())
        XPK_Raise("RuntimeError", "executemany can only process one statement at a time!").raise();
    if (statement.returnsRows())
        XPK_Raise("RuntimeError", "executemany can only execute DML statements!").raise();
    int64_t changed = 0;
    try {
        // The statement may call a script that changes the list.
        for (int32_t i = first; i < list->count(); ++i) {
            connection().requireOpen();
            IPE_Object set = list->at(i);
            statement.bind(IPE_Sqlite_Parameters(set));
            if (!statement.isEmpty()) changed += statement.run();
        }
    } catch (...) {
        connection().leave();
        throw;
    }
    publish(IPE_None(), IPE_None(), changed);
    return changed;
}

IPE_Object IPE_Sqlite_Cursor::fetchone() {
    Use use(*this);
    if (current_ >= statements_.size()) return {};
    IPE_Sqlite_Statement& statement = statements_[current_];
    try {
        return statement.fetch(options_.stringOnly, options_.useLists);
    } catch (...) {
        // A row that cannot be shown ends nothing; a failed step leaves no current statement.
        if (statement.hasEnded()) finalise();
        connection().leave();
        throw;
    }
}

IPE_Object IPE_Sqlite_Cursor::fetchmany(int64_t count) {
    connection().requireOpen();
    IPE_Object rows = IPE_NewList();
    for (; count > 0; --count) {
        IPE_Object row = fetchone();
        if (!row) break;
        rows.as<IPE_ListType>()->append(std::move(row));
    }
    return rows;
}

bool IPE_Sqlite_Cursor::nextset() {
    Use use(*this);
    if (current_ < statements_.size()) statements_[current_++].end();
    publishCurrent();
    return current_ < statements_.size();
}

void IPE_Sqlite_Cursor::close() {
    if (!connection().isOpen()) return;
    Use use(*this);
    finalise();
}

enum {
    MethodExecute,
    MethodExecuteMany,
    MethodFetchOne,
    MethodFetchMany,
    MethodFetchAll,
    MethodNextSet,
    MethodClose,
};

void IPE_Sqlite_Cursor::__bind__() {
    bindMethods({{"execute", MethodExecute},
                 {"executemany", MethodExecuteMany},
                 {"fetchone", MethodFetchOne},
                 {"fetchmany", MethodFetchMany},
                 {"fetchall", MethodFetchAll},
                 {"nextset", MethodNextSet},
                 {"close", MethodClose}});
}

IPE_Object IPE_Sqlite_Cursor::__callmethod__(int method, const IPE_Arguments& arguments) {
    constexpr struct {
        const char *name, *spec;
    } Specs[] = {{"execute", "s|"}, {"executemany", "so|"}, {"fetchone", ""}, {"fetchmany", "|i"},
                 {"fetchall", ""},  {"nextset", ""},        {"close", ""}};
    arguments.check(Specs[method].spec, Specs[method].name);
    switch (method) {
        case MethodExecute: {
            const Options options{arguments.keywordTrue("sandbox"), arguments.keywordTrue("string_only"),
                                  arguments.keywordTrue("use_lists")};
            execute(arguments.text(0), IPE_Sqlite_Parameters(arguments.from(1)), options);
            return IPE_Object(attributes_->findName(rowCountKey));
        }
        case MethodExecuteMany:
            return IPE_Int(executemany(arguments.text(0), arguments[1], 0, arguments.keywordTrue("sandbox")));
        case MethodFetchOne: return fetchone();
        case MethodFetchMany: {
            IPE_Object size(arguments.at(0));
            if (!size) size = IPE_Object(attributes_->findName(arraySizeKey));
            return fetchmany(size ? size->__int__() : 1);
        }
        case MethodFetchAll: return fetchall();
        case MethodNextSet: return nextset() ? IPE_Int(1) : IPE_Object();
        case MethodClose: close(); return {};
    }
    return {};
}
