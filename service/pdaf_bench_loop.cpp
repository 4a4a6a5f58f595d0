// The bench focus loop: window 0's PD and CL each pass, handed to the operation of the
// current mode, with a stop handshake through onoff. The service's own loop follows the same
// pattern on the grid readouts.
#include <cstdio>

#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"
#include "zoomaf/pdaf_focus.h"

namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kSettlePauseNs = 90 * kMillisecond;  // the sensor takes a new layout
constexpr uint64_t kFreeDonePauseNs = 100 * kMillisecond;
constexpr uint64_t kStopPollNs = 10 * kMillisecond;
constexpr int32_t kFreeMovesBeforeRest = 19;  // free mode rests after more PD moves

void sleep_ns(uint64_t ns) {
    zoomaf::platform().sleep_ns(ns);
}

// The loop of AutoFocusByPDAF (stoppable) and TestAutoFocusByPDAF (never ends).
int32_t run_bench_loop(bool stoppable) {
    int32_t done_count = 0;
    int32_t saved_mode = PDAF_CENTER_MODE;
    PdLibInputData record = {};
    InitPDSetting();
    InitPdLibInputData(&record);
    float saved_multiple = current_multiple;
    for (;;) {
        try_lock();
        const int32_t period_ms = current_shockperiod;
        const int32_t mode = current_focus_mode.load(std::memory_order_relaxed);
        if (current_multiple != saved_multiple || mode != saved_mode) {
            if (mode == PDAF_CENTER_MODE && mode != saved_mode) {
                write_imx586_group_hold(1);
                write_imx586_group_hold(0);
                InitPdLibInputData(&record);
                sleep_ns(kSettlePauseNs);
            }
            saved_multiple = current_multiple;
            saved_mode = mode;
            done_count = 0;
            is_free_focus_opr_over = 0;
            APPSetFreeFocusOpr(1, &done_count, &is_free_focus_opr_over, &record);
            APPSetCenterFocusOpr(1, &record);
        }
        if (saved_mode == PDAF_FREE_MODE && is_coordinates_update == 1) {
            is_coordinates_update = 0;
            write_imx586_group_hold(1);
            set_pdaf_windows_free_area(free_focus_pointx, free_focus_pointy, free_focus_width,
                                       free_focus_height);
            write_imx586_group_hold(0);
            std::puts("\r\n\r\n\r\nsleep area modify!\r\n\r");
            InitPdLibInputData(&record);
            done_count = 0;
            is_free_focus_opr_over = 0;
            APPSetFreeFocusOpr(1, &done_count, &is_free_focus_opr_over, &record);
            sleep_ns(kSettlePauseNs);
        } else if (saved_mode == PDAF_CENTER_MODE && is_center_af_winratio_update == 1) {
            is_center_af_winratio_update = 0;
            InitPdLibInputData(&record);
            APPSetCenterFocusOpr(1, &record);
            sleep_ns(kSettlePauseNs);
        }
        int64_t cl = 0;
        int64_t pd = 0;
        get_pd_and_lc(&cl, &pd);
        record.ConfidenceLevel = static_cast<uint64_t>(cl);
        record.PhaseDifference = pd + pd_calibration_value;

        if (saved_mode == PDAF_CENTER_MODE) {
            APPSetCenterFocusOpr(0, &record);
        } else if (saved_mode == PDAF_FREE_MODE) {
            if (done_count > kFreeMovesBeforeRest) {
                // The free focus is done: rest until the mode or the point changes. The stop
                // request is not looked at on this path.
                unlock();
                sleep_ns(kFreeDonePauseNs);
                continue;
            }
            APPSetFreeFocusOpr(0, &done_count, &is_free_focus_opr_over, &record);
        } else if (saved_mode == MANUAL_FOCUS_MODE && is_manual_positon_update == 1) {
            is_manual_positon_update = 0;
            APPSetManualFocusOpr(manual_positon_percentage);
        }
        unlock();
        sleep_ns(static_cast<uint64_t>(period_ms > 0 ? period_ms : 0) * kMillisecond);
        if (stoppable && onoff.load(std::memory_order_relaxed) != 0) break;
    }
    onoff = 0;
    return 0;
}

}  // namespace

extern "C" {

int32_t AutoFocusByPDAF(void) {
    return run_bench_loop(true);
}

int32_t TestAutoFocusByPDAF(void) {
    return run_bench_loop(false);
}

// Waits, with sleeps, until the loop acknowledges by clearing onoff. A loop resting in
// free mode acknowledges only once the mode or the point changes.
int32_t UnAutoFocusByPDAF(void) {
    if (onoff.load(std::memory_order_relaxed) == 1) return 1;
    onoff = 1;
    while (onoff.load(std::memory_order_relaxed) != 0) sleep_ns(kStopPollNs);
    std::printf("[%s] [%d] close auto pdaf\n", "UnAutoFocusByPDAF", 6459);
    return 0;
}

}  // extern "C"
