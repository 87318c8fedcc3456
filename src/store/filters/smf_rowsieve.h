// SMF_RowSieve: finds the rows that pass some tests, many rows at a time.
//
// Tests that can judge a stretch of decoded values at once (SMF_FieldFilter::sift), up to the first that
// cannot; the rows that are left are asked one by one. Which rows pass, and what is raised at which row, is
// as if every row had been asked in turn. Belongs to one thread, to one table and to one list of tests.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "store/smf_readertable.h"

class SMF_FieldFilter;

class SMF_RowSieve {
  public:
    // Moves the table on, from its current row, to the first row up to `last` that passes all tests; false,
    // with `last` as the current row, when there is none. `last` is at most rows(). SystemExit once the
    // server stops.
    bool find(SMF_ReaderTable& table, const std::vector<SMF_FieldFilter*>& tests, int64_t last);

  private:
    static constexpr int64_t MostRows = SMF_FieldDecoder::BatchRows;
    void sift(SMF_ReaderTable& table, const std::vector<SMF_FieldFilter*>& tests, int64_t last);

    int64_t first_ = 0, end_ = 0;  // rows that `keep_` is of
    size_t judged_ = 0;            // tests that have judged them
    std::array<uint8_t, MostRows> keep_;
};
