// zoomaf-bench: the bench program. It starts the focus service in the board's order and
// hands over to the test console; with --sim it runs the very same code on the digital twin,
// in front of a scene.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>

#include "bench/sim_board.hpp"
#include "bench/start_up.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"

namespace {

// The twin of a --sim run: reports and goes at exit, once the console has stopped the loop.
zoomaf::bench::SimBoard* sim_board = nullptr;

void end_sim() {
    if (sim_board == nullptr) return;
    sim_board->print_summary();
    std::fflush(stdout);
    delete sim_board;
    sim_board = nullptr;
}

// The scene's own changes (subjects, light, laser, area points) play from the end of the
// start-up; its application calls are the operator's to make at the menu. The console
// brings the zoom to x3.5 whatever the scene's start multiple.
[[noreturn]] void start_service() {
    if (!zoomaf::bench::start_up_service()) std::exit(1);  // it said why
    if (sim_board != nullptr) sim_board->player().start_events();
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
    std::string scene_file;
    double speed = 1.0;
    std::optional<uint64_t> seed;
    bool ms41908 = false;
    CLI::Option* sim_flag = app.add_flag("--sim", sim, "run on the digital twin of the camera");
    app.add_option("--files", files_dir,
                   "directory with the board's files (lens table, DCC file, calibration/*.cfg); "
                   "default: the lens data shipped with the program and the unit's own "
                   "factory calibration")
        ->check(CLI::ExistingDirectory)
        ->needs(sim_flag);
    app.add_option("--scene", scene_file,
                   "scene file in front of the twin (default: scenes/day_12m.yaml, a textured "
                   "subject at 12 m by day, laser on)")
        ->needs(sim_flag);
    app.add_option("--speed", speed, "run N times faster than real time (default 1)")
        ->check(CLI::PositiveNumber)
        ->needs(sim_flag);
    app.add_option("--seed", seed, "seed of the twin (default: the scene's)")->needs(sim_flag);
    app.add_flag("--ms41908", ms41908, "the module with the MS41908 driver (default: the scene's)")
        ->needs(sim_flag);
    CLI11_PARSE(app, argc, argv);

    if (sim) {
        zoomaf::bench::SimOptions options;
        options.speed = speed;
        options.dir_calibration = !files_dir.empty();
        options.files_dir = files_dir.empty() ? zoomaf::bench::default_files_dir() : files_dir;
        if (options.files_dir.empty()) {
            std::fprintf(stderr,
                         "zoomaf-bench: no data directory next to the program or in the source "
                         "tree; name one with --files\n");
            return 2;
        }
        if (scene_file.empty()) scene_file = zoomaf::bench::default_scene_file();
        std::string error;
        std::optional<zoomaf::twin::Scene> scene =
            zoomaf::bench::load_scene(scene_file, seed, ms41908, error);
        if (!scene) {
            std::fprintf(stderr, "zoomaf-bench: %s\n",
                         scene_file.empty() ? "no scene next to the program or in the source tree"
                                            : error.c_str());
            return 2;
        }
        options.scene = std::move(*scene);
        try {
            sim_board = new zoomaf::bench::SimBoard(options);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "zoomaf-bench: cannot set up the twin: %s\n", e.what());
            return 2;
        }
        std::atexit(end_sim);
    }
    start_service();
}
