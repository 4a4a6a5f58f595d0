// Pin names and the sysfs GPIO access of the driver.
#include <gmock/gmock.h>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using PinNames = MotorTest;

TEST_F(PinNames, BoardPinsMapToTheirSysfsNumbers) {
    std::string out = captured([] {
        EXPECT_EQ(RK3588_GPIO("GPIO3_D0"), 120);
        EXPECT_EQ(RK3588_GPIO("GPIO0_D2"), 26);
        EXPECT_EQ(RK3588_GPIO("GPIO0_C6"), 22);
        EXPECT_EQ(RK3588_GPIO("GPIO0_D0"), 24);
    });
    EXPECT_THAT(out, HasSubstr("\n GPIO3_D0 gpio pin is 120 "));
}

TEST_F(PinNames, BadNamesAreRefusedWithTheirMessage) {
    EXPECT_EQ(captured([] { EXPECT_EQ(RK3588_GPIO("GPIO"), -1); }), "it`s not gpio!!\r\n");
    EXPECT_EQ(captured([] { EXPECT_EQ(RK3588_GPIO("GPIO1_E3"), -1); }), "GPIO GROUP ERROR!!\r\n");
    EXPECT_EQ(captured([] { EXPECT_EQ(RK3588_GPIO("GPIO3_d0"), -1); }), "GPIO GROUP ERROR!!\r\n");
    // A short name ends where it ends: a group error, not a read past its end.
    EXPECT_EQ(captured([] { EXPECT_EQ(RK3588_GPIO("GPIO3"), -1); }), "GPIO GROUP ERROR!!\r\n");
}

TEST_F(PinNames, OnlyThePositionsAreExamined) {
    quietly([] { EXPECT_EQ(RK3588_GPIO("GPIO1-B7xyz"), 1 * 32 + 8 + 7); });
}

using GpioAccess = MotorTest;

TEST_F(GpioAccess, ExportWritesThreeBytesOnlyWhenTheLineIsUnreadable) {
    std::string out = captured([] { Gpio_SetGpio(26); });
    EXPECT_THAT(out, HasSubstr("port: 26\n"));
    EXPECT_TRUE(board().gpio_exported(26));
    auto exports = recorder().writes_to("/sys/class/gpio/export");
    ASSERT_EQ(exports.size(), 1u);
    EXPECT_EQ(exports[0].bytes, std::string("26\0", 3));

    recorder().clear();
    out = captured([] { Gpio_SetGpio(26); });
    EXPECT_THAT(out, ::testing::Not(HasSubstr("port:")));
    EXPECT_TRUE(recorder().writes_to("/sys/class/gpio/export").empty());

    quietly([] { Gpio_SetGpio(120); });
    exports = recorder().writes_to("/sys/class/gpio/export");
    ASSERT_EQ(exports.size(), 1u);
    EXPECT_EQ(exports[0].bytes, "120");
}

TEST_F(GpioAccess, DirectionAndPolarityWriteExactBytes) {
    quietly([] {
        Gpio_SetGpio(24);
        Gpio_SetDirection(24, 1);
        Gpio_SetDirection(24, 7);  // anything but 1 is an input
        Gpio_SetActive(24, 1);
        Gpio_SetActive(24, 2);
    });
    const auto direction = recorder().writes_to("/sys/class/gpio/gpio24/direction");
    ASSERT_EQ(direction.size(), 2u);
    EXPECT_EQ(direction[0].bytes, "out");
    EXPECT_EQ(direction[1].bytes, std::string("in\0", 3));
    const auto active_low = recorder().writes_to("/sys/class/gpio/gpio24/active_low");
    ASSERT_EQ(active_low.size(), 2u);
    EXPECT_EQ(active_low[0].bytes, std::string("1\0\0", 3));
    EXPECT_EQ(active_low[1].bytes, std::string("0\0\0", 3));
    EXPECT_FALSE(board().gpio_active_low(24));
    EXPECT_FALSE(board().gpio_direction_out(24));
}

TEST_F(GpioAccess, ValueWritesOneByteAndOnlyOneMeansHigh) {
    quietly([] {
        Gpio_SetGpio(120);
        Gpio_SetDirection(120, 1);
        Gpio_SetValue(120, 1);
    });
    EXPECT_EQ(board().gpio_physical(120), 1);
    quietly([] { Gpio_SetValue(120, 2); });
    EXPECT_EQ(board().gpio_physical(120), 0);
    const auto values = recorder().writes_to("/sys/class/gpio/gpio120/value");
    ASSERT_EQ(values.size(), 2u);
    EXPECT_EQ(values[0].bytes, "1");
    EXPECT_EQ(values[1].bytes, "0");
}

TEST_F(GpioAccess, ReadingAnUnexportedLineFailsTwiceWithItsSleeps) {
    const uint64_t slept_before = board().slept_ns();
    int value = 0;
    std::string out = captured([&] { value = Gpio_GetValue(22); });
    EXPECT_EQ(value, -1);
    EXPECT_EQ(board().slept_ns() - slept_before, 2u * (15000 + 3000));
    EXPECT_THAT(out, HasSubstr("GetGPIO, Failed to open gpio(22) value for reading!\n"));
    EXPECT_EQ(recorder().opens(), std::vector<std::string>(2, "/sys/class/gpio/gpio22/value"));
}

TEST_F(GpioAccess, AReadableLineIsStillReadTwiceAndTheSecondReadCounts) {
    board().set_motor_position(twin::Motor::zoom, 100);  // positive side: the PI is lit
    quietly([] {
        Gpio_SetGpio(22);
        Gpio_SetDirection(22, 0);
    });
    recorder().clear();
    const uint64_t slept_before = board().slept_ns();
    EXPECT_EQ(Gpio_GetValue(22), 1);
    EXPECT_EQ(board().slept_ns() - slept_before, 2u * 3000);
    EXPECT_EQ(recorder().opens().size(), 2u);

    // The first read fails, the second one succeeds: the value is the second one's.
    board().inject({.op = twin::FaultRule::Op::read, .path = "/sys/class/gpio/gpio22/value"});
    quietly([] { EXPECT_EQ(Gpio_GetValue(22), 1); });
    // The first read succeeds, the second one fails: -1 although a level was read.
    board().inject(
        {.op = twin::FaultRule::Op::read, .path = "/sys/class/gpio/gpio22/value", .skip = 1});
    std::string out = captured([] { EXPECT_EQ(Gpio_GetValue(22), -1); });
    EXPECT_THAT(out, HasSubstr("Failed to read gpio(22) value!\n"));
}

TEST_F(GpioAccess, WriteFailuresAreReportedAndNothingStops) {
    board().inject({.op = twin::FaultRule::Op::open, .path = "/sys/class/gpio/export"});
    EXPECT_EQ(captured([] { Gpio_SetGpio(26); }).find("export open filed\n") != std::string::npos,
              true);
    EXPECT_FALSE(board().gpio_exported(26));

    quietly([] { Gpio_SetGpio(26); });
    board().inject({.op = twin::FaultRule::Op::write, .path = "/sys/class/gpio/gpio26/direction"});
    EXPECT_THAT(captured([] { Gpio_SetDirection(26, 1); }),
                HasSubstr("Failed to gpio(26) write direction!\n"));
    EXPECT_THAT(captured([] { Gpio_SetValue(27, 1); }),
                HasSubstr("SetGPIO, Failed to open gpio: 27, value for reading!\n"));
    EXPECT_THAT(captured([] { Gpio_SetDirection(27, 1); }), HasSubstr("direction open filed\n"));
    EXPECT_THAT(captured([] { Gpio_SetActive(27, 1); }), HasSubstr("active_low open filed\n"));
    // The line is still an input: writing its value is refused by the kernel.
    EXPECT_THAT(captured([] { Gpio_SetValue(26, 1); }), HasSubstr("Failed to write value!\n"));
}

TEST_F(GpioAccess, InitGpioSetsThePhotoInterrupterPolarityByModuleType) {
    bring_up(2);
    EXPECT_TRUE(board().gpio_active_low(kZoomPi));
    EXPECT_TRUE(board().gpio_active_low(kFocusPi));
    EXPECT_TRUE(board().gpio_direction_out(kChipSelect));
    EXPECT_TRUE(board().gpio_direction_out(kVd));
    EXPECT_FALSE(board().gpio_direction_out(kZoomPi));

    std::string out = captured([] { InitGPIO(1); });
    EXPECT_THAT(out, HasSubstr("init gpio zoom ip is low 0\n"));
    EXPECT_FALSE(board().gpio_active_low(kZoomPi));
    quietly([] { InitGPIO(3); });  // an unknown id leaves the polarity alone
    EXPECT_FALSE(board().gpio_active_low(kFocusPi));
}

// Each module type with the polarity its motor id sets: the reading is 1 on the positive side
// of the edge on both, although the raw lines are opposite.
class PhotoInterrupters : public MotorTest, public ::testing::WithParamInterface<twin::DriverType> {
protected:
    twin::BoardConfig board_config() override { return {.driver = GetParam()}; }
};

TEST_P(PhotoInterrupters, ReadOnePastTheEdge) {
    bring_up(GetParam() == twin::DriverType::ms41928 ? 1 : 2);
    board().set_motor_position(twin::Motor::focus, 5);
    board().set_motor_position(twin::Motor::zoom, -5);
    EXPECT_EQ(GetCurGPIO(MOTOR_FOCUS), 1);
    EXPECT_EQ(GetCurGPIO(MOTOR_ZOOM), 0);
    board().set_motor_position(twin::Motor::focus, -1);
    board().set_motor_position(twin::Motor::zoom, 0);
    EXPECT_EQ(GetCurGPIO(MOTOR_FOCUS), 0);
    EXPECT_EQ(GetCurGPIO(MOTOR_ZOOM), 1);
}

INSTANTIATE_TEST_SUITE_P(BothModules, PhotoInterrupters,
                         ::testing::Values(twin::DriverType::ms41928, twin::DriverType::ms41908));

TEST_F(GpioAccess, GetCurGpioRefusesABadMotorWithoutReading) {
    EXPECT_EQ(GetCurGPIO(2), 2);
    EXPECT_TRUE(recorder().opens().empty());
    quietly([] { InitAttr(10); });
    std::string out = captured([] { EXPECT_EQ(GetCurGPIO(MOTOR_ZOOM), 2); });
    EXPECT_THAT(out, HasSubstr("motor id: 0, read gpio error 1\n"));
}

}  // namespace
}  // namespace zoomaf::test
