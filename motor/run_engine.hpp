// The period loop shared by the run engines: moves the motors of a plan in gRunData by
// their pulse counts, one VD pulse per period for all of them, and stops each at its end.
#pragma once

#include <cstdint>

namespace zoomaf::motor {

struct RunSlots {
    int motors[2] = {-1, -1};  // motor ids in run order, -1 for an empty slot
    int late_motor = -1;       // the motor that starts `delay` periods late, or -1
    uint16_t delay = 0;
};

// How the loop reports: StartRun reports the reduced error step, the revised loop keeps the
// error-step history and logs every period.
enum class RunLog { plain, revised };

// The order slots of gRunData.motor_order (bits 1..0 and 3..2, motor id + 1).
RunSlots slots_from_order(uint8_t motor_order);

// Runs `maxloops` periods. Returns 0, or 1 when a register write failed (the run is then
// abandoned and the motors that had not stopped keep their cur_steps).
int run_periods(const char* func, const RunSlots& slots, uint16_t maxloops, RunLog log);

// Clears the run flags and every motor's plan fields after a run.
void clear_run_plan();

}  // namespace zoomaf::motor
