// Readouts of the eight-window layout: the eight fixed centre windows with the choice among
// those above CL 1000, and the four area-focus windows around the free focus point.
#include <cstdio>

#include "sensor/pd_readout.hpp"
#include "service/pdaf_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/pdaf_focus.h"

int64_t go_cl_info[PDAF_EIGHT_WINDOWS] = {};
int64_t go_pd_info[PDAF_EIGHT_WINDOWS] = {};
int64_t go_offset_distance[PDAF_EIGHT_WINDOWS] = {};
int32_t Manual_cl_pd = 1;

namespace {

using zoomaf::defocus_steps;
using zoomaf::library_defocus;
using zoomaf::sensor::PdCl;

constexpr int64_t kConfidentCl = 1000;  // a window qualifies above this CL
constexpr int64_t kAreaPdBound = 200;   // and, in the area readout, within this |PD|
constexpr int kAreaWindows = 4;

struct Candidates {
    int64_t pd[PDAF_EIGHT_WINDOWS];
    int64_t cl[PDAF_EIGHT_WINDOWS];
    int32_t win[PDAF_EIGHT_WINDOWS];
    int32_t count = 0;

    void add(int64_t window_pd, int64_t window_cl, int32_t window) {
        pd[count] = window_pd;
        cl[count] = window_cl;
        win[count] = window;
        ++count;
    }
};

// The eight windows in their places: 0 and 3 on top, 6, 1, 4 and 7 across the middle, 2 and
// 5 below.
void print_window_picture() {
    auto cell = [](int k) {
        std::printf("cl:%4ld pd:%4ld motor:%4ld    ", go_cl_info[k], go_pd_info[k],
                    go_offset_distance[k]);
    };
    constexpr const char* kBlank = "                                ";
    std::printf("%s", kBlank);
    cell(0);
    cell(3);
    std::printf("\r\n");
    for (int k : {6, 1, 4, 7}) cell(k);
    std::printf("\r\n%s", kBlank);
    cell(2);
    cell(5);
    std::printf("\r\n");
}

}  // namespace

extern "C" {

int32_t go_get_pd_cl_info(int64_t* cl, int64_t* pd, int64_t* offset) {
    if (cl == nullptr || pd == nullptr || offset == nullptr) {
        std::puts("go_get_pd_cl_info: no arrays given\r");
        return -1;
    }
    for (int k = 0; k < PDAF_EIGHT_WINDOWS; ++k) {
        cl[k] = go_cl_info[k];
        pd[k] = go_pd_info[k];
        offset[k] = go_offset_distance[k];
    }
    return 0;
}

int32_t get_pd_and_lc_7windwos_test(PdLibInputData* input, int64_t* cl_out, int64_t* pd_out) {
    if (!zoomaf::readout_args_given(input, cl_out, pd_out, "get_pd_and_lc_7windwos_test"))
        return -1;
    PdCl windows[PDAF_EIGHT_WINDOWS];
    zoomaf::sensor::read_eight_windows(windows);
    if (Manual_cl_pd == 0) {
        for (PdCl& w : windows) w.cl = 0;
    }
    std::puts("\r\n\r");
    zoomaf::put_sensor_gain(input);

    for (int k = 0; k < PDAF_EIGHT_WINDOWS; ++k) {
        const int64_t pd = windows[k].pd + pd_calibration_value;
        const int64_t cl = windows[k].cl;
        InitPdLibInputData_7windows(input, k);
        int64_t defocus = 0;
        // The offset rounds toward plus infinity here, the opposite sign of the grid readouts'.
        const int64_t offset =
            library_defocus(input, pd, cl, defocus) ? -defocus_steps(defocus) : PDAF_OFFSET_FAILED;
        go_cl_info[k] = cl;
        go_pd_info[k] = pd;
        go_offset_distance[k] = offset;
        std::printf("before change pd:%ld,cl:%ld,offset:%ld\r\n", pd, cl, offset);
    }
    print_window_picture();

    Candidates confident;
    for (int k = 0; k < PDAF_EIGHT_WINDOWS; ++k) {
        if (go_cl_info[k] > kConfidentCl) confident.add(go_pd_info[k], go_cl_info[k], k);
    }
    *cl_out = 0;
    *pd_out = 0;
    int32_t chosen = 0;
    if (confident.count == 0) {
        *cl_out = 900;
        chosen = -1;
        current_select_pdaf_window = 0;
        std::printf("Morak-Warn: cl>1000 windowcnt=%d,so set pd 0,set cl 900!\r\n",
                    confident.count);
    } else if (confident.count < 3) {
        // One or two confident windows choose nothing: the outputs stay 0.
        current_select_pdaf_window = -1;
    } else {
        chosen = pd_select_sort_wit_win(confident.pd, confident.cl, confident.win, confident.count,
                                        cl_out, pd_out);
        current_select_pdaf_window = -1;
    }
    std::printf("\r\nget cl>1000 windowcnt:%d,andtarget-pd:%ld,ave-cl:%ld\r\n", confident.count,
                *pd_out, *cl_out);
    std::printf("current pd select win:%d\r\n", chosen);
    std::puts("single windows select over!\r");
    return 0;
}

// The four area-focus windows are windows 0..3 of the eight-window block; their geometry is
// what InitPdLibInputData_areafocus_windows places around the point. A window qualifies as
// in the free-area readout (CL above 1000, |PD| at most 200); the offsets are those of the
// grid readouts. With none qualifying, the outputs are CL 400 and PD 0 and nothing is
// chosen, which sends the centre focus to its laser strategy. go_* keep the centre
// readout's values.
int32_t get_pd_and_lc_area_windows_test(PdLibInputData* input, int64_t* cl_out, int64_t* pd_out) {
    if (!zoomaf::readout_args_given(input, cl_out, pd_out, "get_pd_and_lc_area_windows_test"))
        return -1;
    PdCl windows[PDAF_EIGHT_WINDOWS];
    zoomaf::sensor::read_eight_windows(windows);
    zoomaf::put_sensor_gain(input);

    Candidates qualified;
    for (int k = 0; k < kAreaWindows; ++k) {
        const int64_t pd = windows[k].pd + pd_calibration_value;
        const int64_t cl = windows[k].cl;
        InitPdLibInputData_areafocus_windows(input, k);
        int64_t defocus = 0;
        const int64_t offset =
            library_defocus(input, pd, cl, defocus) ? defocus_steps(defocus) : PDAF_OFFSET_FAILED;
        std::printf("before change pd:%ld,cl:%ld,offset:%ld\r\n", pd, cl, offset);
        if (cl > kConfidentCl && pd >= -kAreaPdBound && pd <= kAreaPdBound)
            qualified.add(pd, cl, k);
    }
    *cl_out = 0;
    *pd_out = 0;
    if (qualified.count == 0) {
        std::puts("area windows: no window above cl 1000 with |pd| <= 200\r");
        *cl_out = 400;
        current_select_pdaf_window = 0;
        return 0;
    }
    const int32_t chosen = pd_select_sort_wit_win(qualified.pd, qualified.cl, qualified.win,
                                                  qualified.count, cl_out, pd_out);
    current_select_pdaf_window = -1;
    InitPdLibInputData_areafocus_windows(input, chosen);
    input->ConfidenceLevel = static_cast<uint64_t>(*cl_out);
    input->PhaseDifference = *pd_out;
    std::printf("判定流程结束，选定窗口:%d,pd:%ld,cl:%ld\r\n", chosen + 1, *pd_out, *cl_out);
    return 0;
}

}  // extern "C"
