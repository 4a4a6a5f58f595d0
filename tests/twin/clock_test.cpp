// The board clock's real-time mode, which the bench and the demos run in and switch in and
// out of (virtual time is what every other test runs on).
#include <chrono>
#include <thread>

#include "gtest/gtest.h"
#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {
namespace {

constexpr auto real_ns = &Clock::real_monotonic_ns;

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
