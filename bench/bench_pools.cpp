// The pools beside the C library's malloc and free, on a worker thread: the only kind of thread that the
// pools serve.
//
// Three patterns: one block allocated and freed at once, a batch allocated and then freed in the same order,
// and blocks of mixed sizes living for a while, which is how values of scripts live.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <thread>
#include <vector>

#include "runtime/xpk_memory.h"
#include "runtime/xpk_threadstate.h"

namespace {

struct Pools {
    static void* allocate(size_t size) { return XPK_Allocate(size); }
    static void release(void* block) { XPK_Free(block); }
};
struct Malloc {
    static void* allocate(size_t size) { return std::malloc(size); }
    static void release(void* block) { std::free(block); }
};

// Runs the loop on a thread with a state of its own.
template <class Loop>
void onWorker(Loop loop) {
    static const bool ready = (XPK_InitPools(), true);
    (void)ready;
    std::thread([&] {
        XPK_ThreadScope scope(false);
        loop();
    }).join();
}

template <class Heap>
void pair(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    onWorker([&] {
        for (auto _ : state) {
            void* block = Heap::allocate(size);
            benchmark::DoNotOptimize(block);
            Heap::release(block);
        }
    });
}

template <class Heap>
void batch(benchmark::State& state) {
    const size_t size = static_cast<size_t>(state.range(0));
    onWorker([&] {
        std::array<void*, 256> blocks;
        while (state.KeepRunningBatch(static_cast<int64_t>(blocks.size()))) {
            for (void*& block : blocks) block = Heap::allocate(size);
            benchmark::DoNotOptimize(blocks.data());
            for (void* block : blocks) Heap::release(block);
        }
    });
}

template <class Heap>
void mixed(benchmark::State& state) {
    onWorker([&] {
        std::vector<void*> living(1024, nullptr);
        uint32_t seed = 1;
        for (auto _ : state) {
            seed = seed * 1664525 + 1013904223;
            void*& place = living[seed >> 22];
            Heap::release(place);
            place = Heap::allocate(8 + ((seed >> 8) & 255));
            benchmark::DoNotOptimize(place);
        }
        for (void* block : living) Heap::release(block);
    });
}

void pair_pools(benchmark::State& state) { pair<Pools>(state); }
void pair_malloc(benchmark::State& state) { pair<Malloc>(state); }
void batch_pools(benchmark::State& state) { batch<Pools>(state); }
void batch_malloc(benchmark::State& state) { batch<Malloc>(state); }
void mixed_pools(benchmark::State& state) { mixed<Pools>(state); }
void mixed_malloc(benchmark::State& state) { mixed<Malloc>(state); }

}  // namespace

// Wall time: the work is on another thread than the one whose processor time the framework reads.
BENCHMARK(pair_pools)->Arg(32)->Arg(256)->UseRealTime();
BENCHMARK(pair_malloc)->Arg(32)->Arg(256)->UseRealTime();
BENCHMARK(batch_pools)->Arg(32)->Arg(256)->UseRealTime();
BENCHMARK(batch_malloc)->Arg(32)->Arg(256)->UseRealTime();
BENCHMARK(mixed_pools)->UseRealTime();
BENCHMARK(mixed_malloc)->UseRealTime();
