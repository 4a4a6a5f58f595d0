// The start of the auto-focus loop and one pass of it: the changes made by the control
// calls since the last pass, then one focus step of the current mode, under the service
// lock; then the sleep.
#include "service/af_loop.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/night_focus.h"
#include "zoomaf/pdaf_focus.h"

namespace zoomaf {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kZoomRunningPauseNs = 40 * kMillisecond;
constexpr uint64_t kPointChangePauseNs = 50 * kMillisecond;
constexpr uint64_t kNightFramePauseNs = 33 * kMillisecond;  // one frame at about 30 fps

void reset_centre_focus() {
    APPSetCenterFocusOprByAssitInfo(1, nullptr);
}

// A zoom since the last pass: free mode ends, the default search direction follows the
// zoom, and the night range follows the new row.
void on_zoom_change(const AfLoopState& state) {
    if (current_focus_mode.load(std::memory_order_relaxed) == PDAF_FREE_MODE) {
        std::puts("******multiple change,so set center mode\r");
        current_focus_mode = PDAF_CENTER_MODE;
        pdafcnt_over_multiple_change = 0;
    }
    if (current_multiple > state.last_multiple) {
        defauult_probe_dir = 1;
        std::printf("由倍数%f变到%f,小到大，所默认方向设置为近焦:%d\r\n", state.last_multiple,
                    current_multiple, defauult_probe_dir);
    } else {
        defauult_probe_dir = -1;
        std::printf("由倍数%f变到%f,大到小，所默认方向设置为远焦:%d\r\n", state.last_multiple,
                    current_multiple, defauult_probe_dir);
    }
    current_multiple_index = AppSetMultipleSectionRelation(current_multiple);
    set_night_range_of_row();
    std::printf("变倍后夜间模式 focus范围:%d-%d\r\n", night_focus_man.range_near,
                night_focus_man.range_far);
}

// Any change of zoom, mode or day/night starts the focus afresh.
void on_mode_change(AfLoopState& state, int32_t mode, bool night) {
    state.last_multiple = current_multiple;
    state.last_mode = mode;
    state.last_day_night = cur_day_night_mode;
    is_free_focus_opr_over = 0;
    current_select_pdaf_window = 0;
    std::puts("change mode or change multiple set laser_focus_compensation to be zero!\r");
    laser_focus_compensation = -5;
    if (night) {
        std::puts("将夜间模式清晰状态更新为未初始化!\r");
        night_focus_man.state = NIGHT_STATE_UNINITIALISED;
    } else {
        reset_centre_focus();
    }
}

// A new free-mode point: the focus starts afresh on it.
void on_point_change(const AfLoopState& state, bool night) {
    is_coordinates_update = 0;
    is_free_focus_opr_over = 0;
    if (state.variant == LoopVariant::application) {
        laser_focus_compensation = -5;
        std::puts("change coordinates set laser_focus_compensation to be zero!\r");
    }
    if (!night) reset_centre_focus();
    platform().sleep_ns(kPointChangePauseNs);  // with the lock held
}

// One phase-detection step on the 48 centre windows or on the free window.
void day_step(AfLoopState& state, bool free_window) {
    std::printf("\r\n\r\n获取48窗口前,当前倍数:%f,当前马达位置:%d\r\n", current_multiple,
                motor_position);
    if (free_window) {
        get_pd_and_lc_freewindows_test(&state.input[0], &state.chosen_cl, &state.chosen_pd,
                                       &state.input[1]);
    } else {
        get_pd_and_lc_48windwos_test(&state.input[0], &state.chosen_cl, &state.chosen_pd,
                                     &state.input[1]);
    }
    APPSetCenterFocusOprByAssitInfo(0, &state.input[0]);
}

void focus_step(AfLoopState& state, bool night) {
    const bool in_hand = is_free_focus_opr_over.load(std::memory_order_relaxed) == 0;
    switch (state.last_mode) {
        case PDAF_CENTER_MODE:
            if (!in_hand) return;
            ++pdafcnt_over_multiple_change;
            night ? night_focus_step(state) : day_step(state, false);
            return;
        case PDAF_FREE_MODE:
            if (!in_hand) return;
            ++pdafcnt_over_multiple_change;
            if (night && state.variant == LoopVariant::console) {
                std::puts("夜视模式不支持区域对焦!\r");
                return;
            }
            day_step(state, true);
            return;
        case MANUAL_FOCUS_MODE:
            if (is_manual_positon_update == 1) {
                is_manual_positon_update = 0;
                APPSetManualFocusOpr(manual_positon_percentage);
            }
            return;
        default:
            return;
    }
}

uint64_t period_ns(int32_t period_ms) {
    return static_cast<uint64_t>(std::max(period_ms, 0)) * kMillisecond;
}

}  // namespace

void set_night_range_of_row() {
    const int32_t row = std::clamp(current_multiple_index, 0, LENS_TABLE_ROWS - 1);
    night_focus_man.range_near = TxtToDat[row][6];
    night_focus_man.range_far = TxtToDat[row][105] - 50;
}

// The lock is taken for the start too: the loop may be started while the application
// zooms, and the centre focus reset expects it.
void start_af_loop(AfLoopState& state, LoopVariant variant) {
    state = AfLoopState{};
    state.variant = variant;
    try_lock();
    std::memset(&night_focus_man, 0, sizeof night_focus_man);
    InitPDSetting();
    InitPdLibInputData(&state.input[0]);
    InitPdLibInputData(&state.input[1]);
    state.period_ms = 200;
    state.last_multiple = current_multiple;
    state.last_mode = PDAF_CENTER_MODE;
    state.last_day_night = cur_day_night_mode;
    reset_centre_focus();
    state.fv = VrelFocusValues{};
    // The console's variant starts from the row of x1.0 whatever the zoom; the first zoom
    // change sets the row of the multiple.
    current_multiple_index =
        AppSetMultipleSectionRelation(variant == LoopVariant::console ? 1.0f : current_multiple);
    set_night_range_of_row();
    unlock();
}

bool run_af_pass(AfLoopState& state) {
    const bool application = state.variant == LoopVariant::application;
    if (application && zoom_running_flag.load(std::memory_order_relaxed) == 1) {
        platform().sleep_ns(kZoomRunningPauseNs);
        return true;
    }
    try_lock();
    state.period_ms = current_shockperiod;
    if (current_multiple != state.last_multiple) on_zoom_change(state);
    const int32_t mode = current_focus_mode.load(std::memory_order_relaxed);
    const bool night = cur_day_night_mode != 0;
    if (state.last_mode != mode && mode == PDAF_CENTER_MODE) {
        std::puts("********change to center windows!\r");
    }
    if (current_multiple != state.last_multiple || mode != state.last_mode ||
        cur_day_night_mode != state.last_day_night) {
        on_mode_change(state, mode, night);
    }
    if (state.last_mode == PDAF_FREE_MODE && is_coordinates_update == 1) {
        on_point_change(state, night);
    }
    focus_step(state, night);
    unlock();

    if (application) {
        platform().sleep_ns(period_ns(state.period_ms));
        return onoff.load(std::memory_order_relaxed) == 0;
    }
    platform().sleep_ns(night ? kNightFramePauseNs : period_ns(state.period_ms));
    return true;
}

}  // namespace zoomaf
