// IPE_Sqlite_Cursor: runs statements and fetches rows.
//
// To scripts: execute(sql, parameters...), executemany(sql, list), fetchone(), fetchmany(n), fetchall(),
// nextset(), close(), and the attributes `description`, `metadata`, `rowcount` of the current result set and
// `arraysize`, the default of fetchmany. Native code calls the functions below, which do the same; errors are
// those of IPE_Sqlite_Statement.
//
// A cursor keeps its connection. Once that is closed, every call but close() raises its error. A cursor that
// is in use already, which a script function of its own statement can try, raises "Error during execute:
// ...".
#pragma once

#include <string_view>
#include <vector>

#include "ipe/object/ipe_moduletype.h"
#include "ipe_sqlite/ipe_sqlite_statement.h"

class IPE_Sqlite_Connection;

class IPE_Sqlite_Cursor final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    static constexpr size_t StatementLimit = 10;

    // `connection` is an IPE_Sqlite_Connection.
    explicit IPE_Sqlite_Cursor(const IPE_Object& connection);
    ~IPE_Sqlite_Cursor() override;

    struct Options {
        bool sandbox = false;     // copying, PRAGMA and ATTACH are refused
        bool stringOnly = false;  // every value is fetched as text
        bool useLists = false;    // rows are lists
    };
    // Runs at most StatementLimit statements, each up to its first row; each is a result set, and the first
    // becomes the current one. Parameters go to every statement that has any. Gives the current row count:
    // rows changed, or -1. An error leaves no statement.
    int64_t execute(std::string_view sql, const IPE_Sqlite_Parameters& parameters, const Options& options);
    int64_t execute(std::string_view sql, const IPE_Sqlite_Parameters& parameters = {}) {
        return execute(sql, parameters, Options());
    }
    // Runs one statement that returns no rows once for each element of `sets`, a list or tuple of tuples,
    // lists or dicts, from element `first` on; gives the rows changed by all. No transaction is begun: a
    // caller with many rows wants one. RuntimeError "executemany can only process one statement at a time!",
    // "executemany can only execute DML statements!".
    int64_t executemany(std::string_view sql, const IPE_Object& sets, int32_t first = 0,
                        bool sandbox = false);
    // The next row of the current result set; null at its end.
    IPE_Object fetchone();
    // New lists: at most `count` rows, all that are left.
    IPE_Object fetchmany(int64_t count);
    IPE_Object fetchall() { return fetchmany(INT64_MAX); }
    // Makes the next result set the current one; false when there is none, and then none is current.
    bool nextset();
    // Ends the statements. The cursor may be used again.
    void close();

    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

    // For the connection: ends the statements, whatever their state.
    void finalise() noexcept;

  private:
    class Use;
    void start(bool sandbox);
    void runAll(std::string_view sql, const IPE_Sqlite_Parameters& parameters);
    void publish(const IPE_Object& description, const IPE_Object& metadata, int64_t rowCount);
    void publishCurrent();
    IPE_Sqlite_Connection& connection() const noexcept;

    IPE_Object connection_;
    std::vector<IPE_Sqlite_Statement> statements_;
    size_t current_ = 0;
    int64_t rowCount_ = -1;
    Options options_;
    bool busy_ = false;
};
