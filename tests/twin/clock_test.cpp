// The board clock: virtual time driven by sleeps, and real-time mode for the bench and demos.
#include <chrono>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {
namespace {

constexpr auto real_ns = &Clock::real_monotonic_ns;

// A sleep only advances the virtual clock, from whichever thread it comes: every thread's
// sleeps add up. The wall clock's epoch is the seed's.
TEST(VirtualClock, SleepsFromAnyThreadAddUpAndTheWallEpochIsSeeded) {
    Kernel board(KernelConfig{.seed = 3}), same(KernelConfig{.seed = 3});
    EXPECT_NE(board.wall().tv_sec, Kernel(KernelConfig{.seed = 4}).wall().tv_sec);
    const uint64_t start = board.now_ns(), real_start = real_ns();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&board] {
            for (int i = 0; i < 1000; ++i) board.sleep_ns(1'000'000);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_LT(real_ns() - real_start, 1'000'000'000ull) << "4 s not really slept";
    EXPECT_EQ(board.now_ns() - start, 4'000'000'000ull);
    EXPECT_EQ(board.wall().tv_sec - same.wall().tv_sec, 4);
    EXPECT_EQ(board.wall().tv_usec, same.wall().tv_usec);
}

TEST(RealTimeClock, ASleepTakesItsRealTimeDividedByTheSpeedAndModesSwitchContinuously) {
    Kernel board;
    board.sleep_ns(5'000'000'000ull);
    const uint64_t before = board.now_ns(), real_start = real_ns();
    board.set_real_time(10.0);
    EXPECT_LT(board.now_ns() - before, 50'000'000u) << "no jump when switching";
    EXPECT_EQ(board.sleep_ns(40'000'000), 0);  // 4 ms of real time
    const uint64_t real_elapsed = real_ns() - real_start, elapsed = board.now_ns() - before;
    EXPECT_GE(real_elapsed, 4'000'000u);
    EXPECT_LT(real_elapsed, 14'000'000u) << "room for a loaded machine";
    EXPECT_GE(elapsed, 40'000'000u);
    EXPECT_LE(elapsed, real_elapsed * 10 + 1'000'000u);
    board.set_virtual_time();
    const uint64_t frozen = board.now_ns();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(board.now_ns(), frozen) << "virtual time stands still between sleeps";
}

}  // namespace
}  // namespace zoomaf::twin
