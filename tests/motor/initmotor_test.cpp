// Initmotor on the twin: the driver type from the module memory, the result bits, homing on
// the photo-interrupter edges of both module types, and UnInitmotor.
#include <gmock/gmock.h>

#include <tuple>

#include "tests/support/twin_test.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using twin::FaultRule;

// What a module memory's valid byte and motor id select.
struct ModuleCase {
    uint8_t valid, motor_id;
    bool ms41908_layout;
    uint32_t status, reported_id;
    bool pi_active_low;
    const char* message;
    int times;
};

class ModuleIdentification : public TwinTest, public ::testing::WithParamInterface<ModuleCase> {
protected:
    twin::BoardConfig board_config() override {
        return {.module_valid = GetParam().valid, .module_motor_id = GetParam().motor_id};
    }
};

TEST_P(ModuleIdentification, SelectsTheChannelLayoutAndPolarity) {
    const ModuleCase& c = GetParam();
    EXPECT_EQ(call([] { return Initmotor(10, 0); }), c.status);
    const auto layout =
        std::tuple(reg_addr_psum_f, reg_addr_intct_f, reg_addr_psum_z, reg_addr_intct_z);
    EXPECT_EQ(layout, c.ms41908_layout ? std::tuple(0x29, 0x2A, 0x24, 0x25)
                                       : std::tuple(0x24, 0x25, 0x29, 0x2A));
    EXPECT_EQ(moVersion.motor_id, c.reported_id);
    for (int line : {22, 24})
        EXPECT_EQ(with<twin::GpioBank>([&](auto& g) { return g.active_low(line); }),
                  c.pi_active_low);
    EXPECT_EQ(occurrences(output_, c.message), c.times) << output_;
}

INSTANTIATE_TEST_SUITE_P(
    EveryValidByteAndMotorId, ModuleIdentification,
    ::testing::Values(
        ModuleCase{1, 1, false, 0, 1, false, "] motor is ms41928!motor_id is 1\r\n\r\n\r\n", 1},
        ModuleCase{1, 2, true, 0, 2, true, "motor is ms41908!motor_id is 2, readdata eeprom is 2. ",
                   1},
        ModuleCase{1, 16, true, 0, 2, true, "readdata eeprom is 16. ", 1},
        ModuleCase{1, 5, false, 1, 0, true,
                   "eeprom Invalid is 1, Module ID fail, user MS41928 config!\n", 3},
        ModuleCase{16, 2, true, 0, 2, true, "\r\n\r\n\r\nmotor is ms41908!motor_id is 2\r\n", 1},
        ModuleCase{2, 16, false, 1, 0, true,
                   "eeprom Invalid is 2, Module ID fail, user MS41928 config!\n", 3},
        ModuleCase{7, 2, false, 1, 0, false, "] eeprom is Invalid, user MS41928 config!\n", 3}));

using Initialisation = TwinTest;

// A missing SPI device is reported and the rest goes on; UnInitmotor releases everything.
TEST_F(Initialisation, AShortVdPeriodIsRaisedAMissingSpiDeviceReportedAndAllReleased) {
    board().inject({.op = FaultRule::Op::open, .target = "/dev/spidev1.0", .error = ENOENT});
    EXPECT_EQ(call([] { return Initmotor(5, 0); }), uint32_t{INITMOTOR_SPI_FAILED});
    EXPECT_EQ(gSpiDev.vd_ms, 10);
    EXPECT_EQ(vd_pulses(), 0u) << "nothing homed";
    for (const char* line : {"] start init motorn get motor version\n",
                             "] start InitMOTOR, ZOOM Duty cycle is 1.000000; FOCUS Duty cycle "
                             "is 1.000000.\r\n",
                             "] PCB version is 3576, code version is 1.8\n", "] InitMOTOR, end\n"})
        EXPECT_THAT(output_, HasSubstr(line));
    EXPECT_TRUE(with<twin::GpioBank>([](auto& g) { return g.direction_out(120); }));
    EXPECT_EQ(gFocusParam.rows, 76);
    lastdirection[1] = 1;
    curteps = 7;
    quietly([] { ASSERT_EQ(InitSpi(), 0); });
    UnInitmotor();
    EXPECT_EQ(
        std::tuple(gSpiDev.fd, gFocusParam.rows, gRunData.init_flag, lastdirection[1], curteps),
        std::tuple(0, 0, 0, 0, 0u));  // the descriptor zeroed, not -1
    gSpiDev.fd = -1;
}

TEST_F(Initialisation, ModuleMemoryAccessReportsItsFailures) {
    EXPECT_EQ(write_imx586_eeprom_reg(9, 0x50, 0x0100, 0xAB), 0);
    EXPECT_EQ(with<twin::ModuleEeprom>([](auto& m) { return m.byte(0x0100); }), 0xAB);
    uint8_t value = 0;
    EXPECT_EQ(read_imx586_eeprom_reg(9, 0x50, 0x0100, &value), 0);
    EXPECT_EQ(value, 0xAB);

    board().inject({.op = FaultRule::Op::open, .target = "/dev/i2c-9", .count = 2});
    EXPECT_EQ(call([&] { return read_imx586_eeprom_reg(9, 0x50, 1, &value); }), -1);
    EXPECT_EQ(output_, "open iic-9 fail!\r\n");
    EXPECT_EQ(call([] { return write_imx586_eeprom_reg(9, 0x50, 1, 2); }), -1);
    EXPECT_EQ(output_, "open iic-8 fail!\r\n");
    value = 0x55;
    EXPECT_EQ(call([&] { return read_imx586_eeprom_reg(9, 0x51, 0x0203, &value); }), -1);
    EXPECT_EQ(output_, "fail! ioctl read error addr:0x203,ret:-1\r\n");
    EXPECT_EQ(value, 0x55);  // untouched on failure
    EXPECT_EQ(call([] { return write_imx586_eeprom_reg(9, 0x51, 0x0203, 7); }), -1);
    EXPECT_EQ(output_,
              "\r\n~ioctl write add 0x51 error addr:0x0203, weitr data is 0x07, ret:-1\r\n");
}

class HomingFailure : public TwinTest {
protected:
    twin::BoardConfig board_config() override { return {.zoom_start = -300, .focus_start = 200}; }
    void set_stuck(twin::Motor motor, std::optional<int> level) {
        with<twin::PhotoInterrupter>(motor, [&](auto& pi) { pi.set_stuck(level); });
    }
};

TEST_F(HomingFailure, AStuckInterrupterSetsItsMotorsBitAndBothOnlyBit16) {
    expect_position_error();  // a motor that never found its edge is anywhere
    const struct {
        std::optional<int> zoom, focus;
        uint32_t status;
    } cases[] = {{0, std::nullopt, INITMOTOR_ZOOM_HOMING_FAILED},
                 {std::nullopt, 1, INITMOTOR_FOCUS_HOMING_FAILED},
                 {1, 0, INITMOTOR_BOTH_HOMING_FAILED}};
    for (const auto& c : cases) {
        set_stuck(twin::Motor::zoom, c.zoom);
        set_stuck(twin::Motor::focus, c.focus);
        EXPECT_EQ(call([] { return Initmotor(10, 1); }), c.status);
        if (c.status == INITMOTOR_ZOOM_HOMING_FAILED) {
            EXPECT_THAT(output_, HasSubstr("] check pi faild, motor id: 0, cur gpio: 0"));
            EXPECT_THAT(output_, HasSubstr("] check pi succeed, motor id: 1"));
        }
        board().close(gSpiDev.fd);
        gSpiDev.fd = -1;
    }
}

}  // namespace
}  // namespace zoomaf::test
