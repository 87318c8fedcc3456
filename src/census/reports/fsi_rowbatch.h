// FSI_RowBatch: rows on their way into a result table. They are collected in a list and passed to the
// statement when there are more than a limit, so that a report's memory does not grow with the census.
#pragma once

#include <string_view>
#include <utility>
#include <vector>

#include "runtime/ipe_object.h"

class FSI_RowBatch {
  public:
    // The summaries' limit, and that of reports whose rows otherwise go in one call.
    static constexpr size_t Short = 10000, Long = 100000;

    // `statement` is the report's callable.
    FSI_RowBatch(const IPE_Object& statement, std::string_view sql, size_t limit);

    template <class... Values>
    void add(Values&&... values) {
        IPE_Object row = newRow(sizeof...(values));
        (append(row, IPE_Object(std::forward<Values>(values))), ...);
        take(std::move(row));
    }
    // The same for a row that is put together by its parts: newRow(), append() for each, take().
    IPE_Object newRow(size_t size);
    static void append(const IPE_Object& row, IPE_Object value);
    void take(IPE_Object row);
    // Passes on what is there. With `always` also an empty list, unless an earlier one was passed on since
    // the last flush.
    void flush(bool always);

  private:
    void pass();

    IPE_Object statement_, sql_, rows_;
    std::vector<IPE_Object> spare_;  // tuples of the last batch
    size_t limit_;
    bool passed_ = false;
};
