// The stack of a thread, asked for once: the first thread's is read out of a file by the system's library.
#include "runtime/xpk_stack.h"

#include <pthread.h>

#include <algorithm>

void xpk_detail::requireStackSlowly(size_t bytes, const char* here) {
    if (!stack.low) {
        pthread_attr_t attributes;
        void* base = nullptr;
        size_t size = 0;
        if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
        pthread_attr_getstack(&attributes, &base, &size);
        pthread_attr_destroy(&attributes);
        stack = {static_cast<const char*>(base), size};
    }
    if (here < stack.low + std::min(bytes, stack.size / 2))
        XPK_Raise("RuntimeError", "Maximum stack depth exceded").raise();
}
