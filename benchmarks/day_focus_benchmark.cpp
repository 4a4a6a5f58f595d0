// The day focus pass on the twin: the 48-window readout and one assisted centre focus step,
// the way the auto-focus loop runs them once per pass, and their parts. The readout's
// register traffic (146 single-register accesses through the twin's I2C bus) is timed on
// its own, so the service's own CPU beyond the sensor I/O is the difference. The frame has
// the centre windows in focus (PD 0), so the focus step computes and locks without a motor
// move; the messages go to /dev/null (their formatting is part of the cost).
#include <benchmark/benchmark.h>

#include <fstream>
#include <sstream>
#include <string>

#include "benchmarks/quiet_stdout.hpp"
#include "sensor/pd_readout.hpp"
#include "twin/module/board.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"

namespace {

using zoomaf::bench::QuietStdout;

std::string dcc_file() {
    std::ifstream in(ZOOMAF_DATA_DIR "/" IMX586_DCC_FILE, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// A twin with the focus motor up at step 0, the day focus started and a frame whose
// centre windows are sharp and confident, the ring less so, the rest low.
class DayFocusBench {
public:
    DayFocusBench() {
        board_.write_file(IMX586_DCC_FILE, dcc_file());
        zoomaf::install_platform(&board_);
        QuietStdout quiet;
        InitAttr(10);
        InitSpi();
        InitGPIO(MOTOR_ID_MS41928);
        InitReg();
        LoadParamList();
        InitPDSetting();
        current_multiple = 3.0f;
        multiple_index = 20;
        mator_step_section[20][0] = -1500;
        mator_step_section[20][1] = 1500;
        pdafcnt_over_multiple_change = 100;
        board_.with<zoomaf::twin::Imx586>([](zoomaf::twin::Imx586& s) {
            for (int w = 0; w < PDAF_GRID_WINDOWS; ++w) s.set_grid_pd_cl(w, 40 - w, 300 + 30 * w);
            for (int w : {11, 12, 19, 20, 27, 28, 35, 36}) s.set_grid_pd_cl(w, 0, 2047);
        });
        APPSetCenterFocusOprByAssitInfo(1, nullptr);
    }
    ~DayFocusBench() {
        if (gSpiDev.fd >= 0) zoomaf::platform().close(gSpiDev.fd);
        gSpiDev.fd = -1;
        zoomaf::install_platform(nullptr);
    }
    uint64_t vd_pulses() {
        return board_.with<zoomaf::twin::DriverChip>(
            [](const zoomaf::twin::DriverChip& chip) { return chip.vd_pulses(); });
    }

private:
    zoomaf::twin::Board board_{{.focus_start = 0}};
};

void BM_GridRegisterReads(benchmark::State& state) {
    DayFocusBench bench;
    zoomaf::sensor::PdCl windows[zoomaf::sensor::kGridWindows];
    int32_t row_counter = 0;
    for (auto _ : state) {
        zoomaf::sensor::read_grid_windows(windows, row_counter);
        benchmark::DoNotOptimize(windows);
    }
}
BENCHMARK(BM_GridRegisterReads)->Unit(benchmark::kMicrosecond);

void BM_Readout48(benchmark::State& state) {
    DayFocusBench bench;
    PdLibInputData record = {};
    int64_t cl = 0;
    int64_t pd = 0;
    QuietStdout quiet;
    for (auto _ : state) {
        get_pd_and_lc_48windwos_test(&record, &cl, &pd, nullptr);
        benchmark::DoNotOptimize(record);
    }
}
BENCHMARK(BM_Readout48)->Unit(benchmark::kMicrosecond);

// One pass of the loop by day: the readout and the centre focus step on its choice.
void BM_Readout48AndCentreFocusPass(benchmark::State& state) {
    DayFocusBench bench;
    PdLibInputData record = {};
    int64_t cl = 0;
    int64_t pd = 0;
    QuietStdout quiet;
    const uint64_t pulses = bench.vd_pulses();
    for (auto _ : state) {
        get_pd_and_lc_48windwos_test(&record, &cl, &pd, nullptr);
        APPSetCenterFocusOprByAssitInfo(0, &record);
        benchmark::DoNotOptimize(record);
    }
    if (bench.vd_pulses() != pulses) state.SkipWithError("the lens moved");
}
BENCHMARK(BM_Readout48AndCentreFocusPass)->Unit(benchmark::kMicrosecond);

// The centre focus step alone (its own sensor access is the two gain registers).
void BM_CentreFocusStep(benchmark::State& state) {
    DayFocusBench bench;
    PdLibInputData record = {};
    int64_t cl = 0;
    int64_t pd = 0;
    QuietStdout quiet;
    get_pd_and_lc_48windwos_test(&record, &cl, &pd, nullptr);
    for (auto _ : state) {
        APPSetCenterFocusOprByAssitInfo(0, &record);
        benchmark::DoNotOptimize(record);
    }
}
BENCHMARK(BM_CentreFocusStep)->Unit(benchmark::kMicrosecond);

// The window choice alone: eight confident centre windows, the closest to their average.
void BM_WindowChoice(benchmark::State& state) {
    const int64_t pd_frame[8] = {31, -12, 7, 0, 19, -25, 4, 11};
    QuietStdout quiet;
    for (auto _ : state) {
        int64_t pd[8], cl[8], cl_out = 0, pd_out = 0;
        int32_t win[8] = {11, 12, 19, 20, 27, 28, 35, 36};
        for (int i = 0; i < 8; ++i) {
            pd[i] = pd_frame[i];
            cl[i] = 1500 + i;
        }
        benchmark::DoNotOptimize(pd_select_2X2_sort_wit_win(pd, cl, win, 8, &cl_out, &pd_out));
    }
}
BENCHMARK(BM_WindowChoice)->Unit(benchmark::kMicrosecond);

}  // namespace
