// file_largest: the rows of `File` with the largest values of a column.
//
// One walk finds the rows, keeping of each candidate the value, the path number and the name. The records,
// which are expensive, are read afterwards and only for the rows of the result.
#include "census/reports/fsi_largestreport.h"
#include "census/reports/fsi_measure.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_stringfield.h"

namespace {

class FileLargest final : public FSI_LargestReport {
  public:
    static constexpr int Version = 9;
    explicit FileLargest(const IPE_Arguments& arguments) : FSI_LargestReport(arguments) {}

    IPE_Object run() override {
        int64_t count = integerOption("count", 200, 1, 100000);
        openTable("File");
        openFilter();
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, ipath, value, path, name, details)");
        FSI_Measure measure(table(), textOption("field", "size"));
        connectName();
        FSI_ListLargest largest(count);
        find(
            trees, largest, [&] { return measure.get(); },
            [&] { return name_.isConnected() ? name_.get() : std::string_view(); });
        insert("insert into $table (cache, ipath, value, path, name, details) values ($cache,?,?,?,?,?)",
               records(largest.finish(), "progress.file_threshold", "${0}% Finding the largest files"));
        aboutHeader(matches());
        return {};
    }

  private:
    void connectName() {
        nameColumn_ = table().meta().indexOf("Name", false);
        if (nameColumn_ >= 0 &&
            SMF_SameType(table().meta().fields[static_cast<size_t>(nameColumn_)]->type, SMF_TypeString))
            name_.connect(table(), "Name");
    }

    IPE_Object tupleOf(const FSI_ListLargest::Row& row, const IPE_Object& record) override {
        int64_t path = pathNumberOf(record);
        return IPE_TupleOf({IPE_Int(path), IPE_Int(row.value), IPE_String(pathText(path)),
                            nameColumn_ < 0 ? IPE_None() : table().value(nameColumn_),
                            IPE_String(IPE_Object_ToString(record))});
    }

    int32_t nameColumn_ = -1;  // none without such a column; shown as scripts see it
    SMF_String name_;          // for the order of equal values
};

const FSI_ReportRegistration registered("fsi_report.storage.file_largest", "storage.file_largest",
                                        FSI_CallReport<FileLargest>);

}  // namespace
