#include "bench/sim_board.hpp"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "platform/platform.hpp"
#include "twin/module/still_subject.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"

namespace zoomaf::bench {
namespace {

namespace fs = std::filesystem;

// The board's files: where each lies in a data directory and where the service looks.
struct BoardFile {
    const char* source;
    const char* board_path;
};
constexpr BoardFile kBoardFiles[] = {
    {LENS_TABLE_FILE, LENS_TABLE_FILE},
    {IMX586_DCC_FILE, IMX586_DCC_FILE},
    {"calibration/lasertable_calibration.cfg", LASER_CALIBRATION_FILE},
    {"calibration/pd_calibration.cfg", PD_CALIBRATION_FILE},
    {"calibration/motor_calibration.cfg", MOTOR_CALIBRATION_FILE},
};

constexpr uint16_t kSubjectDecimetres = static_cast<uint16_t>(kDefaultSubjectM * 10);

// A missing file is left out: the service reports it as the board would.
void seed_files(twin::Board& board, const std::string& dir) {
    std::printf("[twin] board files from %s:", dir.c_str());
    for (const BoardFile& file : kBoardFiles) {
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
    std::printf("\n");
}

}  // namespace

std::string default_files_dir() {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path candidates[] = {program.parent_path().parent_path() / "share" / "zoomaf",
                                   ZOOMAF_DATA_DIR};
    for (const fs::path& dir : candidates) {
        if (!error && fs::exists(dir / LENS_TABLE_FILE, error)) return dir.string();
        error.clear();
    }
    return "";
}

SimBoard::SimBoard(const SimOptions& options)
    : board_({.seed = options.seed,
              .driver = options.ms41908 ? twin::DriverType::ms41908 : twin::DriverType::ms41928}) {
    seed_files(board_, options.files_dir);
    board_.set_real_time(options.speed);
    laser_ = std::make_unique<twin::Laser>(
        board_, twin::LaserConfig{.distance = kSubjectDecimetres, .seed = options.seed});
    encoder_ = std::make_unique<twin::Encoder>(board_);
    encoder_->set_source(twin::still_subject_source(board_, kDefaultSubjectM));
    install_platform(&board_);
    std::printf("[twin] %s driver, seed %llu, speed x%g, subject %.1f m, laser on it\n",
                options.ms41908 ? "MS41908" : "MS41928",
                static_cast<unsigned long long>(options.seed), options.speed, kDefaultSubjectM);
}

SimBoard::~SimBoard() {
    install_platform(nullptr);
    encoder_.reset();
    laser_.reset();
}

void SimBoard::print_summary() const {
    const auto position = [this](twin::Motor motor) {
        return board_.with<twin::LensMotor>(motor,
                                            [](const twin::LensMotor& m) { return m.position(); });
    };
    const int zoom = position(twin::Motor::zoom);
    const int focus = position(twin::Motor::focus);
    size_t timing_faults = 0;
    for (const twin::RecordedFault& fault : board_.faults())
        timing_faults += fault.kind == twin::FaultKind::timing;
    const double truth = twin::true_focus_step(board_, kDefaultSubjectM);
    std::printf("[twin] end: service at x%.2f, %s; zoom motor at %d, focus motor at %d\n",
                static_cast<double>(current_multiple), cur_day_night_mode != 0 ? "night" : "day",
                zoom, focus);
    std::printf(
        "[twin] true in-focus step for the subject at %.1f m: %.1f, focus error %+.1f steps; "
        "timing faults %zu, faults recorded in all %zu\n",
        kDefaultSubjectM, truth, focus - truth, timing_faults, board_.faults().size());
}

}  // namespace zoomaf::bench
