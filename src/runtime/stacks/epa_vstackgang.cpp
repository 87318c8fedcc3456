// Gangs of value stacks.
#include "runtime/stacks/epa_vstackgang.h"

#include <algorithm>

#include "runtime/xpk_exception.h"

EPA_VStackBase::~EPA_VStackBase() {
    if (gang_) gang_->detach(*this);
}

EPA_VStackGang::~EPA_VStackGang() {
    for (int32_t i = 0; i < count_; ++i) members_[i]->gang_ = nullptr;
}

void EPA_VStackGang::attach(EPA_VStackBase& stack) {
    XPK_Assert(!stack.gang_ && count_ < MostMembers);
    members_[count_++] = &stack;
    stack.gang_ = this;
}

void EPA_VStackGang::detach(EPA_VStackBase& stack) {
    XPK_Assert(stack.gang_ == this);
    auto end = members_.begin() + count_;
    auto place = std::find(members_.begin(), end, &stack);
    std::copy(place + 1, end, place);
    --count_;
    stack.gang_ = nullptr;
}

void EPA_VStackGang::push() {
    XPK_Assert(depth_ + 1 < EPA_VStackBase::Levels);
    ++depth_;
    for (int32_t i = 0; i < count_; ++i) members_[i]->push();
}

void EPA_VStackGang::pop() {
    XPK_Assert(depth_ > 0);
    for (int32_t i = 0; i < count_; ++i) members_[i]->pop();
    --depth_;
}
