// /dev/spidev1.0 ioctls and the driver chip's register frames.
#include <linux/i2c-dev.h>

#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using test::chip_frame;
using test::chip_read;
using test::transfer;
using ::testing::ElementsAre;

class Spidev : public ::testing::Test {
protected:
    void SetUp() override {
        test::make_output(board, Board::kChipSelectGpio);
        fd = test::open_spi(board);
        ASSERT_GE(fd, 100);
    }
    Board board;
    int fd = -1;
};

TEST_F(Spidev, SettingsAreStoredAndReadBack) {
    uint32_t mode = SPI_LSB_FIRST | SPI_MODE_3;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_MODE32, &mode), 0);
    uint32_t mode32 = 0;
    uint8_t mode8 = 0;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_RD_MODE32, &mode32), 0);
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_RD_MODE, &mode8), 0);
    EXPECT_EQ(mode32, mode);
    EXPECT_EQ(mode8, mode);
    mode8 = SPI_MODE_0;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_MODE, &mode8), 0);
    EXPECT_EQ(board.spi_mode(), uint32_t{SPI_MODE_0});

    uint8_t bits = 8;
    uint32_t speed = 6000000;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_BITS_PER_WORD, &bits), 0);
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_MAX_SPEED_HZ, &speed), 0);
    bits = 0;
    speed = 0;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_RD_BITS_PER_WORD, &bits), 0);
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
    EXPECT_EQ(bits, 8);
    EXPECT_EQ(speed, 6000000u);

    // Settings belong to the device, not to one open file.
    const int other = board.open("/dev/spidev1.0", O_RDWR);
    ASSERT_EQ(board.ioctl(other, SPI_IOC_RD_MAX_SPEED_HZ, &speed), 0);
    EXPECT_EQ(speed, 6000000u);
}

TEST_F(Spidev, OtherRequestsFailWithEnotty) {
    uint8_t arg[64] = {};
    errno = 0;
    EXPECT_EQ(board.ioctl(fd, I2C_RDWR, arg), -1);
    EXPECT_EQ(errno, ENOTTY);
    board.write_file("/plain", "x");
    const int plain = board.open("/plain", O_RDONLY);
    errno = 0;
    EXPECT_EQ(board.ioctl(plain, SPI_IOC_RD_MODE, arg), -1);
    EXPECT_EQ(errno, ENOTTY) << "a regular file is no SPI device";
    errno = 0;
    EXPECT_EQ(board.ioctl(fd, _IOW(SPI_IOC_MAGIC, 0, char[5]), arg), -1);
    EXPECT_EQ(errno, EINVAL) << "a message size that is no whole number of transfers";
}

TEST_F(Spidev, WriteFrameStoresTheRegisterAndReadFrameReturnsIt) {
    const auto write = chip_frame(board, fd, 0x24, 0x1C05);
    EXPECT_EQ(write.result, 3) << "the kernel returns the bytes transferred";
    EXPECT_THAT(write.rx, ElementsAre(0, 0, 0)) << "the chip shifts out zeros while written";
    EXPECT_EQ(board.chip_register(0x24), 0x1C05);
    const auto writes = board.register_writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].addr, 0x24);
    EXPECT_EQ(writes[0].value, 0x1C05);
    EXPECT_EQ(writes[0].time_ns, board.now_ns());

    const auto read = chip_frame(board, fd, 0x64, 0);
    EXPECT_THAT(read.rx, ElementsAre(0, 0x05, 0x1C));
    EXPECT_EQ(board.chip_register(0x24), 0x1C05) << "a read frame does not write";
    EXPECT_EQ(board.register_writes().size(), 1u);
    board.clear_register_writes();
    EXPECT_TRUE(board.register_writes().empty());
}

TEST_F(Spidev, FrameWithChipSelectLowIsIgnoredAndRecorded) {
    board.set_chip_register(0x20, 0x1003);
    const auto t = transfer(board, fd, {0x20, 0xFF, 0xFF});
    EXPECT_EQ(t.result, 3) << "the controller still clocks the bytes out";
    EXPECT_EQ(board.chip_register(0x20), 0x1003);
    EXPECT_TRUE(board.register_writes().empty());
    const auto faults = board.faults();
    ASSERT_EQ(faults.size(), 1u);
    EXPECT_EQ(faults[0].kind, FaultKind::chip_not_selected);
    EXPECT_EQ(board.timing_faults(), 0u);
}

TEST_F(Spidev, FrameOfTwoBytesIsRejected) {
    board.set_chip_register(0x24, 0x1C00);
    test::set_value(board, Board::kChipSelectGpio, 1);
    const auto t = transfer(board, fd, {0x24, 0x10});
    EXPECT_EQ(t.result, 2);
    EXPECT_EQ(board.chip_register(0x24), 0x1C00);
    ASSERT_EQ(board.faults().size(), 1u);
    EXPECT_EQ(board.faults()[0].kind, FaultKind::frame_length);
}

TEST_F(Spidev, WithoutLsbFirstTheChipSeesBitReversedBytes) {
    uint32_t msb_first = SPI_MODE_0;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_MODE32, &msb_first), 0);
    // 0x25 reversed is 0xA4: the chip takes a write to register 0x24 (bit 7 is not an
    // address bit) with both data bytes reversed.
    chip_frame(board, fd, 0x25, 0x0102);
    EXPECT_EQ(board.chip_register(0x25), 0);
    EXPECT_EQ(board.chip_register(0x24), (reverse_bits(0x01) << 8) | reverse_bits(0x02));

    // A read of 0x0B (0x4B) reaches register 0x12 (0xD2 & 0x3F) and comes back reversed.
    board.set_chip_register(0x0B, 0x0480);
    board.set_chip_register(0x12, 0x1234);
    const auto t = chip_frame(board, fd, 0x4B, 0);
    EXPECT_EQ(t.rx[1], reverse_bits(0x34));
    EXPECT_EQ(t.rx[2], reverse_bits(0x12));

    uint8_t lsb_first = 1;
    ASSERT_EQ(board.ioctl(fd, SPI_IOC_WR_LSB_FIRST, &lsb_first), 0);
    EXPECT_EQ(chip_read(board, fd, 0x0B), 0x0480) << "right again in LSB-first mode";
}

TEST_F(Spidev, EveryTransferOfAMessageIsAFrame) {
    std::array<uint8_t, 3> first{0x29, 0x10, 0x1D};
    std::array<uint8_t, 3> second{0x2A, 0x90, 0x01};
    spi_ioc_transfer t[2]{};
    t[0].tx_buf = reinterpret_cast<uintptr_t>(first.data());
    t[0].len = 3;
    t[1].tx_buf = reinterpret_cast<uintptr_t>(second.data());
    t[1].len = 3;
    test::set_value(board, Board::kChipSelectGpio, 1);
    EXPECT_EQ(board.ioctl(fd, SPI_IOC_MESSAGE(2), t), 6);
    EXPECT_EQ(board.chip_register(0x29), 0x1D10);
    EXPECT_EQ(board.chip_register(0x2A), 0x0190);
}

}  // namespace
}  // namespace zoomaf::twin
