// The auto-focus loop as pieces: its loop-local state, its start and one pass. Both entry
// points run them; tests and the scenario runner drive passes one by one with a state of
// their own. Not part of the exported interface.
#pragma once

#include <atomic>
#include <cstdint>

#include "zoomaf/pdaflib.h"
#include "zoomaf/vrel_sharememory.h"

namespace zoomaf {

// The console's variant (AFByUsingAssistInfo) and the application's (RunAFByUsingAssistInfo)
// share the pass and differ in a few points: the row taken at start, night in free mode,
// the sleep after a pass, the pause while zooming and the stop handshake.
enum class LoopVariant { console, application };

// What the loop thread keeps between passes; nothing else reads it.
struct AfLoopState {
    LoopVariant variant = LoopVariant::console;
    float last_multiple = 0.0f;
    int32_t last_mode = 0;
    int32_t last_day_night = 0;
    int32_t period_ms = 200;
    // [0] receives the PD/CL readout of a pass and goes to the centre focus.
    PdLibInputData input[2] = {};
    int64_t chosen_cl = 0;
    int64_t chosen_pd = 0;
    // The focus values of the latest encoded frame (fv1, fv2 first).
    VrelFocusValues fv = {};
};

// The start of the loop: the night record zeroed, the defocus library prepared, the
// centre focus reset, the night range of the start row set. Takes the service lock.
void start_af_loop(AfLoopState& state, LoopVariant variant);

// One pass, its closing sleep included. False when the application's variant was asked to
// stop (onoff) and is to leave the loop.
bool run_af_pass(AfLoopState& state);

// One step of the night contrast search (states 0..4 of night_focus_man). Service lock
// held.
void night_focus_step(AfLoopState& state);

// The night range of the zoom row current_multiple_index into night_focus_man.
void set_night_range_of_row();

// The console's loop: AFByUsingAssistInfo's body, leaving between two passes once stop is
// set (only the console sets it, at the end of its input). passes counts the passes done.
struct ConsoleLoopControl {
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> passes{0};
};
void run_console_loop(ConsoleLoopControl& control);

}  // namespace zoomaf
