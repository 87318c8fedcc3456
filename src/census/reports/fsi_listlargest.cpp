// The best N of many rows.
//
// A cut is a selection and no sort: linear in what the list holds, and at least as many rows were taken since
// the last one as the slack, so that a row costs a bounded share of it. The slack grows with N for that.
#include "census/reports/fsi_listlargest.h"

#include <cstddef>
#include <tuple>

namespace {

bool isBefore(const FSI_ListLargest::Row& a, const FSI_ListLargest::Row& b) {
    return std::tie(b.value, b.path, b.name, b.row) < std::tie(a.value, a.path, a.name, a.row);
}

}  // namespace

void FSI_ListLargest::offer(int64_t value, int64_t path, std::string_view name, int64_t row) {
    if (value < threshold_) return;
    rows_.push_back({value, path, std::string(name), row});
    if (rows_.size() > capacity_ + std::max(Slack, capacity_)) cut();
}

void FSI_ListLargest::cut() {
    auto last = rows_.begin() + static_cast<std::ptrdiff_t>(capacity_) - 1;
    std::nth_element(rows_.begin(), last, rows_.end(), isBefore);
    threshold_ = last->value;
    rows_.resize(capacity_);
}

const std::vector<FSI_ListLargest::Row>& FSI_ListLargest::finish() {
    if (rows_.size() > capacity_) cut();
    std::sort(rows_.begin(), rows_.end(), isBefore);
    return rows_;
}
