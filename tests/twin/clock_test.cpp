// The board clock: virtual time driven by sleeps, and real-time mode for the bench.
#include <sys/prctl.h>

#include <chrono>
#include <thread>

#include "gtest/gtest.h"
#include "twin/board.hpp"

namespace zoomaf::twin {
namespace {

uint64_t ns_of(timespec ts) {
    return static_cast<uint64_t>(ts.tv_sec) * 1'000'000'000ull + static_cast<uint64_t>(ts.tv_nsec);
}
uint64_t us_of(timeval tv) {
    return static_cast<uint64_t>(tv.tv_sec) * 1'000'000ull + static_cast<uint64_t>(tv.tv_usec);
}
uint64_t real_ns() {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::steady_clock::now().time_since_epoch())
                                     .count());
}

TEST(VirtualClock, SleepsOnlyAdvanceTheClock) {
    Board board;
    EXPECT_EQ(ns_of(board.monotonic()), 1000'000'000'000ull) << "monotonic starts at 1000 s";
    const uint64_t wall_start = us_of(board.wall());
    const uint64_t real_start = real_ns();
    EXPECT_EQ(board.sleep_ns(3'000'000'000ull), 0);  // three seconds, not really slept
    EXPECT_EQ(board.sleep_ns(1'500), 0);
    EXPECT_LT(real_ns() - real_start, 1'000'000'000ull);
    EXPECT_EQ(ns_of(board.monotonic()), 1003'000'001'500ull);
    EXPECT_EQ(board.now_ns(), 1003'000'001'500ull);
    EXPECT_EQ(us_of(board.wall()) - wall_start, 3'000'001u);
    EXPECT_EQ(board.slept_ns(), 3'000'001'500ull);
    EXPECT_EQ(board.sleep_calls(), 2u);
    board.advance_ns(500);
    EXPECT_EQ(board.now_ns(), 1003'000'002'000ull);
    EXPECT_EQ(board.sleep_calls(), 2u) << "advancing is not a sleep";
}

TEST(VirtualClock, WallEpochIsSeeded) {
    Board a(BoardConfig{.seed = 3});
    Board b(BoardConfig{.seed = 3});
    Board c(BoardConfig{.seed = 4});
    EXPECT_EQ(us_of(a.wall()), us_of(b.wall()));
    EXPECT_NE(us_of(a.wall()), us_of(c.wall()));
    EXPECT_GE(a.wall().tv_sec, 1704067200) << "a plausible date: 2024 or later";
}

TEST(VirtualClock, SleepsFromManyThreadsAllAddUp) {
    Board board;
    const uint64_t start = board.now_ns();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&board] {
            for (int i = 0; i < 1000; ++i) board.sleep_ns(1000);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(board.now_ns() - start, 4'000'000u);
    EXPECT_EQ(board.sleep_calls(), 4000u);
}

TEST(RealTimeClock, ASleepTakesItsRealTime) {
    Board board;
    board.set_real_time(1.0);
    const uint64_t virtual_start = board.now_ns();
    const uint64_t real_start = real_ns();
    EXPECT_EQ(board.sleep_ns(2'000'000), 0);
    const uint64_t real_elapsed = real_ns() - real_start;
    const uint64_t virtual_elapsed = board.now_ns() - virtual_start;
    EXPECT_GE(real_elapsed, 2'000'000u);
    EXPECT_LT(real_elapsed, 12'000'000u) << "about 2 ms, with room for a loaded machine";
    EXPECT_GE(virtual_elapsed, 2'000'000u) << "the virtual clock follows real time";
    EXPECT_LT(virtual_elapsed, real_elapsed + 1'000'000u);
    EXPECT_EQ(board.slept_ns(), 2'000'000u);
}

TEST(RealTimeClock, SpeedScalesSleepsAndTheClock) {
    Board board;
    board.set_real_time(10.0);
    const uint64_t virtual_start = board.now_ns();
    const uint64_t real_start = real_ns();
    board.sleep_ns(40'000'000);  // 40 ms of board time, 4 ms of real time
    const uint64_t real_elapsed = real_ns() - real_start;
    const uint64_t virtual_elapsed = board.now_ns() - virtual_start;
    EXPECT_GE(real_elapsed, 4'000'000u);
    EXPECT_LT(real_elapsed, 20'000'000u);
    EXPECT_GE(virtual_elapsed, 40'000'000u);
    EXPECT_LE(virtual_elapsed, real_elapsed * 10 + 1'000'000u);
    EXPECT_THROW(board.set_real_time(0.0), std::invalid_argument);
    EXPECT_THROW(board.set_real_time(-2.0), std::invalid_argument);
}

TEST(RealTimeClock, SwitchingModesKeepsTheClockContinuous) {
    Board board;
    board.sleep_ns(5'000'000'000ull);
    const uint64_t before = board.now_ns();
    board.set_real_time(1.0);
    const uint64_t after = board.now_ns();
    EXPECT_GE(after, before);
    EXPECT_LT(after - before, 50'000'000u);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    board.set_virtual_time();
    const uint64_t frozen = board.now_ns();
    EXPECT_GE(frozen - after, 2'000'000u);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    EXPECT_EQ(board.now_ns(), frozen) << "virtual time stands still between sleeps";
}

TEST(RealTimeClock, SleepingThreadsGetATightTimerSlack) {
    Board board;
    // Threads inherit their creator's slack: start each from the usual 50 us.
    constexpr int kUsualSlack = 50'000;
    int slack_virtual = -1;
    std::thread([&] {
        ::prctl(PR_SET_TIMERSLACK, kUsualSlack, 0, 0, 0);
        board.sleep_ns(1000);
        slack_virtual = ::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
    }).join();
    EXPECT_EQ(slack_virtual, kUsualSlack) << "virtual sleeps leave the thread alone";

    board.set_real_time(1.0);
    int slack_real = -1;
    std::thread([&] {
        ::prctl(PR_SET_TIMERSLACK, kUsualSlack, 0, 0, 0);
        board.sleep_ns(1000);
        slack_real = ::prctl(PR_GET_TIMERSLACK, 0, 0, 0, 0);
    }).join();
    EXPECT_EQ(slack_real, 1);
}

}  // namespace
}  // namespace zoomaf::twin
