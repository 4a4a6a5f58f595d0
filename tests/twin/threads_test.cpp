// The board called from several threads at once, as the service does (auto-focus loop,
// zoom requests, channel readers). Run under ThreadSanitizer to catch races.
#include <atomic>
#include <thread>

#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

TEST(BoardThreads, MotorDrivePiReadsAndSleepsRunTogether) {
    test::Rig rig(BoardConfig{.zoom_start = 0, .focus_start = -400});
    Board& board = rig.board;
    test::export_line(board, Board::kFocusPiGpio);
    constexpr int kPeriods = 100;
    std::atomic<bool> done{false};
    std::thread driver([&] {
        test::chip_frame(board, rig.spi, 0x25, 400);
        test::chip_frame(board, rig.spi, 0x24, 0x1C00 | 0x100 | 8);  // focus +8 per period
        for (int i = 0; i < kPeriods; ++i) {
            rig.vd();
            board.sleep_ns(8'000'000);
        }
        done = true;
    });
    std::thread pi_reader([&] {
        while (!done.load()) {
            const std::string level =
                test::read_path(board, test::gpio_file(Board::kFocusPiGpio, "value"));
            EXPECT_TRUE(level == "0\n" || level == "1\n") << level;
        }
    });
    while (!done.load()) {  // the observer
        board.motor_position(Motor::focus);
        board.gpio_edges(Board::kVdGpio);
        board.sleep_ns(1'000'000);
    }
    driver.join();
    pi_reader.join();
    EXPECT_EQ(board.vd_pulses(), uint64_t{kPeriods});
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
            EXPECT_TRUE(read.result == 2 || read.error == ENXIO);
            board.sleep_ns(10'000);
        }
        done = true;
    });
    for (uint8_t value = 0; !done.load();) {  // the control thread
        board.set_eeprom_byte(0x0001, ++value);
        board.set_i2c_present(Board::kModuleBus, 0x50, value % 4 != 0);
        board.i2c_transfers(Board::kModuleBus);
        board.faults();
    }
    service.join();
    EXPECT_EQ(board.i2c_transfers(Board::kModuleBus).size(), size_t{kReads});
    EXPECT_EQ(board.open_descriptors(), 0u);
}

}  // namespace
}  // namespace zoomaf::twin
