// path_largest: the directories with the largest values of a column.
//
// The column is one of the table Path as the application shows it, whatever way its value is reached. A name
// that is no column there means the directory's figure in the file index, so that sizes can be compared
// without a schema script. As for the largest files, one walk finds the rows and only those of the result are
// read as records.
#include <algorithm>
#include <optional>

#include "census/reports/fsi_listlargest.h"
#include "census/reports/fsi_measure.h"
#include "census/reports/fsi_report.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

// What a directory's own figures are called, in small letters.
struct NamedFigure {
    std::string_view name;
    FSI_Figure figure;
};
constexpr NamedFigure figures[] = {{"size", FSI_PathSize},       {"space", FSI_PathSpace},
                                   {"files", FSI_PathFiles},     {"dacls", FSI_PathDACLs},
                                   {"children", FSI_ChildCount}, {"pathsize", FSI_PathSize},
                                   {"pathspace", FSI_PathSpace}, {"pathfiles", FSI_PathFiles},
                                   {"pathdacls", FSI_PathDACLs}, {"childcount", FSI_ChildCount}};

class PathLargest final : public FSI_Report {
  public:
    static constexpr int Version = 4;
    explicit PathLargest(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        int64_t count = integerOption("count", 200, 1, 100000);
        openTable("Path");
        openFilter();
        chooseMeasure(textOption("field", "size"));
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, value, path, details, ipath)");
        FSI_ListLargest largest(count);
        find(trees, largest);
        insert("insert into $table (cache, value, path, details, ipath) values ($cache,?,?,?,?)",
               records(largest.finish()));
        aboutHeader(matches_);
        return {};
    }

  private:
    void chooseMeasure(const std::string& field) {
        auto isField = [&](const NamedFigure& entry) {
            return std::equal(field.begin(), field.end(), entry.name.begin(), entry.name.end(),
                              [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; });
        };
        const NamedFigure* named = std::find_if(std::begin(figures), std::end(figures), isField);
        if (table().meta().indexOf(field, false) < 0 && named != std::end(figures))
            figure_ = named->figure;
        else
            column_.emplace(table(), field);  // raises for a name that is neither
    }

    int64_t measure() {
        if (column_) return column_->get();
        levels().locateNumber(pathNumber());
        return levels().figure(figure_);
    }

    void find(const std::vector<FSI_Selection>& trees, FSI_ListLargest& largest) {
        for (const FSI_Selection& tree : trees) rows_ += treeRows(tree).count;
        progress().start("progress.report_threshold", "${0}% Finding the report threshold", 2 * rows_);
        for (const FSI_Selection& tree : trees)
            walk(treeRows(tree), true, [&] {
                if (!filter().accepts()) return;
                ++matches_;
                int64_t value = measure();
                if (value >= largest.threshold()) largest.offer(value, pathNumber(), {}, table().position());
            });
    }

    // The result's rows, in order. They are read in the order of the table, and the filter runs again for the
    // fields that a query may set.
    IPE_Object records(const std::vector<FSI_ListLargest::Row>& rows) {
        progress().phase("progress.path_threshold", "${0}% Finding the largest paths");
        std::vector<size_t> order(rows.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return rows[a].row < rows[b].row; });
        IPE_Object list = IPE_NewList();
        std::vector<IPE_Object>& tuples = list.as<IPE_ListType>()->items();
        tuples.resize(rows.size());
        int64_t done = 0;
        for (size_t i = 0; i < order.size(); ++i) {
            const FSI_ListLargest::Row& row = rows[order[i]];
            table().seek(row.row);
            filter().accepts();
            IPE_Object record = table().recordAsDict();
            tuples[order[i]] = IPE_TupleOf({IPE_Int(row.value), IPE_String(pathText(row.path)),
                                            IPE_String(IPE_Object_ToString(record)), IPE_Int(row.path)});
            int64_t reached = rows_ * static_cast<int64_t>(i + 1) / static_cast<int64_t>(order.size());
            progress().advance(reached - done);
            done = reached;
        }
        return list;
    }

    std::optional<FSI_Measure> column_;
    FSI_Figure figure_ = FSI_PathSize;
    int64_t rows_ = 0, matches_ = 0;
};

const FSI_ReportRegistration registered("fsi_report.storage.path_largest", "storage.path_largest",
                                        FSI_CallReport<PathLargest>);

}  // namespace
