// file_ages: how much was made, read and changed on each day.
//
// The cells of a day are found without a search when the date is an ordinary one: a flat table by year, month
// and day. Dates are written as text once, at the end.
#include <array>
#include <bit>

#include "census/reports/fsi_datecolumn.h"
#include "census/reports/fsi_dictorder.h"
#include "census/reports/fsi_keyindex.h"
#include "census/reports/fsi_quad64.h"
#include "census/reports/fsi_report.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_momentparts.h"

namespace {

// The days that occur, in the order in which they are first seen.
class Days {
  public:
    FSI_Quad64& operator[](const SMF_DateValue& date) {
        auto year = static_cast<unsigned>(date.year - FirstYear);
        auto month = static_cast<uint8_t>(date.month), day = static_cast<uint8_t>(date.day);
        if (year >= Years || month >= 16 || day >= 32) [[unlikely]]
            return cells_[idOf(date)];
        uint32_t& id = ordinary_[(year * 16 + month) * 32 + day];
        if (id == 0) [[unlikely]]
            id = idOf(date) + 1;
        return cells_[id - 1];
    }
    size_t count() const { return cells_.size(); }
    const FSI_Quad64& cell(size_t id) const { return cells_[id]; }
    IPE_Object text(size_t id) const {
        return IPE_String(
            SMF_DateText(std::bit_cast<SMF_DateValue>(static_cast<uint32_t>(index_.keys()[id]))));
    }

  private:
    static constexpr int FirstYear = 1970;
    static constexpr unsigned Years = 128;
    uint32_t idOf(const SMF_DateValue& date) {
        uint32_t id = index_.idOf(date.bits());
        if (id == cells_.size()) cells_.emplace_back();
        return id;
    }
    std::vector<uint32_t> ordinary_ = std::vector<uint32_t>(Years * 16 * 32);  // the id and 1
    FSI_KeyIndex index_;
    std::vector<FSI_Quad64> cells_;
};

class FileAges final : public FSI_Report {
  public:
    static constexpr int Version = 3;
    explicit FileAges(const IPE_Arguments& arguments) : FSI_Report(arguments) {}

    IPE_Object run() override {
        std::string mode = textOption("mode", "size");
        if (mode != "size" && mode != "space" && mode != "count")
            XPK_Raise("ValueError", "There is no mode $mode").string("mode", mode).raise();
        openTable("File");
        openFilter();
        static constexpr const char* Columns[] = {"Created", "Accessed", "Modified"};
        for (size_t i = 0; i < dates_.size(); ++i) dates_[i].connect(table(), Columns[i]);
        std::vector<FSI_Selection> trees = selections(levels());
        createTable("create table if not exists $table (cache, date, created, accessed, modified)");
        if (mode == "count") {
            add(trees, [] { return 1; });
        } else {
            SMF_I64 amount;
            amount.connect(table(), mode == "size" ? "Size" : "Space");
            add(trees, [&] { return amount.get(); });
        }
        insert("insert into $table (cache, date, created, accessed, modified) values ($cache,?,?,?,?)",
               rows());
        about();
        return {};
    }

  private:
    template <class Amount>
    void add(const std::vector<FSI_Selection>& trees, Amount&& amount) {
        for (const FSI_Selection& tree : trees)
            walk(treeRows(tree), true, [&] {
                if (!filter().accepts()) return;
                auto value = static_cast<uint64_t>(amount());
                for (size_t i = 0; i < dates_.size(); ++i) days_[dates_[i].get()].counters[i] += value;
            });
    }

    IPE_Object rows() {
        std::vector<IPE_Object> texts(days_.count());
        for (size_t i = 0; i < texts.size(); ++i) texts[i] = days_.text(i);
        IPE_Object list = IPE_NewList();
        for (uint32_t id : FSI_DictOrder(texts)) {
            auto counter = [&](int i) { return IPE_Int(static_cast<int64_t>(days_.cell(id).counters[i])); };
            list.as<IPE_ListType>()->append(IPE_TupleOf({texts[id], counter(0), counter(1), counter(2)}));
        }
        return list;
    }

    std::array<FSI_DateColumn, 3> dates_;
    Days days_;
};

const FSI_ReportRegistration registered("fsi_report.storage.file_ages", "storage.file_ages",
                                        FSI_CallReport<FileAges>);

}  // namespace
