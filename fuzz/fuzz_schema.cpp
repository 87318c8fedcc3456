// Any text as the schema script of the tables of a small census: of a stored table, of an index that stands
// for one, and of a name that no table has. Then the header and all rows, by every way to read them.
// Libraries that reach outside the process are taken away.
#include "../tests/census/filter_census.h"
#include "census/fsi_readertable.h"
#include "fuzz_target.h"
#include "fuzz_watch.h"

// Tables of Lua that hold themselves become values that are never collected.
extern "C" int __lsan_is_turned_off() { return 1; }

namespace {

constexpr int64_t MostRows = 50;

void readTable(FSI_Reader& reader, const char* name, bool helpers) {
    FSI_ReaderTable table;
    table.connect(reader, name, helpers);
    fuzzRun([&] { IPE_Object_ToString(table.header()); });
    int64_t left = MostRows;
    for (table.top(); table.advance() && left > 0; --left) {
        fuzzRun([&] { table.recordAsList(); });
        for (size_t i = 0; i < table.meta().fields.size(); ++i)
            fuzzRun([&] { table.value(static_cast<int32_t>(i)); });
    }
    fuzzRun([&] { table.seek(table.rows()); });
    fuzzRun([&] { IPE_Object_ToString(table.recordAsDict()); });
    fuzzRun([&] { table.fieldsAsDict(); });
    fuzzRun([&] {
        table.top();
        table.batch(MostRows);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzRun([&] {
        static const FilterCensus census(3, 12, 3);
        std::string text(FuzzLuaPrelude);
        text.append(fuzzText(data, size));
        FSI_Reader reader(censusOptions(census.folder.file()),
                          makeHost({{"File", text}, {"Path", text}, {"Nothing", text}}, {},
                                   {{"File", "Name,Size,Path"}, {"Path", "Number,Path,Name"}}, R"(
                function api.GetImageEntitySchema() return {{name = "Name"}} end)"));
        // The indexes, before time counts.
        reader.pathLevelHelper();
        reader.pathNameHelper();
        struct Table {
            const char* name;
            bool helpers;
        };
        for (Table table : {Table{"File", true}, {"File", false}, {"Path", true}, {"Nothing", true}}) {
            FuzzWatch watch(300);
            fuzzRun([&] { readTable(reader, table.name, table.helpers); });
        }
    });
    return 0;
}
