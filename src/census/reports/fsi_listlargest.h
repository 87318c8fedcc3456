// FSI_ListLargest: the best N of many tuples, by their first items.
//
// Rows are appended freely; beyond N + 1000 the list is sorted in descending order and cut, and from then on
// a row below the threshold, the first item of the N-th, need not be offered. Belongs to one thread.
#pragma once

#include <cstdint>

#include "runtime/ipe_object.h"

class FSI_ListLargest {
  public:
    static constexpr int64_t Slack = 1000;
    explicit FSI_ListLargest(int64_t capacity);

    // INT64_MIN until the first cut.
    int64_t threshold() const noexcept { return threshold_; }
    // `tuple` begins with an integer.
    void append(const IPE_Object& tuple);
    // Sorts and cuts to the best N; the threshold becomes the N-th first item where there are N.
    void cut();
    // A ListType.
    const IPE_Object& list() const noexcept { return list_; }
    int64_t size() const noexcept;

  private:
    int64_t capacity_;
    int64_t threshold_;
    IPE_Object list_;
};
