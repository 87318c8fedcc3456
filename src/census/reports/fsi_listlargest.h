// FSI_ListLargest: the best N of many rows, by a number.
//
// Rows are offered freely. When the list holds more than N + 1000 of them it is cut to the best N, and from
// then on only a row that could still be among them is taken: threshold() is the N-th value. The order is
// descending by value, path number, name and row, so that the result does not depend on when cuts happened.
// Rows are kept as plain numbers and a name; the report reads the record of a row only when it is in the
// result. Belongs to one thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class FSI_ListLargest {
  public:
    struct Row {
        int64_t value = 0, path = 0;
        std::string name;
        int64_t row = 0;
    };
    static constexpr size_t Slack = 1000;

    // `capacity` is at least 1.
    explicit FSI_ListLargest(int64_t capacity) : capacity_(static_cast<size_t>(capacity)) {}

    // A row of a smaller value need not be offered. INT64_MIN until the first cut.
    int64_t threshold() const noexcept { return threshold_; }
    void offer(int64_t value, int64_t path, std::string_view name, int64_t row);
    // Sorts and cuts to the best N; the list takes no more rows after this.
    const std::vector<Row>& finish();

  private:
    void cut();

    size_t capacity_;
    int64_t threshold_ = INT64_MIN;
    std::vector<Row> rows_;
};
