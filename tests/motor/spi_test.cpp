// The driver chip's register frames on the SPI bus: bytes, chip select, the bus lock and the
// verified write.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

using SpiFrames = MotorTest;

TEST_F(SpiFrames, AWriteFrameReachesTheRegisterInsideAChipSelectPulse) {
    bring_up();
    const size_t edges_before = board().gpio_edges(kChipSelect).size();
    EXPECT_EQ(Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05), 0u);
    EXPECT_EQ(board().chip_register(0x24), 0x1C05);
    const auto writes = board().register_writes();
    ASSERT_EQ(writes.size(), 1u);
    EXPECT_EQ(writes[0].addr, 0x24);
    EXPECT_EQ(writes[0].value, 0x1C05);
    // One rising and one falling edge of chip select around the frame.
    const auto edges = board().gpio_edges(kChipSelect);
    ASSERT_EQ(edges.size(), edges_before + 2);
    EXPECT_EQ(edges[edges_before].level, 1);
    EXPECT_EQ(edges[edges_before + 1].level, 0);
    EXPECT_EQ(board().faults().size(), 0u);
}

TEST_F(SpiFrames, AReadFrameReturnsTheRegisterWord) {
    bring_up();
    board().set_chip_register(0x2A, 0xBEEF);
    EXPECT_EQ(Spi_ReadReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x2A + 0x40), 0xBEEFu);
    EXPECT_EQ(board().chip_register(0x2A), 0xBEEF);  // reading changes nothing
}

TEST_F(SpiFrames, VerifiedWriteReadsBackFromTheReadAddress) {
    bring_up();
    EXPECT_EQ(Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05), 0u);
    EXPECT_EQ(board().chip_register(0x24), 0x1C05);
}

TEST_F(SpiFrames, AFailedReadBackIsReportedWithBothValues) {
    bring_up();
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x24});
    uint32_t result = 0;
    std::string out =
        captured([&] { result = Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05); });
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_THAT(out, HasSubstr("] Spi_RW err, fd:" + std::to_string(gSpiDev.fd) +
                               ", /dev/spidev1.0, addr: 0x24, setval: 0x1c05, getval: 0x1c04\n"));
    EXPECT_THAT(out, HasSubstr("[Spi_Write_Reg] ["));
}

TEST_F(SpiFrames, AFailedTransferSkipsItsPauseAndFailsTheFrame) {
    bring_up();
    board().inject({.op = twin::FaultRule::Op::ioctl, .path = "/dev/spidev1.0"});
    const uint64_t slept_before = board().slept_ns();
    uint32_t result = 0;
    std::string out =
        captured([&] { result = Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05); });
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_EQ(out, "can't send spi message");
    EXPECT_EQ(board().slept_ns() - slept_before, 1000u);  // only the chip-select settle time
    EXPECT_EQ(board().gpio_physical(kChipSelect), 0);
    // A verified write whose read-back frame fails reports the failed read.
    board().inject({.op = twin::FaultRule::Op::ioctl, .path = "/dev/spidev1.0", .skip = 1});
    out = captured([&] { result = Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x25, 0x0400); });
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_THAT(out, HasSubstr("getval: 0xffffffff\n"));
}

TEST_F(SpiFrames, EachFrameTakesItsPrescribedPauses) {
    bring_up();
    const uint64_t slept_before = board().slept_ns();
    Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0);
    EXPECT_EQ(board().slept_ns() - slept_before, 1000u + 100000u);
    Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0);
    EXPECT_EQ(board().slept_ns() - slept_before, 3 * 101000u + 1000u);
}

TEST_F(SpiFrames, WithoutChipSelectTheChipIgnoresTheFrame) {
    bring_up();
    // A frame sent around the driver's chip-select handling.
    const uint8_t tx[3] = {0x24, 0x34, 0x12};
    uint8_t rx[3] = {};
    EXPECT_EQ(Spi_Transfer(gSpiDev.fd, tx, rx, 3), 0);
    EXPECT_NE(board().chip_register(0x24), 0x1234);
    EXPECT_EQ(board().faults().size(), 1u);
}

TEST_F(SpiFrames, TheBusLockHoldsOffOtherFrames) {
    bring_up();
    spi_try_lock();
    std::atomic<bool> done{false};
    std::thread writer([&] {
        Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C07);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(done.load());
    EXPECT_EQ(board().gpio_physical(kChipSelect), 0);  // not even chip select moved
    spi_unlock();
    writer.join();
    EXPECT_TRUE(done.load());
    EXPECT_EQ(board().chip_register(0x24), 0x1C07);
}

TEST_F(SpiFrames, InitRegProgramsTheDefaultTableAndTheIntervals) {
    quietly([] {
        InitAttr(10);
        ASSERT_EQ(InitSpi(), 0);
        InitGPIO(1);
    });
    board().clear_register_writes();
    uint32_t result = 0;
    std::string out = captured([&] { result = InitReg(); });
    EXPECT_EQ(result, 101000u);
    EXPECT_EQ(out, "");
    const auto writes = board().register_writes();
    ASSERT_EQ(writes.size(), REG_MOTOR_ENTRIES + 2u);
    for (int i = 0; i < REG_MOTOR_ENTRIES; ++i) {
        EXPECT_EQ(writes[i].addr, reg_motor[i][0]);
        EXPECT_EQ(writes[i].value, reg_motor[i][1] << 8 | reg_motor[i][2]);
    }
    EXPECT_EQ(board().chip_register(0x0B), 0x0480);  // written twice, the last one stays
    EXPECT_EQ(board().chip_register(0x25), 400);
    EXPECT_EQ(board().chip_register(0x2A), 400);
}

TEST_F(SpiFrames, InitSpiReportsAMissingDevice) {
    board().inject({.op = twin::FaultRule::Op::open, .path = "/dev/spidev1.0", .error = ENOENT});
    std::string out = captured([] {
        InitAttr(10);
        EXPECT_EQ(InitSpi(), -1);
    });
    EXPECT_THAT(out, HasSubstr("init spi, can't open device: /dev/spidev1.0\n"));
    EXPECT_EQ(gSpiDev.fd, -1);
}

}  // namespace
}  // namespace zoomaf::test
