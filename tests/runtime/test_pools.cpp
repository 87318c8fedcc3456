// Pools: classes, batches, migration of blocks between threads, flush and end.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "runtime/xpk_exception.h"
#include "runtime/xpk_memory.h"
#include "runtime/xpk_threadstate.h"

namespace {

#if defined(QUILL_SANITIZED) && !defined(__SANITIZE_THREAD__)
#define NEEDS_POOLS() GTEST_SKIP() << "every block comes from the heap under this sanitizer"
#else
#define NEEDS_POOLS() (void)0
#endif

int64_t usedOf(int index) { return XPK_PoolFiguresOf(index).used; }

// Runs on a worker thread, which alone is served from the pools.
template <class Action>
void onWorker(Action action) {
    std::thread([&] {
        XPK_ThreadScope scope(false);
        action(scope.state().pools);
    }).join();
}

class Pools : public testing::Test {
  protected:
    static void SetUpTestSuite() { XPK_InitPools(); }
    void TearDown() override {
        for (int i = 0; i < XPK_PoolClasses; ++i) {
            EXPECT_EQ(usedOf(i), 0) << i;
            EXPECT_LE(XPK_PoolFiguresOf(i).chunks, 1) << i;
        }
    }
    XPK_ThreadScope primary{true};
};

TEST_F(Pools, ClassOfARequest) {
    NEEDS_POOLS();
    onWorker([](XPK_PoolCache& cache) {
        size_t least = 0;
        int index = 0;
        for (size_t most : {8, 16, 24, 32, 64, 128, 256, 512, 1024, 2048}) {
            for (size_t size : {least, most}) {
                void* block = XPK_Allocate(size);
                memset(block, 0xA5, size);
                EXPECT_EQ(usedOf(index), 32) << size;
                XPK_Free(block);
                EXPECT_EQ(cache.cachedBytes, 32 * static_cast<int64_t>(most));
                XPK_FlushThreadCaches();
                EXPECT_EQ(cache.cachedBytes, 0);
                EXPECT_EQ(usedOf(index), 0);
            }
            least = most + 1;
            ++index;
        }
        void* large = XPK_Allocate(2049);
        XPK_Free(large);
        EXPECT_EQ(cache.cachedBytes, 0);
    });
}

TEST_F(Pools, BatchesGrowFourfoldAndStartAnew) {
    NEEDS_POOLS();
    onWorker([](XPK_PoolCache& cache) {
        for (int round = 0; round < 2; ++round) {
            std::vector<void*> blocks;
            int64_t last = 0;
            std::vector<int64_t> batches;
            while (batches.size() < 6) {
                blocks.push_back(XPK_Allocate(24));
                if (usedOf(2) != last) {
                    batches.push_back(usedOf(2) - last);
                    last = usedOf(2);
                }
            }
            EXPECT_EQ(batches, (std::vector<int64_t>{32, 128, 512, 2048, 8192, 8192}));
            constexpr int64_t PerChunk = 261888 / (24 + static_cast<int64_t>(sizeof(void*)));
            EXPECT_EQ(XPK_PoolFiguresOf(2).chunks, (last + PerChunk - 1) / PerChunk);
            for (void* block : blocks) XPK_Free(block);
            EXPECT_EQ(cache.cachedBytes, last * 24);
            XPK_FlushThreadCaches();
            EXPECT_EQ(usedOf(2), 0);
            EXPECT_EQ(XPK_PoolFiguresOf(2).chunks, 1);
        }
    });
}

TEST_F(Pools, PrimaryThreadTakesFromTheHeapAndFreesEverything) {
    NEEDS_POOLS();
    void* own = XPK_Allocate(8);
    EXPECT_EQ(usedOf(0), 0);
    void* foreign = nullptr;
    onWorker([&](XPK_PoolCache& cache) {
        foreign = XPK_Allocate(8);
        XPK_Free(own);  // a heap block goes back to the heap from any thread
        EXPECT_EQ(cache.cachedBytes, 31 * 8);
    });
    EXPECT_EQ(usedOf(0), 1);
    XPK_Free(foreign);
    EXPECT_EQ(primary.state().pools.cachedBytes, 8);
    XPK_FlushThreadCaches();
    EXPECT_EQ(usedOf(0), 0);
    onWorker([&](XPK_PoolCache&) { foreign = XPK_Allocate(8); });
    std::thread([&] { XPK_Free(foreign); }).join();
    EXPECT_EQ(usedOf(0), 0) << "a thread without state gives back at once";
}

// Blocks of all sizes wander between threads; each carries its size and a pattern that nobody else may touch.
TEST_F(Pools, BlocksMigrate) {
    struct Block {
        unsigned char* place;
        size_t size;
        unsigned char mark;
    };
    std::mutex lock;
    std::vector<Block> market;
    auto check = [](const Block& block) {
        for (size_t i = 0; i < block.size; ++i) ASSERT_EQ(block.place[i], block.mark);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            XPK_ThreadScope scope(false);
            std::mt19937 random(t);
            for (int i = 0; i < 20000; ++i) {
                Block made{nullptr, random() % 4 ? random() % 200 : random() % 3000,
                           static_cast<unsigned char>(random())};
                made.place = static_cast<unsigned char*>(XPK_Allocate(made.size));
                ASSERT_EQ(reinterpret_cast<uintptr_t>(made.place) % 8, 0u);
                memset(made.place, made.mark, made.size);
                Block taken{};
                {
                    std::lock_guard guard(lock);
                    market.push_back(made);
                    if (market.size() > 500) {
                        std::swap(market[random() % market.size()], market.back());
                        taken = market.back();
                        market.pop_back();
                    }
                }
                if (taken.place) {
                    check(taken);
                    XPK_Free(taken.place);
                }
                if (i % 5000 == 0) XPK_FlushThreadCaches();
            }
        });
    for (std::thread& thread : threads) thread.join();
    for (const Block& block : market) {
        check(block);
        XPK_Free(block.place);
    }
    XPK_FlushThreadCaches();
    EXPECT_EQ(primary.state().pools.cachedBytes, 0);
}

TEST_F(Pools, NullAndTheImpossible) {
    XPK_Free(nullptr);
    for (size_t size : {SIZE_MAX, SIZE_MAX - sizeof(void*)})
        EXPECT_THROW(XPK_Allocate(size), XPK_MemoryException) << size;
}

// In a process of its own, since the pools do not come back.
TEST(PoolsEnd, LateFreesAreIgnored) {
    NEEDS_POOLS();
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            XPK_InitPools();
            XPK_ThreadScope scope(false);
            void* pooled = XPK_Allocate(64);
            void* heap = XPK_Allocate(5000);
            XPK_DestroyPools();
            XPK_Free(pooled);
            XPK_Free(heap);
            XPK_FlushThreadCaches();
            memset(XPK_Allocate(64), 1, 64);
            XPK_DestroyPools();
            _exit(XPK_PoolFiguresOf(4).chunks);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
