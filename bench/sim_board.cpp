#include "bench/sim_board.hpp"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/platform.hpp"
#include "twin/module/factory_calibration.hpp"
#include "twin/module/scene_file.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"
#include "zoomaf/lib_motor.h"

namespace zoomaf::bench {
namespace {

namespace fs = std::filesystem;

// The board's files: where each lies in a data directory and where the service looks.
struct BoardFile {
    const char* source;
    const char* board_path;
};
constexpr BoardFile kLensFiles[] = {
    {LENS_TABLE_FILE, LENS_TABLE_FILE},
    {IMX586_DCC_FILE, IMX586_DCC_FILE},
};
constexpr BoardFile kCalibrationFiles[] = {
    {"calibration/lasertable_calibration.cfg", LASER_CALIBRATION_FILE},
    {"calibration/pd_calibration.cfg", PD_CALIBRATION_FILE},
    {"calibration/motor_calibration.cfg", MOTOR_CALIBRATION_FILE},
};

// The rows a factory calibrates (x3.5, x6.0, x8.5 and x11.0) and the distance it calibrates
// them at: the lens table's reference column 5, a subject at 5 m.
constexpr int kCalibratedRows[] = {25, 50, 75, 100};
constexpr double kReferenceDistanceM = 5.0;
// The zoom position lookup of the tracking table reads no distance column.
constexpr float kAnyDistance = 1.5f;

// A missing file is left out: the service reports it as the board would.
template <size_t N>
void seed_files(twin::Board& board, const std::string& dir, const BoardFile (&files)[N]) {
    for (const BoardFile& file : files) {
        std::ifstream in(fs::path(dir) / file.source, std::ios::binary);
        if (!in) {
            std::printf(" %s (missing)", file.source);
            continue;
        }
        std::ostringstream content;
        content << in.rdbuf();
        board.write_file(file.board_path, content.str());
        std::printf(" %s", file.source);
    }
}

// This unit's factory calibration, from the twin's truth: the lens model with the scene's
// offset, at the zoom position the motor driver drives to for each calibrated row's
// multiple. The sample files in data/calibration/ describe another unit (its lens above the
// model, a PD offset of -12): on the twin they would shift the lens table away from this
// unit's lens and bias every PD the service reads.
void write_unit_calibration(twin::Board& board, const twin::Scene& scene) {
    LoadParamList();  // the driver's tracking table, as its initialisation loads it
    std::vector<twin::CalibratedRow> rows;
    for (int row : kCalibratedRows) {
        const float multiple = static_cast<float>(row + 10) / 10.0f;
        rows.push_back({row, static_cast<double>(GetListSteps(0, multiple, kAnyDistance) >> 4)});
    }
    const twin::FactoryCalibration files = twin::factory_calibration(
        twin::LensUnit{scene.lens_offset_steps}, LENS_TABLE_ROWS, rows, kReferenceDistanceM);
    board.write_file(LASER_CALIBRATION_FILE, files.laser_table);
    board.write_file(PD_CALIBRATION_FILE, files.pd);
    board.write_file(MOTOR_CALIBRATION_FILE, files.motor);
    std::printf(" and the unit's factory calibration (rows");
    for (const twin::CalibratedRow& row : rows) {
        std::printf(" %d", row.row);
    }
    std::printf(" at %.0f m)", kReferenceDistanceM);
}

const char* light_name(double lux) {
    return lux == twin::kDayLux ? "day" : lux == twin::kNightLux ? "night" : "lux";
}

}  // namespace

std::string shipped_path(const std::string& shipped, const std::string& in_source) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    std::vector<fs::path> candidates;
    if (!error)
        candidates.push_back(program.parent_path().parent_path() / "share/zoomaf" / shipped);
    candidates.push_back(fs::path(ZOOMAF_SOURCE_DIR) / in_source);
    for (const fs::path& path : candidates) {
        if (fs::exists(path, error)) return path.string();
        error.clear();
    }
    return "";
}

std::string default_files_dir() {
    const std::string table = shipped_path(LENS_TABLE_FILE, std::string("data/") + LENS_TABLE_FILE);
    return table.empty() ? "" : fs::path(table).parent_path().string();
}

std::string default_scene_file() {
    return shipped_path("scenes/day_12m.yaml", "scenes/day_12m.yaml");
}

std::optional<twin::Scene> load_scene(const std::string& path, std::optional<uint64_t> seed,
                                      bool ms41908, std::string& error) {
    twin::SceneFileResult result = twin::load_scene_file(path);
    if (!result.scene) {
        error = result.error;
        return std::nullopt;
    }
    if (seed) result.scene->seed = *seed;
    if (ms41908) result.scene->module = twin::DriverType::ms41908;
    return result.scene;
}

SimBoard::SimBoard(const SimOptions& options) : board_(twin::board_config_for(options.scene)) {
    std::printf("[twin] board files from %s:", options.files_dir.c_str());
    seed_files(board_, options.files_dir, kLensFiles);
    if (options.dir_calibration) {
        seed_files(board_, options.files_dir, kCalibrationFiles);
    } else {
        write_unit_calibration(board_, options.scene);
    }
    std::printf("\n");
    if (options.speed > 0.0) board_.set_real_time(options.speed);
    player_ = std::make_unique<twin::ScenePlayer>(board_, options.scene, options.player);
    install_platform(&board_);
    const twin::Scene& scene = options.scene;
    std::printf(
        "[twin] scene %s: %s driver, seed %llu, lens offset %+g steps, %s (%g lux), laser %s, "
        "%zu events; ",
        scene.name.c_str(), scene.module == twin::DriverType::ms41908 ? "MS41908" : "MS41928",
        static_cast<unsigned long long>(scene.seed), scene.lens_offset_steps,
        light_name(scene.start.lux), scene.start.lux, scene.start.laser ? "on" : "none",
        scene.events.size());
    if (options.speed > 0.0) {
        std::printf("speed x%g\n", options.speed);
    } else {
        std::printf("virtual time\n");
    }
}

SimBoard::~SimBoard() {
    install_platform(nullptr);
    player_.reset();
}

void SimBoard::print_summary() const {
    const int zoom = player_->zoom_position();
    const int focus = player_->focus_position();
    size_t timing_faults = 0;
    for (const twin::RecordedFault& fault : board_.faults())
        timing_faults += fault.kind == twin::FaultKind::timing;
    const int window = player_->centre_window();
    const double truth = player_->in_focus_step(window);
    const double distance = player_->state().windows[static_cast<size_t>(window)].distance_m;
    std::printf("[twin] end: service at x%.2f, %s; zoom motor at %d, focus motor at %d\n",
                static_cast<double>(current_multiple), cur_day_night_mode != 0 ? "night" : "day",
                zoom, focus);
    std::printf(
        "[twin] true in-focus step for the centre subject (window %d) at %.1f m: %.1f, focus "
        "error %+.1f steps; timing faults %zu, faults recorded in all %zu\n",
        window + 1, distance, truth, focus - truth, timing_faults, board_.faults().size());
}

}  // namespace zoomaf::bench
