// Start-up loads of the focus service on the twin: the default lens table (ReadAFTXT, goal
// under 5 ms) and the self-study store (InitGlobalClearinfo, goal under 50 ms without its
// prescribed 3 s pause, which costs nothing in the twin's virtual time). The messages go
// to /dev/null while the loads are timed: printing them is part of the cost.
#include <benchmark/benchmark.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "benchmarks/quiet_stdout.hpp"
#include "twin/module/board.hpp"
#include "zoomaf/app_pdaf.h"

namespace {

using zoomaf::bench::QuietStdout;

std::string lens_table_csv() {
    std::ifstream in(ZOOMAF_DATA_DIR "/zy_240408_tvk_update.csv", std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void BM_ReadAFTXT_DefaultTable(benchmark::State& state) {
    zoomaf::twin::Board board;
    board.write_file(LENS_TABLE_FILE, lens_table_csv());
    zoomaf::install_platform(&board);
    {
        QuietStdout quiet;
        for (auto _ : state) {
            if (ReadAFTXT() != READ_AFTXT_OK) state.SkipWithError("the lens table did not load");
            benchmark::DoNotOptimize(mator_step_section);
        }
    }
    zoomaf::install_platform(nullptr);
}
BENCHMARK(BM_ReadAFTXT_DefaultTable)->Unit(benchmark::kMillisecond);

// A store file with every n-th entry of the usable zoom rows (x3.5 .. x11.0) learned;
// n = 0 is an empty store.
std::string store_image(int every) {
    std::string image(SELFSTUDY_STORE_BYTES, '\0');
    auto* blocks = reinterpret_cast<SelfStudyBlock*>(image.data());
    for (int row = 25; every > 0 && row <= 100; ++row) {
        for (int laser = 0; laser < SELFSTUDY_LASER_ENTRIES; laser += every) {
            blocks[row].valid[laser] = 1;
            blocks[row].motor[laser] = 1000 - laser;
            blocks[row].cl[laser] = 400;
            blocks[row].pd[laser] = -7;
        }
    }
    return image;
}

void BM_SelfStudyLoad(benchmark::State& state) {
    zoomaf::twin::Board board;
    board.write_file(SELFSTUDY_FILE, store_image(static_cast<int>(state.range(0))));
    zoomaf::install_platform(&board);
    {
        QuietStdout quiet;
        for (auto _ : state) {
            InitGlobalClearinfo();
            benchmark::DoNotOptimize(selfstudy_point);
        }
    }
    for (int sig : {SIGINT, SIGSEGV, SIGTERM}) std::signal(sig, SIG_DFL);
    zoomaf::install_platform(nullptr);
    state.counters["virtual_pause_s"] =
        static_cast<double>(board.with<zoomaf::twin::Clock>([](auto& c) { return c.slept_ns(); })) /
        1e9 / static_cast<double>(state.iterations());
}
// Empty store; one entry in ten learned (9 196 lines printed); every entry (121 600 lines).
BENCHMARK(BM_SelfStudyLoad)->Arg(0)->Arg(10)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
