// A literal as the options of a report, which the first byte chooses, on a small census. Its entry `census`,
// when it is a dictionary, adds to the census's options. What a literal cannot give stands ready: a database
// cursor, paths, scripts by name.
#include "fuzz_census.h"
#include "ipe/values/ipe_literal.h"
#include "ipe_sqlite/ipe_sqlite.h"
#include "ipe_sqlite/ipe_sqlite_connection.h"
#include "ipe_sqlite/ipe_sqlite_cursor.h"

extern "C" void __lsan_disable() __attribute__((weak));
extern "C" void __lsan_enable() __attribute__((weak));

namespace {

// Scripts may make values that hold themselves, which are never collected.
class UncountedLeaks {
  public:
    explicit UncountedLeaks(bool uncounted) : uncounted_(uncounted && __lsan_disable) {
        if (uncounted_) __lsan_disable();
    }
    ~UncountedLeaks() {
        if (uncounted_) __lsan_enable();
    }
    UncountedLeaks(const UncountedLeaks&) = delete;
    UncountedLeaks& operator=(const UncountedLeaks&) = delete;

  private:
    bool uncounted_;
};

constexpr const char* Reports[] = {"dacl_search",  "file_ages",     "file_duplicated",    "file_largest",
                                   "file_search",  "group_by_pcre", "group_by_pcre_date", "iterate",
                                   "path_index",   "path_largest",  "path_names",         "path_search",
                                   "path_summary", "spacemap",      "tree_summary"};

std::map<std::string, std::string> includes() {
    std::map<std::string, std::string> scripts = FilterCensus::scripts();
    scripts["lengths"] = R"(
        function before(options) return {regex = options.regex or '.*', columns = {'Size'}} end
        function during(values) return #values[1] % 3 end)";
    return scripts;
}

IPE_Object newCursor() {
    IPE_Object connection = IPE_Sqlite::shared().as<IPE_Sqlite>()->connect(IPE_String(":memory:"));
    IPE_Object cursor = connection.as<IPE_Sqlite_Connection>()->cursor();
    cursor.as<IPE_Sqlite_Cursor>()->execute(
        "create table details (name, size, date, owner, path, hash, ipath, field1, field2, field3)");
    return cursor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 4096) return 0;
    const char* report = Reports[data[0] % std::size(Reports)];
    UncountedLeaks uncounted(std::string_view(report) == "iterate");
    FuzzWatch watch(300);
    fuzzRun([&] {
        fuzzReport(report);
        static const FilterCensus census(3, 12, 3);
        fuzzKeepInside(census.folder);
        IPE_Object options = parse_literal(fuzzText(data + 1, size - 1));
        IPE_Object selection = censusOptions(census.folder.file());
        if (auto* given = options.tryAs<IPE_DictType>()) {
            if (IPE_Object more(given->findText("census")); more.is<IPE_DictType>()) {
                more.as<IPE_DictType>()->removeText("fsi");
                selection.as<IPE_DictType>()->update(*more.as<IPE_DictType>());
            }
            if (!given->findText("paths")) {
                IPE_Object path = IPE_NewDict();
                path.as<IPE_DictType>()->setText("name", IPE_Int(1));
                given->setText("paths", IPE_ListOf({path}));
            }
            if (std::string_view(report) == "file_duplicated") given->setText("dcursor", newCursor());
        }
        IPE_Object host = census.host(includes());
        IPE_LuaOf(host)->execute(FuzzLuaPrelude);
        fuzzRun([&] { fuzzRunReport(report, selection, options, host); });
        fuzzRemoveIndexes(census.folder, true);
    });
    return 0;
}
