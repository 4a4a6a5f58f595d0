// StartRun on the twin: the emulated motors move by the planned pulses with the driver's
// sense, one VD pulse per period, stop writes at the end, and positions are kept.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class RunEngine : public MotorTest {
protected:
    void SetUp() override {
        MotorTest::SetUp();
        bring_up();
        board().set_motor_position(twin::Motor::zoom, 0);
        board().set_motor_position(twin::Motor::focus, 0);
    }

    static void plan(int motor, int cur, int dst, uint8_t dir, uint16_t loops, uint8_t psum,
                     uint8_t last_psum) {
        MotorRunState& m = gRunData.motor[motor];
        m.cur_steps = static_cast<int16_t>(cur);
        m.dst_steps = static_cast<int16_t>(dst);
        m.dir = dir;
        m.loops = loops;
        m.psum = psum;
        m.last_psum = last_psum;
        m.intct = 400;
        m.total_steps = static_cast<uint16_t>(std::abs(dst - cur));
    }

    int run() {
        int result = -1;
        last_output_ = captured([&] { result = StartRun(); });
        return result;
    }

    // Register writes of one address with a non-zero pulse count, in order.
    std::vector<twin::RegisterWrite> pulse_writes(uint8_t addr) {
        std::vector<twin::RegisterWrite> found;
        for (const auto& w : board().register_writes())
            if (w.addr == addr && (w.value & 0xFF) != 0) found.push_back(w);
        return found;
    }

    std::string last_output_;
};

TEST_F(RunEngine, FocusMovesUpByItsPulsesWithDirectionOne) {
    plan(MOTOR_FOCUS, 0, 37, 1, 3, 16, 5);
    gRunData.motor_order = 2;
    gRunData.maxloops = 3;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 37);
    EXPECT_EQ(board().vd_pulses(), 3u);
    EXPECT_EQ(board().timing_faults(), 0u);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 37);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].last_dir, 1);

    // psum and intct in the first period, again in the last (the count changes), and the
    // zero stop writes.
    const auto writes = board().register_writes();
    ASSERT_EQ(writes.size(), 6u);
    EXPECT_EQ(writes[0].value, 0x1D10);
    EXPECT_EQ(writes[2].value, 0x1D05);
    EXPECT_EQ(writes[4].addr, 0x24);
    EXPECT_EQ(writes[4].value, 0x1D00);
    EXPECT_EQ(writes[5].addr, 0x25);
    EXPECT_EQ(writes[5].value, 0);
    EXPECT_THAT(last_output_, HasSubstr("use error_step is 0.\r\n"));
    EXPECT_THAT(last_output_,
                HasSubstr("] cur multiple:0.000000, zoom_cursteps: 0, focus_cursteps: 37\n"));
}

TEST_F(RunEngine, ZoomMovesDownWithDirectionOne) {
    plan(MOTOR_ZOOM, 0, -48, 1, 3, 16, 16);
    gRunData.motor_order = 1;
    gRunData.maxloops = 3;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), -48);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), -48);
    EXPECT_EQ(board().vd_pulses(), 3u);
    EXPECT_EQ(board().register_writes().size(), 4u);  // the count never changed
}

TEST_F(RunEngine, TwoMotorsShareOneVdPulsePerPeriod) {
    plan(MOTOR_ZOOM, 0, 64, 0, 4, 16, 16);
    plan(MOTOR_FOCUS, 0, 16, 1, 2, 8, 8);
    gRunData.motor_order = 1 | 2 << 2;
    gRunData.maxloops = 4;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(board().vd_pulses(), 4u);
    EXPECT_EQ(board().motor_position(twin::Motor::zoom), 64);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 16);
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 64);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 16);
    EXPECT_EQ(board().timing_faults(), 0u);
    EXPECT_EQ(board().chip_register(0x24) & 0xFF, 0);
    EXPECT_EQ(board().chip_register(0x29) & 0xFF, 0);
}

TEST_F(RunEngine, ALateFocusMotorStartsAfterTheDelay) {
    // Loops 4 and 2 do not fit in 5 periods: the focus motor's share becomes 5 - 4 = 1, and
    // it starts after min(4, 1) = 1 period.
    plan(MOTOR_ZOOM, 0, 64, 0, 4, 16, 16);
    plan(MOTOR_FOCUS, 0, 16, 1, 2, 8, 8);
    gRunData.motor_order = 1 | 2 << 2 | MOTOR_ORDER_FOCUS_LATE;
    gRunData.maxloops = 5;
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(board().vd_pulses(), 4u);
    EXPECT_EQ(board().motor_position(twin::Motor::focus), 16);
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 16);
    const auto focus_starts = pulse_writes(0x24);
    ASSERT_FALSE(focus_starts.empty());
    std::vector<uint64_t> vd_rises;
    for (const auto& edge : board().gpio_edges(kVd))
        if (edge.level == 1) vd_rises.push_back(edge.time_ns);
    ASSERT_EQ(vd_rises.size(), 4u);
    EXPECT_GT(focus_starts.front().time_ns, vd_rises[0]);
    EXPECT_LT(focus_starts.front().time_ns, vd_rises[1]);
    EXPECT_EQ(board().timing_faults(), 0u);
}

TEST_F(RunEngine, ThePhotoInterrupterDisagreeingIsCountedAndReduced) {
    // The driver believes the focus is below the edge, the lens is above it: every period
    // the lit PI at a negative running position counts -psum.
    board().set_motor_position(twin::Motor::focus, 100);
    plan(MOTOR_FOCUS, -200, -152, 1, 3, 16, 16);
    gRunData.motor_order = 2;
    gRunData.maxloops = 3;
    EXPECT_EQ(run(), 0);
    EXPECT_THAT(last_output_, HasSubstr("] motor 1 pi is 1, start steps is -200, run step is "
                                        "-184, end steps is -152, error step -16.\r\n"));
    EXPECT_THAT(last_output_, HasSubstr("error step -48.\r\n"));
    EXPECT_THAT(last_output_, HasSubstr("use error_step is -16.\r\n"));
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), -152);
}

TEST_F(RunEngine, SmallErrorStepsAreHalvedLargeOnesBounded) {
    board().set_motor_position(twin::Motor::focus, 100);
    plan(MOTOR_FOCUS, -200, -191, 1, 3, 3, 3);  // -9 halves to -4
    gRunData.motor_order = 2;
    gRunData.maxloops = 3;
    run();
    EXPECT_THAT(last_output_, HasSubstr("use error_step is -4.\r\n"));

    // A dark PI at a positive running position counts +psum: 20 becomes 16.
    board().set_motor_position(twin::Motor::focus, -100);
    plan(MOTOR_FOCUS, 200, 180, 0, 4, 5, 5);
    gRunData.motor_order = 2;
    gRunData.maxloops = 4;
    run();
    EXPECT_THAT(last_output_, HasSubstr("pi is 0, start steps is 200, run step is 195"));
    EXPECT_THAT(last_output_, HasSubstr("use error_step is 16.\r\n"));
}

TEST_F(RunEngine, AFailedWriteMidRunAbandonsItAndKeepsThePosition) {
    plan(MOTOR_FOCUS, 10, 47, 1, 3, 16, 5);
    gRunData.motor_order = 2;
    gRunData.maxloops = 3;
    // The intct read-back of the last period's count change fails.
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x25, .skip = 1});
    EXPECT_EQ(run(), 1);
    EXPECT_THAT(last_output_, HasSubstr("[StartRun] ["));
    EXPECT_THAT(last_output_, HasSubstr("] SetRunReg Write error ！！\r\n"));
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 10);
    EXPECT_EQ(board().vd_pulses(), 2u);
    EXPECT_EQ(gRunData.motor_order, 0);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, 0);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].loops, 0);
}

TEST_F(RunEngine, ARunInProgressIsRefusedAndTheFlagsCleared) {
    plan(MOTOR_FOCUS, 0, 16, 1, 2, 8, 8);
    gRunData.motor_order = 2;
    gRunData.maxloops = 2;
    gRunData.running = 1;
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(board().vd_pulses(), 0u);
    EXPECT_TRUE(board().register_writes().empty());
    EXPECT_EQ(gRunData.running, 0);
    EXPECT_EQ(gRunData.motor_order, 0);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].psum, 0);
}

}  // namespace
}  // namespace zoomaf::test
