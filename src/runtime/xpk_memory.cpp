// Ten pools of 256 KiB chunks under per-thread lists.
//
// Every block has one word in front of the caller's memory: 0 for a heap block, else the block's chunk, so
// that free needs neither a size nor a search. A free block's link lies in its first word. Chunks of a pool
// form a list; the first chunk stays for the life of the process, the others go back when a flush finds them
// unused.
#include "runtime/xpk_memory.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

#include "runtime/xpk_exception.h"
#include "runtime/xpk_threadstate.h"

// The thread sanitizer follows a block through the pools; the others must see every block come from the heap.
#if !defined(QUILL_SANITIZED) || defined(__SANITIZE_THREAD__)
#define QUILL_POOLS true
#else
#define QUILL_POOLS false
#endif

namespace {

constexpr size_t ChunkSize = 262144;
constexpr size_t Word = sizeof(void*);
constexpr size_t HeaderSize = 64;
constexpr size_t BlocksSize = ChunkSize - 256;

struct Chunk {
    Chunk* next;
    void* freeList;  // through the blocks' first words
    int64_t used;
    int32_t index;
    uint32_t size;
};
static_assert(sizeof(Chunk) <= HeaderSize && HeaderSize + BlocksSize <= ChunkSize);

struct Pool {
    std::mutex lock;
    Chunk* chunks = nullptr;
    size_t size = 0;
    int index = 0;
};

Pool* pools = nullptr;
std::atomic<bool> poolsReady{false};
std::atomic<bool> poolsGone{false};

Chunk*& chunkOf(void* block) { return reinterpret_cast<Chunk**>(block)[-1]; }
void*& linkOf(void* block) { return *static_cast<void**>(block); }

// The class of every request up to 2048 bytes, by its size in 8-byte steps.
struct ClassTable {
    uint8_t of[257];
    constexpr ClassTable() : of() {
        int c = 0;
        for (size_t step = 0; step <= 256; ++step) {
            while (XPK_PoolSizes[c] < step * 8) ++c;
            of[step] = static_cast<uint8_t>(c);
        }
    }
};
constexpr ClassTable classes;

void* heapBlock(size_t size) {
    void* raw = size > PTRDIFF_MAX - Word ? nullptr : malloc(size + Word);
    if (!raw) throw XPK_MemoryException(__FILE__, __LINE__);
    void* block = static_cast<char*>(raw) + Word;
    chunkOf(block) = nullptr;
    return block;
}

// Null when the heap is exhausted: the caller raises after it has let go of the pool's lock, since building
// the exception allocates.
Chunk* newChunk(Pool& pool) {
    char* raw = static_cast<char*>(malloc(ChunkSize));
    if (!raw) return nullptr;
    auto* chunk = new (raw) Chunk{nullptr, nullptr, 0, pool.index, static_cast<uint32_t>(pool.size)};
    size_t stride = pool.size + Word;
    size_t blocks = BlocksSize / stride;
    for (size_t i = blocks; i-- > 0;) {
        void* block = raw + HeaderSize + i * stride + Word;
        chunkOf(block) = chunk;
        linkOf(block) = chunk->freeList;
        chunk->freeList = block;
    }
    return chunk;
}

// Takes a batch from the pool to the thread's list and hands out its first block. With the heap exhausted the
// batch is what the chunks still hold; null when that is nothing.
void* takeBatch(XPK_PoolCache& cache, int index) {
    Pool& pool = pools[index];
    std::lock_guard guard(pool.lock);
    uint32_t want = cache.batch[index] ? cache.batch[index] : 32;
    if (want < 4096) cache.batch[index] = want * 4;
    void* list = nullptr;
    uint32_t taken = 0;
    Chunk** link = &pool.chunks;
    while (taken < want) {
        if (!*link) *link = newChunk(pool);
        Chunk* chunk = *link;
        if (!chunk) break;
        while (taken < want && chunk->freeList) {
            void* block = chunk->freeList;
            chunk->freeList = linkOf(block);
            ++chunk->used;
            linkOf(block) = list;
            list = block;
            ++taken;
        }
        link = &chunk->next;
    }
    if (!list) return nullptr;
    cache.cachedBytes += static_cast<int64_t>(taken - 1) * static_cast<int64_t>(pool.size);
    cache.list[index] = linkOf(list);
    return list;
}

void* refill(XPK_PoolCache& cache, int index) {
    void* block = takeBatch(cache, index);
    if (!block) throw XPK_MemoryException(__FILE__, __LINE__);
    return block;
}

}  // namespace

void* XPK_Allocate(size_t size) {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (QUILL_POOLS && size <= 2048 && state && !state->primary && poolsReady.load(std::memory_order_acquire))
        [[likely]] {
        int index = classes.of[(size + 7) / 8];
        XPK_PoolCache& cache = state->pools;
        void* block = cache.list[index];
        if (!block) [[unlikely]]
            return refill(cache, index);
        cache.list[index] = linkOf(block);
        cache.cachedBytes -= static_cast<int64_t>(XPK_PoolSizes[index]);
        return block;
    }
    return heapBlock(size);
}

void XPK_Free(void* block) noexcept {
    if (!block || poolsGone.load(std::memory_order_relaxed)) return;
    Chunk* chunk = chunkOf(block);
    if (!chunk) {
        free(static_cast<char*>(block) - Word);
        return;
    }
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state) {  // a thread without lists: straight back to the chunk
        std::lock_guard guard(pools[chunk->index].lock);
        linkOf(block) = chunk->freeList;
        chunk->freeList = block;
        --chunk->used;
        return;
    }
    XPK_PoolCache& cache = state->pools;
    linkOf(block) = cache.list[chunk->index];
    cache.list[chunk->index] = block;
    cache.cachedBytes += chunk->size;
}

void XPK_FlushThreadCaches() noexcept {
    XPK_ThreadState* state = XPK_CurrentThread();
    if (!state || !poolsReady.load(std::memory_order_acquire) || poolsGone.load(std::memory_order_relaxed))
        return;
    XPK_PoolCache& cache = state->pools;
    for (int index = 0; index < XPK_PoolClasses; ++index) {
        Pool& pool = pools[index];
        std::lock_guard guard(pool.lock);
        for (void* block = cache.list[index]; block;) {
            void* next = linkOf(block);
            Chunk* chunk = chunkOf(block);
            linkOf(block) = chunk->freeList;
            chunk->freeList = block;
            --chunk->used;
            cache.cachedBytes -= static_cast<int64_t>(pool.size);
            block = next;
        }
        for (Chunk* chunk = pool.chunks; chunk && chunk->next;) {
            if (chunk->next->used == 0) {
                Chunk* gone = chunk->next;
                chunk->next = gone->next;
                free(gone);
            } else {
                chunk = chunk->next;
            }
        }
        cache.list[index] = nullptr;
        cache.batch[index] = 0;
    }
}

void XPK_InitPools() {
    if (poolsReady || poolsGone) return;
    pools = new Pool[XPK_PoolClasses];
    for (int index = 0; index < XPK_PoolClasses; ++index) {
        pools[index].size = XPK_PoolSizes[index];
        pools[index].index = index;
        pools[index].chunks = newChunk(pools[index]);
        XPK_Assert(pools[index].chunks);
    }
    poolsReady.store(true, std::memory_order_release);
}

void XPK_DestroyPools() {
    if (!poolsReady.exchange(false)) return;
    poolsGone = true;
    for (int index = 0; index < XPK_PoolClasses; ++index) {
        std::lock_guard guard(pools[index].lock);
        for (Chunk* chunk = pools[index].chunks; chunk;) {
            Chunk* next = chunk->next;
            free(chunk);
            chunk = next;
        }
        pools[index].chunks = nullptr;
    }
    delete[] pools;
    pools = nullptr;
}

XPK_PoolFigures XPK_PoolFiguresOf(int index) {
    XPK_PoolFigures figures{0, 0};
    if (!poolsReady || poolsGone) return figures;
    std::lock_guard guard(pools[index].lock);
    for (Chunk* chunk = pools[index].chunks; chunk; chunk = chunk->next) {
        ++figures.chunks;
        figures.used += chunk->used;
    }
    return figures;
}
