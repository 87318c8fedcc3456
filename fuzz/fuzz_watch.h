// A limit on the steps that scripts make during one input: a thread clears the running flag when the time is
// up, as the end of the server does, and whatever runs then must stop.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

#include "runtime/epa_shutdown.h"

class FuzzWatch {
  public:
    explicit FuzzWatch(int64_t milliseconds) {
        static const bool started = (std::thread(watch).detach(), true);
        (void)started;
        epa_detail::running = true;
        deadline() = now() + milliseconds * 1'000'000;
    }
    ~FuzzWatch() {
        deadline() = INT64_MAX;
        epa_detail::running = true;
    }
    FuzzWatch(const FuzzWatch&) = delete;
    FuzzWatch& operator=(const FuzzWatch&) = delete;

  private:
    static std::atomic<int64_t>& deadline() {
        static std::atomic<int64_t> value{INT64_MAX};
        return value;
    }
    static int64_t now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }
    static void watch() {
        for (;;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            if (now() > deadline()) epa_detail::running = false;
        }
    }
};

// What a text in Lua loses before it runs: the libraries that reach outside the process.
inline constexpr const char* FuzzLuaPrelude =
    "for name in ('execute remove rename tmpname getenv'):gmatch('%a+') do os[name] = nil end "
    "for name in ('io lfs luasql package require module dofile loadfile print'):gmatch('%a+') do _G[name] = "
    "nil end ";
