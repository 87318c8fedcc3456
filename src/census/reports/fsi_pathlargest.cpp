// path_largest: the directories with the largest values of a column.
//
// The column is one of the table Path as the application shows it, whatever way its value is reached. A name
// that is no column there means the directory's figure in the file index, so that sizes can be compared
// without a schema script. As for the largest files, one walk finds the rows and only those of the result are
// read as records.
#include <algorithm>
#include <optional>

#include "census/reports/fsi_largestreport.h"
#include "census/reports/fsi_measure.h"
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

class PathLargest final : public FSI_LargestReport {
  public:
    static constexpr int Version = 4;
    explicit PathLargest(const IPE_Arguments& arguments) : FSI_LargestReport(arguments) {}

    IPE_Object run() override {
        int64_t count = integerOption("count", 200, 1, 100000);
        openTable("Path");
        openFilter();
        chooseMeasure(textOption("field", "size"));
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, value, path, details, ipath)");
        FSI_ListLargest largest(count);
        find(
            trees, largest, [&] { return measure(); }, [] { return std::string_view(); });
        insert("insert into $table (cache, value, path, details, ipath) values ($cache,?,?,?,?)",
               records(largest.finish(), "progress.path_threshold", "${0}% Finding the largest paths"));
        aboutHeader(matches());
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

    IPE_Object tupleOf(const FSI_ListLargest::Row& row, const IPE_Object& record) override {
        return IPE_TupleOf({IPE_Int(row.value), IPE_String(pathText(row.path)),
                            IPE_String(IPE_Object_ToString(record)), IPE_Int(row.path)});
    }

    std::optional<FSI_Measure> column_;
    FSI_Figure figure_ = FSI_PathSize;
};

const FSI_ReportRegistration registered("fsi_report.storage.path_largest", "storage.path_largest",
                                        FSI_CallReport<PathLargest>);

}  // namespace
