// The day focus on the twin: the service at its load-time state, the focus motor driver up
// with the lens at step 0, the zoom row's focus range set, and the sensor set up by
// InitPDSetting (PD output on over the grid, the shipped DCC values). PD and CL are set per
// window through the twin's IMX586 control face.
#pragma once

#include <cstring>
#include <vector>

#include "tests/service/service_fixture.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/pdaf_focus.h"

namespace zoomaf::test {

struct WindowPdCl {
    int index;
    int pd;
    int cl;
};

class DayFocusTest : public ServiceTest {
protected:
    static constexpr float kMultiple = 3.0f;
    static constexpr int kRow = 20;  // AppSetMultipleSectionRelation(3.0)
    static constexpr int kFocusMin = -1500;
    static constexpr int kFocusMax = 1500;

    void SetUp() override {
        ServiceTest::SetUp();
        reset_day_focus();
        board().set_motor_position(twin::Motor::focus, 0);  // where the driver starts counting
        board().write_file(IMX586_DCC_FILE, data_file(IMX586_DCC_FILE));
        quietly([] {
            InitAttr(10);
            ASSERT_EQ(InitSpi(), 0);
            InitGPIO(MOTOR_ID_MS41928);
            InitReg();
            LoadParamList();
            InitPDSetting();
        });
        current_multiple = kMultiple;
        set_focus_range(kFocusMin, kFocusMax);
        motor_position = 0;
    }

    void TearDown() override {
        EXPECT_TRUE(board().faults().empty()) << "the twin recorded a hardware fault";
        ServiceTest::TearDown();
    }

    // Every day focus variable at its load-time value.
    static void reset_day_focus() {
        m0_motor = m1_motor = m0_windeos = m1_windeos = PDAF_EMPTY_POINT;
        m0_pd = m0_cl = m1_pd = m1_cl = PDAF_EMPTY_POINT;
        lock_value = 10;
        true_cnt = need_laser_cnt = zy_shock_cnt = zy_judge_shock_cnt = zy_focus_lock_step = 0;
        current_lowlevel_limit_counter = 5;
        low_ten_pd_motor = PDAF_EMPTY_POINT;
        zy_current_select_win = PDAF_NO_WINDOW;
        try_direction = 1;
        probe_number = 4;
        try_counter = fail_counter_level_50 = fail_counter_level_150 = 0;
        free_focus_probe_counter = temp_max_fd_cl_motor_step = 0;
        temp_max_fd_cl_value = 0;
        laser_1600m_cnt = laser_4m_cnt = pdafcnt_over_multiple_change = 0;
        Manual_cl_pd = 1;
        global_laser_distance = 0;
        Manual_laser_setup = MANUAL_LASER_NONE;
    }

    static void set_focus_range(int min, int max) {
        multiple_index = kRow;
        mator_step_section[kRow][0] = mator_step_section[kRow][2] = min;
        mator_step_section[kRow][1] = max;
    }

    // The sensor's next frame: these windows, every other grid window at PD 0 and CL 0.
    void set_grid(const std::vector<WindowPdCl>& windows) {
        board().imx586([&](twin::Imx586& s) {
            for (int i = 0; i < PDAF_GRID_WINDOWS; ++i) s.set_grid_pd_cl(i, 0, 0);
            for (const WindowPdCl& w : windows) s.set_grid_pd_cl(w.index, w.pd, w.cl);
        });
    }

    // A record for grid window w with this PD and CL, as the grid readout leaves it.
    static PdLibInputData window_record(int w, int64_t pd, int64_t cl) {
        PdLibInputData record{};
        InitPdLibInputData_48windows(&record, w % 8, w / 8);
        record.PhaseDifference = pd;
        record.ConfidenceLevel = static_cast<uint64_t>(cl);
        return record;
    }

    int focus_position() { return GetCurSteps(MOTOR_FOCUS); }
    void lens_to(int step) {
        quietly([&] { SetFocusLens(static_cast<int16_t>(step), 0); });
        motor_position = focus_position();
    }
};

}  // namespace zoomaf::test
