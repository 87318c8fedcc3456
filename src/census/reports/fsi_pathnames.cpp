// path_names: the directories that pass a filter, by name.
//
// The filter sees the table of the paths index; the texts come from the file index, which knows the branch of
// the row before and so adds a name to it.
#include "census/reports/fsi_report.h"
#include "census/reports/fsi_rowbatch.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

class PathNames final : public FSI_Report {
  public:
    static constexpr int Version = 4;
    explicit PathNames(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        openTable("Path");
        openFilter();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, ipath, path)");
        int64_t total = 0;
        for (const FSI_Selection& tree : trees) total += treeRows(tree).count;
        progress().start("progress.path_names", "${0}% Finding the paths", total);
        FSI_RowBatch rows(statement(), "insert into $table (cache, ipath, path) values ($cache,?,?)",
                          FSI_RowBatch::Long);
        for (const FSI_Selection& tree : trees) {
            walkMatches(treeRows(tree), [&] {
                int64_t number = pathNumber();
                rows.add(IPE_Int(number), IPE_String(pathText(number)));
            });
            rows.flush(true);
        }
        about();
        return {};
    }
};

const FSI_ReportRegistration registered("fsi_report.storage.path_names", "storage.path_names",
                                        FSI_CallReport<PathNames>);

}  // namespace
