// Zoom and focus moves on the twin: clamps, plans, backlash compensation, refusals and the
// codes the callers rely on.
#include <gmock/gmock.h>

#include <cstring>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class Moves : public MotorTest {
protected:
    void SetUp() override {
        MotorTest::SetUp();
        std::memcpy(saved_registers_, reg_motor, sizeof reg_motor);
        bring_up();
        LoadParamList();
        board().set_motor_position(twin::Motor::zoom, 0);
        board().set_motor_position(twin::Motor::focus, 0);
    }
    void TearDown() override {
        std::memcpy(reg_motor, saved_registers_, sizeof reg_motor);
        REG_ADDR_PPW_F = REG_ADDR_PPW_Z = 0x80;
        MotorTest::TearDown();
    }

    template <class F>
    auto call(F&& f) {
        decltype(f()) result{};
        output_ = captured([&] { result = f(); });
        return result;
    }

    std::string output_;

private:
    uint8_t saved_registers_[REG_MOTOR_ENTRIES][3];
};

TEST_F(Moves, MultiplesOutOfRangeAreClampedAndReached) {
    EXPECT_EQ(call([] { return SetMultiple(0, 0, 3.4f); }) & 0xF, 8u);
    EXPECT_THAT(output_, HasSubstr("] warn, multiple: 3.400000 < MULTIPLE_MIN: 3.500000, set "
                                   "MULTIPLE_MIN\n"));
    EXPECT_FLOAT_EQ(gRunData.multiple_cur, 3.5f);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 1416);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -2574);  // focus goes to the low end without movefocus

    EXPECT_EQ(call([] { return SetMultiple(0, 0, 12.0f); }) & 0xF, 8u);
    EXPECT_THAT(output_, HasSubstr("] warn, multiple: 12.000000 > MULTIPLE_MAX: 11.000000, set "
                                   "MULTIPLE_MAX\n"));
    EXPECT_THAT(output_, HasSubstr("Set Multiple start : "));
    EXPECT_THAT(output_, HasSubstr("] zoom run time is "));
    EXPECT_FLOAT_EQ(gRunData.multiple_cur, 11.0f);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), -5392);
    // The zoom turned from up (0) to down (1): two backlash steps went out beyond the target.
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), -5394);
    EXPECT_EQ(board().timing_faults(), 0u);
    EXPECT_EQ(gRunData.motor_order, 0);
    EXPECT_EQ(gRunData.maxloops, 0);
}

TEST_F(Moves, TheSameMultipleWithoutFocusDoesNothing) {
    call([] { return SetMultiple(0, 0, 5.0f); });
    const uint64_t pulses = board().vd_pulses();
    const uint32_t result = call([] { return SetMultiple(0, 0, 5.0f); });
    EXPECT_EQ(result & 0xF, 0u);
    EXPECT_THAT(output_, HasSubstr("] warn, gRunData.multiple_cur: 5.000000 == multiple: "
                                   "5.000000, return 0\n"));
    EXPECT_EQ(board().vd_pulses(), pulses);
}

TEST_F(Moves, ARunInProgressRefusesEveryMove) {
    gRunData.running = 1;
    EXPECT_EQ(call([] { return SetMultiple(0, 0, 5.0f); }) & 0xF, 1u);
    EXPECT_THAT(output_, HasSubstr("] warn, motor running, return 1\n"));
    EXPECT_EQ(call([] { return SetFocusLens(100, 0); }), 1u);
    EXPECT_EQ(call([] { return SetFocusMotor(10.0f); }), 1u);
    EXPECT_EQ(call([] { return SetFocusSteps(100, 0, 5.0f); }), 1);
    EXPECT_THAT(output_, HasSubstr("] focussteps: 100, moveflag: 0, return motor running(1)\n"));
    EXPECT_EQ(call([] { return SetMultipleSteps(0, 0, 5.0f); }), 1);
    EXPECT_EQ(board().vd_pulses(), 0u);
}

TEST_F(Moves, TheZoomPlanPutsZoomFirstAndFocusSecond) {
    EXPECT_EQ(call([] { return SetMultipleSteps(0, 0, 3.5f); }), 0);
    const MotorRunState& zoom = gRunData.motor[MOTOR_ZOOM];
    const MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    EXPECT_EQ(gRunData.motor_order, 1 | 2 << 2);
    EXPECT_EQ(zoom.dst_steps, 1416);
    EXPECT_EQ(zoom.dir, 0);
    EXPECT_EQ(zoom.total_steps, 1416);
    EXPECT_EQ(zoom.loops, 89);  // 1416 / 16 rounded up
    EXPECT_EQ(zoom.last_psum, 8);
    EXPECT_EQ(focus.dst_steps, -2574);
    EXPECT_EQ(focus.loops, 322);  // 2574 / 8 rounded up
    EXPECT_EQ(focus.last_psum, 6);
    EXPECT_EQ(gRunData.maxloops, 322);
}

TEST_F(Moves, TurningAroundAddsTheBacklashSteps) {
    gRunData.motor[MOTOR_ZOOM].last_dir = 1;  // the zoom last went down, now it goes up
    call([] { return SetMultipleSteps(0, 0, 3.5f); });
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].total_steps, 1416);  // the distance, before compensation
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].loops, 89);
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].last_psum, 10);  // 1418 - 16 x 88
    gRunData.motor[MOTOR_FOCUS].last_dir = 1;
    gRunData.motor[MOTOR_FOCUS].compen_steps_forward = 5;
    call([] { return SetMultipleSteps(0, 0, 3.5f); });
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].loops, 323);  // 2579 / 8 rounded up
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].last_psum, 3);
}

TEST_F(Moves, TheZoomPlanTakesTheGivenFocusOnlyAboveTheDefault) {
    // The default (the low end) is at or below the current focus: any step above it counts.
    call([] { return SetMultipleSteps(-2574, 1, 5.0f); });
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, -2574);
    call([] { return SetMultipleSteps(-2573, 1, 5.0f); });
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, -2573);
    call([] { return SetMultipleSteps(500, 0, 5.0f); });  // without movefocus: the default
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, -2574);
    // The default above the current focus: the given step must clear it by more than 16.
    gRunData.motor[MOTOR_FOCUS].cur_steps = -3000;
    call([] { return SetMultipleSteps(-2558, 1, 5.0f); });
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, -2574);
    call([] { return SetMultipleSteps(-2557, 1, 5.0f); });
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, -2557);
}

TEST_F(Moves, FocusMovesToAnAbsoluteStep) {
    const uint64_t before = board().now_ns();
    const uint32_t result = call([] { return SetFocusLens(400, 0); });
    EXPECT_EQ(result & 0xF, 0u);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 400);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 400);
    EXPECT_EQ(board().vd_pulses(), 50u);
    // The elapsed microseconds ride above the code and match the board's clock.
    const uint64_t elapsed_us = (board().now_ns() - before) / 1000;
    EXPECT_NEAR(double(result >> 4), double(elapsed_us), 500.0);
    EXPECT_THAT(output_, HasSubstr("Set Focus start : "));
    EXPECT_THAT(output_, HasSubstr("Set Focus end : "));

    // Code 16 shares bit 4 with the elapsed time; nothing ran, so no time passed either.
    EXPECT_EQ(call([] { return SetFocusLens(400, 0); }), 16u);
    EXPECT_THAT(output_, HasSubstr("] warn, det steps(400) == cur steps(400), moveflag: 0, return "
                                   "ERR_NO(0)\n"));
}

TEST_F(Moves, AZeroRelativeMoveIsNotNeeded) {
    EXPECT_EQ(call([] { return SetFocusLens(0, 1); }), 16u);
    EXPECT_THAT(output_, HasSubstr("] warn, set focus:0 == 0, and moveflag: 1 > 0, return "
                                   "ERR_NO(0)\n"));
    EXPECT_EQ(board().vd_pulses(), 0u);
}

TEST_F(Moves, AFocusTargetOutOfRangeIsClampedAndNotRun) {
    EXPECT_EQ(call([] { return SetFocusLens(5000, 0); }) & 0xF, 4u);
    EXPECT_THAT(output_, HasSubstr("] warn, steps_dst:5000 > steps_max:3022, set max to dst, "
                                   "OUTOFRANGE(4)\n"));
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, 3022);
    EXPECT_EQ(board().vd_pulses(), 0u);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 0);
    EXPECT_EQ(call([] { return SetFocusSteps(-3000, 0, 5.0f); }), 4);
    EXPECT_THAT(output_, HasSubstr("] warn, steps_dst:-3000 < steps_min: -2574, set min to dst, "
                                   "OUTOFRANGE(4)\n"));
}

TEST_F(Moves, TheFocusPlanAddsNoCompensation) {
    gRunData.motor[MOTOR_FOCUS].last_dir = 0;
    EXPECT_EQ(call([] { return SetFocusSteps(21, 0, 5.0f); }), 0);
    const MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    EXPECT_EQ(focus.dir, 1);
    EXPECT_EQ(focus.loops, 3);  // 21 / 8 rounded up
    EXPECT_EQ(focus.last_psum, 5);
    EXPECT_EQ(gRunData.motor_order, 2);
    EXPECT_EQ(gRunData.maxloops, 3);
    // Relative moves take direction 1 for negative steps.
    gRunData.motor[MOTOR_FOCUS].cur_steps = 100;
    EXPECT_EQ(call([] { return SetFocusSteps(-30, 1, 5.0f); }), 0);
    EXPECT_EQ(focus.dst_steps, 70);
    EXPECT_EQ(focus.dir, 1);
    EXPECT_EQ(call([] { return SetFocusSteps(30, 1, 5.0f); }), 0);
    EXPECT_EQ(focus.dst_steps, 130);
    EXPECT_EQ(focus.dir, 0);
    // One step per period never rounds up.
    gRunData.motor[MOTOR_FOCUS].steps_vd = 1;
    call([] { return SetFocusSteps(107, 0, 5.0f); });
    EXPECT_EQ(focus.loops, 7);
}

TEST_F(Moves, FocusByDistanceUsesTheDoubledTableValue) {
    gRunData.multiple_cur = 7.4f;
    gRunData.motor[MOTOR_FOCUS].cur_steps = 100;
    board().set_motor_position(twin::Motor::focus, 100);
    // 50 m at x7.4 is 0 in the table: twice 0 is 0.
    EXPECT_EQ(call([] { return SetFocusMotor(50.0f); }) & 0xF, 0u);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 0);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 0);
    // 15 m is 138: 276 is planned and run.
    call([] { return SetFocusMotor(15.0f); });
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 276);
    gRunData.motor[MOTOR_FOCUS].last_dir = 1;
    gFocusParam.columns = 0;
    EXPECT_EQ(call([] { return SetFocusMotor(15.0f); }), 2u);
}

TEST_F(Moves, SetMultipleValueMovesFocusWhenTheMultipleStays) {
    call([] { return SetMultiple(0, 0, 6.0f); });
    call([] { return SetMultipleValue(-1000, 1, 6.000001f); });
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -1000);
    EXPECT_THAT(output_, HasSubstr("] multiple: 6.000001, focussteps -1000, movefocus 1. \r\n"));
    EXPECT_EQ(call([] { return SetMultipleValue(500, 0, 6.0f); }), 0);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -1000);
}

TEST_F(Moves, DrivingForceSetsTheDutyOfBothMotors) {
    quietly([] { SetMotorDrivingForce(100); });
    EXPECT_EQ(REG_ADDR_PPW_F, 128);
    EXPECT_EQ(REG_ADDR_PPW_Z, 128);
    std::string out = captured([] { SetMotorDrivingForce(250); });
    EXPECT_THAT(out, HasSubstr("set Motor Driving Force Percent > 2.0\n"));
    EXPECT_THAT(out, HasSubstr("set Motor Driving Force value is 255\n"));
    EXPECT_EQ(REG_ADDR_PPW_F, 255);
    out = captured([] { SetMotorDrivingForce(50); });
    EXPECT_THAT(out, HasSubstr("set Motor Driving Force Percent 0.500000.\n"));
    EXPECT_EQ(REG_ADDR_PPW_Z, 64);
    // The default table carries the duty of registers 0x23 and 0x28, both bytes.
    for (const auto& entry : reg_motor) {
        if (entry[0] == 0x23 || entry[0] == 0x28) {
            EXPECT_EQ(entry[1], 64);
            EXPECT_EQ(entry[2], 64);
        }
    }
    // 200 % would not fit the byte: it is the strongest drive, not none.
    quietly([] { SetMotorDrivingForce(200); });
    EXPECT_EQ(REG_ADDR_PPW_F, 255);
    // Nothing reached the chip: the duty waits for the next initialisation.
    EXPECT_TRUE(board().register_writes().empty());
}

TEST_F(Moves, TestMotorsRunsSinglePeriods) {
    quietly([] { EXPECT_EQ(TestMotors(MOTOR_FOCUS, 1, 16, 0), 0); });
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 16);
    EXPECT_EQ(board().vd_pulses(), 2u);
    quietly([] { TestMotors(MOTOR_ZOOM, 0, 5, 400); });  // one step a period, going down
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), -5);
    quietly([] { TestMotors(MOTOR_FOCUS, 0, 0, 400); });              // the default 477 steps, down
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 16 - 472);  // 59 periods of 8
    EXPECT_EQ(board().timing_faults(), 0u);
}

}  // namespace
}  // namespace zoomaf::test
