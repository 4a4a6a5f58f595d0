// What the scenario runner makes of a replay: one segment per moment of the scene with how
// focus behaved in it, the summary (summary.json) and the trace of every pass (trace.csv).
//
// A segment runs from its moment's `at` to the next moment's (or the end of the replay); its
// passes are those made after its calls. In it:
//   locked          the lock (by day the service's own, at night in centre mode the search
//                   done, in manual mode the move made) holds at the segment's end
//   passes_to_lock  the passes up to the one after which the lock held to the segment's end;
//                   0 when it held from the segment's start, null when not locked
//   lock_s          the board seconds from the segment's start to the end of that pass
//   true_focus_step the in-focus step of the subject the mode aims at (centre and manual
//                   mode: the frame's centre subject; free mode: the window under the point)
//                   at the lens's physical zoom at the segment's end; error_steps is the
//                   physical focus step minus it
//   focus_moves     the passes after which the focus motor stood elsewhere than before them
//                   (the moves of the application's calls, a zoom's, are not counted)
//   direction_reversals  sign changes between consecutive focus moves (hunting)
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tools/scenario_replay.hpp"

namespace zoomaf::scenario {

struct Segment {
    double start_s = 0.0, end_s = 0.0;
    std::string cause;
    std::string light, day_night, mode;
    double multiple = 0.0;
    double subject_distance_m = 0.0;
    bool locked = false;
    std::optional<double> lock_s;
    size_t passes = 0;
    std::optional<size_t> passes_to_lock;
    int focus_step = 0;
    double true_focus_step = 0.0;
    double error_steps = 0.0;
    int focus_moves = 0;
    int direction_reversals = 0;
};

std::vector<Segment> segments_of(const Replay& replay, double duration_s);

struct RunFacts {
    std::string scene;
    uint64_t seed = 0;
    double board_time_s = 0.0;
    double wall_time_s = 0.0;
    size_t timing_faults = 0;
};

void write_summary_json(FILE* out, const RunFacts& facts, const std::vector<Segment>& segments);

// Columns: t_s, pass, multiple, zoom_step, focus_step, true_focus_step, mode, day_night,
// night_state, locked, window, pd, cl, fv2, laser_dm, event (window, pd and cl empty when
// the pass read no PD; window is the grid index 0..47).
void write_trace_csv(FILE* out, const Replay& replay);

// "day", "night" or the lux figure; "centre", "free" or "manual".
std::string light_name(double lux);
std::string mode_name(int32_t mode);

}  // namespace zoomaf::scenario
