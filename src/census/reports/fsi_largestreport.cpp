// The records of the largest rows.
#include "census/reports/fsi_largestreport.h"

#include <algorithm>
#include <numeric>

#include "ipe/values/ipe_containers.h"

IPE_Object FSI_LargestReport::records(const std::vector<FSI_ListLargest::Row>& rows, const char* key,
                                      const char* text) {
    progress().phase(key, text);
    std::vector<size_t> order(rows.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return rows[a].row < rows[b].row; });
    IPE_Object list = IPE_NewList();
    std::vector<IPE_Object>& tuples = list.as<IPE_ListType>()->items();
    tuples.resize(rows.size());
    int64_t done = 0;
    for (size_t i = 0; i < order.size(); ++i) {
        const FSI_ListLargest::Row& row = rows[order[i]];
        table().seek(row.row);
        filter().accepts();
        tuples[order[i]] = tupleOf(row, table().recordAsDict());
        int64_t reached = rows_ * static_cast<int64_t>(i + 1) / static_cast<int64_t>(order.size());
        progress().advance(reached - done);
        done = reached;
    }
    return list;
}
