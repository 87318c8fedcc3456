// Bytes as a census file: all indexes are built, and each directory is summed up and shown by them.
#include <fstream>

#include "census/index/fsi_entityhelper.h"
#include "census/index/fsi_pathlevelhelper.h"
#include "census/index/fsi_pathnamehelper.h"
#include "fuzz_census.h"
#include "ipe/values/ipe_literal.h"

namespace {

// A row costs a few bits at least in true tables; one that claims far more is no more work per row, only
// more.
constexpr int64_t MostRows = 20000;

bool isSmall(const std::string& file) {
    SMF_Reader reader;
    reader.open(file);
    for (const auto& [name, position] : reader.tables()) {
        SMF_ReaderTable table;
        if (fuzzRun([&, &table_name = name] { table.connect(reader, table_name); }) &&
            table.rows() > MostRows)
            return false;
    }
    return true;
}

void buildIndexes(const IPE_Object& options, const IPE_Object& host) {
    FSI_Reader reader(options, host);
    fuzzRun([&] { reader.entityHelper(); });
    fuzzRun([&] {
        FSI_PathNameHelper& names = reader.pathNameHelper();
        for (int64_t number = 0; number < 20; ++number) names.path(number);
    });
    fuzzRun([&] {
        FSI_PathLevelHelper& levels = reader.pathLevelHelper();
        for (int64_t number = 0; number < 20; ++number)
            if (levels.locateNumber(number)) levels.locateText(levels.pathText(), false);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzWatch watch(5000);
    fuzzRun([&] {
        fuzzReport("tree_summary");
        static const CensusFolder folder;
        fuzzKeepInside(folder);
        std::ofstream(folder.file(), std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        fuzzRun([&] {
            if (!isSmall(folder.file())) return;
            static const IPE_Object host =
                makeHost({}, {}, {{"File", "Name,Size"}, {"Path", "Number,Path"}},
                         "function api.GetImageEntitySchema() return {{name = 'Name'}} end");
            IPE_Object selection = censusOptions(folder.file());
            buildIndexes(selection, host);
            IPE_Object options = parse_literal("{'paths': [{'name': 1}], 'filter': 'Size > 5'}");
            fuzzRun([&] { fuzzRunReport("file_largest", selection, options, host); });
            IPE_Dict_Set(selection, "calc_digests", IPE_Int(1));
            fuzzRun([&] { fuzzRunReport("tree_summary", selection, options, host); });
        });
        fuzzRemoveIndexes(folder, false);
    });
    return 0;
}
