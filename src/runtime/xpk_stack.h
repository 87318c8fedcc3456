// The native stack of the calling thread: room for engines that call themselves.
//
// A script's own calls are counted and look at the stack, an engine's are not. Whoever enters an engine asks
// for the room that it may take at most, so that the depth of both together ends in an exception.
#pragma once

#include <cstddef>

#include "runtime/xpk_exception.h"

namespace xpk_detail {
struct Stack {
    const char* low = nullptr;  // null until the first look
    size_t size = 0;
};
inline thread_local constinit Stack stack;
void requireStackSlowly(size_t bytes, const char* here);
}  // namespace xpk_detail

// RuntimeError "Maximum stack depth exceded" when less than `bytes` is left; half the stack is enough where
// that is less. Any thread; nothing is known, and nothing raised, where the system does not tell.
inline void XPK_RequireStack(size_t bytes) {
    auto* here = static_cast<const char*>(__builtin_frame_address(0));
    if (!xpk_detail::stack.low || here < xpk_detail::stack.low + bytes) [[unlikely]]
        xpk_detail::requireStackSlowly(bytes, here);
}
