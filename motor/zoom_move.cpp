// Zoom moves: the multiple's zoom position from the tracking table, with the focus motor
// planned alongside, run by the run engines.
#include <cstdlib>

#include "motor/motor_internal.hpp"
#include "motor/run_engine.hpp"
#include "zoomaf/lib_motor.h"

namespace {

constexpr float kPlanDistance = 1.5f;
constexpr uint8_t kZoomFirstFocusSecond = 1 | 2 << 2;

int multiple_key(double multiple) {
    return static_cast<int>((multiple + 0.00001) * 10);
}

// Plans one motor's move to `target`, with backlash compensation when the direction turns.
void plan_motor(int motor, int target, uint8_t dir) {
    MotorRunState& m = gRunData.motor[motor];
    const int distance = std::abs(target - m.cur_steps);
    m.dst_steps = static_cast<int16_t>(target);
    m.dir = dir;
    m.total_steps = static_cast<uint16_t>(distance);
    int steps = distance;
    if (dir != m.last_dir) steps += dir == 0 ? m.compen_steps_forward : m.compen_steps_backward;
    m.psum = static_cast<uint8_t>(m.steps_vd);
    m.loops = static_cast<uint16_t>((steps + m.psum - 1) / m.psum);
    m.intct = 400;
    m.last_psum = static_cast<uint8_t>(steps - m.psum * (m.loops - 1));
}

}  // namespace

extern "C" {

uint8_t SetMultipleSteps(int16_t focus_steps, uint8_t move_focus, float multiple) {
    gRunData.motor_order = 0;
    gRunData.maxloops = 0;
    if (gRunData.running == 1) {
        MOTOR_LOG("warn, motor running, return 1\n");
        return MOVE_MOTOR_RUNNING;
    }
    uint8_t flags = 0;
    const int default_focus =
        gRunData.init_flag != 0 ? GetFocusRange(0) : GetListSteps(1, multiple, kPlanDistance) >> 4;

    MotorRunState& zoom = gRunData.motor[MOTOR_ZOOM];
    MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    int zoom_target = zoom.cur_steps;
    if (multiple != gRunData.multiple_cur) {
        const int32_t found = GetListSteps(0, multiple, kPlanDistance);
        flags |= found & 0xF;
        zoom_target = found >> 4;
    }
    const int margin = default_focus > focus.cur_steps ? 16 : 0;
    const int focus_target =
        move_focus != 0 && focus_steps > default_focus + margin ? focus_steps : default_focus;

    // Zoom goes down with direction 1, focus up.
    const uint8_t zoom_dir = zoom_target > zoom.cur_steps ? 0 : 1;
    const uint8_t focus_dir = focus_target > focus.cur_steps ? 1 : 0;
    const bool zoom_moves = zoom_target != zoom.cur_steps;
    const bool focus_moves = focus_target != focus.cur_steps;
    if (zoom_moves) plan_motor(MOTOR_ZOOM, zoom_target, zoom_dir);
    if (focus_moves) plan_motor(MOTOR_FOCUS, focus_target, focus_dir);

    // The zoom motor always takes the first slot and the focus motor the second, in both
    // zoom directions, so that focus runs in the same periods as zoom.
    gRunData.motor_order = kZoomFirstFocusSecond;
    const uint16_t zoom_loops = zoom_moves ? zoom.loops : 0;
    const uint16_t focus_loops = focus_moves ? focus.loops : 0;
    if (!zoom_moves) zoom.loops = 0;
    if (!focus_moves) focus.loops = 0;
    gRunData.maxloops = zoom_loops > focus_loops ? zoom_loops : focus_loops;
    return flags;
}

uint32_t SetMultiple(int16_t focus_steps, uint8_t move_focus, float multiple) {
    MOTOR_LOG("");
    Get_Times("Set Multiple start");
    const int64_t start = zoomaf::motor::monotonic_us();
    const MotorRunState& zoom = gRunData.motor[MOTOR_ZOOM];
    const MotorRunState& focus = gRunData.motor[MOTOR_FOCUS];
    MOTOR_LOG(
        "multiple: %f, focussteps: %d, movefocus: %d, cur multiple: %f, focusrange mode: %d, zoom "
        "cur steps:%d, steps_vd: %d, focus cur steps:%d, steps_vd: %d\n",
        multiple, focus_steps, move_focus, gRunData.multiple_cur, gRunData.init_flag,
        zoom.cur_steps, zoom.steps_vd, focus.cur_steps, focus.steps_vd);

    uint32_t code = ERR_NO;
    if (gRunData.running == 1) {
        MOTOR_LOG("warn, motor running, return 1\n");
        code = MOVE_MOTOR_RUNNING;
    } else {
        const int key = multiple_key(multiple);
        if (key >= 111) {
            MOTOR_LOG("warn, multiple: %f > MULTIPLE_MAX: %f, set MULTIPLE_MAX\n", multiple,
                      MULTIPLE_MAX);
            multiple = static_cast<float>(MULTIPLE_MAX);
            code = MOVE_MULTIPLE_CLAMPED;
        } else if (key < 35) {
            MOTOR_LOG("warn, multiple: %f < MULTIPLE_MIN: %f, set MULTIPLE_MIN\n", multiple,
                      MULTIPLE_MIN);
            multiple = static_cast<float>(MULTIPLE_MIN);
            code = MOVE_MULTIPLE_CLAMPED;
        }
        if (multiple != gRunData.multiple_cur || move_focus != 0) {
            code |= SetMultipleSteps(focus_steps, move_focus, multiple);
            MOTOR_LOG(
                "multiple: %f, focusrange type: %d, maxloops: %d, motor_order: 0x%02X, z1 "
                "dst_steps: %d, focus dst_steps: %d, ret: 0x%02X\n",
                multiple, gRunData.init_flag, gRunData.maxloops, gRunData.motor_order,
                zoom.dst_steps, focus.dst_steps, code);
            const bool nothing_to_run = gRunData.maxloops == 0;
            if (!nothing_to_run) code |= move_focus != 0 ? StartRunReNew() : StartRun();
            if (nothing_to_run ||
                (code & (MOVE_MOTOR_RUNNING | MOVE_LOOKUP_FAILED | OUTOFRANGE)) == 0)
                gRunData.multiple_cur = multiple;
        } else {
            MOTOR_LOG("warn, gRunData.multiple_cur: %f == multiple: %f, return 0\n",
                      gRunData.multiple_cur, multiple);
        }
    }

    const int64_t elapsed = zoomaf::motor::monotonic_us() - start;
    MOTOR_LOG("");
    Get_Times("Set Multiple end");
    MOTOR_LOG("zoom run time is %ld us.\r\n", long(elapsed));
    gRunData.motor_order = 0;
    gRunData.maxloops = 0;
    zoomaf::motor::read_both_photo_interrupters();
    return code | static_cast<uint32_t>(elapsed) << 4;
}

uint8_t SetMultipleValue(int16_t focus_steps, uint8_t move_focus, float multiple) {
    MOTOR_LOG("multiple: %f, focussteps %d, movefocus %d. \r\n", multiple, focus_steps, move_focus);
    if (multiple_key(multiple) != multiple_key(gRunData.multiple_cur))
        return static_cast<uint8_t>(SetMultiple(focus_steps, move_focus, multiple));
    if (move_focus != 0) return static_cast<uint8_t>(SetFocusLens(focus_steps, 0));
    return 0;
}

}  // extern "C"
