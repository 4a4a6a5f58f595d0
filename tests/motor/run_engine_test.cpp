// The two run engines on the twin: StartRun moves by the planned pulses, StartRunReNew
// re-plans from total steps. The fixture checks after every test that the driver's positions
// are the motors' and that the chip saw no pulse before the previous period's had finished.
#include <gmock/gmock.h>
#include <algorithm>

#include "tests/support/twin_test.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

struct Plan {
    int motor, cur, dst;
    uint8_t dir;
    uint16_t loops;
    uint8_t psum, last_psum;
};

class RunEngine : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver();
        place_motor(twin::Motor::zoom, 0);
        place_motor(twin::Motor::focus, 0);
    }

    int run(std::initializer_list<Plan> plans, uint8_t order, uint16_t maxloops) {
        for (const Plan& p : plans) {
            MotorRunState& m = gRunData.motor[p.motor];
            m.cur_steps = static_cast<int16_t>(p.cur);
            m.dst_steps = static_cast<int16_t>(p.dst);
            m.dir = p.dir;
            m.loops = p.loops;
            m.psum = p.psum;
            m.last_psum = p.last_psum;
            m.intct = 400;
            m.total_steps = static_cast<uint16_t>(std::abs(p.dst - p.cur));
        }
        gRunData.motor_order = order;
        gRunData.maxloops = maxloops;
        return call(StartRun);
    }
    std::vector<twin::RegisterWrite> writes() {
        return with<twin::DriverChip>([](auto& chip) { return chip.register_writes(); });
    }
    std::vector<uint64_t> vd_rises() {
        std::vector<uint64_t> rises{0};
        for (const auto& edge : with<twin::GpioBank>([](auto& g) { return g.edges(26); }))
            if (edge.level == 1) rises.push_back(edge.time_ns);
        return rises;
    }
    // Stop writes (psum 0) to the two channels after the last VD pulse.
    int stops_after_last_pulse() {
        int stops = 0;
        for (const auto& w : writes())
            stops += (w.addr == 0x24 || w.addr == 0x29) && (w.value & 0xFF) == 0 &&
                     w.time_ns > vd_rises().back();
        return stops;
    }
};

TEST_F(RunEngine, ALateFocusMotorStartsAfterTheDelay) {
    // Loops 4 and 2 do not fit in 5 periods: the focus motor's share becomes 5 - 4 = 1, and
    // it starts after min(4, 1) = 1 period.
    EXPECT_EQ(run({{MOTOR_ZOOM, 0, 64, 0, 4, 16, 16}, {MOTOR_FOCUS, 0, 16, 1, 2, 8, 8}},
                  1 | 2 << 2 | MOTOR_ORDER_FOCUS_LATE, 5),
              0);
    EXPECT_EQ(vd_pulses(), 4u);
    EXPECT_EQ(motor_at(twin::Motor::focus), 16);
    uint64_t first_focus_start = 0;
    for (const auto& w : writes())
        if (w.addr == 0x24 && (w.value & 0xFF) != 0 && first_focus_start == 0)
            first_focus_start = w.time_ns;
    const auto rises = vd_rises();
    ASSERT_EQ(rises.size(), 5u);
    EXPECT_GT(first_focus_start, rises[1]);
    EXPECT_LT(first_focus_start, rises[2]);
}

// The driver believes the focus is below the edge while the lens is above it (or the other
// way round): each period the photo-interrupter's disagreement counts, and the error step
// is halved when small and bounded when large.
TEST_F(RunEngine, ThePhotoInterrupterDisagreeingIsCountedAndReduced) {
    expect_position_error();
    const struct {
        int lens;
        Plan plan;
        const char* first;
        const char* used;
    } cases[] = {
        {100,
         {MOTOR_FOCUS, -200, -152, 1, 3, 16, 16},
         "] motor 1 pi is 1, start steps is -200, run step is -184, end steps is -152, error "
         "step -16.\r\n",
         "use error_step is -16.\r\n"},
        {100,
         {MOTOR_FOCUS, -200, -191, 1, 3, 3, 3},
         "",
         "use error_step is -4.\r\n"},  // -9 halves to -4
        {-100,
         {MOTOR_FOCUS, 200, 180, 0, 4, 5, 5},
         "pi is 0, start steps is 200, run step is 195",
         "use error_step is 16.\r\n"},  // 20: 16
    };
    for (const auto& c : cases) {
        place_motor(twin::Motor::focus, c.lens);
        EXPECT_EQ(run({c.plan}, 2, c.plan.loops), 0);
        EXPECT_THAT(output_, HasSubstr(c.first));
        EXPECT_THAT(output_, HasSubstr(c.used));
        EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), c.plan.dst);
    }
}

TEST_F(RunEngine, AFailedWriteMidRunAbandonsItAndKeepsThePosition) {
    expect_position_error();  // the motor went two periods the driver does not count
    // The intct read-back of the last period's count change fails.
    board().inject({.op = twin::FaultRule::Op::readback, .reg = 0x25, .skip = 1});
    EXPECT_EQ(run({{MOTOR_FOCUS, 10, 47, 1, 3, 16, 5}}, 2, 3), 1);
    EXPECT_THAT(output_, HasSubstr("[StartRun] ["));
    EXPECT_THAT(output_, HasSubstr("] SetRunReg Write error ！！\r\n"));
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), 10);
    EXPECT_EQ(vd_pulses(), 2u);
    EXPECT_EQ(gRunData.motor_order, 0);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].dst_steps, 0);
    EXPECT_EQ(gRunData.motor[MOTOR_FOCUS].loops, 0);
}

class RevisedRunEngine : public RunEngine {
protected:
    void SetUp() override {
        RunEngine::SetUp();
        gRunData.multiple_cur = 3.5f;
    }
    static void plan(int motor, int dst, uint8_t dir, uint16_t total) {
        MotorRunState& m = gRunData.motor[motor];
        m.dst_steps = static_cast<int16_t>(dst);
        m.dir = dir;
        m.total_steps = total;
    }
    int run(uint8_t order = 1 | 2 << 2) {
        gRunData.motor_order = order;
        return call(StartRunReNew);
    }
};

// Re-plans from total steps as the run prints them, both motors finishing together (both
// channels stopped after the last pulse): the focus interval rounded up, and bounded beyond
// 16 bits signed. The long moves and the interval by the multiple run in the closed loop.
TEST_F(RevisedRunEngine, ReplansFromTotalStepsAndBothMotorsFinishTogether) {
    const struct {
        struct {
            float multiple;
            int zoom_dst, zoom_total, focus_dst, focus_total;
            uint64_t pulses;
        } move;
        std::vector<const char*> lines;
    } cases[] = {
        // Budget 100 x 400: zoom 400, focus 40000 / 30 rounded up.
        {{3.5f, -100, 100, 30, 30, 2},
         {"max NO.0 Total Steps is 100\r\nmax NO.1 Total Steps is 30\r\n",
          "motor id is 0, motor loop is 2, end loop is 1, motor intctXX is 400, motor psumXX is "
          "100, motor last psumXX is 0 \r\n",
          "motor id is 1, motor loop is 2, end loop is 1, motor intctXX is 1334, motor psumXX is "
          "30, motor last psumXX is 0 \r\n",
          "] zoom，focus run over！！\r\n"}},
        // 239 x 400 / 2 = 47800: negative as a 16-bit word.
        {{3.5f, 139, 239, 32, 2, 2},
         {"motor id is 1, motor loop is 2, end loop is 1, motor intctXX is 32767,"}},
    };
    for (const auto& [c, lines] : cases) {
        gRunData.multiple_cur = c.multiple;
        const int zoom_from = GetCurSteps(MOTOR_ZOOM), focus_from = GetCurSteps(MOTOR_FOCUS);
        plan(MOTOR_ZOOM, c.zoom_dst, c.zoom_dst < zoom_from ? 1 : 0, c.zoom_total);
        plan(MOTOR_FOCUS, c.focus_dst, c.focus_dst < focus_from ? 0 : 1, c.focus_total);
        const uint64_t pulses = vd_pulses();
        EXPECT_EQ(run(), 0);
        for (const char* line : lines) EXPECT_THAT(output_, HasSubstr(line));
        EXPECT_EQ(vd_pulses() - pulses, c.pulses) << c.zoom_dst;
        EXPECT_EQ(std::pair(motor_at(twin::Motor::zoom), motor_at(twin::Motor::focus)),
                  std::pair(c.zoom_dst, c.focus_dst));
        EXPECT_EQ(gRunData.motor_order, 0);
        EXPECT_EQ(stops_after_last_pulse(), (c.zoom_total > 0) + (c.focus_total > 0)) << c.zoom_dst;
    }
    EXPECT_EQ(run_times, 2u);
}

TEST_F(RevisedRunEngine, APlanThatDoesNotAddUpOrARunInProgressIsRefused) {
    // 5038 steps beside a leader of 5039: 239 x 20 + 2 falls 256 short.
    plan(MOTOR_ZOOM, -5039, 1, 5039);
    plan(MOTOR_FOCUS, 5038, 1, 5038);
    EXPECT_EQ(run(), 1);
    EXPECT_THAT(output_, HasSubstr("电机ID是1，实际值为5038，计算获取数据为 239 x 20 + 2 * (21 - "
                                   "20) = 4782\r\n"));
    EXPECT_EQ(GetCurSteps(MOTOR_ZOOM), 0);
    EXPECT_EQ(gRunData.motor[MOTOR_ZOOM].total_steps, 0);

    plan(MOTOR_ZOOM, 40, 0, 40);
    gRunData.running = 1;
    EXPECT_EQ(run(1), 1);
    EXPECT_THAT(output_, ::testing::Not(HasSubstr("Total Steps")));
    EXPECT_EQ(gRunData.running, 0);
    EXPECT_EQ(vd_pulses(), 0u);
}

}  // namespace
}  // namespace zoomaf::test
