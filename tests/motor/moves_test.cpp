// Lookups in the compiled-in tracking table, the mechanical ranges, and the zoom and focus
// moves on the twin: clamps, plans, backlash compensation, refusals and the codes the
// callers rely on.
#include <gmock/gmock.h>

#include "tests/support/twin_test.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

// A cell of the 4.49 mm table by key (35..110).
int cell(int key, int column) {
    return focus_zoom_data_449[key - 35][column];
}

class TrackingTable : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        LoadParamList();
    }
    int32_t lookup(uint8_t kind, float multiple, float distance) {
        return call([&] { return GetListSteps(kind, multiple, distance); });
    }
};

TEST_F(TrackingTable, LoadsThe449SetAndFindsZoomAndFocusPositions) {
    EXPECT_EQ(gFocusParam.rows, 76);
    EXPECT_EQ(gFocusParam.columns, 9);
    EXPECT_STREQ(gFocusParam.column_name[0], "4.49mm");
    const struct {
        uint8_t kind;
        float multiple, distance;
        int32_t result;
    } cases[] = {
        {0, 3.5f, 0, 1416 * 16},
        {0, 4.4f, 0, -32 * 16},
        {0, 11.0f, 0, -5392 * 16},
        {0, 3.5f, 500.0f, 1416 * 16},       // no distance rule for zoom
        {1, 3.5f, 15.0f, 5746 * 16},        // the found cell twice: column 8, 2 x 2873
        {1, 3.5f, 10.0f, 2 * 2797 * 16},    // column 4 named "10"
        {1, 7.4f, 40.0f, 2 * 0 * 16},       // "50" is the first farther
        {1, 7.4f, 12.0f, 2 * 138 * 16},     // "15" is the first farther
        {1, 11.0f, 25.0f, 2 * -2314 * 16},  // column 6, "30"
        {1, 3.5f, 60.0f, 2 * 2810 * 16},    // nearest name is "50"
        // The key follows the text of the product: 35.090000 has a '9' in its fifth
        // character, 35.079998 (3.508 in single precision) a '7'; 34.999998 counts as 35;
        // three-digit keys look at the first decimal.
        {0, 3.509f, 0, cell(36, 2) * 16},
        {0, 3.507f, 0, cell(35, 2) * 16},
        {0, 3.508f, 0, cell(35, 2) * 16},
        {0, 3.4999998f, 0, cell(35, 2) * 16},
        {0, 10.58f, 0, cell(106, 2) * 16},
        {0, 10.57f, 0, cell(105, 2) * 16},
    };
    for (const auto& c : cases)
        EXPECT_EQ(lookup(c.kind, c.multiple, c.distance), c.result)
            << c.multiple << " " << c.distance;
}

TEST_F(TrackingTable, DistancesAndMultiplesAreClampedToTheTable) {
    EXPECT_EQ(lookup(1, 3.5f, 1.0f), LIST_DISTANCE_CLAMPED | 5746 * 16);
    EXPECT_THAT(output_, HasSubstr("] warn 3, distance:1.000000 < 1.500000, set 1.500000\n"));
    // Above 100 m the distance becomes 100 m; no searched column is named farther, so the
    // column named nearest ("100", column 3) is taken.
    EXPECT_EQ(lookup(1, 3.5f, 150.0f), LIST_DISTANCE_CLAMPED | 2 * 2784 * 16);
    EXPECT_THAT(output_, HasSubstr("] warn 2, distance:150.000000 > 100.000000, set 100.000000\n"));
    EXPECT_EQ(lookup(0, 2.0f, 0), LIST_MULTIPLE_CLAMPED | 1416 * 16);
    EXPECT_THAT(output_, HasSubstr("] warn 4, min:35 > rate:20, set to 35\n"));
    EXPECT_EQ(lookup(0, 12.0f, 0), LIST_MULTIPLE_CLAMPED | -5392 * 16);
    EXPECT_THAT(output_, HasSubstr("] warn 5, rate:120 > max:110, set to 110\n"));
    gFocusParam.rows = 0;
    EXPECT_EQ(lookup(1, 5.0f, 10.0f), LIST_TABLE_EMPTY);
    EXPECT_THAT(output_, HasSubstr("] error 1, rows1: 0, column1:9\n"));
}

TEST(MotorRanges, EndsFromBaseAndTravel) {
    // (zoom top, zoom bottom, focus top, focus bottom, a bad motor's)
    EXPECT_EQ(std::tuple(GeMotorRangeSteps(0, 1), GeMotorRangeSteps(0, 0), GeMotorRangeSteps(1, 1),
                         GeMotorRangeSteps(1, 0), GeMotorRangeSteps(2, 1)),
              std::tuple(1606, -5430, 3022, -2574, 0));
    // -0.30 mm is -29 steps, masked to 13 bits and times 8: -232 as a signed 16-bit value.
    EXPECT_EQ(GetPhysicalSteps(0, -30), -232);
    EXPECT_EQ(GetPhysicalSteps(1, 50), 392);
    EXPECT_EQ(GetPhysicalSteps(3, 50), 0);
    EXPECT_DOUBLE_EQ(GetStepRatio(2), 0.0);
}

TEST_F(TrackingTable, TheFocusRangeIsMechanicalAfterStartUpAndFromTheTableBefore) {
    quietly([] { InitAttr(10); });
    EXPECT_EQ(GetFocusRangeSteps(1, 12.0f), 2 | 3022 * 16);
    EXPECT_EQ(GetFocusRangeSteps(0, 5.0f), -2574 * 16);
    EXPECT_EQ(GetFocusRangeSteps(0, 3.0f), 2 | -2574 * 16);
    gRunData.init_flag = 0;
    EXPECT_EQ(call([] { return GetFocusRangeSteps(0, 3.5f); }), 5746 * 16);  // 1.5 m, doubled
    gRunData.running = 1;
    EXPECT_EQ(call([] { return GetFocusRangeSteps(1, 5.0f); }), 1);
    EXPECT_THAT(output_, HasSubstr("] warn, motor running, return\n"));
    gRunData.running = 0;
}

class Moves : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver();
        LoadParamList();
        place_motor(twin::Motor::zoom, 0);
        place_motor(twin::Motor::focus, 0);
    }
    const MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
};

// One walk through the moves, each step with the code and the message its callers rely on;
// the fixture checks after it that the driver's positions are the motors'.
TEST_F(Moves, ZoomAndFocusMovesClampRefuseAndReportTheirCodes) {
    // The zoom turns from up (0) to down (1) towards x11: two backlash steps go out beyond
    // the target, which the lens's slack would take up.
    expect_position_error(2);
    const struct {
        uint32_t (*move)();
        uint32_t code;  // bits 3..0 of the result; all of it for 16, which shares bit 4 with
                        // the time (a move that ran nothing took no time either)
        const char* message;
        int zoom, focus;  // the driver's positions after the move
    } walk[] = {
        {[] { return SetMultiple(0, 0, 3.4f); }, 8,
         "] warn, multiple: 3.400000 < MULTIPLE_MIN: 3.500000, set MULTIPLE_MIN\n", 1416, -2574},
        {[] { return SetMultiple(0, 0, 3.5f); }, 0,
         "] warn, gRunData.multiple_cur: 3.500000 == multiple: 3.500000, return 0\n", 1416, -2574},
        {[] { return SetFocusLens(400, 0); }, 0, "Set Focus end : ", 1416, 400},
        {[] { return SetFocusLens(400, 0); }, 16,
         "] warn, det steps(400) == cur steps(400), moveflag: 0, return ERR_NO(0)\n", 1416, 400},
        {[] { return SetFocusLens(0, 1); }, 16,
         "] warn, set focus:0 == 0, and moveflag: 1 > 0, return ERR_NO(0)\n", 1416, 400},
        {[] { return SetFocusLens(5000, 0); }, 4,
         "] warn, steps_dst:5000 > steps_max:3022, set max to dst, OUTOFRANGE(4)\n", 1416, 400},
        {[] { return uint32_t(SetFocusSteps(-3000, 0, 5.0f)); }, 4,
         "] warn, steps_dst:-3000 < steps_min: -2574, set min to dst, OUTOFRANGE(4)\n", 1416, 400},
        {[] { return SetMultiple(0, 0, 12.0f); }, 8,
         "] warn, multiple: 12.000000 > MULTIPLE_MAX: 11.000000, set MULTIPLE_MAX\n", -5392, -2574},
        {[] { return uint32_t(SetMultipleValue(-1000, 1, 11.000001f)); }, 0,
         "] multiple: 11.000001, focussteps -1000, movefocus 1. \r\n", -5392, -1000},
        {[] { return uint32_t(SetMultipleValue(500, 0, 11.0f)); }, 0, "", -5392, -1000},
    };
    for (const auto& step : walk) {
        const uint32_t result = call(step.move);
        EXPECT_EQ(step.code == 16 ? result : result & 0xF, step.code) << output_;
        EXPECT_THAT(output_, HasSubstr(step.message));
        EXPECT_EQ(std::pair(GetCurSteps(MOTOR_ZOOM), GetCurSteps(MOTOR_FOCUS)),
                  std::pair(step.zoom, step.focus))
            << step.message;
    }
    EXPECT_FLOAT_EQ(gRunData.multiple_cur, 11.0f);
    EXPECT_EQ(motor_at(twin::Motor::zoom), -5394);
}

TEST_F(Moves, AFocusMoveReportsItsTimeAndARunInProgressRefusesEveryMove) {
    const uint64_t before = board().now_ns();
    const uint32_t result = call([] { return SetFocusLens(400, 0); });
    EXPECT_EQ(vd_pulses(), 50u);
    // The elapsed microseconds ride above the code and match the board's clock.
    EXPECT_NEAR(double(result >> 4), double((board().now_ns() - before) / 1000), 500.0);
    gRunData.running = 1;
    EXPECT_EQ(call([] { return SetMultiple(0, 0, 5.0f); }) & 0xF, 1u);
    EXPECT_THAT(output_, HasSubstr("] warn, motor running, return 1\n"));
    EXPECT_EQ(call([] { return SetFocusLens(100, 0); }), 1u);
    EXPECT_EQ(call([] { return SetFocusMotor(10.0f); }), 1u);
    EXPECT_EQ(call([] { return SetFocusSteps(100, 0, 5.0f); }), 1);
    EXPECT_THAT(output_, HasSubstr("] focussteps: 100, moveflag: 0, return motor running(1)\n"));
    EXPECT_EQ(call([] { return SetMultipleSteps(0, 0, 5.0f); }), 1);
    EXPECT_EQ(vd_pulses(), 50u);
    gRunData.running = 0;
}

// The plans of the moves: the given focus taken with a zoom only above the default, the
// direction of relative focus moves, the periods of a focus move.
TEST_F(Moves, ThePlansOfTheMoves) {
    const struct {
        int16_t current, given;
        uint8_t move_focus;
        int16_t planned;
    } zoom_focus[] = {
        {0, -2574, 1, -2574},     {0, -2573, 1, -2573},      // default at or below: any step above
        {0, 500, 0, -2574},                                  // without movefocus: the default
        {-3000, -2558, 1, -2574}, {-3000, -2557, 1, -2557},  // above: clear it by more than 16
    };
    for (const auto& c : zoom_focus) {
        gRunData.motor[MOTOR_FOCUS].cur_steps = c.current;
        call([&] { return SetMultipleSteps(c.given, c.move_focus, 5.0f); });
        EXPECT_EQ(focus.dst_steps, c.planned) << c.current << " " << c.given;
    }
    const struct {
        int16_t current, steps;
        uint8_t relative;
        uint16_t steps_vd;
        int16_t dst;
        uint8_t dir;
        uint16_t loops;
    } focus_only[] = {
        {0, 21, 0, 8, 21, 1, 3},     // 21 / 8 rounded up, no compensation
        {100, -30, 1, 8, 70, 1, 4},  // relative moves take direction 1 for negative steps
        {100, 30, 1, 8, 130, 0, 4},
        {0, 107, 0, 1, 107, 1, 107},  // one step per period never rounds up
    };
    for (const auto& c : focus_only) {
        gRunData.motor[MOTOR_FOCUS].cur_steps = c.current;
        gRunData.motor[MOTOR_FOCUS].steps_vd = c.steps_vd;
        EXPECT_EQ(call([&] { return SetFocusSteps(c.steps, c.relative, 5.0f); }), 0);
        EXPECT_EQ(std::tuple(focus.dst_steps, focus.dir, focus.loops, gRunData.motor_order),
                  std::tuple(c.dst, c.dir, c.loops, uint8_t{2}))
            << c.current << " " << c.steps;
    }
    gRunData.motor[MOTOR_FOCUS].cur_steps = 0;
}

TEST_F(Moves, FocusByDistanceUsesTheDoubledTableValue) {
    gRunData.multiple_cur = 7.4f;
    gRunData.motor[MOTOR_FOCUS].cur_steps = 100;
    place_motor(twin::Motor::focus, 100);
    // 50 m at x7.4 is 0 in the table: twice 0 is 0; 15 m is 138: 276 is planned and run.
    EXPECT_EQ(call([] { return SetFocusMotor(50.0f); }) & 0xF, 0u);
    EXPECT_EQ(motor_at(twin::Motor::focus), 0);
    call([] { return SetFocusMotor(15.0f); });
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 276);
    gFocusParam.columns = 0;
    EXPECT_EQ(call([] { return SetFocusMotor(15.0f); }), 2u);
}

TEST_F(Moves, TheBenchsDrivingForceAndTestMoves) {
    const std::tuple<uint8_t, uint8_t, const char*> forces[] = {
        {100, 128, "set Motor Driving Force value is 128\n"},
        {250, 255, "set Motor Driving Force Percent > 2.0\n"},
        {200, 255, "set Motor Driving Force value is 255\n"},  // 256 would not fit the byte
        {50, 64, "set Motor Driving Force Percent 0.500000.\n"},
    };
    for (auto [percent, duty, message] : forces) {
        call([&] { SetMotorDrivingForce(percent); });
        EXPECT_THAT(output_, HasSubstr(message)) << int(percent);
        EXPECT_EQ(std::pair(REG_ADDR_PPW_F, REG_ADDR_PPW_Z), std::pair(duty, duty));
    }
    // The default table carries the duty of registers 0x23 and 0x28, both bytes, for the next
    // initialisation: nothing reached the chip.
    for (const auto& entry : reg_motor) {
        if (entry[0] == 0x23 || entry[0] == 0x28) {
            EXPECT_EQ(entry[1] << 8 | entry[2], 64 << 8 | 64);
        }
    }
    EXPECT_TRUE(with<twin::DriverChip>([](auto& chip) { return chip.register_writes().empty(); }));

    expect_position_error();  // the bench's test moves leave the driver's count alone
    quietly([] { EXPECT_EQ(TestMotors(MOTOR_FOCUS, 1, 16, 0), 0); });
    EXPECT_EQ(std::pair(motor_at(twin::Motor::focus), vd_pulses()), std::pair(16, uint64_t{2}));
    quietly([] { TestMotors(MOTOR_ZOOM, 0, 5, 400); });  // one step a period, going down
    EXPECT_EQ(motor_at(twin::Motor::zoom), -5);
    quietly([] { TestMotors(MOTOR_FOCUS, 0, 0, 400); });  // the default 477 steps, down
    EXPECT_EQ(motor_at(twin::Motor::focus), 16 - 472);    // 59 periods of 8
}

}  // namespace
}  // namespace zoomaf::test
