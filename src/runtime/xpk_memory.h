// The runtime's allocator: ten size-class pools behind one allocate and free pair.
//
// Small blocks that a worker thread asks for come from lists of its own, which refill in growing batches from
// shared pools; what the primary thread asks for, and everything above 2048 bytes, comes from the C heap. A
// block may be freed on another thread than the one that allocated it. No call takes a lock or makes an
// atomic operation on its fast path.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr int XPK_PoolClasses = 10;
inline constexpr size_t XPK_PoolSizes[XPK_PoolClasses] = {8, 16, 24, 32, 64, 128, 256, 512, 1024, 2048};

// The pools' part of a thread's state; it belongs to that thread alone.
struct XPK_PoolCache {
    void* list[XPK_PoolClasses] = {};
    uint32_t batch[XPK_PoolClasses] = {};
    int64_t cachedBytes = 0;
};

// A block of at least `size` bytes (0 gives 8), aligned to 8 bytes. Raises XPK_MemoryException; never returns
// null.
void* XPK_Allocate(size_t size);

// Gives a block back, on any thread. Null does nothing; after XPK_DestroyPools nothing happens at all.
void XPK_Free(void* block) noexcept;

// Gives every block on the calling thread's lists back to the pools and starts its batches anew.
void XPK_FlushThreadCaches() noexcept;

// Process start and end, on the primary thread.
void XPK_InitPools();
void XPK_DestroyPools();

// Figures for tests and diagnostics, taken under each pool's lock.
struct XPK_PoolFigures {
    int chunks;
    int64_t used;
};
XPK_PoolFigures XPK_PoolFiguresOf(int index);
