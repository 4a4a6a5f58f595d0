// The board clock: virtual time driven by sleeps, and real-time mode for the bench.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "twin/kernel/kernel.hpp"

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#endif

namespace zoomaf::twin {
namespace {

// Sanitizers and valgrind slow every call down too much to judge microseconds.
bool timing_is_measurable() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#endif
#ifdef RUNNING_ON_VALGRIND
    if (RUNNING_ON_VALGRIND) return false;
#endif
    return true;
}

// Time the calling thread has spent runnable but waiting for a CPU, from the scheduler's
// statistics; 0 where the kernel does not keep them.
uint64_t cpu_wait_ns() {
    std::ifstream stat("/proc/thread-self/schedstat");
    uint64_t on_cpu = 0, waiting = 0;
    stat >> on_cpu >> waiting;
    return stat ? waiting : 0;
}

constexpr auto real_ns = &Clock::real_monotonic_ns;

uint64_t slept_ns(Kernel& board) {
    return board.with<Clock>([](const Clock& c) { return c.slept_ns(); });
}
uint64_t sleep_calls(Kernel& board) {
    return board.with<Clock>([](const Clock& c) { return c.sleep_calls(); });
}

uint64_t wall_us(Kernel& board) {
    const timeval tv = board.wall();
    return static_cast<uint64_t>(tv.tv_sec) * 1'000'000ull + static_cast<uint64_t>(tv.tv_usec);
}

TEST(VirtualClock, SleepsOnlyAdvanceTheClockAndTheWallEpochIsSeeded) {
    Kernel board(KernelConfig{.seed = 3});
    EXPECT_EQ(board.now_ns(), 1000'000'000'000ull) << "monotonic starts at 1000 s";
    const uint64_t wall_start = wall_us(board), real_start = real_ns();
    EXPECT_EQ(board.sleep_ns(3'000'000'000ull), 0);  // three seconds, not really slept
    EXPECT_EQ(board.sleep_ns(1'500), 0);
    EXPECT_LT(real_ns() - real_start, 1'000'000'000ull);
    const timespec now = board.monotonic();
    EXPECT_TRUE(now.tv_sec == 1003 && now.tv_nsec == 1'500) << now.tv_sec << " " << now.tv_nsec;
    EXPECT_EQ(wall_us(board) - wall_start, 3'000'001u);
    EXPECT_EQ(slept_ns(board), 3'000'001'500ull);
    board.advance_ns(500);
    EXPECT_EQ(board.now_ns(), 1003'000'002'000ull);
    EXPECT_EQ(sleep_calls(board), 2u) << "advancing is not a sleep";

    Kernel same(KernelConfig{.seed = 3}), other(KernelConfig{.seed = 4});
    EXPECT_EQ(wall_us(same), wall_start);
    EXPECT_NE(wall_us(other), wall_start);
    EXPECT_GE(other.wall().tv_sec, 1704067200) << "a plausible date: 2024 or later";
    // Sleeps from many threads all add up.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&same] {
            for (int i = 0; i < 1000; ++i) same.sleep_ns(1000);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(same.now_ns() - 1000'000'000'000ull, 4'000'000u);
    EXPECT_EQ(sleep_calls(same), 4000u);
}

TEST(RealTimeClock, ASleepTakesItsRealTimeDividedByTheSpeedAndModesSwitchContinuously) {
    const struct {
        double speed;
        uint64_t request_ns;
    } cases[] = {{1.0, 2'000'000}, {10.0, 40'000'000}};  // 2 ms and 4 ms of real time
    for (const auto& c : cases) {
        SCOPED_TRACE(c.speed);
        Kernel board;
        board.set_real_time(c.speed);
        const uint64_t real_request = static_cast<uint64_t>(c.request_ns / c.speed);
        const uint64_t virtual_start = board.now_ns(), real_start = real_ns();
        EXPECT_EQ(board.sleep_ns(c.request_ns), 0);
        const uint64_t real_elapsed = real_ns() - real_start;
        const uint64_t virtual_elapsed = board.now_ns() - virtual_start;
        EXPECT_GE(real_elapsed, real_request);
        EXPECT_LT(real_elapsed, real_request + 10'000'000u) << "room for a loaded machine";
        EXPECT_GE(virtual_elapsed, c.request_ns);
        EXPECT_LE(virtual_elapsed, static_cast<uint64_t>(real_elapsed * c.speed) + 1'000'000u);
        EXPECT_EQ(slept_ns(board), c.request_ns);
    }
    Kernel board;
    EXPECT_THROW(board.set_real_time(0.0), std::invalid_argument);
    EXPECT_THROW(board.set_real_time(-2.0), std::invalid_argument);

    // Switching modes keeps the clock continuous.
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

TEST(PreciseSleeps, EndCloseToTheirDeadline) {
    Kernel board;
    board.set_real_time(1.0);
    // Shorter than the spin guard, around it, and one VD period of the run engine.
    std::vector<uint64_t> requests;
    for (int i = 0; i < 50; ++i) requests.push_back(20'000 + 10'000 * uint64_t(i % 25));
    requests.insert(requests.end(), 20, 8'000'000);

    // The bound is on what the board does, and on a machine shared with others a thread is
    // sometimes kept off the CPU for milliseconds. A sleep during which the scheduler kept
    // this thread waiting for a CPU is not judged, and a round goes on counting only with
    // most of its sleeps judged; the first of up to five rounds that meets the bound passes.
    // ctest runs these tests alone (see CMakeLists.txt).
    constexpr uint64_t kCpuDeniedNs = 50'000;
    std::vector<double> round_means;
    for (int round = 0; round < 5; ++round) {
        uint64_t judged = 0, total_overshoot = 0;
        for (const uint64_t ns : requests) {
            const uint64_t waited_before = cpu_wait_ns(), start = real_ns();
            ASSERT_EQ(board.sleep_ns(ns), 0);
            const uint64_t elapsed = real_ns() - start;
            ASSERT_GE(elapsed, ns) << "a sleep never ends early";
            if (cpu_wait_ns() - waited_before > kCpuDeniedNs) continue;
            ++judged;
            total_overshoot += elapsed - ns;
        }
        if (judged < requests.size() * 3 / 4) continue;
        round_means.push_back(static_cast<double>(total_overshoot) / static_cast<double>(judged));
        if (round_means.back() < 20'000.0) break;
    }
    if (!timing_is_measurable()) GTEST_SKIP() << "overshoot not judged under instrumentation";
    if (round_means.empty()) GTEST_SKIP() << "the machine kept this thread off the CPU too often";
    EXPECT_LT(*std::min_element(round_means.begin(), round_means.end()), 20'000.0)
        << "mean overshoot in ns of each round: " << ::testing::PrintToString(round_means);
}

}  // namespace
}  // namespace zoomaf::twin
