// A test sees only rows that passed those before it: damage in a row that an earlier test rejects is never
// met. So each test begins at the first row that is left.
#include "store/filters/smf_rowsieve.h"

#include <algorithm>
#include <cstring>

#include "runtime/epa_shutdown.h"
#include "store/filters/smf_fieldfilter.h"

void SMF_RowSieve::sift(SMF_ReaderTable& table, const std::vector<SMF_FieldFilter*>& tests, int64_t last) {
    first_ = end_ = table.position();
    auto count = static_cast<size_t>(std::min(MostRows, last - first_ + 1));
    std::memset(keep_.data(), 1, count);
    size_t from = 0;
    for (judged_ = 0; judged_ < tests.size(); ++judged_) {
        size_t rows = tests[judged_]->sift(keep_.data() + from, count - from);
        if (rows == 0) break;
        count = from + rows;
        const void* left = std::memchr(keep_.data() + from, 1, rows);
        if (!left) break;
        size_t next = static_cast<size_t>(static_cast<const uint8_t*>(left) - keep_.data());
        if (next != from) table.seek(first_ + static_cast<int64_t>(next));
        from = next;
    }
    end_ = first_ + static_cast<int64_t>(count);
}

bool SMF_RowSieve::find(SMF_ReaderTable& table, const std::vector<SMF_FieldFilter*>& tests, int64_t last) {
    auto passes = [&] {
        bool result = true;
        for (size_t i = judged_; i < tests.size() && result; ++i) tests[i]->evaluate(result);
        return result;
    };
    for (int64_t row = table.position(); row <= last;) {
        if (row < first_ || row >= end_) {
            if (!XPK_IsRunning()) XPK_Raise("SystemExit", "").raise();
            if (table.position() != row) table.seek(row);
            sift(table, tests, last);
        }
        const uint8_t* from = keep_.data() + (row - first_);
        const void* left = std::memchr(from, 1, static_cast<size_t>(end_ - row));
        if (!left) {
            row = end_;
            continue;
        }
        row += static_cast<const uint8_t*>(left) - from;
        if (row > last) break;
        if (table.position() != row) table.seek(row);
        if (passes()) return true;
        ++row;
    }
    if (table.position() != last) table.seek(last);
    return false;
}
