// StartRunReNew: the re-plan from total steps (short, long and empty moves, the interval by
// multiple, the plan check) and both motors finishing together on the twin.
#include <gmock/gmock.h>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class RevisedRunEngine : public MotorTest {
protected:
    void SetUp() override {
        MotorTest::SetUp();
        bring_up();
        board().set_motor_position(twin::Motor::zoom, 0);
        board().set_motor_position(twin::Motor::focus, 0);
        gRunData.multiple_cur = 3.5f;
    }

    static void plan(int motor, int dst, uint8_t dir, uint16_t total) {
        MotorRunState& m = gRunData.motor[motor];
        m.dst_steps = static_cast<int16_t>(dst);
        m.dir = dir;
        m.total_steps = total;
    }

    int run() {
        int result = -1;
        output_ = captured([&] { result = StartRunReNew(); });
        return result;
    }

    std::string output_;
};

TEST_F(RevisedRunEngine, NothingToMoveMovesNothing) {
    gRunData.motor[MOTOR_ZOOM].cur_steps = 300;
    gRunData.motor[MOTOR_FOCUS].cur_steps = -20;
    gRunData.motor_order = 1 | 2 << 2;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(output_, HasSubstr("] ------------start run motor---------------------\r\n"));
    EXPECT_THAT(output_, HasSubstr("motor 0 Total Steps is 0\r\nmotor 1 Total Steps is 0\r\n"));
    EXPECT_THAT(output_, HasSubstr("max NO.1 Total Steps is 0\r\nmax NO.0 Total Steps is 0\r\n"));
    EXPECT_EQ(board().vd_pulses(), 0u);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 300);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -20);
}

TEST_F(RevisedRunEngine, AShortMoveGoesOutAsOnePeriod) {
    plan(MOTOR_ZOOM, -100, 1, 100);
    plan(MOTOR_FOCUS, 30, 1, 30);
    gRunData.motor_order = 1 | 2 << 2;
    EXPECT_EQ(run(), 0);
    // Budget 100 x 400: zoom 400, focus 40000 / 30 rounded up.
    EXPECT_THAT(output_,
                HasSubstr("max NO.0 Total Steps is 100\r\nmax NO.1 Total Steps is 30\r\n"));
    EXPECT_THAT(output_,
                HasSubstr("motor id is 0, motor loop is 2, end loop is 1, motor intctXX is "
                          "400, motor psumXX is 100, motor last psumXX is 0 \r\n"));
    EXPECT_THAT(output_,
                HasSubstr("motor id is 1, motor loop is 2, end loop is 1, motor intctXX is "
                          "1334, motor psumXX is 30, motor last psumXX is 0 \r\n"));
    EXPECT_THAT(output_, HasSubstr("] zoom，focus run over！！\r\n"));
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), -100);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 30);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), -100);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 30);
    EXPECT_EQ(board().vd_pulses(), 2u);
    EXPECT_EQ(board().timing_faults(), 0u);
    EXPECT_EQ(gRunData.motor_order, 0);
}

TEST_F(RevisedRunEngine, ALongMoveIsSharedOverPeriodsAndBothFinishTogether) {
    plan(MOTOR_ZOOM, 500, 0, 500);
    plan(MOTOR_FOCUS, -300, 0, 300);
    gRunData.motor_order = 1 | 2 << 2;
    EXPECT_EQ(run(), 0);
    // n = 500 / 240 = 2 full periods of 48 % of each total, the rest in a third.
    EXPECT_THAT(output_, HasSubstr("loop is 2;Percentage for step is 0.480000.\r\n"));
    EXPECT_THAT(output_,
                HasSubstr("motor id is 0, motor loop is 3, end loop is 2, motor intctXX is "
                          "400, motor psumXX is 240, motor last psumXX is 20 \r\n"));
    EXPECT_THAT(output_,
                HasSubstr("motor id is 1, motor loop is 3, end loop is 2, motor intctXX is "
                          "667, motor psumXX is 144, motor last psumXX is 12 \r\n"));
    EXPECT_EQ(board().vd_pulses(), 3u);
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), 500);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), -300);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 500);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -300);
    EXPECT_EQ(board().timing_faults(), 0u);
    // Both channels were stopped after the last VD pulse.
    uint64_t last_rise = 0;
    for (const auto& edge : board().gpio_edges(kVd))
        if (edge.level == 1) last_rise = edge.time_ns;
    int stops_after_last_pulse = 0;
    for (const auto& w : board().register_writes())
        if ((w.addr == 0x24 || w.addr == 0x29) && (w.value & 0xFF) == 0 && w.time_ns > last_rise)
            ++stops_after_last_pulse;
    EXPECT_EQ(stops_after_last_pulse, 2);
    EXPECT_THAT(output_, HasSubstr("old_error_step is 0, error_step is 0.\r\n"));
    EXPECT_EQ(run_times, 1u);
}

TEST_F(RevisedRunEngine, TheIntervalFollowsTheMultipleBeforeTheZoom) {
    for (auto [multiple, interval] : {std::pair{6.0f, 500}, {10.0f, 642}, {4.0f, 400}}) {
        SCOPED_TRACE(multiple);
        gRunData.multiple_cur = multiple;
        plan(MOTOR_ZOOM, GetCurSteps(MOTOR_ZOOM) + 40, 0, 40);
        gRunData.motor_order = 1;
        run();
        EXPECT_THAT(output_, HasSubstr("motor id is 0, motor loop is 2, end loop is 1, motor "
                                       "intctXX is " +
                                       std::to_string(interval) + ","));
    }
    EXPECT_EQ(board().timing_faults(), 0u);
}

TEST_F(RevisedRunEngine, AnIntervalBeyondSixteenBitsSignedIsBounded) {
    plan(MOTOR_ZOOM, -239, 1, 239);
    plan(MOTOR_FOCUS, 2, 1, 2);  // 239 x 400 / 2 = 47800: negative as a 16-bit word
    gRunData.motor_order = 1 | 2 << 2;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(output_,
                HasSubstr("motor id is 1, motor loop is 2, end loop is 1, motor intctXX is "
                          "32767,"));
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 2);
    EXPECT_EQ(board().timing_faults(), 0u);
}

TEST_F(RevisedRunEngine, APlanThatDoesNotAddUpIsRefused) {
    // 5038 steps beside a leader of 5039: 239 x 20 + 2 falls 256 short.
    plan(MOTOR_ZOOM, -5039, 1, 5039);
    plan(MOTOR_FOCUS, 5038, 1, 5038);
    gRunData.motor[MOTOR_ZOOM].cur_steps = 0;
    gRunData.motor_order = 1 | 2 << 2;
    EXPECT_EQ(run(), 1);
    EXPECT_THAT(output_,
                HasSubstr("电机ID是1，实际值为5038，计算获取数据为 239 x 20 + 2 * (21 - 20) = "
                          "4782\r\n"));
    EXPECT_EQ(board().vd_pulses(), 0u);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 0);
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].total_steps, 0);
}

TEST_F(RevisedRunEngine, ARunInProgressPlansNothing) {
    plan(MOTOR_ZOOM, 40, 0, 40);
    gRunData.motor_order = 1;
    gRunData.running = 1;
    EXPECT_EQ(run(), 1);
    EXPECT_THAT(output_, ::testing::Not(HasSubstr("Total Steps")));
    EXPECT_EQ(board().vd_pulses(), 0u);
    EXPECT_EQ(gRunData.running, 0);
}

}  // namespace
}  // namespace zoomaf::test
