// The day focus on the twin reading by reading: the readouts, the centre, free and manual
// operations, the assisted centre focus, the laser targets. Locks on a scene: closed_loop_test.
#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/twin_test.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::HasSubstr;

struct WindowPdCl {
    int index, pd, cl;
};

// The focus driver up with the lens at step 0, x3.0's focus range set, the sensor set up.
class DayFocusTest : public TwinTest {
protected:
    static constexpr int kRow = 20;  // AppSetMultipleSectionRelation(3.0)
    static constexpr int kFocusMin = -1500, kFocusMax = 1500;

    twin::BoardConfig board_config() override { return {.focus_start = 0}; }

    void SetUp() override {
        TwinTest::SetUp();
        board().write_file(IMX586_DCC_FILE, data_file(IMX586_DCC_FILE));
        bring_up_driver(MOTOR_ID_MS41928);
        quietly([] {
            LoadParamList();
            InitPDSetting();
        });
        current_multiple = 3.0f;
        set_focus_range(kFocusMin, kFocusMax);
        motor_position = 0;
    }

    static void set_focus_range(int min, int max) {
        multiple_index = kRow;
        mator_step_section[kRow][0] = mator_step_section[kRow][2] = min;
        mator_step_section[kRow][1] = max;
    }

    // The sensor's next frame: these windows, every other grid window at PD 0 and CL 0.
    void set_grid(const std::vector<WindowPdCl>& windows) {
        with<twin::Imx586>([&](twin::Imx586& s) {
            for (int i = 0; i < PDAF_GRID_WINDOWS; ++i) s.set_grid_pd_cl(i, 0, 0);
            for (const WindowPdCl& w : windows) s.set_grid_pd_cl(w.index, w.pd, w.cl);
        });
    }

    static PdLibInputData window_record(int w, int64_t pd, int64_t cl) {
        PdLibInputData record{};
        InitPdLibInputData_48windows(&record, w % 8, w / 8);
        record.PhaseDifference = pd;
        record.ConfidenceLevel = static_cast<uint64_t>(cl);
        return record;
    }

    static int focus_position() { return GetCurSteps(MOTOR_FOCUS); }
    static void lens_to(int step) {
        quietly([&] { SetFocusLens(static_cast<int16_t>(step), 0); });
        motor_position = focus_position();
    }

    PdLibInputData record_{};
};

TEST(WindowChoice, ClosestToTheAveragePdWithTiesToTheSmallerMagnitude) {
    const struct {
        std::vector<int64_t> pd;
        int32_t chosen;
    } cases[] = {
        {{10, 20, 30}, 1},  // average 20
        {{30, 10, 20}, 2},  // sorted first: the 20 is window 2
        {{-10, 10}, 0},     // both 10 from the average 0: the first stays
        {{10, -10}, 1},     // sorted, -10 comes first and stays
        {{-200, 150}, 1},   // both 175 from -25: |150| is smaller
        {{77}, 0},
    };
    for (const auto& c : cases) {
        std::vector<int64_t> pd = c.pd, cl(pd.size(), 1500);
        std::vector<int32_t> win(pd.size());
        for (size_t i = 0; i < win.size(); ++i) win[i] = static_cast<int32_t>(i);
        int64_t cl_out = -1, pd_out = -1;
        quietly([&] {
            EXPECT_EQ(pd_select_sort_wit_win(pd.data(), cl.data(), win.data(),
                                             static_cast<int32_t>(pd.size()), &cl_out, &pd_out),
                      c.chosen);
        });
        EXPECT_EQ(pd_out, c.pd[static_cast<size_t>(c.chosen)]);
        EXPECT_EQ(cl_out, 1500);
    }
    // One or two windows: the smaller signed PD, a tie takes the second.
    struct Pair {
        std::vector<int32_t> pd;
        int32_t chosen;
    };
    for (const Pair& p : {Pair{{5}, 0}, Pair{{5, 3}, 1}, Pair{{3, 5}, 0}, Pair{{4, 4}, 1}}) {
        std::vector<int32_t> pd = p.pd, cl(pd.size(), 1100), win = {7, 9};
        int64_t cl_out = 0, pd_out = 0;
        quietly([&] {
            EXPECT_EQ(
                pd_select_sort_one_or_two_win(pd.data(), cl.data(), win.data(),
                                              static_cast<int32_t>(pd.size()), &cl_out, &pd_out),
                win[static_cast<size_t>(p.chosen)]);
        });
        EXPECT_EQ(pd_out, p.pd[static_cast<size_t>(p.chosen)]);
    }
    int64_t untouched = 5;
    quietly([&] {
        EXPECT_EQ(pd_select_sort_wit_win(nullptr, nullptr, nullptr, 0, &untouched, &untouched), -1);
    });
    EXPECT_EQ(untouched, 5);
}

using Readout = DayFocusTest;

TEST_F(Readout, CentrePassBeforeTheRingWithItsPdBound) {
    const struct {
        int calibration;
        std::vector<WindowPdCl> windows;
        int32_t chosen;  // grid index, or PDAF_NO_WINDOW
        int64_t cl, pd;
    } cases[] = {
        // clang-format off
        // Centre windows above CL 1000 at any PD: average (30 + 10 - 5) / 3 = 11, closest 10.
        // 28 at CL 1000 does not count; the ring is not looked at.
        {0, {{19, 30, 2047}, {20, 10, 1500}, {27, -5, 1001}, {28, 11, 1000}, {10, 11, 2047}},
         20, 1500, 10},
        // No centre window above 1000: the ring within |PD| <= 200 after the calibration of 10
        // (191 + 10 is out); -200 and 140 + 10 tie at 175 from the average -25.
        {10, {{19, 0, 1000}, {10, 250, 2047}, {13, -210, 1200}, {29, 140, 1001}, {37, 191, 2047}},
         29, 1001, 150},
        {0, {{0, 0, 2047}, {47, 0, 2047}, {10, 300, 2047}}, PDAF_NO_WINDOW, 400, 0},
        // clang-format on
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.chosen);
        pd_calibration_value = c.calibration;
        set_grid(c.windows);
        int64_t cl = -1, pd = -1;
        call([&] { get_pd_and_lc_48windwos_test(&record_, &cl, &pd, nullptr); });
        EXPECT_EQ(zy_current_select_win, c.chosen);
        EXPECT_EQ(cl, c.cl);
        EXPECT_EQ(pd, c.pd);
        EXPECT_EQ(current_select_pdaf_window, c.chosen == PDAF_NO_WINDOW ? 0 : -1);
        EXPECT_EQ(record_.PhaseDifference, c.pd);  // what the centre focus acts on
    }
    EXPECT_EQ(ignorecnt, 0) << "a whole number of rows was read";
}

// A point at the grid's edge groups the neighbours inward; four PDs 4 apart around their
// average give the second or third of the sorted group.
TEST_F(Readout, FreeGroupStaysOnTheGrid) {
    with<twin::Imx586>([](twin::Imx586& s) {
        for (int i = 0; i < PDAF_GRID_WINDOWS; ++i) s.set_grid_pd_cl(i, 4 * i - 90, 2047);
    });
    const struct {
        int x, y;
        int32_t second, third;
        const char* edge;
    } cases[] = {{100, 100, 1, 8, "坐标对应的窗口在左侧边缘!"},
                 {3839, 2159, 39, 46, "坐标对应的窗口在右侧边缘!"}};
    for (const auto& c : cases) {
        free_focus_pointx = c.x;
        free_focus_pointy = c.y;
        int64_t cl = 0, pd = 0;
        call([&] { get_pd_and_lc_freewindows_test(&record_, &cl, &pd, nullptr); });
        EXPECT_THAT(output_, HasSubstr(c.edge));
        EXPECT_THAT(zy_current_select_win, ::testing::AnyOf(c.second, c.third));
        EXPECT_EQ(pd, 4 * zy_current_select_win - 90);
    }
}

TEST_F(Readout, EightWindowLayoutChoosesFromThreeConfidentWindowsAndTheGain) {
    quietly([] {
        write_imx586_group_hold(1);
        set_pdaf_windows_center_area(0);
        write_imx586_group_hold(0);
    });
    const struct {
        int manual_cl_pd;
        std::vector<int> cl;  // windows 0..7, PD = 10 x window
        int64_t cl_out, pd_out;
        int32_t select;
    } cases[] = {
        {1, {900, 0, 0, 0, 0, 0, 0, 0}, 900, 0, 0},            // none: CL 900
        {1, {2047, 1200, 0, 0, 0, 0, 0, 0}, 0, 0, -1},         // two: nothing chosen
        {1, {2047, 1200, 1001, 0, 0, 0, 0, 0}, 1200, 10, -1},  // three: average 10
        {0, {2047, 2047, 2047, 2047, 0, 0, 0, 0}, 900, 0, 0},  // CL forced to 0
    };
    for (const auto& c : cases) {
        Manual_cl_pd = c.manual_cl_pd;
        with<twin::Imx586>([&](twin::Imx586& s) {
            for (int k = 0; k < 8; ++k) s.set_window_pd_cl(k, 10 * k, c.cl[static_cast<size_t>(k)]);
        });
        int64_t cl = -1, pd = -1;
        call([&] { get_pd_and_lc_7windwos_test(&record_, &cl, &pd); });
        EXPECT_EQ(cl, c.cl_out);
        EXPECT_EQ(pd, c.pd_out);
        EXPECT_EQ(current_select_pdaf_window, c.select);
        EXPECT_EQ(c.cl_out == 900,
                  output_.find("Morak-Warn: cl>1000 windowcnt=0,so set pd 0,set cl 900!\r\n") !=
                      std::string::npos);
        int64_t cls[8], pds[8], offsets[8];
        go_get_pd_cl_info(cls, pds, offsets);
        EXPECT_EQ(pds[3], 30);
        EXPECT_EQ(cls[0], c.manual_cl_pd == 0 ? 0 : c.cl[0]);
        // PD 30 at CL 0 still converts: the offset rounds up, opposite to the grid's sign.
        EXPECT_GT(offsets[3], 0);
    }
    with<twin::Imx586>([](twin::Imx586& s) { s.set_gain_code(1023); });
    int64_t gain = 0;
    EXPECT_EQ(get_gain_value(&gain), 0);
    EXPECT_EQ(gain, 1024);
}

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

// Readings below CL 150 are tolerated a few times (fewer the poorer), then the lens probes
// in legs that turn after probe_number steps, which triples (5, 13, 37); a range end turns
// a leg at once. Below x3.0 it never probes.
TEST_F(Operations, PoorReadingsAreToleratedThenProbedInTriplingLegs) {
    const struct {
        float multiple;
        int64_t cl;
        int max;
        int tolerated;  // readings answered -1 before the first probe
        int probes;
        std::vector<int> legs;
    } cases[] = {
        {3.0f, 40, kFocusMax, 5, 56, {5, 13, 37, 1}},
        {3.0f, 40, 50, 5, 17, {3, 13, 1}},
        {3.0f, 149, kFocusMax, 9, 1, {1}},
        {2.9f, 10, kFocusMax, 0, 1, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cl);
        set_focus_range(kFocusMin, c.max);
        lens_to(0);
        quietly([] { APPSetCenterFocusOpr(1, nullptr); });
        current_multiple = c.multiple;
        PdLibInputData poor = window_record(20, 0, c.cl);
        int answered = 0;
        std::vector<int> positions;
        call([&] {
            while (answered < 12 && APPSetCenterFocusOpr(0, &poor) == -1) ++answered;
            positions.push_back(focus_position());
            for (int i = 1; i < c.probes; ++i) {
                APPSetCenterFocusOpr(0, &poor);
                positions.push_back(focus_position());
            }
        });
        EXPECT_EQ(answered, c.tolerated);
        EXPECT_THAT(legs(0, positions), ElementsAreArray(c.legs));
        if (c.probes > 1) {
            EXPECT_EQ(positions[1] - positions[0], 24);
        }
        EXPECT_EQ(motor_position, positions.back());
        if (c.legs.empty()) {
            EXPECT_THAT(output_, HasSubstr("！！warn,centerfocus  cl: 10 < valid: 150, ignore\n"));
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
    call([&] { APPSetCenterFocusOpr(0, &at_151); });
    EXPECT_GT(focus_position(), before + 10) << "PD -200 moves toward the far side by ~24 steps";
    EXPECT_THAT(output_, HasSubstr("calibration:0,cl:151,pd:-200,motor_position:"));
    // The probing step grows with the multiple.
    for (auto [multiple, step] : {std::pair{8.0f, 32}, {13.0f, 40}, {20.0f, 48}}) {
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
        call([&] { APPSetFreeFocusOpr(0, &done, &over, &record); });
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
    const struct {
        void (*move)();
        int expected;
    } cases[] = {
        {[] { AppSetMotorMoveByOffset(0); }, 0},
        {[] { APPSetManualFocusOpr(1.0f); }, kFocusMax},
        {[] { APPSetManualFocusOpr(0.0f); }, kFocusMin},
        {[] { APPSetManualFocusOpr(1.5f); }, kFocusMax},
    };
    for (const auto& c : cases) {
        call(c.move);
        EXPECT_EQ(focus_position(), c.expected);
        EXPECT_EQ(motor_position, c.expected);
    }
    // At the end already: the clamped target is where the lens stands, nothing runs.
    quietly([] { APPSetManualFocusOpr(1.0f); });
    const uint64_t pulses = vd_pulses();
    call([] { AppSetMotorMoveByOffset(5); });
    EXPECT_EQ(output_, "warnning:target motor_position:1505 was out of range:-1500~1500\r\n");
    EXPECT_EQ(vd_pulses(), pulses);
}

// The loop's start-up puts the sensor on the grid, whose window 0 it reads: PD -200 goes far.
TEST_F(Operations, BenchLoopFocusesUntilAskedToStop) {
    quietly([] { set_pdaf_windows_free_area(1500, 1000, 666, 500); });
    set_grid({{0, -200, 2047}});
    int32_t loop_result = -1;
    call([&] {
        std::thread loop([&] { loop_result = AutoFocusByPDAF(); });
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (motor_at(twin::Motor::focus) == 0 && std::chrono::steady_clock::now() < give_up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(UnAutoFocusByPDAF(), 0);
        loop.join();
    });
    EXPECT_EQ(loop_result, 0);
    EXPECT_EQ(onoff, 0);
    EXPECT_GT(motor_at(twin::Motor::focus), 0);
    EXPECT_NE(output_.find("calibration:0,cl:2047,pd:-200,motor_position:"), std::string::npos);
    EXPECT_TRUE(output_.ends_with("[UnAutoFocusByPDAF] [6459] close auto pdaf\n"));
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

    int32_t step(int window, int64_t pd, int64_t cl) {
        zy_current_select_win = window;
        record_ = window_record(window == PDAF_NO_WINDOW ? 20 : window, pd, cl);
        return call([&] { return APPSetCenterFocusOprByAssitInfo(0, &record_); });
    }
};

// m0 was measured at PD 100 in window 20 with the lens at 200; m1 reads window 21.
TEST_F(CentreFocus, ConvergenceArithmeticAndTheWayBackToM0) {
    enum Outcome { moved_on, back_to_m0, locked_at_m0 };
    const struct {
        const char* what;
        int64_t m1_pd;     // the frame's PD in the chosen window
        int64_t pd_at_m0;  // the frame's PD in m0's window
        float multiple;
        int32_t shocks;
        Outcome outcome;
        int end;  // the lens after a return to m0
    } cases[] = {
        {"100 - 89 > 10: converges", 50, 89, 3.0f, 0, moved_on, 0},
        {"100 - 90 = 10", 50, 90, 3.0f, 0, back_to_m0, 192},
        {"m1 PD 19 is judged", 19, 100, 3.0f, 0, back_to_m0, 192},
        {"m1 PD -18 is not", -18, 100, 3.0f, 0, moved_on, 0},
        {"m1 PD -19 is judged", -19, 100, 3.0f, 0, back_to_m0, 192},
        {"negative PD at m0: +8", 50, -95, 3.0f, 0, back_to_m0, 208},
        {"below x3.0: no compensation", 50, 95, 2.9f, 0, back_to_m0, 200},
        // Set directly: through the loop a return to m0 empties m0, and the next call's fresh
        // m0 clears the count, so it never passes 1.
        {"more than five in a row: lock at m0", 50, 95, 3.0f, 6, locked_at_m0, 200},
    };
    for (const auto& c : cases) {
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
        EXPECT_EQ(m0_windeos, c.outcome == moved_on ? 21 : PDAF_EMPTY_POINT);
        EXPECT_EQ(is_free_focus_opr_over, c.outcome == locked_at_m0 ? 1 : 0);
        if (c.outcome == moved_on) {
            EXPECT_EQ(m0_pd, c.m1_pd);
            EXPECT_EQ(zy_judge_shock_cnt, 0);
            continue;
        }
        EXPECT_EQ(focus_position(), c.end);
        EXPECT_EQ(c.outcome == back_to_m0 ? m0_motor : zy_focus_lock_step, c.end);
        if (c.outcome == back_to_m0) {
            EXPECT_EQ(zy_judge_shock_cnt, 1);
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
            EXPECT_THAT(output_,
                        HasSubstr("cl>1000,pd小于10,且连续次数为3,锁焦处理,并清空信息!\r\n"));
        }
    }
}

TEST(TargetSteps, OuterWindowsRunAShareOfTheDefocus) {
    const struct {
        int32_t window;
        int64_t abs_pd, steps, expected;
    } cases[] = {
        {10, 151, 100, 25},  {10, 150, 100, 33}, {10, 101, 100, 33},   {10, 100, 100, 50},
        {10, 51, -100, -50}, {10, 50, 100, 100}, {10, 151, -101, -25}, {11, 500, 100, 100},
    };
    for (const auto& c : cases) {
        zy_current_select_win = c.window;
        quietly([&] { EXPECT_EQ(get_target_step(c.abs_pd, c.steps), c.expected) << c.abs_pd; });
    }
    zy_current_select_win = PDAF_NO_WINDOW;
}

// The lens table steps chosen without a focus reading: from the laser distance, the target
// multiple or the lens's own column, and the fall-backs. Each table cell holds its own row and
// column (row * 1000 + column), so a result names the cell it came from.
class LaserTargets : public TwinTest {
protected:
    twin::BoardConfig board_config() override { return {.focus_start = 0}; }

    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver(MOTOR_ID_MS41928);
        for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
            for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[r][c] = r * 1000 + c;
        }
    }
    static int cell(float multiple, int column) {
        return AppSetMultipleSectionRelation(multiple) * 1000 + column;
    }
};

// 4 m pauses without touching the no-echo count; no echo moves only on the third reading in a
// row (to column 101); any valid reading starts the count again.
TEST_F(LaserTargets, LaserStepColumnsNoEchoCountAndPause) {
    calibration_offset_step = 3;
    laser_1600m_cnt = 1;
    const int32_t col0 = cell(3.0f, 0) + 3, col100 = col0 + 100, col101 = col0 + 101;
    const struct {
        uint16_t distance;
        int32_t step, no_echo_count;
    } readings[] = {{40, LASER_PAUSE_STEP, 1},
                    {1000, col100, 0},
                    {65535, 0, 1},
                    {65535, 0, 2},
                    {65535, col101, 3},
                    {1001, col100, 0},
                    {65535, 0, 1},
                    {2001, col101, 0},
                    {9, col0, 0}};
    for (const auto& r : readings) {
        low_ten_pd_motor = 77;
        EXPECT_EQ(call([&] { return GetTargetPositionByLaser(r.distance, 3.0f); }), r.step)
            << r.distance;
        EXPECT_EQ(laser_1600m_cnt, r.no_echo_count) << r.distance;
        EXPECT_EQ(low_ten_pd_motor, PDAF_EMPTY_POINT);
    }
}

TEST_F(LaserTargets, AZoomKeepsTheColumnOfTheLaserDistanceOrOfTheTargetMultiple) {
    const struct {
        uint16_t laser;
        float to;
        int column;
    } cases[] = {
        {10, 5.0f, 7}, {24, 5.0f, 7},  {25, 5.0f, 8},   {29, 5.0f, 8},   {30, 5.0f, 9},
        {44, 5.0f, 9}, {45, 5.0f, 10}, {399, 5.0f, 10}, {400, 5.0f, 11}, {9, 1.9f, 1},
        {9, 2.0f, 2},  {0, 3.9f, 2},   {0, 4.0f, 3},    {0, 7.9f, 3},    {0, 8.0f, 4},
        {0, 9.9f, 4},  {0, 10.0f, 5},  {0, 15.9f, 5},   {0, 16.0f, 6},   {0, 17.4f, 6},
    };
    for (const auto& c : cases) {
        global_laser_distance = c.laser;
        EXPECT_EQ(call([&] { return GetCurrentAdjacentPosition(3.0f, c.to); }),
                  cell(c.to, c.column))
            << "laser " << c.laser << " to x" << c.to;
    }
    EXPECT_THAT(output_,
                HasSubstr("tvk set multiple 3.000000 to 17.400000,and motor position 0 to "));
    // A row from -500 in steps of 10, calibrated by +3: the lens at step 0 stands after column
    // 49 (-7) and before column 50 (+3), and the zoom keeps column 49.
    const int from_row = AppSetMultipleSectionRelation(3.0f);
    for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[from_row][c] = c * 10 - 500;
    calibration_offset_step = 3;
    EXPECT_EQ(call([] { return GetCurrentAdjacentPositionForLaser(3.0f, 8.0f); }),
              cell(8.0f, 49) + 3);
    EXPECT_EQ(output_, "");
}

TEST_F(LaserTargets, FallBacksWhenTheLaserFailsAndStepsWithoutPdOrLaser) {
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(4.0f); }), cell(4.0f, 8));
    EXPECT_EQ(output_,
              "\r\ntvk-Warning:Get laser distance fail,moter stop 8m position\r\n run motor "
              "step:" +
                  std::to_string(cell(4.0f, 8)) + "\r\n");
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(4.1f); }), cell(4.1f, 10));
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(9.0f); }), cell(9.0f, 10));
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(9.1f); }), cell(9.1f, 25));
    EXPECT_THAT(output_, HasSubstr("moter stop 25m position run motor step:"));

    const std::pair<float, int> no_pd_no_laser[] = {
        {3.0f, 8}, {3.1f, 15}, {5.0f, 15}, {10.0f, 20}, {14.0f, 30}, {17.0f, 40}, {17.1f, 50}};
    for (const auto& [multiple, steps] : no_pd_no_laser) {
        EXPECT_EQ(call([&] { return GetNoPDNolaserValue(multiple); }), steps) << multiple;
    }
    EXPECT_THAT(output_,
                EndsWith("Get No PD No laser motor Value-----------------------------\r\n"));
}

}  // namespace
}  // namespace zoomaf::test
