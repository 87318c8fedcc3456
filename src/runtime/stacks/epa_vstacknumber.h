// EPA_VStackI32 and EPA_VStackI64: value stacks of numbers, with totals that roll up.
//
// The owner sets `mode` and `propagate` right after construction. With `propagate` a level that closes adds
// its value to the level above (Sum), or leaves the larger of both there (Maximum); Latest keeps the upper
// value. A new level begins at 0. Sums wrap around.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "runtime/stacks/epa_vstackgang.h"

template <class Number>
class EPA_VStackNumber : public EPA_VStackBase {
  public:
    enum Mode : int32_t { Latest = 0, Sum = 1, Maximum = 2 };

    // Combines a value into the current slot. A mode that is none: SystemError "Illegal vStackI32 mode" or
    // "Illegal vStackI64 mode"; the same from a pop() that propagates.
    void apply(Number value) { combine(values_[static_cast<size_t>(top_)], value); }
    Number current() const noexcept { return values_[static_cast<size_t>(top_)]; }
    int32_t top() const noexcept { return top_; }

    void pop() override;
    void push() override;

    int32_t mode = Latest;
    bool propagate = false;

  private:
    void combine(Number& slot, Number value) const;

    int32_t top_ = 0;
    std::array<Number, Levels> values_{};
};

extern template class EPA_VStackNumber<int32_t>;
extern template class EPA_VStackNumber<int64_t>;
using EPA_VStackI32 = EPA_VStackNumber<int32_t>;
using EPA_VStackI64 = EPA_VStackNumber<int64_t>;
