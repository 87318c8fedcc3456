// A test with a thread manager that is stopped at the end, and threads that run what the test tells.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "../ipe/values_testing.h"
#include "runtime/epa_shutdown.h"
#include "runtime/epa_threadmanager.h"

inline void untilTrue(const std::function<bool()>& condition) {
    for (int i = 0; i < 20000 && !condition(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_TRUE(condition());
}

class ManagedThreads : public testing::Test {
  protected:
    using Body = std::function<void(EPA_ThreadPassportImpl&)>;

    void SetUp() override { EPA_ThreadManager::create(); }
    void TearDown() override {
        request_shutdown();
        manager().stop();
        EPA_ThreadManager::destroy();
        epa_detail::running = true;
    }
    static int used() {
        int total = 0, count = 0;
        manager().count(total, count);
        EXPECT_EQ(total, 256);
        return count;
    }
    static EPA_ThreadManager& manager() { return EPA_ThreadManager::instance(); }
    // Gives the slot. The thread announces itself before it runs `body`.
    int start(Body body) {
        bodies_.push_back(std::make_unique<Body>(std::move(body)));
        return manager().start(
            [](EPA_ThreadPassportImpl& passport) {
                passport.announce("ipe_%i");
                (*static_cast<Body*>(passport.argument()))(passport);
            },
            bodies_.back().get());
    }
    XPK_ThreadScope thread{true};

  private:
    std::vector<std::unique_ptr<Body>> bodies_;
};
