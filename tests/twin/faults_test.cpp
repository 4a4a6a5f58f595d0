// Injected faults: which calls fail, how often, and what they leave behind.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using Op = FaultRule::Op;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kCalibration = "/usr/hx7/calibration/motor_calibration.cfg";

// For each of n opens of path: true when it failed.
std::vector<bool> open_failures(Board& board, const char* path, int n) {
    std::vector<bool> failed;
    for (int i = 0; i < n; ++i) {
        const int fd = board.open(path, O_RDONLY);
        failed.push_back(fd < 0);
        if (fd >= 0) board.close(fd);
    }
    return failed;
}

TEST(FaultRules, OnceCountSkipAndUnlimited) {
    Board board;
    board.write_file(kCalibration, "1");
    board.inject({.op = Op::open, .path = kCalibration});
    EXPECT_ERRNO(board.open(kCalibration, O_RDONLY), EIO);
    EXPECT_THAT(open_failures(board, kCalibration, 2), Each(false)) << "once is once";
    ASSERT_EQ(board.injected_faults().size(), 1u);
    EXPECT_THAT(board.injected_faults()[0], HasSubstr(kCalibration));
    EXPECT_TRUE(board.faults().empty()) << "injected faults are not the chip's";

    board.inject({.op = Op::open, .path = kCalibration, .count = 2, .skip = 1});
    EXPECT_THAT(open_failures(board, kCalibration, 5),
                ElementsAre(false, true, true, false, false));
    board.inject({.op = Op::open, .path = kCalibration, .count = -1});
    EXPECT_THAT(open_failures(board, kCalibration, 4), Each(true));
    board.clear_faults();
    EXPECT_THAT(open_failures(board, kCalibration, 2), Each(false));
}

TEST(FaultRules, PathsMatchExactlyAndAnEmptyPathMatchesAll) {
    Board board;
    board.write_file("/a", "a");
    board.write_file("/b", "b");
    board.inject({.op = Op::open, .path = "a", .count = -1});  // relative: the same file as /a
    EXPECT_EQ(board.open("/a", O_RDONLY), -1);
    EXPECT_GE(board.open("/b", O_RDONLY), 100);
    board.clear_faults();
    board.inject({.op = Op::access, .error = EACCES, .count = -1});
    EXPECT_ERRNO(board.access("/b", F_OK), EACCES);
    EXPECT_ERRNO(board.access("/dev/spidev1.0", F_OK), EACCES);
    EXPECT_GE(board.open("/b", O_RDONLY), 100) << "only access is hit";
}

TEST(FaultRules, ReadWriteAndFopenFailWithoutEffect) {
    Board board;
    test::make_output(board, Board::kChipSelectGpio);
    const std::string value = test::gpio_file(Board::kChipSelectGpio, "value");
    board.inject({.op = Op::write, .path = value, .error = EAGAIN});
    EXPECT_ERRNO(test::set_value(board, Board::kChipSelectGpio, 1), EAGAIN);
    EXPECT_EQ(board.gpio_physical(Board::kChipSelectGpio), 0) << "the failed write did nothing";
    EXPECT_EQ(test::set_value(board, Board::kChipSelectGpio, 1), 1);
    board.inject({.op = Op::read, .path = value});
    EXPECT_EQ(test::read_path(board, value), "<error>");
    EXPECT_EQ(test::read_path(board, value), "1\n");
    board.write_file(kCalibration, "1");
    board.inject({.op = Op::fopen, .path = kCalibration, .error = ENOMEM});
    EXPECT_ERRNO(board.fopen(kCalibration, "r"), ENOMEM);
}

TEST(FaultRules, AnIoctlFaultFailsTheSpiTransferAndAReadbackFaultFlipsTheLowBit) {
    test::Rig rig;
    Board& board = rig.board;
    const int fd = rig.spi;
    board.inject({.op = Op::ioctl, .path = "/dev/spidev1.0", .error = ETIMEDOUT});
    EXPECT_ERRNO(test::chip_frame(board, fd, 0x24, 0x1C05).result, ETIMEDOUT);
    EXPECT_EQ(board.chip_register(0x24), 0);
    EXPECT_EQ(test::chip_frame(board, fd, 0x24, 0x1C05).result, 3);

    board.set_chip_register(0x25, 0x0190);
    board.inject({.op = Op::readback, .reg = 0x24});
    EXPECT_EQ(test::chip_read(board, fd, 0x25), 0x0190) << "another register reads true";
    EXPECT_EQ(test::chip_read(board, fd, 0x24), 0x1C04);
    EXPECT_EQ(board.chip_register(0x24), 0x1C05) << "the register itself is untouched";
    EXPECT_EQ(test::chip_read(board, fd, 0x24), 0x1C05);
    EXPECT_THAT(board.injected_faults().back(), HasSubstr("0x24"));
}

TEST(FaultRules, SleepFaultReturnsMinusOneAndDoesNotSleep) {
    Board board;
    board.inject({.op = Op::sleep, .error = EINTR});
    const uint64_t before = board.now_ns();
    EXPECT_ERRNO(board.sleep_ns(5'000'000), EINTR);
    EXPECT_EQ(board.now_ns(), before);
    EXPECT_EQ(board.sleep_calls(), 0u);
    EXPECT_EQ(board.sleep_ns(5'000'000), 0);
    EXPECT_EQ(board.now_ns(), before + 5'000'000);
}

TEST(FaultRules, ARateFailsAboutThatShareInTheSameWayForTheSameSeed) {
    auto run = [](uint64_t seed) {
        Board board(BoardConfig{.seed = seed});
        board.write_file("/f", "");
        board.inject({.op = Op::open, .path = "/f", .count = -1, .rate = 0.3});
        return open_failures(board, "/f", 400);
    };
    const auto first = run(11);
    EXPECT_EQ(first, run(11));
    EXPECT_NE(first, run(12));
    const auto failures = std::count(first.begin(), first.end(), true);
    EXPECT_TRUE(failures > 80 && failures < 160) << failures;
}

TEST(FaultRules, RulesThatCannotApplyAreRefused) {
    Board board;
    EXPECT_THROW(board.inject({.op = Op::open, .rate = 1.5}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::readback, .reg = 0x40}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::open, .skip = -1}), std::invalid_argument);
}

}  // namespace
}  // namespace zoomaf::twin
