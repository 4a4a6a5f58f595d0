// StartRun: executes the plan that a move call left in gRunData.
#include "motor/motor_internal.hpp"
#include "motor/run_engine.hpp"
#include "zoomaf/lib_motor.h"

namespace {

// The focus motor may start late so that it finishes within maxloops. When the two motors'
// loops do not fit in maxloops, one of them is shortened in this computation to maxloops
// minus the other: the first motor's when it is not longer than the second's, else the
// second's. The late motor then always ends within maxloops.
uint16_t late_start_delay(const zoomaf::motor::RunSlots& slots) {
    if (slots.motors[0] < 0 || slots.motors[1] < 0) return 0;
    int first = gRunData.motor[slots.motors[0]].loops;
    int second = gRunData.motor[slots.motors[1]].loops;
    if (gRunData.maxloops < first + second) {
        if (first <= second) {
            first = gRunData.maxloops - second;
        } else {
            second = gRunData.maxloops - first;
        }
    }
    const int delay = first < second ? first : second;
    return static_cast<uint16_t>(delay < 0 ? 0 : delay);
}

}  // namespace

extern "C" int StartRun(void) {
    int result = 1;
    if (gRunData.running != 1) {
        zoomaf::motor::RunSlots slots = zoomaf::motor::slots_from_order(gRunData.motor_order);
        if (gRunData.motor_order & MOTOR_ORDER_FOCUS_LATE) {
            slots.late_motor = MOTOR_FOCUS;
            slots.delay = late_start_delay(slots);
        }
        result = zoomaf::motor::run_periods(__func__, slots, gRunData.maxloops,
                                            zoomaf::motor::RunLog::plain);
    }
    MOTOR_LOG("cur multiple:%f, zoom_cursteps: %d, focus_cursteps: %d\n", gRunData.multiple_cur,
              gRunData.motor[MOTOR_ZOOM].cur_steps, gRunData.motor[MOTOR_FOCUS].cur_steps);
    zoomaf::motor::clear_run_plan();
    return result;
}
