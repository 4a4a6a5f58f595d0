// Focus moves: absolute or relative targets clamped to the focus range, a focus position by
// distance from the tracking table, all run by StartRun.
#include <cstdlib>

#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

extern "C" {

int SetFocusSteps(int16_t steps, uint8_t relative, float multiple) {
    gRunData.motor_order = 0;
    gRunData.maxloops = 0;
    if (gRunData.running == 1) {
        MOTOR_LOG("focussteps: %d, moveflag: %d, return motor running(1)\n", steps, relative);
        return MOVE_MOTOR_RUNNING;
    }
    MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    // The messages say ERR_NO(0); the code is 16, which callers rely on to skip the run.
    if (steps == 0 && relative != 0) {
        MOTOR_LOG("warn, set focus:%d == 0, and moveflag: %d > 0, return ERR_NO(0)\n", steps,
                  relative);
        return MOVE_NOT_NEEDED;
    }
    if (relative == 0 && steps == focus.cur_steps) {
        MOTOR_LOG("warn, det steps(%d) == cur steps(%d), moveflag: %d, return ERR_NO(0)\n", steps,
                  focus.cur_steps, relative);
        return MOVE_NOT_NEEDED;
    }
    // A relative move takes direction 1 for negative steps and 0 for positive ones, the
    // reverse of the absolute rule; the service itself only moves focus absolutely.
    uint8_t dir;
    if (relative != 0) {
        dir = steps < 0 ? 1 : 0;
    } else {
        dir = steps > focus.cur_steps ? 1 : 0;
    }

    int min_steps;
    int max_steps;
    if (gRunData.init_flag != 0) {
        min_steps = GetFocusRange(0);
        max_steps = GetFocusRange(1);
    } else {
        min_steps = GetListSteps(1, multiple, 1.5f) >> 4;
        max_steps = GetListSteps(1, multiple, 100.0f) >> 4;
    }
    int target = relative != 0 ? focus.cur_steps + steps : steps;
    int code = ERR_NO;
    if (target > max_steps) {
        MOTOR_LOG("warn, steps_dst:%d > steps_max:%d, set max to dst, OUTOFRANGE(4)\n", target,
                  max_steps);
        target = max_steps;
        code = OUTOFRANGE;
    } else if (target < min_steps) {
        MOTOR_LOG("warn, steps_dst:%d < steps_min: %d, set min to dst, OUTOFRANGE(4)\n", target,
                  min_steps);
        target = min_steps;
        code = OUTOFRANGE;
    }

    focus.dst_steps = static_cast<int16_t>(target);
    focus.dir = dir;
    const int distance = std::abs(target - focus.cur_steps);
    if (distance == 0) {
        MOTOR_LOG(
            "warn, setsetps:%d, dst steps(%d) == cur steps(%d), moveflag: %d return ERR_NO(0)\n",
            steps, target, focus.cur_steps, relative);
        return code;
    }
    const int per_period = focus.steps_vd;
    focus.loops = static_cast<uint16_t>(distance / per_period +
                                        (distance % per_period != 0 && per_period > 1 ? 1 : 0));
    focus.intct = 400;
    focus.psum = static_cast<uint8_t>(per_period);
    focus.last_psum = static_cast<uint8_t>(distance - focus.psum * (focus.loops - 1));
    focus.total_steps = static_cast<uint16_t>(distance);
    gRunData.motor_order |= 2;  // focus in the first slot, no backlash compensation
    gRunData.maxloops = focus.loops;
    return code;
}

uint32_t SetFocusLens(int16_t steps, uint8_t relative) {
    MOTOR_LOG("");
    Get_Times("Set Focus start");
    const int64_t start = zoomaf::motor::monotonic_us();
    const MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    MOTOR_LOG("cur multiple: %f, cur step: %d, set steps: %d, moveflag: %d, focus steps_vd: %d\n",
              gRunData.multiple_cur, focus.cur_steps, steps, relative, focus.steps_vd);
    if (gRunData.running == 1) {
        MOTOR_LOG("warn, motor running, return 1\n");
        return MOVE_MOTOR_RUNNING;
    }
    const int code = SetFocusSteps(steps, relative, gRunData.multiple_cur);
    // A clamped target (code 4) is planned but deliberately not run.
    if (focus.loops != 0 && code == ERR_NO) StartRun();
    const int64_t elapsed = zoomaf::motor::monotonic_us() - start;
    MOTOR_LOG("");
    Get_Times("Set Focus end");
    zoomaf::motor::read_both_photo_interrupters();
    return static_cast<uint32_t>(code) | static_cast<uint32_t>(elapsed) << 4;
}

uint32_t SetFocusMotor(float distance) {
    if (gRunData.running == 1) {
        MOTOR_LOG("warn, motor running, return 1\n");
        return MOVE_MOTOR_RUNNING;
    }
    const int32_t found = GetListSteps(1, gRunData.multiple_cur, distance);
    if (found & LIST_TABLE_EMPTY) return MOVE_LOOKUP_FAILED;
    return SetFocusLens(static_cast<int16_t>(found >> 4), 0);
}

}  // extern "C"
