// FSI_LargestReport: what file_largest and path_largest share: one walk that finds the rows with the largest
// values, and the reading of their records afterwards.
#pragma once

#include <string_view>
#include <vector>

#include "census/reports/fsi_listlargest.h"
#include "census/reports/fsi_report.h"

class FSI_LargestReport : public FSI_Report {
  protected:
    using FSI_Report::FSI_Report;

    // Offers every row of the trees that passes the filter. `measure()` gives the current row's value,
    // `name()` the text that decides between rows of one path.
    template <class Measure, class Name>
    void find(const std::vector<FSI_Selection>& trees, FSI_ListLargest& largest, Measure&& measure,
              Name&& name) {
        for (const FSI_Selection& tree : trees) rows_ += treeRows(tree).count;
        progress().start("progress.report_threshold", "${0}% Finding the report threshold", 2 * rows_);
        for (const FSI_Selection& tree : trees)
            walkMatches(treeRows(tree), [&] {
                ++matches_;
                int64_t value = measure();
                if (value >= largest.threshold())
                    largest.offer(value, pathNumber(), name(), table().position());
            });
    }

    // The tuples of the found rows, in their order. The records are read in the order of the table; the
    // filter runs again on each, for the fields that a query may set. Progress goes on with `key` and `text`.
    IPE_Object records(const std::vector<FSI_ListLargest::Row>& rows, const char* key, const char* text);
    // Of a row, which is the current one.
    virtual IPE_Object tupleOf(const FSI_ListLargest::Row& row, const IPE_Object& record) = 0;

    int64_t matches() const noexcept { return matches_; }

  private:
    int64_t rows_ = 0, matches_ = 0;
};
