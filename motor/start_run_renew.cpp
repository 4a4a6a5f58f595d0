// StartRunReNew: the revised run engine of zoom moves that also move focus. It re-plans the
// pulse counts from each motor's total steps so that both motors finish together.
#include <initializer_list>

#include "motor/motor_internal.hpp"
#include "motor/run_engine.hpp"
#include "zoomaf/lib_motor.h"

namespace {

// Pulse interval by the multiple before the zoom: slower pulses at longer focal lengths.
int interval_for_multiple(double multiple) {
    if (multiple < 4.1) return 400;
    if (multiple < 8.1) return static_cast<int>((multiple - 4.0) * (600 - 400) / (8.0 - 4.0) + 400);
    if (multiple < 17.6)
        return static_cast<int>((multiple - 8.0) * (800 - 600) / (17.5 - 8.0) + 600);
    return 800;  // beyond the lens; multiples are clamped to 11 before they get here
}

// A budget of leading total x interval spread over each motor's total: both motors' pulses
// of a period take about as long.
uint16_t interval_count(int budget, int total) {
    if (total == 0) return 0;
    const int count = budget / total + (budget % total != 0 ? 1 : 0);
    const uint16_t word = static_cast<uint16_t>(count);
    return static_cast<int16_t>(word) < 0 ? 32767 : word;
}

// Re-plans both motors; returns the number of full periods n, or -1 when a plan does not add
// up to its motor's total.
int replan(int leading) {
    const int leading_total = gRunData.motor[leading].total_steps;
    const int budget = leading_total * interval_for_multiple(gRunData.multiple_cur);
    int full_periods = 1;
    double share = 0;
    if (leading_total > 239) {
        full_periods = leading_total / 240;
        share = 240.0 / leading_total;
        std::printf("loop is %d;Percentage for step is %f.\r\n", full_periods, share);
    }
    for (long id = 0; id < 2; ++id) {
        MotorRunState& motor = gRunData.motor[id];
        const int total = motor.total_steps;
        motor.intct = interval_count(budget, total);
        if (leading_total > 239) {
            motor.loops = static_cast<uint16_t>(full_periods + 1);
            motor.psum = static_cast<uint8_t>(total * share);
            motor.last_psum = static_cast<uint8_t>(total % 256 - motor.psum * full_periods);
        } else {
            // A short move goes out as one period.
            motor.loops = 2;
            motor.psum = static_cast<uint8_t>(total);
            motor.last_psum = 0;
        }
        const int computed =
            motor.psum * full_periods + motor.last_psum * (motor.loops - full_periods);
        if (computed != total) {
            std::printf("电机ID是%ld，实际值为%d，计算获取数据为 %d x %d + %d * (%d - %d) = %d\r\n",
                        id, total, motor.psum, full_periods, motor.last_psum, motor.loops,
                        full_periods, computed);
            return -1;
        }
    }
    return full_periods;
}

// The motors that move, in the order of motor_order; a motor with nothing to do is left
// out so that its position is not touched.
zoomaf::motor::RunSlots moving_motors() {
    zoomaf::motor::RunSlots ordered = zoomaf::motor::slots_from_order(gRunData.motor_order);
    zoomaf::motor::RunSlots slots;
    int next = 0;
    for (int id : {ordered.motors[0], ordered.motors[1], int(MOTOR_ZOOM), int(MOTOR_FOCUS)}) {
        if (id < 0 || gRunData.motor[id].total_steps == 0) continue;
        if (next > 0 && slots.motors[0] == id) continue;
        if (next == 2) break;
        slots.motors[next++] = id;
    }
    return slots;
}

int plan_and_run() {
    for (long id = 0; id < 2; ++id) {
        std::printf("motor %ld Total Steps is %d\r\n", id, gRunData.motor[id].total_steps);
    }
    const long leading =
        gRunData.motor[MOTOR_ZOOM].total_steps > gRunData.motor[MOTOR_FOCUS].total_steps
            ? MOTOR_ZOOM
            : MOTOR_FOCUS;
    std::printf("max NO.%ld Total Steps is %d\r\n", leading, gRunData.motor[leading].total_steps);
    std::printf("max NO.%ld Total Steps is %d\r\n", 1 - leading,
                gRunData.motor[1 - leading].total_steps);

    const int full_periods = replan(static_cast<int>(leading));
    if (full_periods < 0) return 1;
    for (long id = 0; id < 2; ++id) {
        const MotorRunState& motor = gRunData.motor[id];
        std::printf(
            "motor id is %ld, motor loop is %d, end loop is %d, motor intctXX is %d, motor psumXX "
            "is %d, motor last psumXX is %d \r\n",
            id, motor.loops, motor.loops - 1, motor.intct, motor.psum, motor.last_psum);
    }
    const zoomaf::motor::RunSlots slots = moving_motors();
    gRunData.maxloops = static_cast<uint16_t>(full_periods + 1);
    const int result = zoomaf::motor::run_periods("StartRunReNew", slots, gRunData.maxloops,
                                                  zoomaf::motor::RunLog::revised);
    ++run_times;
    return result;
}

}  // namespace

extern "C" int StartRunReNew(void) {
    MOTOR_LOG("------------start run motor---------------------\r\n");
    int result = 1;
    if (gRunData.running != 1) {
        result = plan_and_run();
        if (result == 0) MOTOR_LOG("zoom，focus run over！！\r\n");
    }
    zoomaf::motor::clear_run_plan();
    return result;
}
