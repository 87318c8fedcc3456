// Stacks of numbers: flat arrays, since a scan pushes and pops once for each of its folders.
#include "runtime/stacks/epa_vstacknumber.h"

#include <type_traits>

#include "runtime/xpk_exception.h"

template <class Number>
void EPA_VStackNumber<Number>::combine(Number& slot, Number value) const {
    using Unsigned = std::make_unsigned_t<Number>;
    switch (mode) {
        case Latest: slot = value; return;
        case Sum:
            slot = static_cast<Number>(static_cast<Unsigned>(slot) + static_cast<Unsigned>(value));
            return;
        case Maximum:
            if (value > slot) slot = value;
            return;
    }
    XPK_Raise("SystemError", sizeof(Number) == 4 ? "Illegal vStackI32 mode" : "Illegal vStackI64 mode")
        .raise();
}

template <class Number>
void EPA_VStackNumber<Number>::push() {
    XPK_Assert(top_ + 1 < Levels);
    values_[static_cast<size_t>(++top_)] = 0;
}

template <class Number>
void EPA_VStackNumber<Number>::pop() {
    XPK_Assert(top_ > 0);
    Number& above = values_[static_cast<size_t>(top_ - 1)];
    if (propagate && mode != Latest) combine(above, current());
    --top_;
}

template class EPA_VStackNumber<int32_t>;
template class EPA_VStackNumber<int64_t>;
