// Stacks of names.
#include "runtime/stacks/epa_vstackstring.h"

#include "runtime/xpk_exception.h"

EPA_VStackString::EPA_VStackString() { levels_[0] = std::make_unique<EPA_Unicode>(); }

void EPA_VStackString::set(std::string_view text) { levels_[static_cast<size_t>(top_)]->setUtf8(text); }

void EPA_VStackString::joined(EPA_StringBuffer& buffer) const {
    buffer.assign("/");
    for (int32_t i = 1; i <= top_; ++i) {
        buffer.append(levels_[static_cast<size_t>(i)]->utf8());
        buffer.append('/');
    }
}

void EPA_VStackString::push() {
    XPK_Assert(top_ + 1 < Levels);
    auto& level = levels_[static_cast<size_t>(top_ + 1)];
    if (level)
        level->setUtf8(std::string_view());
    else
        level = std::make_unique<EPA_Unicode>();
    ++top_;
}

void EPA_VStackString::pop() {
    XPK_Assert(top_ > 0);
    --top_;
}
