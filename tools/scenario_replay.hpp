// The scenario runner's replay: the service started as the bench starts it, on the twin in
// front of a scene, then the application's loop variant driven pass by pass in virtual time
// with the scene's application calls made between passes, until the scene's duration. What
// every pass left is recorded against the twin's truth.
#pragma once

#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bench/sim_board.hpp"
#include "twin/module/scene.hpp"

namespace zoomaf::scenario {

// What one pass of the loop left (board seconds count from the end of the start-up).
struct PassRow {
    int pass = 0;        // 1, 2, ...
    double t_s = 0.0;    // when the pass began
    double end_s = 0.0;  // when it returned, its closing sleep included
    float multiple = 0.0f;
    int zoom_step = 0, focus_step = 0;  // the motors' physical positions after the pass
    int focus_before = 0;               // the focus motor's when the pass began
    // The subject the mode aims at (centre and manual mode: the frame's centre subject; free
    // mode: the window under the point) in the scene as it stood when the pass began: its
    // grid window, distance and in-focus step at the zoom motor's position; and the light.
    int aimed_window = 0;
    double subject_distance_m = 0.0;
    double true_focus_step = 0.0;
    double lux = 0.0;
    int32_t mode = 0, day_night = 0, night_state = 0;
    bool locked = false;
    std::optional<int> window;      // the grid window the day focus chose
    std::optional<int64_t> pd, cl;  // its PD and CL (a day pass only)
    int64_t fv2 = 0;                // of the latest frame the encoder published
    uint16_t laser_dm = 0;          // the laser distance the service holds
    std::string event;              // the scene's changes that fell due before the pass
};

// A moment of the scene: the start, or every event at one `at`.
struct Moment {
    double at_s = 0.0;
    std::string cause;             // "start", or the keys of its events ("zoom", "light+laser")
    size_t first_row = 0;          // its segment's first pass
    bool locked_at_start = false;  // the lock held once its calls were made, before a pass
};

struct Replay {
    std::vector<PassRow> rows;
    std::vector<Moment> moments;
    double board_time_s = 0.0;
    bool interrupted = false;
};

// Starts the service on sim (its platform installed) and replays its scene. stop, set by a
// signal handler, ends the replay between two passes. False with a message in error when
// the service could not start.
bool replay_scene(bench::SimBoard& sim, const twin::Scene& scene,
                  const volatile std::sig_atomic_t& stop, Replay& replay, std::string& error);

}  // namespace zoomaf::scenario
