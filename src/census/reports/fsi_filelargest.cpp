// file_largest: the rows of `File` with the largest values of a column.
//
// One walk finds the rows, keeping of each candidate the value, the path number and the name. The records,
// which are expensive, are read afterwards and only for the rows of the result. The filter runs again on
// those, since a query may set fields of its own that belong to the record.
#include "census/reports/fsi_listlargest.h"
#include "census/reports/fsi_measure.h"
#include "census/reports/fsi_report.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_stringfield.h"

namespace {

class FileLargest final : public FSI_Report {
  public:
    static constexpr int Version = 9;
    explicit FileLargest(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        int64_t count = integerOption("count", 200, 1, 100000);
        openTable("File");
        openFilter();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, ipath, value, path, name, details)");
        FSI_ListLargest largest(count);
        find(trees, largest);
        insert("insert into $table (cache, ipath, value, path, name, details) values ($cache,?,?,?,?,?)",
               records(largest.finish()));
        aboutHeader(matches_);
        return {};
    }

  private:
    void find(const std::vector<FSI_Selection>& trees, FSI_ListLargest& largest) {
        FSI_Measure measure(table(), textOption("field", "size"));
        nameColumn_ = table().meta().indexOf("Name", false);
        if (nameColumn_ >= 0 &&
            SMF_SameType(table().meta().fields[static_cast<size_t>(nameColumn_)]->type, SMF_TypeString))
            name_.connect(table(), "Name");
        for (const FSI_Selection& tree : trees) rows_ += treeRows(tree).count;
        progress().start("progress.report_threshold", "${0}% Finding the report threshold", 2 * rows_);
        for (const FSI_Selection& tree : trees)
            walk(treeRows(tree), true, [&] {
                if (!filter().accepts()) return;
                ++matches_;
                int64_t value = measure.get();
                if (value >= largest.threshold())
                    largest.offer(value, pathNumber(), name_.isConnected() ? name_.get() : "",
                                  table().position());
            });
    }

    // The result's rows, in order. They are read in the order of the table.
    IPE_Object records(const std::vector<FSI_ListLargest::Row>& rows) {
        progress().phase("progress.file_threshold", "${0}% Finding the largest files");
        std::vector<size_t> order(rows.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return rows[a].row < rows[b].row; });
        std::vector<IPE_Object> tuples(rows.size());
        int64_t done = 0;
        for (size_t i = 0; i < order.size(); ++i) {
            const FSI_ListLargest::Row& row = rows[order[i]];
            table().seek(row.row);
            filter().accepts();
            IPE_Object record = table().recordAsDict();
            int64_t path = pathNumberOf(record);
            tuples[order[i]] = IPE_TupleOf({IPE_Int(path), IPE_Int(row.value), IPE_String(pathText(path)),
                                            nameColumn_ < 0 ? IPE_None() : table().value(nameColumn_),
                                            IPE_String(IPE_Object_ToString(record))});
            int64_t reached = rows_ * static_cast<int64_t>(i + 1) / static_cast<int64_t>(order.size());
            progress().advance(reached - done);
            done = reached;
        }
        IPE_Object list = IPE_NewList();
        list.as<IPE_ListType>()->items() = std::move(tuples);
        return list;
    }

    int32_t nameColumn_ = -1;  // none without such a column; shown as scripts see it
    SMF_String name_;          // for the order of equal values
    int64_t rows_ = 0, matches_ = 0;
};

const FSI_ReportRegistration registered("fsi_report.storage.file_largest", "storage.file_largest",
                                        FSI_CallReport<FileLargest>);

}  // namespace
