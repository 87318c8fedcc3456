// Sorting of lists: by the elements themselves, and by columns of rows.
//
// Two roads. A list of integers alone is sorted by value, outside the handles; nobody can tell equal integers
// apart. Everything else goes through a Hoare quicksort with the median of three random places as pivot, so
// no order of the input is a bad one. Comparison may be script code: it can raise, contradict itself, or
// touch the list. So elements move by swaps alone (a failure loses and doubles nothing), indexes are bounded
// whatever the comparison answers, the elements are out of the list while it runs, and a range that was
// divided badly too often is finished by heap sort, which needs n log n steps for any answers. Recursion
// takes the smaller side.
#include <algorithm>
#include <bit>
#include <cstdlib>
#include <random>
#include <utility>

#include "ipe/values/ipe_containers.h"
#include "ipe/values/ipe_numbers.h"
#include "ipe/values/ipe_stringtype.h"

namespace {

using Items = std::vector<IPE_Object>;

size_t randomBelow(size_t limit) {
    static thread_local std::minstd_rand source{std::random_device{}()};
    return std::uniform_int_distribution<size_t>(0, limit - 1)(source);
}

// Sorts [begin, end) of `items`; order(a, b) is negative, 0 or positive and may raise.
template <class Order>
class Sorter {
  public:
    Sorter(Items& items, Order order) : items_(items), order_(std::move(order)) {}

    void sort(size_t begin, size_t end, int budget) {
        while (end - begin > Small) {
            if (budget-- == 0) {
                heapSort(begin, end);
                return;
            }
            auto [left, right] = partition(begin, end);
            if (left - begin < end - right) {
                sort(begin, left, budget);
                begin = right;
            } else {
                sort(right, end, budget);
                end = left;
            }
        }
        insertionSort(begin, end);
    }

  private:
    static constexpr size_t Small = 8;

    int order(size_t a, size_t b) { return order_(items_[a], items_[b]); }

    size_t medianOfThree(size_t begin, size_t end) {
        size_t a = begin + randomBelow(end - begin);
        size_t b = begin + randomBelow(end - begin);
        size_t c = begin + randomBelow(end - begin);
        if (order(a, b) > 0) std::swap(a, b);
        if (order(b, c) > 0) std::swap(b, c);
        return order(a, b) > 0 ? a : b;
    }

    // The ends of the two sides: [begin, left) and [right, end), both shorter than the whole.
    std::pair<size_t, size_t> partition(size_t begin, size_t end) {
        items_[begin].swap(items_[medianOfThree(begin, end)]);
        const IPE_Object pivot = items_[begin];
        size_t i = begin + 1, j = end;  // [begin + 1, i) is not above the pivot, [j, end) not below
        for (;;) {
            while (i < j && order_(items_[i], pivot) < 0) ++i;
            while (i < j && order_(items_[j - 1], pivot) > 0) --j;
            if (i >= j) break;
            items_[i].swap(items_[j - 1]);
            ++i;
            --j;
            if (i > j) {  // one element was both: it equals the pivot or contradicts itself
                j = i;
                break;
            }
        }
        items_[begin].swap(items_[i - 1]);
        return {i - 1, i};
    }

    void insertionSort(size_t begin, size_t end) {
        for (size_t i = begin + 1; i < end; ++i)
            for (size_t j = i; j > begin && order(j - 1, j) > 0; --j) items_[j - 1].swap(items_[j]);
    }

    void heapSort(size_t begin, size_t end) {
        size_t count = end - begin;
        for (size_t root = count / 2; root-- > 0;) sink(begin, root, count);
        for (size_t last = count; --last > 0;) {
            items_[begin].swap(items_[begin + last]);
            sink(begin, 0, last);
        }
    }

    void sink(size_t begin, size_t root, size_t count) {
        for (size_t child; (child = root * 2 + 1) < count; root = child) {
            if (child + 1 < count && order(begin + child, begin + child + 1) < 0) ++child;
            if (order(begin + root, begin + child) >= 0) return;
            items_[begin + root].swap(items_[begin + child]);
        }
    }

    Items& items_;
    Order order_;
};

template <class Order>
void sortItems(Items& items, Order order) {
    int budget = 2 * std::bit_width(items.size()) + 8;
    Sorter<Order>(items, std::move(order)).sort(0, items.size(), budget);
}

// Takes the elements out of a list for as long as they are sorted, and puts them back on every way out, in
// front of whatever came in meanwhile.
class Borrowed {
  public:
    explicit Borrowed(Items& list) : list_(list) { items.swap(list); }
    ~Borrowed() {
        for (IPE_Object& late : list_) items.push_back(std::move(late));
        list_.swap(items);
    }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;
    Items items;

  private:
    Items& list_;
};

// True after sorting a list that holds integers only.
bool sortInts(Items& items, bool descending) {
    if (!std::all_of(items.begin(), items.end(), [](const IPE_Object& o) { return o.is<IPE_IntType>(); }))
        return false;
    std::vector<std::pair<int64_t, EPA_Counted*>> values;
    values.reserve(items.size());
    for (IPE_Object& item : items) {
        int64_t value = item.as<IPE_IntType>()->value;
        values.emplace_back(value, item.detach());
    }
    auto byValue = [](const auto& a, const auto& b) { return a.first < b.first; };
    if (descending)
        std::sort(values.begin(), values.end(), [&](const auto& a, const auto& b) { return byValue(b, a); });
    else
        std::sort(values.begin(), values.end(), byValue);
    for (size_t i = 0; i < items.size(); ++i) items[i] = IPE_Object::adopt(values[i].second);
    return true;
}

struct SortKey {
    IPE_Object column;
    bool descending;
};

IPE_Object columnOf(const IPE_Object& row, const SortKey& key) {
    IPE_Object value = row->__getitem__(key.column);
    if (value.isNull()) XPK_Raise("IndexError", "isort index out of range").raise();
    return value;
}

}  // namespace

void IPE_ListType::sort(bool descending) {
    if (count() < 2) return;
    Borrowed borrowed(items_);
    if (sortInts(borrowed.items, descending)) return;
    sortItems(borrowed.items, [descending](const IPE_Object& a, const IPE_Object& b) {
        int result = a->__collate__(b);
        return descending ? -result : result;
    });
}

void IPE_ListType::sortBy(const IPE_Object& keys) {
    IPE_ListType* list = PyList_SafeCast(keys);
    std::vector<SortKey> columns;
    for (int32_t i = 0; i < list->count(); ++i) {
        IPE_Tuple key(list->at(i));
        columns.push_back({key[0], key[1]->c_str()[0] != 'A'});
    }
    if (columns.empty()) {
        sort(false);
        return;
    }
    if (count() < 2) return;
    Borrowed borrowed(items_);
    sortItems(borrowed.items, [&columns](const IPE_Object& a, const IPE_Object& b) {
        for (const SortKey& key : columns) {
            int result = columnOf(a, key)->__collate__(columnOf(b, key));
            if (result) return key.descending ? -result : result;
        }
        return 0;
    });
}
