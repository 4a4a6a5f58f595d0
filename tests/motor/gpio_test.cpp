// Pin names and the sysfs GPIO access of the driver.
#include <gmock/gmock.h>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

TEST(PinNames, MapToSysfsNumbersOrAreRefused) {
    const struct {
        const char* name;
        int number;
        const char* message;
    } cases[] = {
        {"GPIO3_D0", 120, "\n GPIO3_D0 gpio pin is 120 "},
        {"GPIO0_D2", 26, nullptr},
        {"GPIO0_C6", 22, nullptr},
        {"GPIO0_D0", 24, nullptr},
        {"GPIO", -1, "it`s not gpio!!\r\n"},
        {"GPIO1_E3", -1, "GPIO GROUP ERROR!!\r\n"},
        {"GPIO3_d0", -1, "GPIO GROUP ERROR!!\r\n"},  // capitals only
        {"GPIO3", -1, "GPIO GROUP ERROR!!\r\n"},     // ends before its group: not read past
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        int number = 0;
        const std::string out = captured([&] { number = RK3588_GPIO(c.name); });
        EXPECT_EQ(number, c.number);
        if (c.message != nullptr) {
            EXPECT_EQ(out, c.message);
        }
    }
}

using GpioAccess = MotorTest;

TEST_F(GpioAccess, ExportWritesThreeBytesOnlyWhenTheLineIsUnreadable) {
    EXPECT_THAT(captured([] { Gpio_SetGpio(26); }), HasSubstr("] port: 26\n"));
    quietly([] { Gpio_SetGpio(26); });  // readable now: nothing is written
    quietly([] { Gpio_SetGpio(120); });
    const auto exports = recorder().writes_to("/sys/class/gpio/export");
    ASSERT_EQ(exports.size(), 2u);
    EXPECT_EQ(exports[0].bytes, std::string("26\0", 3));
    EXPECT_EQ(exports[1].bytes, "120");
    EXPECT_TRUE(board().gpio_exported(26));
}

TEST_F(GpioAccess, DirectionPolarityAndValueWriteExactBytes) {
    quietly([] {
        Gpio_SetGpio(120);
        Gpio_SetDirection(120, 7);  // anything but 1 is an input
        Gpio_SetDirection(120, 1);
        Gpio_SetActive(120, 1);
        Gpio_SetActive(120, 2);
        Gpio_SetValue(120, 1);
        Gpio_SetValue(120, 2);  // anything but 1 is low
    });
    const auto bytes = [&](const char* file) {
        std::string all;
        for (const auto& w : recorder().writes_to(std::string("/sys/class/gpio/gpio120/") + file))
            all += w.bytes + "|";
        return all;
    };
    EXPECT_EQ(bytes("direction"), std::string("in\0|out|", 8));
    EXPECT_EQ(bytes("active_low"), std::string("1\0\0|0\0\0|", 8));
    EXPECT_EQ(bytes("value"), "1|0|");
    EXPECT_TRUE(board().gpio_direction_out(120));
    EXPECT_EQ(board().gpio_physical(120), 0);
    EXPECT_EQ(board().gpio_edges(120).size(), 2u);
}

TEST_F(GpioAccess, ReadsAreDoubledWithTheirSleepsAndTheSecondCounts) {
    // An unexported line: two failed attempts, 2 x (15 + 3) us.
    uint64_t slept = board().slept_ns();
    std::string out = captured([] { EXPECT_EQ(Gpio_GetValue(22), -1); });
    EXPECT_EQ(board().slept_ns() - slept, 36000u);
    EXPECT_THAT(out, HasSubstr("] GetGPIO, Failed to open gpio(22) value for reading!\n"));
    EXPECT_EQ(recorder().opens(), std::vector<std::string>(2, "/sys/class/gpio/gpio22/value"));

    board().set_motor_position(twin::Motor::zoom, 100);  // past the edge: lit
    quietly([] { Gpio_SetGpio(22); });
    slept = board().slept_ns();
    EXPECT_EQ(Gpio_GetValue(22), 1);
    EXPECT_EQ(board().slept_ns() - slept, 6000u);  // still read twice
    // Only the second read counts, whichever of the two fails.
    const twin::FaultRule failed_read{.op = twin::FaultRule::Op::read,
                                      .path = "/sys/class/gpio/gpio22/value"};
    board().inject(failed_read);
    quietly([] { EXPECT_EQ(Gpio_GetValue(22), 1); });
    twin::FaultRule second = failed_read;
    second.skip = 1;
    board().inject(second);
    out = captured([] { EXPECT_EQ(Gpio_GetValue(22), -1); });
    EXPECT_THAT(out, HasSubstr("Failed to read gpio(22) value!\n"));
}

TEST_F(GpioAccess, FailuresAreReportedAndNothingStops) {
    board().inject({.op = twin::FaultRule::Op::open, .path = "/sys/class/gpio/export"});
    EXPECT_THAT(captured([] { Gpio_SetGpio(26); }), HasSubstr("export open filed\n"));
    EXPECT_FALSE(board().gpio_exported(26));
    quietly([] { Gpio_SetGpio(26); });
    board().inject({.op = twin::FaultRule::Op::write, .path = "/sys/class/gpio/gpio26/direction"});
    EXPECT_THAT(captured([] { Gpio_SetDirection(26, 1); }),
                HasSubstr("Failed to gpio(26) write direction!\n"));
    // Still an input: the kernel refuses a value.
    EXPECT_THAT(captured([] { Gpio_SetValue(26, 1); }), HasSubstr("Failed to write value!\n"));
    EXPECT_THAT(captured([] { Gpio_SetValue(27, 1); }),
                HasSubstr("] SetGPIO, Failed to open gpio: 27, value for reading!\n"));
    EXPECT_THAT(captured([] { Gpio_SetDirection(27, 1); }), HasSubstr("direction open filed\n"));
    EXPECT_THAT(captured([] { Gpio_SetActive(27, 1); }), HasSubstr("active_low open filed\n"));
}

// Each module type with the polarity its motor id sets reads 1 past the edge, although the
// raw lines are opposite.
class PhotoInterrupters : public MotorTest, public ::testing::WithParamInterface<twin::DriverType> {
protected:
    twin::BoardConfig board_config() override { return {.driver = GetParam()}; }
};

TEST_P(PhotoInterrupters, ReadOnePastTheEdge) {
    bring_up(GetParam() == twin::DriverType::ms41928 ? 1 : 2);
    EXPECT_EQ(board().gpio_active_low(kZoomPi), GetParam() == twin::DriverType::ms41908);
    for (int position : {-1, 0, 5}) {
        board().set_motor_position(twin::Motor::focus, position);
        board().set_motor_position(twin::Motor::zoom, -position);
        EXPECT_EQ(GetCurGPIO(MOTOR_FOCUS), position >= 0 ? 1 : 0) << position;
        EXPECT_EQ(GetCurGPIO(MOTOR_ZOOM), -position >= 0 ? 1 : 0) << position;
    }
    EXPECT_EQ(GetCurGPIO(2), 2);  // a bad motor, without reading
}

INSTANTIATE_TEST_SUITE_P(BothModules, PhotoInterrupters,
                         ::testing::Values(twin::DriverType::ms41928, twin::DriverType::ms41908));

TEST_F(GpioAccess, AFailedInterrupterReadIsReported) {
    quietly([] { InitAttr(10); });
    EXPECT_THAT(captured([] { EXPECT_EQ(GetCurGPIO(MOTOR_ZOOM), 2); }),
                HasSubstr("] motor id: 0, read gpio error 1\n"));
}

}  // namespace
}  // namespace zoomaf::test
