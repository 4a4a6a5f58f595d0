// The register writes of the run engine, VD pulses and the period timing.
#include <gmock/gmock.h>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

TEST(PeriodTimes, PulsesAtTwentySevenMegahertzPlusMargin) {
    EXPECT_EQ(GetTimes(16, 0), 6688u);  // intct 0 counts as 400: 6400 x 24 / 27 + 1000
    EXPECT_EQ(GetTimes(0, 400), 1000u);
    EXPECT_EQ(GetTimes(255, 65535), 14855600u);  // no overflow at the extremes
    EXPECT_EQ(GetOneLoopTimes(7, 400), 3488u);   // 2488.9 + 1000
    EXPECT_EQ(GetOneLoopTimes(8, 400), 3344u);   // 2844.4 + 500
}

using Registers = MotorTest;

TEST_F(Registers, PsumWordsCarryTheDefaultHighByteAndTheDirection) {
    bring_up();
    EXPECT_EQ(SetReg_Psum(16, 1, MOTOR_FOCUS), 101000u);  // success is 101000, not 0
    EXPECT_EQ(SetReg_Psum(3, 2, MOTOR_ZOOM), 101000u);    // only 1 sets the direction bit
    EXPECT_EQ(board().chip_register(0x24), 0x1D10);
    EXPECT_EQ(board().chip_register(0x29), 0x1C03);
    // On an MS41908 module the address globals swap the channels.
    reg_addr_psum_f = 0x29;
    reg_addr_intct_f = 0x2A;
    EXPECT_EQ(SetRunReg(8, 500, 1, MOTOR_FOCUS), 202000u);
    EXPECT_EQ(board().chip_register(0x29), 0x1D08);
    EXPECT_EQ(board().chip_register(0x2A), 500);
}

TEST_F(Registers, FailuresAndBadMotors) {
    bring_up();
    EXPECT_EQ(SetReg(16, 400, 1, 2, 1), 0xFFFFFFFFu);  // motor 2 writes nothing
    EXPECT_TRUE(board().register_writes().empty());
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x25});
    quietly([] { EXPECT_EQ(SetRunReg(16, 400, 1, MOTOR_FOCUS), 0xFFFFFFFFu); });
    EXPECT_EQ(board().chip_register(0x24), 0x1D10);  // psum went out before intct failed
    EXPECT_EQ(GetCurSteps(5), 32767);
}

TEST_F(Registers, StepsPerPeriodAreBoundedAndGuarded) {
    EXPECT_EQ(SetVDSteps(0, 60), 0);
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].steps_vd, 56);
    EXPECT_EQ(SetVDSteps(2, 8), 2);
    EXPECT_EQ(SetVDSteps(1, 0), 2);
    gRunData.running = 1;
    EXPECT_EQ(SetVDSteps(1, 4), 1);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].steps_vd, 0);
}

using VdPulses = MotorTest;

TEST_F(VdPulses, BothSlotsPulseTheOneLineOnce) {
    bring_up();
    EXPECT_EQ(SetVDGpio(3), 1);
    EXPECT_EQ(SetVDGpio(0), 1);
    EXPECT_EQ(board().vd_pulses(), 1u);
    std::string levels;
    for (const auto& w : recorder().writes_to("/sys/class/gpio/gpio26/value")) levels += w.bytes;
    EXPECT_EQ(levels, "1100");  // high, high, low, low
}

TEST_F(VdPulses, OnePeriodMovesOneMotorAndStopsItsChannel) {
    bring_up();
    board().set_motor_position(twin::Motor::focus, 100);
    uint64_t slept = board().slept_ns();
    EXPECT_EQ(StartMotorRun(16, 400, 1, MOTOR_FOCUS), 202000u);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 116);
    EXPECT_EQ(board().chip_register(0x24), 0x1D00);
    EXPECT_EQ(board().chip_register(0x25), 0);
    // Four verified writes, the VD pulse and the period wait of 6688 us + 1.515 ms.
    EXPECT_EQ(board().slept_ns() - slept, 4 * 203000u + 1u + 6688000u + 1515000u);
    EXPECT_EQ(board().timing_faults(), 0u);

    board().set_motor_position(twin::Motor::zoom, 0);
    gSpiDev.vd_ms = 25;
    slept = board().slept_ns();
    SetRegAndRun(2, 400, 1, 0, MOTOR_ZOOM);  // no time given: the VD period
    EXPECT_EQ(board().slept_ns() - slept, 4 * 203000u + 1u + 25000000u + 1515000u);
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), -2);  // zoom goes down with 1

    const std::string out = captured([] { EXPECT_EQ(StartMotorRun(0, 400, 1, MOTOR_FOCUS), 0u); });
    EXPECT_THAT(out, HasSubstr("[StartMotorRun] ["));
    EXPECT_THAT(out, HasSubstr("] warn, psum: 0 <  1, motorid: 1, dir: 1, vd_ms: 25, order: 0x0, "
                               "return\n"));
    EXPECT_EQ(board().vd_pulses(), 2u);
}

}  // namespace
}  // namespace zoomaf::test
