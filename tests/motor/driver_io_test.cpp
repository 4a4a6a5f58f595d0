// The driver's access to its hardware: pin names and sysfs GPIO, the register frames on the
// SPI bus, the run registers, VD pulses and the period timing.
#include <gmock/gmock.h>
#include <atomic>
#include <chrono>
#include <thread>
#include <tuple>

#include "tests/support/twin_test.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using twin::FaultRule;

TEST(PinNames, MapToSysfsNumbersOrAreRefused) {
    const std::tuple<const char*, int, const char*> cases[] = {
        {"GPIO3_D0", 120, "\n GPIO3_D0 gpio pin is 120 "},
        {"GPIO0_C6", 22, nullptr},
        {"GPIO", -1, "it`s not gpio!!\r\n"},
        {"GPIO1_E3", -1, "GPIO GROUP ERROR!!\r\n"},
        {"GPIO3_d0", -1, "GPIO GROUP ERROR!!\r\n"},  // capitals only
        {"GPIO3", -1, "GPIO GROUP ERROR!!\r\n"},     // ends before its group: not read past
    };
    for (const auto& [name, number, message] : cases) {
        int result = 0;
        const std::string out = captured([&] { result = RK3588_GPIO(name); });
        EXPECT_EQ(result, number) << name;
        EXPECT_EQ(out, message != nullptr ? message : out) << name;
    }
}

using GpioAccess = TwinTest;

TEST_F(GpioAccess, ReadsAreDoubledWithTheirSleepsAndTheSecondCounts) {
    // An unexported line: two failed attempts, 2 x (15 + 3) us.
    uint64_t slept = slept_ns();
    EXPECT_EQ(call([] { return Gpio_GetValue(22); }), -1);
    EXPECT_EQ(slept_ns() - slept, 36000u);
    EXPECT_THAT(output_, HasSubstr("] GetGPIO, Failed to open gpio(22) value for reading!\n"));
    EXPECT_EQ(recorder().opens(), std::vector<std::string>(2, "/sys/class/gpio/gpio22/value"));

    place_motor(twin::Motor::zoom, 100);  // past the edge: lit
    quietly([] { Gpio_SetGpio(22); });
    EXPECT_EQ(recorder().writes_to("/sys/class/gpio/export").at(0).bytes, std::string("22\0", 3));
    slept = slept_ns();
    EXPECT_EQ(Gpio_GetValue(22), 1);
    EXPECT_EQ(slept_ns() - slept, 6000u);  // still read twice
    // Only the second read counts, whichever of the two fails.
    const FaultRule failed_read{.op = FaultRule::Op::read,
                                .target = "/sys/class/gpio/gpio22/value"};
    board().inject(failed_read);
    EXPECT_EQ(call([] { return Gpio_GetValue(22); }), 1);
    FaultRule second = failed_read;
    second.skip = 1;
    board().inject(second);
    EXPECT_EQ(call([] { return Gpio_GetValue(22); }), -1);
    EXPECT_THAT(output_, HasSubstr("Failed to read gpio(22) value!\n"));
}

TEST_F(GpioAccess, FailuresAreReportedAndNothingStops) {
    board().inject({.op = FaultRule::Op::open, .target = "/sys/class/gpio/export"});
    board().inject({.op = FaultRule::Op::write, .target = "/sys/class/gpio/gpio26/direction"});
    const struct {
        void (*step)();
        const char* message;
    } steps[] = {
        {[] { Gpio_SetGpio(26); }, "export open filed\n"},
        {[] { Gpio_SetGpio(26); }, "] port: 26\n"},
        {[] { Gpio_SetDirection(26, 1); }, "Failed to gpio(26) write direction!\n"},
        {[] { Gpio_SetValue(26, 1); }, "Failed to write value!\n"},  // an input refuses
        {[] { Gpio_SetValue(27, 1); }, "] SetGPIO, Failed to open gpio: 27, value for reading!\n"},
        {[] { Gpio_SetDirection(27, 1); }, "direction open filed\n"},
        {[] { Gpio_SetActive(27, 1); }, "active_low open filed\n"},
    };
    for (const auto& s : steps) {
        call(s.step);
        EXPECT_THAT(output_, HasSubstr(s.message));
    }
}

TEST_F(GpioAccess, AFailedInterrupterReadIsReportedAndABadMotorNotRead) {
    quietly([] { InitAttr(10); });
    EXPECT_EQ(call([] { return GetCurGPIO(MOTOR_ZOOM); }), 2);
    EXPECT_THAT(output_, HasSubstr("] motor id: 0, read gpio error 1\n"));
    EXPECT_EQ(GetCurGPIO(2), 2);  // a bad motor, without reading
}

class Driver : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver();
    }
    static uint32_t write_reg(uint16_t addr, uint16_t value) {
        return Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, addr, value);
    }
    int chip_select() {
        return with<twin::GpioBank>([](auto& gpio) { return gpio.physical(120); });
    }
};

// The chip records frames outside chip select and the fixture checks the pauses' sum; here
// the failures: a read-back that differs, a failed transfer that skips its pause.
TEST_F(Driver, FailedTransfersAndReadBacksAreReportedAndTheBusLockHoldsOffFrames) {
    board().inject({.op = FaultRule::Op::readback, .reg = 0x24});
    EXPECT_EQ(call([] { return Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, 0x24, 0x1C05); }),
              0xFFFFFFFFu);
    EXPECT_THAT(output_, HasSubstr("[Spi_Write_Reg] ["));
    EXPECT_THAT(output_,
                HasSubstr("] Spi_RW err, fd:" + std::to_string(gSpiDev.fd) +
                          ", /dev/spidev1.0, addr: 0x24, setval: 0x1c05, getval: 0x1c04\n"));
    board().inject({.op = FaultRule::Op::ioctl, .target = "/dev/spidev1.0"});
    const uint64_t slept = slept_ns();
    EXPECT_EQ(call([] { return write_reg(0x24, 0x1C05); }), 0xFFFFFFFFu);
    EXPECT_EQ(output_, "can't send spi message");
    EXPECT_EQ(slept_ns() - slept, 1000u);  // only the chip-select settle time
    EXPECT_EQ(chip_select(), 0);

    spi_try_lock();
    std::atomic<bool> done{false};
    std::thread writer([&] {
        write_reg(0x24, 0x1C07);
        done = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(done.load());
    EXPECT_EQ(chip_select(), 0) << "not even chip select moved";
    spi_unlock();
    writer.join();
    EXPECT_EQ(chip_reg(0x24), 0x1C07);
}

TEST(PeriodTimes, PulsesAtTwentySevenMegahertzPlusMargin) {
    EXPECT_EQ(GetTimes(16, 0), 6688u);           // intct 0 counts as 400: 6400 x 24 / 27 + 1000
    EXPECT_EQ(GetTimes(255, 65535), 14855600u);  // no overflow at the extremes
    EXPECT_EQ(GetOneLoopTimes(7, 400), 3488u);   // 2488.9 + 1000
    EXPECT_EQ(GetOneLoopTimes(8, 400), 3344u);   // 2844.4 + 500
}

TEST_F(Driver, FailuresBadMotorsAndStepsPerPeriod) {
    EXPECT_EQ(SetReg(16, 400, 1, 2, 1), 0xFFFFFFFFu);  // motor 2 writes nothing
    EXPECT_TRUE(with<twin::DriverChip>([](auto& chip) { return chip.register_writes().empty(); }));
    EXPECT_EQ(SetReg_Psum(3, 2, MOTOR_ZOOM), 101000u);  // success is 101000, not 0
    EXPECT_EQ(chip_reg(0x29), 0x1C03);                  // only 1 sets the direction bit
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x25});
    EXPECT_EQ(call([] { return SetRunReg(16, 400, 1, MOTOR_FOCUS); }), 0xFFFFFFFFu);
    EXPECT_EQ(chip_reg(0x24), 0x1D10);  // psum went out before intct failed
    EXPECT_EQ(GetCurSteps(5), 32767);

    EXPECT_EQ(SetVDSteps(0, 60), 0);
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].steps_vd, 56);
    EXPECT_EQ(SetVDSteps(2, 8), 2);
    EXPECT_EQ(SetVDSteps(1, 0), 2);
    const uint16_t before = gRunData.motor[MOTOR_FOCUS].steps_vd;
    gRunData.running = 1;
    EXPECT_EQ(SetVDSteps(1, 4), 1);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].steps_vd, before);
    gRunData.running = 0;
}

TEST_F(Driver, BothVdSlotsPulseTheOneLineOnceAndOnePeriodMovesOneMotor) {
    EXPECT_EQ(SetVDGpio(3), 1);
    EXPECT_EQ(SetVDGpio(0), 1);
    std::string levels;
    for (const auto& w : recorder().writes_to("/sys/class/gpio/gpio26/value")) levels += w.bytes;
    EXPECT_EQ(levels, "1100");  // high, high, low, low: one pulse

    place_motor(twin::Motor::focus, 100);
    uint64_t slept = slept_ns();
    EXPECT_EQ(StartMotorRun(16, 400, 1, MOTOR_FOCUS), 202000u);
    EXPECT_EQ(motor_at(twin::Motor::focus), 116);
    EXPECT_EQ(chip_reg(0x24), 0x1D00);
    EXPECT_EQ(chip_reg(0x25), 0);
    // Four verified writes, the VD pulse and the period wait of 6688 us + 1.515 ms.
    EXPECT_EQ(slept_ns() - slept, 4 * 203000u + 1u + 6688000u + 1515000u);

    place_motor(twin::Motor::zoom, 0);
    gSpiDev.vd_ms = 25;
    slept = slept_ns();
    SetRegAndRun(2, 400, 1, 0, MOTOR_ZOOM);  // no time given: the VD period
    EXPECT_EQ(slept_ns() - slept, 4 * 203000u + 1u + 25000000u + 1515000u);
    EXPECT_EQ(motor_at(twin::Motor::zoom), -2);  // zoom goes down with 1

    EXPECT_EQ(call([] { return StartMotorRun(0, 400, 1, MOTOR_FOCUS); }), 0u);
    EXPECT_THAT(output_, HasSubstr("[StartMotorRun] ["));
    EXPECT_THAT(output_, HasSubstr("] warn, psum: 0 <  1, motorid: 1, dir: 1, vd_ms: 25, "
                                   "order: 0x0, return\n"));
    EXPECT_EQ(vd_pulses(), 3u);
    // The single periods move the motors without the driver keeping count.
    expect_position_error();
}

}  // namespace
}  // namespace zoomaf::test
