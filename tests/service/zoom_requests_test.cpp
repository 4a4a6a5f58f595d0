// Zoom requests on the twin (focus following the zooms on a scene is in closed_loop_test.cpp):
// start-up, the 20-step check of the last lock, x0.5 steps, refusals, retries, IS pacing.
#include <gmock/gmock.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/twin_test.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

// The numbers printed right after each occurrence of label, or of then after it.
std::vector<double> numbers_after(const std::string& text, const std::string& label,
                                  const std::string& then = "") {
    std::vector<double> numbers;
    for (size_t at = text.find(label); at != std::string::npos; at = text.find(label, at + 1)) {
        const size_t number = then.empty() ? at + label.size() : text.find(then, at) + then.size();
        numbers.push_back(std::strtod(text.c_str() + number, nullptr));
    }
    return numbers;
}

class Zoom : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        start_focus_service();
    }
    void TearDown() override {
        EXPECT_EQ(zoom_running_flag, 0);
        TwinTest::TearDown();
    }

    static int driver_focus() { return GetCurSteps(MOTOR_FOCUS); }
    static int table_step(float multiple, int column) {
        return TxtToDat[AppSetMultipleSectionRelation(multiple)][column];
    }
};

// The bench's start-up: x1.0 kept by the service, x3.5 by the driver, focus at row 0's start.
TEST_F(Zoom, BenchStartUpKeepsX1AndTheStartStep) {
    start_motors(3.5f);
    call([] {
        UnInitmotor();
        EXPECT_EQ(AppSetMotordevInit(), 0);
    });
    EXPECT_EQ(current_multiple, 1.0f);
    EXPECT_EQ(multiple_index, 0);
    EXPECT_EQ(GetCurMultiple(), 3.5f);
    EXPECT_EQ(driver_focus(), mator_step_section[0][2]);
    EXPECT_EQ(motor_position, mator_step_section[0][2]);
    EXPECT_THAT(output_, HasSubstr("min step:2724,max step:3022\r\n"));
}

// The last lock (at x8) against the lens table's step for the laser distance: within 19
// steps the laser's column is kept at x11, farther off the column where the lock lies.
TEST_F(Zoom, TwentyStepCheckOfTheLastLock) {
    // Row x8 of the shipped table: column 24 -380, 25 -384, 30 -401, 38 -420, 39 -422.
    const struct {
        uint16_t laser;
        int32_t lock;
        bool checked;
        int out_20_step;
        int column;         // of the focus target at x11
        const char* print;  // expected in the messages
    } cases[] = {
        {300, -382, true, 0, 30,
         "雷达列数:30,雷达步数:-401\r\n表格索引:70\r\n与雷达相差在20步内!\r\n"},
        {300, -420, true, 0, 30, "与雷达相差在20步内!"},
        {300, -381, true, 1, 24,
         "zy_focus_lock_step:-381, TxtToDat[temp_multiple_index][i]:-384\r\n"
         "对清的第一列是:24,步数是:-380\r\n与雷达相差超出!"},
        {300, -421, true, 1, 38, "对清的第一列是:38,步数是:-420\r\n"},
        {1500, -465, true, 0, 100, "雷达列数:100,"},
        {500, -437, true, 0, 50, "雷达列数:50,"},
        // No echo: column 101 for the check; the target keeps the focus's own column (10).
        {LASER_NO_ECHO, -477, true, 0, 10, "velmor:laser > 1600m! meter_index is 101。\r\n"},
        // 4 m and no reading skip the check: the focus keeps its own column.
        {40, -401, false, 1, 10, ""},
        {0, -401, false, 1, 10, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "laser " << c.laser << " lock " << c.lock);
        start_motors(8.0f);
        if (c.laser != 0) laser_on(c.laser);
        set_zoom_running(1);
        zoom_running_flag = 0;
        is_free_focus_opr_over = 1;
        zy_focus_lock_step = c.lock;
        call([] { EXPECT_EQ(AppSetMultipleByPdTrend(11.0f), 0); });
        EXPECT_EQ(occurrences(output_, "有上次对清步数和雷达距离"), c.checked ? 1 : 0);
        EXPECT_EQ(is_out_20_step, c.out_20_step);
        EXPECT_THAT(output_, HasSubstr(c.print));
        EXPECT_EQ(driver_focus(), table_step(11.0f, c.column));
        laser_off();
        global_laser_distance = 0;
    }
}

TEST_F(Zoom, TheSameMultipleIsRefusedWithoutAMove) {
    start_motors(5.0f);
    const std::string same = "SetMultiple have sampe multiple now,return!--->5.000100";
    const struct {
        int32_t (*request)();
        std::string message;
    } cases[] = {
        {[] { return AppSetMultiple(5.0f); }, same},  // 5.0 + 0.0001 is what is stored
        {[] { return AppSetMultipleWithFocus(0, current_multiple); }, same},
        {[] { return AppSetMultipleByPdTrend(current_multiple); }, same},
        {[] { return AppSetMultipleWithoutLock(current_multiple); }, same},
        {[] { return AppSetMultipleWithPDAF(current_multiple); },
         "Error:AppSetMultipleWithPDAF current multiplle is equal to target multiple!\r\n"},
    };
    const uint64_t pulses = vd_pulses();
    for (const auto& c : cases) {
        EXPECT_EQ(call(c.request), -1);
        EXPECT_THAT(output_, HasSubstr(c.message));
    }
    EXPECT_EQ(vd_pulses(), pulses);
    EXPECT_EQ(current_multiple, 5.0001f);
}

// While the driver runs every request tries 21 times, 100 ms apart, then gives up.
TEST_F(Zoom, RetriesWhileTheDriverRunsThenGivesUp) {
    start_motors(3.5f);
    const struct {
        int32_t (*request)();
        int notes;            // "Init motor SetMultiple running:1" lines
        uint64_t elapsed_ms;  // 20 pauses, and the focus passes before a x0.5 step
    } cases[] = {
        {[] { return AppSetMultiple(8.0f); }, 21, 2000},
        {[] { return AppSetMultipleByPdTrend(8.0f); }, 0, 2000},
        {[] { return AppSetMultipleWithPDAF(8.0f); }, 21, 2100},
    };
    gRunData.running = 1;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.elapsed_ms);
        const uint64_t start = board().now_ns();
        EXPECT_EQ(call(c.request), -1);
        EXPECT_EQ(occurrences(output_, "warn, motor running, return 1"), 21);
        EXPECT_EQ(occurrences(output_, "Init motor SetMultiple running:1\r\n"), c.notes);
        EXPECT_THAT(output_,
                    HasSubstr("!Error !Error !Error,set multiple fail!->return\r\n\r\n\r\n"));
        // Plus the sensor's bus time of the PD reads (about 1 ms in all).
        EXPECT_NEAR((board().now_ns() - start) / 1'000'000, c.elapsed_ms + 1, 1);
        EXPECT_EQ(current_multiple, 3.5001f);
        ASSERT_TRUE(service_lock_free());
    }
    // A run that ends after 250 ms: the fourth attempt zooms.
    bool ended = false;
    const int run_ends = board().add_periodic(250'000'000, [&](uint64_t) {
        if (!ended) gRunData.running = 0;
        ended = true;
    });
    EXPECT_EQ(call([] { return AppSetMultiple(8.0f); }), 0);
    board().cancel_periodic(run_ends);
    EXPECT_EQ(occurrences(output_, "Init motor SetMultiple running:1\r\n"), 3);
    EXPECT_EQ(current_multiple, 8.0001f);
}

TEST_F(Zoom, PdafZoomStepsOnTheHalfGridWithFocusPassesBetween) {
    const struct {
        float from, to;
        int mode;
        std::vector<double> steps;  // the intermediate multiples
        const char* pass;           // the focus pass message
        int passes;
    } cases[] = {
        {3.5f, 5.0f, PDAF_CENTER_MODE, {4.0, 4.5}, "AAA cl: 0, pd: ", 4},
        {11.0f, 8.0f, PDAF_CENTER_MODE, {10.5, 10.0, 9.5, 9.0, 8.5}, "BBB cl: 0, pd: ", 15},
        {8.0f, 5.2f, MANUAL_FOCUS_MODE, {7.5, 7.0, 6.5, 6.0, 5.5}, "BBB", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.from << " -> " << c.to);
        start_motors(c.from);
        current_focus_mode = c.mode;
        EXPECT_EQ(call([&] { return AppSetMultipleWithPDAF(c.to); }), 0);
        const char* step = c.to > c.from ? "\r\nsetA AppSetMultipleWithoutLock,from:"
                                         : "\r\nsetB AppSetMultipleWithoutLock,from:";
        EXPECT_THAT(numbers_after(output_, step, "->"), ElementsAreArray(c.steps));
        EXPECT_EQ(occurrences(output_, c.pass), c.passes);
        EXPECT_EQ(GetCurMultiple(), c.to);
    }
}

TEST_F(Zoom, FocusTargetRulesAndBounds) {
    start_motors(3.5f);  // focus at 2873, the 10 m step of x3.5
    // The PTZ keeps the focus step, clamped to the top of x11's range; a lock column beyond the
    // table or before it; without a laser x11's 29 m step read at x8 (the nearest column).
    EXPECT_EQ(call([] { return GetTargetMultipleFocusstep(0, 1, 3.5f, 11.0f); }), 617);
    EXPECT_EQ(call([] { return GetTargetMultipleFocusstepByZyMethods(0, 0, 1, 500, 3.5f, 11.0f); }),
              -2533);
    EXPECT_EQ(call([] { return GetTargetMultipleFocusstepByZyMethods(0, 0, 1, -4, 3.5f, 11.0f); }),
              617);
    EXPECT_EQ(call([] { return GetTargetMultipleFocusstep(-2366, 0, 11.0f, 8.0f); }), -398);
    EXPECT_EQ(
        call([] { return GetTargetMultipleFocusstepByZyMethods(-2366, 0, 7, 2, 11.0f, 8.0f); }),
        -398);
    // The unit's offset is added to every table step.
    laser_on(300);
    calibration_offset_step = 5;
    EXPECT_EQ(call([] { return GetTargetMultipleFocusstep(0, 0, 3.5f, 8.0f); }), -401 + 5);
}

TEST_F(Zoom, IsValueSequencesKeepTheirPacing) {
    const struct {
        int32_t (*sequence)(float);
        float multiple;
        int32_t old_value;
        std::vector<double> values;
        uint64_t pause_ms;
        int32_t old_after;
    } cases[] = {
        {ISRestoreService, 6.0f, 0, {590, 580, 570, 560, 550, 540, 530, 520}, 120, 520},
        {ISRestoreService, 4.0f, 7, {}, 120, 7},
        {ZoomRunningISRestore, 12.5f, 520, {540, 560, 580, 600, 620}, 80, 520},
        {ZoomRunningISRestore, 13.0f, 590, {610}, 80, 590},
        {ZoomRunningISRestore, 12.0f, 520, {}, 80, 520},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.multiple);
        OldISValue = c.old_value;
        const uint64_t start = board().now_ns();
        EXPECT_EQ(call([&] { return c.sequence(c.multiple); }), 0);
        EXPECT_THAT(numbers_after(output_, "Set IS Value is "), ElementsAreArray(c.values));
        EXPECT_EQ(board().now_ns() - start, c.values.size() * c.pause_ms * 1'000'000);
        EXPECT_EQ(OldISValue, c.old_after);
    }
    EXPECT_EQ(AppGetIsValue(612), 612);
}

}  // namespace
}  // namespace zoomaf::test
