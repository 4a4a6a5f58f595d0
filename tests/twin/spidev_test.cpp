// /dev/spidev1.0 ioctls and the driver chip's register frames.
#include <array>

#include "board_io.hpp"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

using test::chip_frame;
using ::testing::ElementsAre;

class Spidev : public ::testing::Test, protected test::Rig {};

TEST_F(Spidev, SettingsBelongToTheDeviceAndOtherRequestsFail) {
    uint32_t mode = SPI_LSB_FIRST | SPI_MODE_3, speed = 6000000;
    uint8_t bits = 8;
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_MODE32, &mode), 0);
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_BITS_PER_WORD, &bits), 0);
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_MAX_SPEED_HZ, &speed), 0);
    const int other = board.open("/dev/spidev1.0", O_RDWR);  // settings are not per open file
    uint32_t read_mode32 = 0, read_speed = 0;
    uint8_t read_mode8 = 0, read_bits = 0;
    ASSERT_EQ(board.ioctl(other, SPI_IOC_RD_MODE32, &read_mode32), 0);
    ASSERT_EQ(board.ioctl(other, SPI_IOC_RD_MODE, &read_mode8), 0);
    ASSERT_EQ(board.ioctl(other, SPI_IOC_RD_BITS_PER_WORD, &read_bits), 0);
    ASSERT_EQ(board.ioctl(other, SPI_IOC_RD_MAX_SPEED_HZ, &read_speed), 0);
    EXPECT_TRUE(read_mode32 == mode && read_mode8 == mode && read_bits == 8 && read_speed == speed);

    uint8_t arg[64] = {};
    EXPECT_ERRNO(board.ioctl(spi, I2C_RDWR, arg), ENOTTY);
    board.write_file("/plain", "x");
    EXPECT_ERRNO(board.ioctl(board.open("/plain", O_RDONLY), SPI_IOC_RD_MODE, arg), ENOTTY);
    // A message size that is no whole number of transfers.
    EXPECT_ERRNO(board.ioctl(spi, _IOW(SPI_IOC_MAGIC, 0, char[5]), arg), EINVAL);
}

TEST_F(Spidev, WriteFrameStoresTheRegisterAndReadFrameReturnsIt) {
    const auto write = chip_frame(board, spi, 0x24, 0x1C05);
    EXPECT_EQ(write.result, 3) << "the kernel returns the bytes transferred";
    EXPECT_THAT(write.rx, ElementsAre(0, 0, 0)) << "the chip shifts out zeros while written";
    EXPECT_EQ(board.chip_register(0x24), 0x1C05);
    const auto writes = board.register_writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].addr, 0x24);
    EXPECT_EQ(writes[0].value, 0x1C05);
    EXPECT_EQ(writes[0].time_ns, board.now_ns());

    EXPECT_THAT(chip_frame(board, spi, 0x64, 0).rx, ElementsAre(0, 0x05, 0x1C));
    EXPECT_EQ(board.chip_register(0x24), 0x1C05) << "a read frame does not write";
    EXPECT_EQ(board.register_writes().size(), 1u);
}

TEST_F(Spidev, FramesWithChipSelectLowOrOfTwoBytesAreIgnoredAndRecorded) {
    board.set_chip_register(0x24, 0x1C00);
    EXPECT_EQ(test::transfer(board, spi, {0x24, 0xFF, 0xFF}).result, 3) << "still clocked out";
    test::set_value(board, Board::kChipSelectGpio, 1);
    EXPECT_EQ(test::transfer(board, spi, {0x24, 0x10}).result, 2);
    EXPECT_EQ(board.chip_register(0x24), 0x1C00);
    EXPECT_TRUE(board.register_writes().empty());
    EXPECT_THAT(test::fault_kinds(board),
                ElementsAre(FaultKind::chip_not_selected, FaultKind::frame_length));
    EXPECT_EQ(board.timing_faults(), 0u);
}

TEST_F(Spidev, WithoutLsbFirstTheChipSeesBitReversedBytes) {
    uint32_t msb_first = SPI_MODE_0;
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_MODE32, &msb_first), 0);
    // 0x25 reversed is 0xA4: the chip takes a write to register 0x24 (bit 7 is not an
    // address bit) with both data bytes reversed.
    chip_frame(board, spi, 0x25, 0x0102);
    EXPECT_EQ(board.chip_register(0x25), 0);
    EXPECT_EQ(board.chip_register(0x24), (reverse_bits(0x01) << 8) | reverse_bits(0x02));

    // A read of 0x0B (0x4B) reaches register 0x12 (0xD2 & 0x3F) and comes back reversed.
    board.set_chip_register(0x0B, 0x0480);
    board.set_chip_register(0x12, 0x1234);
    EXPECT_THAT(chip_frame(board, spi, 0x4B, 0).rx,
                ElementsAre(0, reverse_bits(0x34), reverse_bits(0x12)));
    uint8_t lsb_first = 1;
    ASSERT_EQ(board.ioctl(spi, SPI_IOC_WR_LSB_FIRST, &lsb_first), 0);
    EXPECT_EQ(test::chip_read(board, spi, 0x0B), 0x0480) << "right again in LSB-first mode";
}

TEST_F(Spidev, EveryTransferOfAMessageIsAFrame) {
    std::array<uint8_t, 3> first{0x29, 0x10, 0x1D}, second{0x2A, 0x90, 0x01};
    spi_ioc_transfer t[2]{};
    t[0].tx_buf = reinterpret_cast<uintptr_t>(first.data());
    t[1].tx_buf = reinterpret_cast<uintptr_t>(second.data());
    t[0].len = t[1].len = 3;
    test::set_value(board, Board::kChipSelectGpio, 1);
    EXPECT_EQ(board.ioctl(spi, SPI_IOC_MESSAGE(2), t), 6);
    EXPECT_EQ(board.chip_register(0x29), 0x1D10);
    EXPECT_EQ(board.chip_register(0x2A), 0x0190);
}

}  // namespace
}  // namespace zoomaf::twin
