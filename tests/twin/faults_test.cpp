// Injected faults: which calls fail, how often, and what they leave behind.
#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using Op = FaultRule::Op;
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

TEST(FaultRules, OnceFailsTheNextMatchingCallOnly) {
    Board board;
    board.write_file(kCalibration, "1");
    board.inject({.op = Op::open, .path = kCalibration});
    errno = 0;
    EXPECT_EQ(board.open(kCalibration, O_RDONLY), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_THAT(open_failures(board, kCalibration, 3), ::testing::ElementsAre(false, false, false));
    const auto log = board.injected_faults();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_THAT(log[0], HasSubstr(kCalibration));
    EXPECT_TRUE(board.faults().empty()) << "injected faults are not the chip's";
}

TEST(FaultRules, CountSkipAndUnlimited) {
    Board board;
    board.write_file(kCalibration, "1");
    board.inject({.op = Op::open, .path = kCalibration, .count = 2, .skip = 1});
    EXPECT_THAT(open_failures(board, kCalibration, 5),
                ::testing::ElementsAre(false, true, true, false, false));
    board.inject({.op = Op::open, .path = kCalibration, .count = -1});
    EXPECT_THAT(open_failures(board, kCalibration, 4), ::testing::Each(true));
    board.clear_faults();
    EXPECT_THAT(open_failures(board, kCalibration, 2), ::testing::Each(false));
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
    errno = 0;
    EXPECT_EQ(board.access("/b", F_OK), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(board.access("/dev/spidev1.0", F_OK), -1);
    EXPECT_GE(board.open("/b", O_RDONLY), 100) << "only access is hit";
}

TEST(FaultRules, ReadWriteAndFopenFail) {
    Board board;
    test::make_output(board, Board::kChipSelectGpio);
    const std::string value = test::gpio_file(Board::kChipSelectGpio, "value");
    board.inject({.op = Op::write, .path = value, .error = EAGAIN});
    errno = 0;
    EXPECT_EQ(test::set_value(board, Board::kChipSelectGpio, 1), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(board.gpio_physical(Board::kChipSelectGpio), 0) << "the failed write did nothing";
    EXPECT_EQ(test::set_value(board, Board::kChipSelectGpio, 1), 1);

    board.inject({.op = Op::read, .path = value});
    EXPECT_EQ(test::read_path(board, value), "<error>");
    EXPECT_EQ(test::read_path(board, value), "1\n");

    board.write_file(kCalibration, "1");
    board.inject({.op = Op::fopen, .path = kCalibration, .error = ENOMEM});
    errno = 0;
    EXPECT_EQ(board.fopen(kCalibration, "r"), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST(FaultRules, AnIoctlFaultOnTheSpiDeviceFailsTheTransfer) {
    Board board;
    test::make_output(board, Board::kChipSelectGpio);
    const int fd = test::open_spi(board);
    board.inject({.op = Op::ioctl, .path = "/dev/spidev1.0", .error = ETIMEDOUT});
    const auto t = test::chip_frame(board, fd, 0x24, 0x1C05);
    EXPECT_EQ(t.result, -1);
    EXPECT_EQ(board.chip_register(0x24), 0);
    EXPECT_EQ(test::chip_frame(board, fd, 0x24, 0x1C05).result, 3);
    EXPECT_EQ(board.chip_register(0x24), 0x1C05);
}

TEST(FaultRules, ReadbackFaultFlipsTheLowBitWithoutTouchingTheRegister) {
    Board board;
    test::make_output(board, Board::kChipSelectGpio);
    const int fd = test::open_spi(board);
    board.set_chip_register(0x24, 0x1C05);
    board.set_chip_register(0x25, 0x0190);
    board.inject({.op = Op::readback, .reg = 0x24});
    EXPECT_EQ(test::chip_read(board, fd, 0x25), 0x0190) << "another register reads true";
    EXPECT_EQ(test::chip_read(board, fd, 0x24), 0x1C04);
    EXPECT_EQ(board.chip_register(0x24), 0x1C05);
    EXPECT_EQ(test::chip_read(board, fd, 0x24), 0x1C05);
    EXPECT_THAT(board.injected_faults().back(), HasSubstr("0x24"));
}

TEST(FaultRules, SleepFaultReturnsMinusOneAndDoesNotSleep) {
    Board board;
    board.inject({.op = Op::sleep, .error = EINTR});
    const uint64_t before = board.now_ns();
    errno = 0;
    EXPECT_EQ(board.sleep_ns(5'000'000), -1);
    EXPECT_EQ(errno, EINTR);
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
    EXPECT_GT(failures, 80);
    EXPECT_LT(failures, 160);
}

TEST(FaultRules, RulesThatCannotApplyAreRefused) {
    Board board;
    EXPECT_THROW(board.inject({.op = Op::open, .rate = 1.5}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::readback, .reg = 0x40}), std::invalid_argument);
    EXPECT_THROW(board.inject({.op = Op::open, .skip = -1}), std::invalid_argument);
}

}  // namespace
}  // namespace zoomaf::twin
