// IPE_Sqlite_Connection: an open database as a script object.
//
// Every connection has the SQL functions `get(x)` and `regexp(pattern, text)` (so that `text REGEXP pattern`
// works) and the collations `tree` and `closure`. Nothing is wrapped in a transaction unasked: scripts run
// BEGIN and COMMIT themselves.
//
// A connection and its cursors are used by one thread at a time. Script functions and collations run in the
// middle of a statement and may use other cursors of the connection, and close it: the database is closed
// when the outermost call on it has ended. A statement that runs when the server stops ends with SystemExit,
// one that waits for another's lock as busy.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "ipe/object/ipe_moduletype.h"
#include "ipe_sqlite/ipe_sqlite_collations.h"
#include "ipe_sqlite/ipe_sqlite_functions.h"
#include "ipe_sqlite/ipe_sqlite_regexp.h"

struct sqlite3;
class IPE_Sqlite_Cursor;

class IPE_Sqlite_Connection final : public IPE_ModuleType {
  public:
    static const char TypeName[];

    // `module` is an IPE_Sqlite, `path` the file for the system, `shownPath` its name in messages.
    IPE_Sqlite_Connection(const IPE_Object& module, const std::string& path, std::string_view shownPath);
    ~IPE_Sqlite_Connection() override;

    // Closes; once closed, does nothing. Cursors stand on without their statements.
    void close();
    bool isOpen() const noexcept { return handle_ && !closing_; }
    // RuntimeError "An operation was attempted on a closed database handle!".
    void requireOpen() const;
    // A new, bound IPE_Sqlite_Cursor, which keeps the connection.
    IPE_Object cursor();
    // Makes the table `name` from a result set, a list whose first element describes the columns (a list of
    // dicts with `name` and `type`) and whose others are rows; gives the number of rows. The rows go in
    // within a transaction of their own, which is rolled back when one fails. Names and types are SQL.
    // IndexError "list index out of range" for an empty list.
    int64_t storeResultSet(std::string_view name, const IPE_Object& resultSet);
    // Publishes script functions to SQL; a function of this name and count is replaced. Either `scalar`, or
    // `step` and `final`, which must be a CodeType; the others null. `arguments` is -1 for any number.
    // RuntimeError as docs/scripting.md tells.
    void createFunction(std::string_view name, int64_t arguments, const IPE_Object& scalar,
                        const IPE_Object& step, const IPE_Object& final);

    // close, commit, rollback, cursor, storeresultset, createfunction. commit and rollback do nothing.
    void __bind__() override;
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;

    // --- For cursors and the library's callbacks.
    sqlite3* handle() const noexcept { return handle_; }
    const IPE_Object& module() const noexcept { return module_; }
    void add(IPE_Sqlite_Cursor* cursor) { cursors_.insert(cursor); }
    void remove(IPE_Sqlite_Cursor* cursor) noexcept { cursors_.erase(cursor); }
    // Whether statements prepared from now on go through the authoriser.
    void setSandbox(bool sandbox);
    // A script function has raised SystemExit: the statement's error becomes that, by leave(), which raises
    // what was noted in the current activity, if anything.
    void noteExit(std::exception_ptr exit) noexcept { exit_ = std::move(exit); }
    void leave();
    // Whether a call is inside the library.
    bool isActive() const noexcept { return active_ > 0; }
    // Around every call into the library that may run scripts. Raises when the connection is closed; the
    // last statement of a scope may be the one that closes it.
    class Activity {
      public:
        explicit Activity(IPE_Sqlite_Connection& connection);
        ~Activity();
        Activity(const Activity&) = delete;
        Activity& operator=(const Activity&) = delete;

      private:
        IPE_Sqlite_Connection& connection_;
    };

  private:
    void open(const std::string& path, std::string_view shownPath);
    void closeNow() noexcept;
    void rollBack() noexcept;

    IPE_Object module_;
    sqlite3* handle_ = nullptr;  // null once closed
    bool closing_ = false;
    bool sandbox_ = false;
    int active_ = 0;
    std::exception_ptr exit_;
    std::unordered_set<IPE_Sqlite_Cursor*> cursors_;
    std::vector<std::unique_ptr<IPE_Sqlite_Function>> functions_;
    IPE_Sqlite_Regexp regexp_;
    IPE_Sqlite_TreeCollation tree_;
};
