// The driver chip's register frames on the SPI bus: bytes, chip select, the bus lock, the
// verified write and the default registers.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class SpiFrames : public MotorTest {
protected:
    void SetUp() override {
        MotorTest::SetUp();
        bring_up();
    }
    uint32_t write_reg(uint16_t addr, uint16_t value) {
        return Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, addr, value);
    }
};

TEST_F(SpiFrames, FramesReachTheChipInsideAChipSelectPulse) {
    const size_t edges = board().gpio_edges(kChipSelect).size();
    const uint64_t slept = board().slept_ns();
    EXPECT_EQ(write_reg(0x24, 0x1C05), 0u);  // the chip shifts out zeros while written
    EXPECT_EQ(board().slept_ns() - slept, 1000u + 100000u);
    EXPECT_EQ(board().chip_register(0x24), 0x1C05);
    const auto cs = board().gpio_edges(kChipSelect);
    ASSERT_EQ(cs.size(), edges + 2);
    EXPECT_EQ(cs[edges].level, 1);
    EXPECT_EQ(cs[edges + 1].level, 0);

    board().set_chip_register(0x2A, 0xBEEF);
    EXPECT_EQ(Spi_ReadReg(gSpiDev.fd, gSpiDev.cs_gpio, 0x2A + 0x40), 0xBEEFu);
    EXPECT_EQ(Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C06), 0u);
    EXPECT_TRUE(board().faults().empty());

    // A frame sent without the driver's chip-select handling is ignored by the chip.
    const uint8_t tx[3] = {0x24, 0x34, 0x12};
    uint8_t rx[3] = {};
    EXPECT_EQ(Spi_Transfer(gSpiDev.fd, tx, rx, 3), 0);
    EXPECT_EQ(board().chip_register(0x24), 0x1C06);
    EXPECT_EQ(board().faults().size(), 1u);
}

TEST_F(SpiFrames, AFailedReadBackIsReportedWithBothValues) {
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x24});
    std::string out = captured(
        [] { EXPECT_EQ(Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05), 0xFFFFFFFFu); });
    EXPECT_THAT(out, HasSubstr("[Spi_Write_Reg] ["));
    EXPECT_THAT(out, HasSubstr("] Spi_RW err, fd:" + std::to_string(gSpiDev.fd) +
                               ", /dev/spidev1.0, addr: 0x24, setval: 0x1c05, getval: 0x1c04\n"));
}

TEST_F(SpiFrames, AFailedTransferSkipsItsPauseAndFailsTheFrame) {
    board().inject({.op = twin::FaultRule::Op::ioctl, .path = "/dev/spidev1.0"});
    const uint64_t slept = board().slept_ns();
    uint32_t result = 0;
    EXPECT_EQ(captured([&] { result = write_reg(0x24, 0x1C05); }), "can't send spi message");
    EXPECT_EQ(result, 0xFFFFFFFFu);
    EXPECT_EQ(board().slept_ns() - slept, 1000u);  // only the chip-select settle time
    EXPECT_EQ(board().gpio_physical(kChipSelect), 0);
    // A verified write whose read-back frame fails reports the failed read.
    board().inject({.op = twin::FaultRule::Op::ioctl, .path = "/dev/spidev1.0", .skip = 1});
    EXPECT_THAT(captured([] { Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x25, 0x0400); }),
                HasSubstr("getval: 0xffffffff\n"));
}

TEST_F(SpiFrames, TheBusLockHoldsOffOtherFrames) {
    spi_try_lock();
    std::atomic<bool> done{false};
    std::thread writer([&] {
        write_reg(0x24, 0x1C07);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(done.load());
    EXPECT_EQ(board().gpio_physical(kChipSelect), 0);  // not even chip select moved
    spi_unlock();
    writer.join();
    EXPECT_EQ(board().chip_register(0x24), 0x1C07);
}

TEST_F(SpiFrames, InitRegProgramsTheDefaultTableAndTheIntervals) {
    uint32_t result = 0;
    EXPECT_EQ(captured([&] { result = InitReg(); }), "");
    EXPECT_EQ(result, 101000u);
    const auto writes = board().register_writes();
    ASSERT_EQ(writes.size(), REG_MOTOR_ENTRIES + 2u);
    for (int i = 0; i < REG_MOTOR_ENTRIES; ++i) {
        EXPECT_EQ(writes[i].addr, reg_motor[i][0]);
        EXPECT_EQ(writes[i].value, reg_motor[i][1] << 8 | reg_motor[i][2]);
    }
    EXPECT_EQ(board().chip_register(0x0B), 0x0480);  // written twice, the last one stays
    EXPECT_EQ(board().chip_register(0x25), 400);
    EXPECT_EQ(board().chip_register(0x2A), 400);
    // A register that does not read back is reported with its entry and goes on.
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x21});
    EXPECT_THAT(captured([] { InitReg(); }),
                HasSubstr("] Spi_RW err, (2/20) fd:" + std::to_string(gSpiDev.fd) +
                          ", gpio:120, /dev/spidev1.0, addr: 0x61, setval: 0x0087, getval: "
                          "0x0086\n"));
}

}  // namespace
}  // namespace zoomaf::test
