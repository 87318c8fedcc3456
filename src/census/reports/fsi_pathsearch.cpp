// path_search: how many directories of each selected tree pass a filter, and where in the table they stand.
//
// A run of rows that pass is one row of the table of offsets, so that a user interface can fetch the n-th
// match without the matches being stored. Runs are kept as plain numbers until the end, since their table is
// written behind the other.
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

class PathSearch final : public FSI_Report {
  public:
    static constexpr int Version = 5;
    explicit PathSearch(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        openTable("Path");
        openFilter();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, path, totalcount, filteredcount, ipath)");
        createTable("create table if not exists ${table}_offsets (cache, offset, count)");
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += treeRows(tree).count;
        progress().start("progress.path_search", "${0}% Searching the paths", total);
        FSI_RowBatch rows(
            statement(),
            "insert into $table (cache, path, totalcount, filteredcount, ipath) values ($cache,?,?,?,?)",
            FSI_RowBatch::Long);
        for (const FSI_Selection& tree : trees) {
            int64_t matches = search(treeRows(tree));
            rows.add(IPE_String(tree.text), IPE_Int(treeRows(tree).count), IPE_Int(matches),
                     IPE_Int(tree.number));
        }
        rows.flush(true);
        writeRuns();
        about();
        return {};
    }

  private:
    // The number of rows that pass. All rows are counted, so no tree is left out.
    int64_t search(const FSI_RowRange& range) {
        int64_t matches = 0, length = 0;
        walk(range, false, [&] {
            if (filter().accepts()) {
                ++matches, ++length;
            } else if (length) {
                runs_.push_back({table().position() - length, length});
                length = 0;
            }
        });
        if (length) runs_.push_back({range.row + range.count - length, length});
        return matches;
    }

    void writeRuns() {
        FSI_RowBatch rows(statement(),
                          "insert into ${table}_offsets (cache, offset, count) values ($cache,?,?)",
                          FSI_RowBatch::Long);
        for (const FSI_RowRange& run : runs_) rows.add(IPE_Int(run.row), IPE_Int(run.count));
        rows.flush(true);
    }

    std::vector<FSI_RowRange> runs_;
};

const FSI_ReportRegistration registered("fsi_report.storage.path_search", "storage.path_search",
                                        FSI_CallReport<PathSearch>);

}  // namespace
