// zoomaf-bench: the bench program. It starts the focus service in the board's order and
// hands over to the test console; with --sim it runs the very same code on the digital twin.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

#include "bench/sim_board.hpp"
#include "platform/platform.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/imx586.h"

namespace {

constexpr uint64_t kSensorSettleNs = 500'000'000;

// The twin of a --sim run: reports and goes at exit, once the console has stopped the loop.
zoomaf::bench::SimBoard* sim_board = nullptr;

void end_sim() {
    if (sim_board == nullptr) return;
    sim_board->print_summary();
    std::fflush(stdout);
    delete sim_board;
    sim_board = nullptr;
}

// The start-up order of the board: the laser calibration goes before the lens table, which
// applies it; the second read only re-reads and re-prints it.
[[noreturn]] void start_service() {
    read_sensor_id();
    zoomaf::platform().sleep_ns(kSensorSettleNs);
    cur_day_night_mode = 0;
    const VersionTriple motor = ReadMotorVersion();
    std::printf("hardware is %d, motor software main is %d, sup is %d.\r\n", motor.hardware,
                motor.main, motor.sub);
    const VersionTriple app = ReadAppPdafVersion();
    std::printf("dcc is %d, pdaf software main is %d, sup is %d.\r\n", app.hardware, app.main,
                app.sub);
    ReadLaserCalibration();
    if (ReadAFTXT() < 0) std::exit(1);  // it said why
    ReadLaserCalibration();
    pd_init_calibration();
    motor_init_calibration();
    LaserShareMemeoryInit();
    // The self-study store, and the fatal-signal handler that saves it.
    InitGlobalClearinfo();
    InterfaceTest();
    std::exit(0);  // InterfaceTest ends the process itself
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "zoomaf-bench: starts the focus service and serves its test menu on standard input.\n"
        "Without --sim it drives the board's devices; with --sim it runs on the digital twin."};
    bool sim = false;
    std::string files_dir;
    std::string scene;
    zoomaf::bench::SimOptions sim_options;
    CLI::Option* sim_flag = app.add_flag("--sim", sim, "run on the digital twin of the camera");
    app.add_option("--files", files_dir,
                   "directory with the board's files (lens table, DCC file, calibration/*.cfg); "
                   "default: the data shipped with the program")
        ->check(CLI::ExistingDirectory)
        ->needs(sim_flag);
    app.add_option("--scene", scene,
                   "scene file for the twin (reserved: refused until the twin has scenes)")
        ->needs(sim_flag);
    app.add_option("--speed", sim_options.speed, "run N times faster than real time (default 1)")
        ->check(CLI::PositiveNumber)
        ->needs(sim_flag);
    app.add_option("--seed", sim_options.seed, "seed of the twin (default 1)")->needs(sim_flag);
    app.add_flag("--ms41908", sim_options.ms41908, "the module with the MS41908 driver")
        ->needs(sim_flag);
    CLI11_PARSE(app, argc, argv);

    if (!scene.empty()) {
        std::fprintf(stderr,
                     "zoomaf-bench: --scene: this twin has no scene model yet; without it the "
                     "subject is a still target at 12 m with the laser on it\n");
        return 2;
    }
    if (sim) {
        sim_options.files_dir = files_dir.empty() ? zoomaf::bench::default_files_dir() : files_dir;
        if (sim_options.files_dir.empty()) {
            std::fprintf(stderr,
                         "zoomaf-bench: no data directory next to the program or in the source "
                         "tree; name one with --files\n");
            return 2;
        }
        try {
            sim_board = new zoomaf::bench::SimBoard(sim_options);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "zoomaf-bench: cannot set up the twin: %s\n", e.what());
            return 2;
        }
        std::atexit(end_sim);
    }
    start_service();
}
