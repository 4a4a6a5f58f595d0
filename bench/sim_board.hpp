// The digital twin that zoomaf-bench --sim and zoomaf-scenario run the service on: a board
// with the camera's files in its sandbox, a scene in front of its lens, installed as the
// platform. Both programs set the twin up here, so that a scene replayed by the runner meets
// the very board the bench shows.
//
// The board's files: the lens table and the DCC file come from a data directory (the
// project's data/ by default); the calibration files are this unit's factory calibration
// (twin/module/factory_calibration.hpp), unless the caller names a directory whose
// calibration files are to be used instead.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "twin/module/board.hpp"
#include "twin/module/scene.hpp"
#include "twin/module/scene_player.hpp"

namespace zoomaf::bench {

struct SimOptions {
    twin::Scene scene;             // its seed and module choose the board
    std::string files_dir;         // lens table and DCC file
    bool dir_calibration = false;  // the calibration files of files_dir, not the unit's own
    double speed = 0.0;            // > 0: real time x speed; 0: virtual time, driven by one thread
    twin::ScenePlayerConfig player{};
};

class SimBoard {
public:
    // Throws std::runtime_error (or what the twin throws) when the board cannot be set up.
    explicit SimBoard(const SimOptions& options);
    ~SimBoard();
    SimBoard(const SimBoard&) = delete;
    SimBoard& operator=(const SimBoard&) = delete;

    twin::Board& board() { return board_; }
    twin::ScenePlayer& player() { return *player_; }
    const twin::ScenePlayer& player() const { return *player_; }

    // Two lines: where the service and the motors ended, then the true in-focus step of the
    // centre subject, the focus error and the faults the emulated hardware recorded.
    void print_summary() const;

private:
    twin::Board board_;
    std::unique_ptr<twin::ScenePlayer> player_;
};

// A file shipped with the program: <prefix>/share/zoomaf/<shipped> next to the installed
// binary, else <source tree>/<in_source>. Empty when neither exists.
std::string shipped_path(const std::string& shipped, const std::string& in_source);

// The data directory (lens table, DCC file, sample calibration files); empty when none.
std::string default_files_dir();

// The scene of a run that names none: a textured subject at 12 m by day, the laser on it.
std::string default_scene_file();

// A scene file read, with the command line's seed and module in place of the scene's when
// given. On a bad file: nullopt and the message ("file:line:column: fault") in error.
std::optional<twin::Scene> load_scene(const std::string& path, std::optional<uint64_t> seed,
                                      bool ms41908, std::string& error);

}  // namespace zoomaf::bench
