// IPE_Sqlite: the script module `ipe.sqlite`, a thin database interface over SQLite.
//
//   db = ipe.sqlite.create().connect("/tmp/result.sqlite")
//   cursor = db.cursor()
//   cursor.execute("select name, size from t where size > ?", 1000)
//
// `create()` gives one object, the same to every thread. Its attributes are `connect(path)`, the texts
// `apilevel`, `threadsafety`, `paramstyle` and `libversion` (the version of the interface), `engineversion`
// (that of the library), and the settings `busytimeout` and `busypolltime`, in milliseconds. Attributes but
// `connect` may be set, to plain data; a new setting counts from the next look of a waiting statement on.
#pragma once

#include <string_view>

#include "ipe/object/ipe_moduletype.h"

class IPE_Store;

class IPE_Sqlite final : public IPE_ModuleType {
  public:
    static const char TypeName[];
    static constexpr int64_t BusyTimeout = 900'000;  // milliseconds
    static constexpr int64_t BusyPollTime = 5'000;   // milliseconds

    IPE_Sqlite();
    // The process's module object, made on first use. Any thread.
    static IPE_Object shared();

    // A new, bound IPE_Sqlite_Connection; the file is made if it is not there. RuntimeError "Failed to
    // connect/open database '$databasename': $errormsg".
    IPE_Object connect(const IPE_Object& path);
    // The settings as they stand; the value above when a script has taken one away. Any thread.
    int64_t busyTimeout() { return setting("busytimeout", BusyTimeout); }
    int64_t busyPollTime() { return setting("busypolltime", BusyPollTime); }

    void __bind__() override {}  // bound when made, for all threads
    IPE_Object __callmethod__(int method, const IPE_Arguments& arguments) override;
    IPE_Object __getattr__(const IPE_Object& key, int depth) override;
    // TypeError for `connect` and for a value that cannot cross threads.
    void __setattr__(const IPE_Object& key, const IPE_Object& value) override;
    void __delattr__(const IPE_Object& key) override;
    IPE_Object __dir__() override;
    void __import__(const IPE_Object& target) override;
    void __setname__(const IPE_Object& name) override { IPE_Type::__setname__(name); }

  private:
    int64_t setting(std::string_view name, int64_t absent);
    IPE_Store& values() const noexcept;
    IPE_Object values_;  // the attributes but `connect`: a store, for all threads
};
