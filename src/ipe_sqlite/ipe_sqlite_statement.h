// IPE_Sqlite_Statement: one prepared statement, its parameters and its rows.
//
// Errors are RuntimeError; the templates stand beside the functions. The field `sqlite_exec_errormsg` holds
// the library's message, `sql` the statement. A wait for a lock that comes to its end raises "Could not
// execute query. Database is busy!", a step that the server's stop interrupts SystemExit. A statement is
// finalised by its end and by its own errors, but not by a value that has no form in scripts.
//
// To be used inside an IPE_Sqlite_Connection::Activity.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "ipe/object/ipe_type.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_dicttype.h"

struct sqlite3;
struct sqlite3_stmt;

// Parameters of a statement, borrowed: nothing, a run of values, or a dict by name.
//
// None, integers, floats and strings can be bound. A dict's function under `__marshalfunc`, given itself or
// by the name that the running script knows it under, makes such a value of any other.
struct IPE_Sqlite_Parameters {
    IPE_Sqlite_Parameters() = default;
    // A DictType, ListType or TupleType; TypeError for another value.
    explicit IPE_Sqlite_Parameters(const IPE_Object& set);
    // The arguments of a call: one dict, list or tuple, or the values themselves.
    explicit IPE_Sqlite_Parameters(const IPE_Arguments& arguments);

    // A container is read anew for each statement, since a script may have changed it.
    IPE_SequenceType* sequence = nullptr;
    IPE_DictType* named = nullptr;
    IPE_Arguments values;
    bool isEmpty() const { return !named && count() == 0; }
    int count() const { return sequence ? sequence->count() : values.size(); }
    const IPE_Object& operator[](int index) const { return sequence ? sequence->at(index) : values[index]; }
};

class IPE_Sqlite_Statement {
  public:
    // Prepares the first statement of `sql` and cuts it off. `lasting` is for one that runs many times.
    // "Error during prepare: $sqlite_exec_errormsg".
    IPE_Sqlite_Statement(sqlite3* handle, std::string_view& sql, bool lasting = false);

    // The text held no statement, only blanks and comments.
    bool isEmpty() const noexcept { return !statement_; }
    int parameters() const noexcept;
    bool returnsRows() const noexcept { return columns_ > 0; }
    // Finalised, by the last row, by a failed step or by end().
    bool hasEnded() const noexcept { return !statement_; }
    void end() noexcept { statement_ = nullptr; }
    // "Incorrect number of parameters in list! Expected $bind_expected, got $bind_actual.", "Cannot bind
    // parameter of type '$param_type' to sqlite parameter", "Failed to bind parameter: $sqlite3_errmsg"; for
    // a name that the dict does not have, KeyError "$key".
    void bind(const IPE_Sqlite_Parameters& parameters);

    // The first step: afterwards description, metadata and rowcount tell about it. "Error during execute:
    // $sqlite_exec_errormsg".
    void begin();
    // A whole run of a statement without rows, ready for the next bind; gives the number of rows changed.
    int64_t run();
    // The next row, a tuple, or a list with `lists`; with `texts` every value in its text form. Null at the
    // end. "Error trying to fetch the next row: $sqlite_exec_errormsg", "BLOB values are not supported!".
    IPE_Object fetch(bool texts, bool lists);

    // None for a statement without rows, else a list of 7-tuples (name, type, five times None).
    const IPE_Object& description() const noexcept { return description_; }
    // None, or the list of the type names.
    const IPE_Object& metadata() const noexcept { return metadata_; }
    // The rows changed; -1 for a statement that returns rows.
    int64_t rowCount() const noexcept { return rowCount_; }

  private:
    struct Finaliser {
        void operator()(sqlite3_stmt* statement) const noexcept;
    };
    void bindValue(int index, const IPE_Object& value, IPE_DictType* named);
    bool bindPlain(int index, const IPE_Object& value);
    void bindNamed(IPE_DictType& named);
    void describe(bool hasRow);
    int step();
    [[noreturn]] void fail(int result, const char* show);
    IPE_Object value(int column, bool text);
    sqlite3* handle() const noexcept;

    std::unique_ptr<sqlite3_stmt, Finaliser> statement_;  // null once it has ended
    std::string sql_;
    int columns_ = 0;
    bool rowWaits_ = false;  // begin() has stepped onto a row that nobody has fetched
    int64_t rowCount_ = -1;
    IPE_Object description_, metadata_;
};
