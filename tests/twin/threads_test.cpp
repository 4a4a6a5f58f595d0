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

TEST(BoardThreads, I2cTransfersAndTheControlFaceRunTogether) {
    Board board;
    constexpr int kReads = 300;
    std::atomic<bool> done{false};
    std::thread service([&] {
        for (int i = 0; i < kReads; ++i) {
            const auto read = test::read_reg16(board, Board::kModuleBus, 0x50, 0x0001);
            // The control thread may have made the chip absent at this moment.
            EXPECT_TRUE(read.result == 2 || (read.result == -1 && errno == ENXIO));
            board.sleep_ns(10'000);
        }
        done = true;
    });
    std::thread control([&] {
        uint8_t value = 0;
        while (!done.load()) {
            board.set_eeprom_byte(0x0001, ++value);
            board.set_i2c_present(Board::kModuleBus, 0x50, value % 4 != 0);
            board.i2c_transfers(Board::kModuleBus);
            board.faults();
        }
        board.set_i2c_present(Board::kModuleBus, 0x50, true);
    });
    service.join();
    control.join();
    EXPECT_EQ(board.i2c_transfers(Board::kModuleBus).size(), static_cast<size_t>(kReads));
    EXPECT_EQ(board.open_descriptors(), 0u);
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
