// The night searches on the twin: the motor driver up with the physical focus position equal
// to the driver's, a synthetic lens table row (steps falling by 10 a column: 2000 at column
// 0, 1940 at 6 m, 950 at 600 m) with the night range the loop derives from it, and whole
// searches against a sharpness function of the focus motor's physical position. No fault of
// the twin is allowed.
#pragma once

#include <algorithm>
#include <cstring>

#include "tests/service/service_fixture.hpp"
#include "zoomaf/night_focus.h"

namespace zoomaf::test {

inline constexpr int kRow = 40;

inline int32_t synthetic_step(int column) {
    return 2000 - 10 * column;
}

// The night range of the current row, as the loop sets it.
inline void set_range_of_row() {
    night_focus_man.range_near = TxtToDat[current_multiple_index][6];
    night_focus_man.range_far = TxtToDat[current_multiple_index][105] - 50;
}

struct SearchRun {
    int32_t in_focus;             // where the sharpness peaks
    int frames;                   // search calls, one per frame
    int32_t error;                // final physical position minus in_focus
    int32_t last_near, last_far;  // the ends of the last (small-step) list
};

class NightSearch : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        quietly([] {
            InitAttr(10);
            EXPECT_EQ(InitSpi(), 0);
            InitGPIO(1);
            InitReg();
            LoadParamList();
        });
        board().set_motor_position(twin::Motor::zoom, 0);
        board().set_motor_position(twin::Motor::focus, 0);
        defauult_probe_dir = -1;
        current_multiple_index = kRow;
        for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[kRow][c] = synthetic_step(c);
        start_record();
    }

    void TearDown() override {
        for (const twin::RecordedFault& fault : board().faults()) ADD_FAILURE() << fault.text;
        ServiceTest::TearDown();
    }

    // The record as the loop's first night pass hands it to the range calls.
    static void start_record() {
        std::memset(&night_focus_man, 0, sizeof night_focus_man);
        set_range_of_row();
        night_focus_man.state = NIGHT_STATE_COARSE;
        night_focus_man.interval_near = night_focus_man.interval_far = NIGHT_FV_NOT_MEASURED;
    }

    // The service's own move: the focus motor to step, read back into motor_position.
    static void move_focus(int32_t step) {
        quietly([&] {
            SetFocusLens(static_cast<int16_t>(step), 0);
            motor_position = GetCurSteps(MOTOR_FOCUS);
        });
    }

    int32_t focus_position() { return board().motor_position(twin::Motor::focus); }

    // One night search with the shipped lens table, run as the loop runs it: the range
    // from the laser or the coarse points, then one search call per frame with the sharpness
    // at the focus motor's physical position, until done. The sharpness peaks unit_offset
    // steps off the table's step of in_focus_column; the motor starts where motor
    // initialisation leaves it (the 10 m column), walking toward far.
    SearchRun run_search(float multiple, int in_focus_column, int unit_offset, uint32_t distance,
                         bool laser) {
        current_multiple = multiple;
        current_multiple_index = AppSetMultipleSectionRelation(multiple);
        const int row = current_multiple_index;
        start_record();
        defauult_probe_dir = -1;
        move_focus(TxtToDat[row][10]);
        SearchRun run{.in_focus = TxtToDat[row][in_focus_column] + unit_offset};
        quietly([&] {
            laser ? get_exact_search_range_by_laser(distance) : get_rough_search_range_by_laser();
        });
        while (night_focus_man.state != NIGHT_STATE_DONE && run.frames < 100) {
            const double defocus = focus_position() - run.in_focus;
            const auto fv = static_cast<int64_t>(50000 + 1e6 * 900 / (900 + defocus * defocus));
            ++run.frames;
            quietly([&] {
                const int32_t state = night_focus_man.state;
                if (state == NIGHT_STATE_COARSE) do_coarch_search(0, fv);
                if (state == NIGHT_STATE_BIGSTEP) do_bigstep_exact_search(0, fv);
                if (state == NIGHT_STATE_SMALLSTEP) do_smallstep_exact_search(0, fv);
            });
        }
        run.error = focus_position() - run.in_focus;
        const int32_t last = std::clamp(night_focus_man.exact_last, 0, NIGHT_EXACT_POINTS - 1);
        run.last_near = night_focus_man.exact_points[0].step;
        run.last_far = night_focus_man.exact_points[last].step;
        return run;
    }
};

}  // namespace zoomaf::test
