// The board called from several threads at once, as the service does (auto-focus loop,
// zoom requests, channel readers). Run under ThreadSanitizer to catch races.
#include <atomic>
#include <thread>

#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

TEST(BoardThreads, MotorDrivePiReadsAndSleepsRunTogether) {
    Board board(BoardConfig{.zoom_start = 0, .focus_start = -400});
    test::make_output(board, Board::kChipSelectGpio);
    test::make_output(board, Board::kVdGpio);
    test::export_line(board, Board::kFocusPiGpio);
    const int fd = test::open_spi(board);
    constexpr int kPeriods = 100;

    std::thread driver([&] {
        test::chip_frame(board, fd, 0x25, 400);
        test::chip_frame(board, fd, 0x24, 0x1C00 | 0x100 | 8);  // focus +8 per period
        for (int i = 0; i < kPeriods; ++i) {
            test::vd_pulse(board);
            board.sleep_ns(8'000'000);
        }
    });
    std::atomic<bool> done{false};
    std::thread pi_reader([&] {
        while (!done.load()) {
            const std::string level =
                test::read_path(board, test::gpio_file(Board::kFocusPiGpio, "value"));
            EXPECT_TRUE(level == "0\n" || level == "1\n") << level;
        }
    });
    std::thread observer([&] {
        while (!done.load()) {
            board.monotonic();
            board.motor_position(Motor::focus);
            board.gpio_edges(Board::kVdGpio);
            board.sleep_ns(1'000'000);
        }
    });
    driver.join();
    done = true;
    pi_reader.join();
    observer.join();

    EXPECT_EQ(board.vd_pulses(), static_cast<uint64_t>(kPeriods));
    EXPECT_EQ(board.motor_position(Motor::focus), -400 + 8 * kPeriods);
    EXPECT_EQ(board.gpio_edges(Board::kFocusPiGpio).size(), 1u) << "crossed the edge once";
    EXPECT_EQ(board.timing_faults(), 0u);
}

TEST(BoardThreads, ABlockedSemopDoesNotHoldTheBoard) {
    Board board;
    const int sem = board.semget(0x5A0F0C13, 1, IPC_CREAT | 0666);
    ASSERT_GE(sem, 0);
    ASSERT_EQ(board.semctl(sem, 0, SETVAL, 0), 0);
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        sembuf take{0, -1, SEM_UNDO};
        EXPECT_EQ(board.semop(sem, &take, 1), 0);
        taken = true;
    });
    // While the waiter blocks in the kernel, the board keeps serving calls.
    for (int i = 0; i < 50 && !taken; ++i) board.sleep_ns(1000);
    EXPECT_FALSE(taken.load());
    sembuf give{0, 1, 0};
    ASSERT_EQ(board.semop(sem, &give, 1), 0);
    waiter.join();
    EXPECT_TRUE(taken.load());
}

}  // namespace
}  // namespace zoomaf::twin
