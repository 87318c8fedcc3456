// file_ages: how much was made, read and changed on each day.
//
// The cells of a column are found without a search when the date is an ordinary one: a flat table by year,
// month and day. Rows that all pass are taken by stretches, one column after the other, so that only one
// table is in use at a time. A cell remembers when it was first met, since the order of the result depends on
// it. Dates are written as text once, at the end.
#include <algorithm>
#include <array>
#include <bit>
#include <map>

#include "census/reports/fsi_datecolumn.h"
#include "census/reports/fsi_dictorder.h"
#include "census/reports/fsi_keyindex.h"
#include "census/reports/fsi_report.h"
#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_stringtype.h"
#include "store/fields/smf_i64field.h"
#include "store/fields/smf_momentparts.h"

namespace {

// What belongs to a day in one column.
struct Cell {
    uint64_t sum = 0;
    int64_t met = 0;  // the place of the first row, from 1, in the walk; 0 for none
};

class Days {
  public:
    Cell& operator[](const SMF_DateValue& date) {
        auto year = static_cast<unsigned>(date.year - FirstYear);
        auto month = static_cast<uint8_t>(date.month), day = static_cast<uint8_t>(date.day);
        if (year < Years && month < Months && day < DaysAMonth) [[likely]]
            return ordinary_[(year * Months + month) * DaysAMonth + day];
        uint32_t id = index_.idOf(date.bits());
        if (id == others_.size()) others_.emplace_back();
        return others_[id];
    }
    // Calls visit(date, cell) for each day that was met.
    template <class Visit>
    void each(Visit&& visit) const {
        for (unsigned i = 0; i < ordinary_.size(); ++i)
            if (ordinary_[i].met)
                visit(SMF_DateValue{static_cast<int8_t>(i % DaysAMonth),
                                    static_cast<int8_t>(i / DaysAMonth % Months),
                                    static_cast<int16_t>(FirstYear + i / DaysAMonth / Months)},
                      ordinary_[i]);
        for (size_t i = 0; i < others_.size(); ++i)
            visit(std::bit_cast<SMF_DateValue>(static_cast<uint32_t>(index_.keys()[i])), others_[i]);
    }

  private:
    static constexpr int FirstYear = 1970;
    static constexpr unsigned Years = 128, Months = 16, DaysAMonth = 32;
    std::vector<Cell> ordinary_ = std::vector<Cell>(Years * Months * DaysAMonth);
    FSI_KeyIndex index_;
    std::vector<Cell> others_;
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
        if (mode != "count") {
            connectColumn(amount_, mode == "size" ? "Size" : "Space");
        }
        for (const FSI_Selection& tree : trees) {
            FSI_RowRange rest = filter().isEmpty() ? addStretches(treeRows(tree)) : treeRows(tree);
            walkMatches(rest, [&] { addRow(); });
        }
        insert("insert into $table (cache, date, created, accessed, modified) values ($cache,?,?,?,?)",
               rows());
        about();
        return {};
    }

  private:
    static void add(Cell& cell, uint64_t amount, int64_t row) {
        cell.sum += amount;
        if (cell.met == 0) [[unlikely]]
            cell.met = row;
    }

    void addRow() {
        uint64_t amount = amount_.isConnected() ? static_cast<uint64_t>(amount_.get()) : 1;
        ++met_;
        for (size_t i = 0; i < dates_.size(); ++i) add(days_[i][dates_[i].get()], amount, met_);
    }

    // Adds rows as long as all columns give stretches of them; gives the rows that are left.
    FSI_RowRange addStretches(FSI_RowRange range) {
        while (range.count > 0) {
            stopCheck();
            table().seek(range.row);
            auto count = static_cast<size_t>(range.count);
            std::span<const int64_t> amounts;
            if (amount_.isConnected()) count = (amounts = amount_.span(count)).size();
            std::array<std::span<const SMF_DateValue>, 3> dates;
            for (size_t i = 0; i < dates.size(); ++i) count = (dates[i] = dates_[i].span(count)).size();
            if (count == 0) break;
            for (size_t i = 0; i < dates.size(); ++i)
                for (size_t k = 0; k < count; ++k)
                    add(days_[i][dates[i][k]], amounts.empty() ? 1 : static_cast<uint64_t>(amounts[k]),
                        met_ + static_cast<int64_t>(k) + 1);
            met_ += static_cast<int64_t>(count);
            range.row += static_cast<int64_t>(count);
            range.count -= static_cast<int64_t>(count);
        }
        return range;
    }

    IPE_Object rows() {
        struct Day {
            std::array<uint64_t, 3> sums{};
            int64_t met = INT64_MAX;  // thrice the place of the first row, and the column
        };
        std::map<uint32_t, Day> all;
        for (size_t i = 0; i < days_.size(); ++i)
            days_[i].each([&](const SMF_DateValue& date, const Cell& cell) {
                Day& day = all[date.bits()];
                day.sums[i] = cell.sum;
                day.met = std::min(day.met, cell.met * 3 + static_cast<int64_t>(i));
            });
        std::vector<std::pair<uint32_t, const Day*>> ordered;
        for (const auto& [bits, day] : all) ordered.emplace_back(bits, &day);
        std::sort(ordered.begin(), ordered.end(),
                  [](const auto& a, const auto& b) { return a.second->met < b.second->met; });
        std::vector<IPE_Object> texts;
        for (const auto& [bits, day] : ordered)
            texts.push_back(IPE_String(SMF_DateText(std::bit_cast<SMF_DateValue>(bits))));
        IPE_Object list = IPE_NewList();
        for (uint32_t id : FSI_DictOrder(texts)) {
            auto sum = [&](size_t i) { return IPE_Int(static_cast<int64_t>(ordered[id].second->sums[i])); };
            list.as<IPE_ListType>()->append(IPE_TupleOf({texts[id], sum(0), sum(1), sum(2)}));
        }
        return list;
    }

    SMF_I64 amount_;  // not connected when rows are counted
    std::array<FSI_DateColumn, 3> dates_;
    std::array<Days, 3> days_;
    int64_t met_ = 0;  // rows
};

const FSI_ReportRegistration registered("fsi_report.storage.file_ages", "storage.file_ages",
                                        FSI_CallReport<FileAges>);

}  // namespace
