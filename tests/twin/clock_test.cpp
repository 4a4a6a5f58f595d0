// The board clock: virtual time driven by sleeps, and real-time mode for the bench.
#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {
namespace {

// Time the calling thread has spent runnable but waiting for a CPU; 0 where the kernel does
// not keep scheduler statistics.
uint64_t cpu_wait_ns() {
    std::ifstream stat("/proc/thread-self/schedstat");
    uint64_t on_cpu = 0, waiting = 0;
    stat >> on_cpu >> waiting;
    return stat ? waiting : 0;
}

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
    board.set_real_time(10.0);
    const uint64_t virtual_start = board.now_ns(), real_start = real_ns();
    EXPECT_EQ(board.sleep_ns(40'000'000), 0);  // 4 ms of real time
    const uint64_t real_elapsed = real_ns() - real_start;
    EXPECT_GE(real_elapsed, 4'000'000u);
    EXPECT_LT(real_elapsed, 14'000'000u) << "room for a loaded machine";
    EXPECT_GE(board.now_ns() - virtual_start, 40'000'000u);
    EXPECT_LE(board.now_ns() - virtual_start, real_elapsed * 10 + 1'000'000u);

    board.set_virtual_time();
    board.sleep_ns(5'000'000'000ull);
    const uint64_t before = board.now_ns();
    board.set_real_time(1.0);
    const uint64_t after = board.now_ns();
    EXPECT_TRUE(after >= before && after - before < 50'000'000u) << after - before;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    board.set_virtual_time();
    const uint64_t frozen = board.now_ns();
    EXPECT_GE(frozen - after, 2'000'000u);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(board.now_ns(), frozen) << "virtual time stands still between sleeps";
}

// The driver's 1 us and 100 us pauses keep their length on the bench. On a shared machine a
// thread is sometimes kept off the CPU for milliseconds: such a sleep is not judged, and the
// first of up to five rounds with most sleeps judged that meets the bound passes. ctest runs
// this test alone (see CMakeLists.txt).
TEST(PreciseSleeps, EndCloseToTheirDeadline) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "overshoot not judged under instrumentation";
#endif
    Kernel board;
    board.set_real_time(1.0);
    std::vector<uint64_t> requests;  // shorter than the spin guard, around it, a VD period
    for (int i = 0; i < 50; ++i) requests.push_back(20'000 + 10'000 * uint64_t(i % 25));
    requests.insert(requests.end(), 20, 8'000'000);
    std::vector<double> round_means;
    for (int round = 0; round < 5; ++round) {
        uint64_t judged = 0, total_overshoot = 0;
        for (const uint64_t ns : requests) {
            const uint64_t waited_before = cpu_wait_ns(), start = real_ns();
            ASSERT_EQ(board.sleep_ns(ns), 0);
            const uint64_t elapsed = real_ns() - start;
            ASSERT_GE(elapsed, ns) << "a sleep never ends early";
            if (cpu_wait_ns() - waited_before > 50'000) continue;
            ++judged;
            total_overshoot += elapsed - ns;
        }
        if (judged < requests.size() * 3 / 4) continue;
        round_means.push_back(static_cast<double>(total_overshoot) / static_cast<double>(judged));
        if (round_means.back() < 20'000.0) break;
    }
    if (round_means.empty()) GTEST_SKIP() << "the machine kept this thread off the CPU too often";
    EXPECT_LT(*std::min_element(round_means.begin(), round_means.end()), 20'000.0)
        << "mean overshoot in ns of each round: " << ::testing::PrintToString(round_means);
}

}  // namespace
}  // namespace zoomaf::twin
