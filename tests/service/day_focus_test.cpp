// The day focus operations on the twin, reading by reading: the centre mode's tolerance and
// probing legs, the free mode's scan and fall-back, the clamped moves; the assisted centre
// focus's laser counting, convergence arithmetic, return to m0 and lock; the laser target
// columns and counters.
#include <gmock/gmock.h>

#include <chrono>
#include <thread>
#include <vector>

#include "tests/service/day_focus_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// Lengths of the runs of moves in one direction, from the positions after each call.
std::vector<int> legs(int start, const std::vector<int>& positions) {
    std::vector<int> runs;
    int previous = start, direction = 0;
    for (int p : positions) {
        const int d = p > previous ? 1 : p < previous ? -1 : 0;
        if (d != 0 && d == direction) {
            ++runs.back();
        } else if (d != 0) {
            runs.push_back(1);
            direction = d;
        }
        previous = p;
    }
    return runs;
}

using Operations = DayFocusTest;

TEST_F(Operations, CentreModeToleratesPoorReadingsThenProbes) {
    struct Case {
        float multiple;
        int64_t cl;
        int tolerated;  // readings answered -1 before the first probe; -1: never probes
    };
    for (const Case& c : {Case{3.0f, 49, 5}, Case{3.0f, 149, 9}, Case{2.9f, 10, -1}}) {
        SCOPED_TRACE(c.cl);
        quietly([] { APPSetCenterFocusOpr(1, nullptr); });
        current_multiple = c.multiple;
        PdLibInputData record = window_record(20, 0, c.cl);
        const int start = focus_position();
        int answered = 0;
        output_ = captured([&] {
            while (answered < 12 && APPSetCenterFocusOpr(0, &record) == -1) ++answered;
        });
        if (c.tolerated < 0) {
            EXPECT_EQ(answered, 0);
            EXPECT_THAT(output_, HasSubstr("！！warn,centerfocus  cl: 10 < valid: 150, ignore\n"));
            EXPECT_EQ(focus_position(), start);
        } else {
            EXPECT_EQ(answered, c.tolerated);
            EXPECT_EQ(focus_position(), start + 24);
        }
    }
    // CL 150 resets the probing and computes, but leaves the lens; 151 moves it.
    probe_number = 36;
    PdLibInputData at_150 = window_record(20, -200, 150);
    const int before = focus_position();
    quietly([&] { EXPECT_EQ(APPSetCenterFocusOpr(0, &at_150), 0); });
    EXPECT_EQ(focus_position(), before);
    EXPECT_EQ(probe_number, 4);
    PdLibInputData at_151 = window_record(20, -200, 151);
    output_ = captured([&] { APPSetCenterFocusOpr(0, &at_151); });
    EXPECT_GT(focus_position(), before + 10) << "PD -200 moves toward the far side by ~24 steps";
    EXPECT_THAT(output_, HasSubstr("calibration:0,cl:151,pd:-200,motor_position:"));
}

TEST_F(Operations, ProbingLegsTurnOnTheFifthThirteenthAndThirtySeventhStep) {
    struct Case {
        int max;
        int probes;
        std::vector<int> legs;
    };
    // Strictly inside the range a leg turns after probe_number steps, which triples; a range
    // end turns it at once (and triples it too).
    for (const Case& c : {Case{kFocusMax, 56, {5, 13, 37, 1}}, Case{50, 17, {3, 13, 1}}}) {
        SCOPED_TRACE(c.max);
        set_focus_range(kFocusMin, c.max);
        lens_to(0);
        quietly([] { APPSetCenterFocusOpr(1, nullptr); });
        PdLibInputData poor = window_record(20, 0, 40);
        const int start = focus_position();
        std::vector<int> positions;
        quietly([&] {
            for (int i = 0; i < 5; ++i) APPSetCenterFocusOpr(0, &poor);  // tolerated
            for (int i = 0; i < c.probes; ++i) {
                APPSetCenterFocusOpr(0, &poor);
                positions.push_back(focus_position());
            }
        });
        EXPECT_THAT(legs(start, positions), ElementsAreArray(c.legs));
        EXPECT_EQ(positions[1] - positions[0], 24);
        EXPECT_EQ(motor_position, positions.back());
    }
    // The step grows with the multiple.
    for (auto [multiple, step] : {std::pair{8.0f, 32}, {13.0f, 40}, {20.0f, 48}}) {
        set_focus_range(kFocusMin, kFocusMax);
        quietly([] { APPSetCenterFocusOpr(1, nullptr); });
        current_multiple = multiple;
        const int start = focus_position();
        quietly([] { AppSetMotorMoveByStep(shock_manager); });
        EXPECT_EQ(focus_position() - start, step) << multiple;
    }
}

TEST_F(Operations, FreeScanVisitsTheRangeThenFallsBackToTheBestCl) {
    set_focus_range(-1200, 1300);  // a sixth of the range is 416
    std::atomic<int32_t> over{0};
    int32_t done = 0;
    quietly([&] { APPSetFreeFocusOpr(1, &done, &over, nullptr); });
    std::vector<int> visited;
    auto read_at_position = [&] {
        // The best CL (140) is seen at step 48; nothing reaches 150.
        PdLibInputData record = window_record(20, 0, focus_position() == 48 ? 140 : 60);
        output_ = captured([&] { APPSetFreeFocusOpr(0, &done, &over, &record); });
        visited.push_back(focus_position());
    };
    while (over == 0 && visited.size() < 12) read_at_position();
    EXPECT_THAT(visited, ElementsAreArray({-1200, -784, -368, 48, 464, 880, 1296, 1300}));
    EXPECT_EQ(done, 0);
    read_at_position();
    EXPECT_THAT(output_, HasSubstr("Warnning:didn't fine high pdcl position,go to the max "
                                   "cl:140's position:48\r\n"));
    EXPECT_EQ(visited.back(), 48);
    read_at_position();  // once only: from now on it warns
    EXPECT_EQ(visited.back(), 48);
    EXPECT_THAT(output_, HasSubstr("！！warn,freefocus cl: 140 < valid: 150, ignore\n"));
}

TEST_F(Operations, MovesStayInTheRangeAndNeverMoveForNothing) {
    struct Case {
        const char* what;
        void (*move)();
        int expected;
    };
    const Case cases[] = {
        {"offset 0", [] { AppSetMotorMoveByOffset(0); }, 0},
        {"offset", [] { AppSetMotorMoveByOffset(-300); }, -300},
        {"manual 1.0", [] { APPSetManualFocusOpr(1.0f); }, kFocusMax},
        {"offset beyond the end", [] { AppSetMotorMoveByOffset(700); }, kFocusMax},
        {"manual 0.0", [] { APPSetManualFocusOpr(0.0f); }, kFocusMin},
        {"manual 1.5", [] { APPSetManualFocusOpr(1.5f); }, kFocusMax},
        {"manual -0.25: no lower clamp", [] { APPSetManualFocusOpr(-0.25f); }, -2250},
    };
    for (const Case& c : cases) {
        output_ = captured(c.move);
        EXPECT_EQ(focus_position(), c.expected) << c.what;
        EXPECT_EQ(motor_position, c.expected) << c.what;
    }
    // At the end already: the clamped target is where the lens stands, nothing runs.
    quietly([] { APPSetManualFocusOpr(1.0f); });
    const uint64_t pulses = board().vd_pulses();
    output_ = captured([] { AppSetMotorMoveByOffset(5); });
    EXPECT_EQ(output_, "warnning:target motor_position:1505 was out of range:-1500~1500\r\n");
    EXPECT_EQ(board().vd_pulses(), pulses);
}

TEST_F(Operations, BenchLoopFocusesUntilAskedToStop) {
    // The record describes the window a layout call left in focus_area; the loop's start-up
    // puts the sensor on the grid, whose window 0 it then reads: ~23 steps to go toward far.
    quietly([] { set_pdaf_windows_free_area(1500, 1000, 666, 500); });
    set_grid({{0, -200, 2047}});
    int32_t loop_result = -1;
    output_ = captured([&] {
        std::thread loop([&] { loop_result = AutoFocusByPDAF(); });
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (board().motor_position(twin::Motor::focus) == 0 &&
               std::chrono::steady_clock::now() < give_up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(UnAutoFocusByPDAF(), 0);
        loop.join();
    });
    EXPECT_EQ(loop_result, 0);
    EXPECT_EQ(onoff, 0);
    EXPECT_GT(board().motor_position(twin::Motor::focus), 0);
    // Searched, not matched: the log of a loop that ran long is too big to print.
    EXPECT_NE(output_.find("calibration:0,cl:2047,pd:-200,motor_position:"), std::string::npos);
    EXPECT_TRUE(output_.ends_with("[UnAutoFocusByPDAF] [6459] close auto pdaf\n"));
    onoff = 1;  // a stop already asked for
    EXPECT_EQ(UnAutoFocusByPDAF(), 1);
    onoff = 0;
}

class CentreFocus : public DayFocusTest {
protected:
    void SetUp() override {
        DayFocusTest::SetUp();
        quietly([] { LaserShareMemeoryInit(); });
        // The lens table row of x3.0: step 1000 - 10 x column (+ the unit's offset of 3).
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[kRow][c] = 1000 - 10 * c;
        calibration_offset_step = 3;
        quietly([] { APPSetCenterFocusOprByAssitInfo(1, nullptr); });
    }
    void TearDown() override {
        LaserMenManHandle = VrelShareMan{};
        DayFocusTest::TearDown();
    }

    // One focus step on the window the readout chose; returns its result.
    int32_t step(int window, int64_t pd, int64_t cl) {
        zy_current_select_win = window;
        record_ = window_record(window == PDAF_NO_WINDOW ? 20 : window, pd, cl);
        int32_t result = 0;
        output_ = captured([&] { result = APPSetCenterFocusOprByAssitInfo(0, &record_); });
        return result;
    }
    PdLibInputData record_{};
};

TEST_F(CentreFocus, WithoutAWindowCountsTwoAPassThenFollowsTheLaser) {
    global_laser_distance = 500;  // 50 m: column 50
    EXPECT_EQ(step(PDAF_NO_WINDOW, 0, 400), -1);
    EXPECT_THAT(output_, HasSubstr("更新此次雷达计数为:1\r\n"));
    EXPECT_EQ(step(PDAF_NO_WINDOW, 0, 400), -1);
    EXPECT_THAT(output_, HasSubstr("更新此次雷达计数为:3\r\n"));
    EXPECT_EQ(step(PDAF_NO_WINDOW, 0, 400), -1);
    EXPECT_THAT(output_, HasSubstr("更新此次雷达计数为:5\r\n"));
    EXPECT_EQ(focus_position(), 0);
    EXPECT_EQ(step(PDAF_NO_WINDOW, 0, 400), 0);
    EXPECT_THAT(output_, HasSubstr("超过计数，进行雷达辅助策略!\r\n"));
    EXPECT_EQ(focus_position(), 1000 - 500 + 3);
    EXPECT_EQ(m0_motor, 503);
    EXPECT_EQ(m0_windeos, PDAF_EMPTY_POINT);
    // The count stays: the next call goes straight to the laser; 4 m pauses and restarts it.
    global_laser_distance = 40;
    EXPECT_EQ(step(PDAF_NO_WINDOW, 0, 400), -1);
    EXPECT_THAT(output_, HasSubstr("因为雷达获取到距离为4米,所以此次暂停不走!\r\n"));
    EXPECT_EQ(need_laser_cnt, 0);
    EXPECT_EQ(focus_position(), 503);
}

TEST_F(CentreFocus, ConvergenceArithmeticAndTheWayBackToM0) {
    enum Outcome { converged, skipped, back_to_m0, locked_at_m0 };
    struct Case {
        const char* what;
        int64_t m1_pd;     // the frame's PD in the chosen window
        int64_t pd_at_m0;  // the frame's PD in m0's window; m0 was measured at PD 100
        float multiple;
        int32_t shocks;
        Outcome outcome;
        int end;  // the lens after a return to m0 (m0 stands at 200)
    };
    const Case cases[] = {
        {"100 - 89 > 10", 50, 89, 3.0f, 0, converged, 0},
        {"100 - 90 = 10", 50, 90, 3.0f, 0, back_to_m0, 192},
        {"m1 PD 19 is judged", 19, 100, 3.0f, 0, back_to_m0, 192},
        {"m1 PD -18 is not", -18, 100, 3.0f, 0, skipped, 0},
        {"m1 PD -19 is judged", -19, 100, 3.0f, 0, back_to_m0, 192},
        {"negative PD at m0: +8", 50, -95, 3.0f, 0, back_to_m0, 208},
        {"below x3.0: no compensation", 50, 95, 2.9f, 0, back_to_m0, 200},
        {"more than five in a row: lock at m0", 50, 95, 3.0f, 6, locked_at_m0, 200},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        quietly([] { APPSetCenterFocusOprByAssitInfo(1, nullptr); });
        is_free_focus_opr_over = 0;
        current_multiple = c.multiple;
        m0_motor = 200;
        m0_pd = 100;
        m0_cl = 2047;
        m0_windeos = 20;
        zy_judge_shock_cnt = c.shocks;
        zypd[20] = c.pd_at_m0;
        EXPECT_EQ(step(21, c.m1_pd, 2047), 0);
        EXPECT_EQ(m1_windeos, PDAF_EMPTY_POINT) << "m1 is emptied before every call ends";
        switch (c.outcome) {
            case converged:
            case skipped:
                EXPECT_EQ(m0_pd, c.m1_pd);
                EXPECT_EQ(m0_windeos, 21);
                EXPECT_EQ(zy_judge_shock_cnt, 0);
                break;
            case back_to_m0:
                EXPECT_EQ(m0_windeos, PDAF_EMPTY_POINT);
                EXPECT_EQ(focus_position(), c.end);
                EXPECT_EQ(m0_motor, c.end);
                EXPECT_EQ(zy_judge_shock_cnt, 1);
                break;
            case locked_at_m0:
                EXPECT_EQ(is_free_focus_opr_over, 1);
                EXPECT_EQ(focus_position(), c.end);
                EXPECT_EQ(zy_focus_lock_step, c.end);
                EXPECT_EQ(m0_windeos, PDAF_EMPTY_POINT);
                break;
        }
    }
}

TEST_F(CentreFocus, LocksOnTheThirdCallInARowOnceElevenPassesRan) {
    struct Case {
        int64_t cl;
        int32_t passes_before;  // passes since the zoom before the first call
        int lock_call;          // 0: never within 12 calls
    };
    for (const Case& c : {Case{1001, 8, 3}, Case{1001, 0, 11}, Case{1000, 20, 0}}) {
        SCOPED_TRACE(c.passes_before);
        quietly([] { APPSetCenterFocusOprByAssitInfo(1, nullptr); });
        is_free_focus_opr_over = 0;
        pdafcnt_over_multiple_change = c.passes_before;
        int locked_on = 0;
        for (int call = 1; call <= 12 && locked_on == 0; ++call) {
            ++pdafcnt_over_multiple_change;  // the loop counts its passes
            step(20, 9, c.cl);
            if (is_free_focus_opr_over == 1) locked_on = call;
        }
        EXPECT_EQ(locked_on, c.lock_call);
        if (locked_on != 0) {
            EXPECT_EQ(zy_focus_lock_step, focus_position());
            EXPECT_EQ(true_cnt, 0);
            EXPECT_THAT(output_,
                        HasSubstr("cl>1000,pd小于10,且连续次数为3,锁焦处理,并清空信息!\r\n"));
        }
    }
}

TEST(TargetSteps, OuterWindowsRunAShareOfTheDefocus) {
    struct Case {
        int32_t window;
        int64_t abs_pd, steps, expected;
    };
    const Case cases[] = {
        {10, 151, 100, 25},  {10, 150, 100, 33}, {10, 101, 100, 33},   {10, 100, 100, 50},
        {10, 51, -100, -50}, {10, 50, 100, 100}, {10, 151, -101, -25}, {11, 500, 100, 100},
    };
    for (const Case& c : cases) {
        zy_current_select_win = c.window;
        quietly([&] { EXPECT_EQ(get_target_step(c.abs_pd, c.steps), c.expected) << c.abs_pd; });
    }
    zy_current_select_win = PDAF_NO_WINDOW;
}

TEST_F(CentreFocus, LaserTargetColumnsNoEchoCountAndPause) {
    for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[kRow][c] = kRow * 1000 + c;
    struct Reading {
        uint16_t distance;
        int32_t step;  // expected result
        int32_t no_echo_count;
    };
    laser_1600m_cnt = 1;
    const Reading readings[] = {
        {40, LASER_PAUSE_STEP, 1},  // 4 m pauses and leaves the count alone
        {1000, 20103, 0},           // column 100
        {65535, 0, 1},
        {65535, 0, 2},
        {65535, 20104, 3},  // the third no-echo reading in a row: column 101
        {1001, 20103, 0},   // column 100
        {65535, 0, 1},      // counting again
        {2001, 20104, 0},   // column 101
        {9, 20003, 0},      // column 0
    };
    for (const Reading& r : readings) {
        low_ten_pd_motor = 77;
        quietly([&] {
            EXPECT_EQ(GetTargetPositionByLaser(r.distance, kMultiple), r.step) << r.distance;
        });
        EXPECT_EQ(laser_1600m_cnt, r.no_echo_count) << r.distance;
        EXPECT_EQ(low_ten_pd_motor, PDAF_EMPTY_POINT);
    }
    // A zoom that keeps the distance: a laser distance of 2.5 m picks column 8 whatever the
    // lens does.
    global_laser_distance = 25;
    TxtToDat[AppSetMultipleSectionRelation(5.0f)][8] = 1234;
    quietly([] { EXPECT_EQ(GetCurrentAdjacentPosition(kMultiple, 5.0f), 1237); });
}

}  // namespace
}  // namespace zoomaf::test
