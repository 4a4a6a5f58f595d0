// Readouts of the 8 x 6 grid that the auto-focus loop runs by day: the centre readout
// (the eight centre windows first, then the ring around them) and the free-area readout (a
// 2 x 2 group at the focus point), each choosing the window the centre focus acts on.
#include <algorithm>
#include <cstdio>

#include "sensor/pd_readout.hpp"
#include "service/pdaf_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/pdaf_focus.h"

int64_t zycl[PDAF_GRID_WINDOWS] = {};
int64_t zypd[PDAF_GRID_WINDOWS] = {};
int32_t zy_current_select_win = PDAF_NO_WINDOW;
int32_t ignorecnt = 0;
int32_t freeignorecnt = 0;

namespace {

using zoomaf::defocus_steps;
using zoomaf::library_defocus;
using zoomaf::sensor::kGridColumns;
using zoomaf::sensor::kGridRows;
using zoomaf::sensor::PdCl;

constexpr int64_t kConfidentCl = 1000;  // a window qualifies above this CL
constexpr int64_t kPdBound = 200;       // ring and free windows also need |PD| up to this
constexpr int64_t kFallbackCl = 400;    // outputs when nothing qualified: the laser strategy
// Grid indices of the eight centre windows (rows 1..4, columns 3..4) and of the ring
// around them (rows 1..4, columns 2 and 5).
constexpr int32_t kCentre[8] = {11, 12, 19, 20, 27, 28, 35, 36};
constexpr int32_t kRing[8] = {10, 13, 18, 21, 26, 29, 34, 37};
// The cells of the free focus point in its 3840 x 2160 frame.
constexpr int32_t kCellWidth = 480;
constexpr int32_t kCellHeight = 360;

// One frame of the grid: CL, PD with the calibration added, lens offset per window.
struct GridFrame {
    int64_t cl[PDAF_GRID_WINDOWS];
    int64_t pd[PDAF_GRID_WINDOWS];
    int64_t offset[PDAF_GRID_WINDOWS];

    bool confident(int32_t w) const { return cl[w] > kConfidentCl; }
    bool confident_within_bound(int32_t w) const {
        return confident(w) && pd[w] >= -kPdBound && pd[w] <= kPdBound;
    }
};

struct Candidates {
    int64_t pd[8];
    int64_t cl[8];
    int32_t win[8];
    int32_t count = 0;

    void add(const GridFrame& frame, int32_t w) {
        pd[count] = frame.pd[w];
        cl[count] = frame.cl[w];
        win[count] = w;
        ++count;
    }
};

bool is_centre(int32_t w) {
    return std::find(std::begin(kCentre), std::end(kCentre), w) != std::end(kCentre);
}

// Reads the grid under the PD readout hold, adds the PD calibration, and converts every
// window with the library (the record is prepared for each window in turn, at the gain of
// this frame).
void read_grid_frame(PdLibInputData* input, int32_t& row_counter, GridFrame& frame) {
    PdCl windows[PDAF_GRID_WINDOWS];
    zoomaf::sensor::read_grid_windows(windows, row_counter);
    for (int32_t w = 0; w < PDAF_GRID_WINDOWS; ++w) {
        frame.cl[w] = windows[w].cl;
        frame.pd[w] = windows[w].pd + pd_calibration_value;
    }
    std::puts("\r");
    zoomaf::put_sensor_gain(input);
    std::puts("开始获取帧信息:\r");
    for (int32_t row = 0; row < kGridRows; ++row) {
        for (int32_t column = 0; column < kGridColumns; ++column) {
            const int32_t w = kGridColumns * row + column;
            InitPdLibInputData_48windows(input, column, row);
            int64_t defocus = 0;
            frame.offset[w] = library_defocus(input, frame.pd[w], frame.cl[w], defocus)
                                  ? defocus_steps(defocus)
                                  : PDAF_OFFSET_FAILED;
        }
    }
}

// zycl and zypd follow the latest frame of the loop's readouts.
void publish_frame(const GridFrame& frame) {
    std::copy(std::begin(frame.cl), std::end(frame.cl), zycl);
    std::copy(std::begin(frame.pd), std::end(frame.pd), zypd);
}

void print_window(const GridFrame& frame, int32_t w) {
    std::printf("w[%2d]:%4ld~%4ld~%5ld  ", w + 1, frame.pd[w], frame.cl[w], frame.offset[w]);
}

// Two windows on a line: number, PD, CL, offset.
void print_window_pair(const GridFrame& frame, int32_t a, int32_t b) {
    std::printf("w[%2d]:%4ld~%4ld~%5ld  w[%2d]:%4ld~%4ld~%5ld\r\n", a + 1, frame.pd[a], frame.cl[a],
                frame.offset[a], b + 1, frame.pd[b], frame.cl[b], frame.offset[b]);
}

// The grid row by row under the outer-window heading; the centre windows only when asked.
void print_grid(const GridFrame& frame, bool with_centre) {
    std::printf("\r\n视频帧外围窗口:");
    for (int32_t row = 0; row < kGridRows; ++row) {
        std::printf("\r\n");
        for (int32_t column = 0; column < kGridColumns; ++column) {
            const int32_t w = kGridColumns * row + column;
            if (with_centre || !is_centre(w)) print_window(frame, w);
        }
    }
    std::printf("\r\n");
}

// Count and average CL of the windows of a set in each confidence class.
void print_cl_classes(const char* name, const GridFrame& frame, const int32_t* set, int32_t n) {
    int32_t count[3] = {0, 0, 0};
    int64_t sum[3] = {0, 0, 0};
    for (int32_t i = 0; i < n; ++i) {
        const int64_t cl = frame.cl[set[i]];
        const bool in_class[3] = {cl > 500, cl > kConfidentCl, cl == 2047};
        for (int c = 0; c < 3; ++c) {
            if (in_class[c]) {
                ++count[c];
                sum[c] += cl;
            }
        }
    }
    auto average = [&](int c) { return count[c] == 0 ? int64_t{0} : sum[c] / count[c]; };
    std::printf("%s cl>500:%d,ave:%ld cl>1000:%d,ave:%ld cl=2047:%d\r\n", name, count[0],
                average(0), count[1], average(1), count[2]);
}

void print_centre_block(const GridFrame& frame) {
    std::puts("\r\n视频帧最中心四个窗口:\r");
    for (int i = 0; i < 8; i += 2) print_window_pair(frame, kCentre[i], kCentre[i + 1]);
    int32_t all[PDAF_GRID_WINDOWS];
    for (int32_t w = 0; w < PDAF_GRID_WINDOWS; ++w) all[w] = w;
    print_cl_classes("grid", frame, all, PDAF_GRID_WINDOWS);
    print_cl_classes("centre", frame, kCentre, 8);
}

// Nothing qualified: the centre focus takes its laser counting strategy.
void fall_back_to_laser(PdLibInputData* input, int64_t* cl_out, int64_t* pd_out) {
    std::puts("外围窗口 没有cl大于500的窗口,开始按原定雷达计数策略执行\r");
    *cl_out = kFallbackCl;
    *pd_out = 0;
    input->ConfidenceLevel = kFallbackCl;
    input->PhaseDifference = 0;
    current_select_pdaf_window = 0;
    zy_current_select_win = PDAF_NO_WINDOW;
}

// The record the centre focus acts on: the chosen window's geometry, PD and CL.
void prepare_chosen(PdLibInputData* input, int32_t w, const int64_t* cl_out,
                    const int64_t* pd_out) {
    InitPdLibInputData_48windows(input, w % kGridColumns, w / kGridColumns);
    input->ConfidenceLevel = static_cast<uint64_t>(*cl_out);
    input->PhaseDifference = *pd_out;
}

// The qualified window closest to their average PD, or the laser strategy when none
// qualified; count_text reports how many qualified and which was chosen.
void choose_or_fall_back(PdLibInputData* input, Candidates& qualified, const char* count_text,
                         int64_t* cl_out, int64_t* pd_out) {
    if (qualified.count == 0) {
        fall_back_to_laser(input, cl_out, pd_out);
        return;
    }
    const int32_t chosen = pd_select_sort_wit_win(qualified.pd, qualified.cl, qualified.win,
                                                  qualified.count, cl_out, pd_out);
    std::printf(count_text, qualified.count, chosen + 1);
    current_select_pdaf_window = -1;
    prepare_chosen(input, chosen, cl_out, pd_out);
    std::printf("判定流程结束，选定外围窗口:%d,pd:%ld,cl:%ld\r\n", chosen + 1, *pd_out, *cl_out);
    zy_current_select_win = chosen;
}

// The 2 x 2 group of the free focus point: its cell, the horizontal neighbour on the side
// of the cell's half the point is in, and the two windows of the row on the side of the
// vertical half. A point outside the frame takes the nearest cell, and a group that would
// leave the grid is turned inward, so the group is always four windows of the grid.
void free_group(int32_t x, int32_t y, int32_t (&group)[4]) {
    const int32_t column = std::clamp(x / kCellWidth, 0, kGridColumns - 1);
    const int32_t row = std::clamp(y / kCellHeight, 0, kGridRows - 1);
    const int32_t w = kGridColumns * row + column;
    std::printf("选中区域对应第%d行,第%d列,窗口:%d\r\n", row + 1, column + 1, w + 1);
    int32_t across = x % kCellWidth > 239 ? 1 : -1;
    if (column + across < 0) {
        std::puts("坐标对应的窗口在左侧边缘!\r");
        across = 1;
    } else if (column + across >= kGridColumns) {
        std::puts("坐标对应的窗口在右侧边缘!\r");
        across = -1;
    }
    int32_t down = y % kCellHeight > 179 ? 1 : -1;
    if (row + down < 0 || row + down >= kGridRows) down = -down;
    const int32_t h = w + across;
    group[0] = w;
    group[1] = h;
    group[2] = w + kGridColumns * down;
    group[3] = h + kGridColumns * down;
    std::sort(std::begin(group), std::end(group));
}

}  // namespace

extern "C" {

int32_t get_pd_and_lc_48windwos_test(PdLibInputData* input, int64_t* cl_out, int64_t* pd_out,
                                     PdLibInputData* /*input2*/) {
    if (!zoomaf::readout_args_given(input, cl_out, pd_out, "get_pd_and_lc_48windwos_test"))
        return -1;
    GridFrame frame;
    read_grid_frame(input, ignorecnt, frame);
    publish_frame(frame);
    print_centre_block(frame);
    print_grid(frame, false);

    *cl_out = 0;
    *pd_out = 0;
    // Every centre window above CL 1000 is a candidate, whatever its PD.
    Candidates centre;
    for (int32_t w : kCentre) {
        if (frame.confident(w)) centre.add(frame, w);
    }
    if (centre.count > 0) {
        const int32_t chosen = pd_select_2X2_sort_wit_win(centre.pd, centre.cl, centre.win,
                                                          centre.count, cl_out, pd_out);
        std::printf("12、13、20、21、28、29、36、37 有：%d个窗口cl大于1000,最贴近的窗口时:%d\r\n",
                    centre.count, chosen + 1);
        current_select_pdaf_window = -1;
        prepare_chosen(input, chosen, cl_out, pd_out);
        zy_current_select_win = chosen;
        std::printf("判定流程结束，选定窗口:%d,pd:%ld,cl:%ld\r\n", chosen + 1, *pd_out, *cl_out);
        return 0;
    }
    std::puts("12、13、20、21、28、29、36、37 没有cl大于1000的窗口,开始进行外部窗口判断!\r");
    Candidates ring;
    for (int32_t w : kRing) {
        if (frame.confident_within_bound(w)) ring.add(frame, w);
    }
    choose_or_fall_back(input, ring,
                        "外围窗口6*4 有：%d个窗口cl大于500,有cl为2047的,最贴近的窗口时:%d\r\n",
                        cl_out, pd_out);
    return 0;
}

int32_t get_pd_and_lc_freewindows_test(PdLibInputData* input, int64_t* cl_out, int64_t* pd_out,
                                       PdLibInputData* /*input2*/) {
    if (!zoomaf::readout_args_given(input, cl_out, pd_out, "get_pd_and_lc_freewindows_test"))
        return -1;
    std::puts("开始获取自动对焦窗口!\r");
    GridFrame frame;
    read_grid_frame(input, freeignorecnt, frame);
    publish_frame(frame);
    print_grid(frame, true);

    std::printf("当前区域设置的坐标是x:%d,y:%d\r\n", free_focus_pointx, free_focus_pointy);
    int32_t group[4];
    free_group(free_focus_pointx, free_focus_pointy, group);
    std::puts("选出的窗口是\r");
    print_window_pair(frame, group[0], group[1]);
    print_window_pair(frame, group[2], group[3]);

    *cl_out = 0;
    *pd_out = 0;
    Candidates qualified;
    for (int32_t w : group) {
        if (frame.confident_within_bound(w)) qualified.add(frame, w);
    }
    // With no window qualifying, "no window" is stored as 49, as the centre readout does.
    choose_or_fall_back(input, qualified,
                        "选中的4个窗口 有：%d个窗口cl大于1000,最贴近的窗口是:%d\r\n", cl_out,
                        pd_out);
    return 0;
}

// The same read and conversion with its own row counter, and the window the centre
// readout's rule would choose (centre windows above CL 1000, else the ring within the PD
// bound), printed only: the loop's state and zycl/zypd stay as they are.
int32_t only_get_48_windows_info(PdLibInputData* input) {
    if (input == nullptr) {
        std::puts("only_get_48_windows_info: no input record given\r");
        return -1;
    }
    int32_t row_counter = 0;
    GridFrame frame;
    read_grid_frame(input, row_counter, frame);
    print_centre_block(frame);
    print_grid(frame, false);
    Candidates candidates;
    for (int32_t w : kCentre) {
        if (frame.confident(w)) candidates.add(frame, w);
    }
    if (candidates.count == 0) {
        for (int32_t w : kRing) {
            if (frame.confident_within_bound(w)) candidates.add(frame, w);
        }
    }
    if (candidates.count == 0) {
        std::puts("48 windows: no window qualifies\r");
        return 0;
    }
    int64_t cl = 0;
    int64_t pd = 0;
    const int32_t chosen = pd_select_sort_wit_win(candidates.pd, candidates.cl, candidates.win,
                                                  candidates.count, &cl, &pd);
    std::printf("48 windows: window %d would be chosen, pd:%ld,cl:%ld\r\n", chosen + 1, pd, cl);
    return 0;
}

}  // extern "C"
