// Homing: each motor searches its photo-interrupter edge coarsely, then settles on it in one
// or two fine passes. Positions are not set here; the move calls establish them.
#include <initializer_list>

#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

namespace {

constexpr uint16_t kHomingIntct = 400;
constexpr uint8_t kCoarsePsum = 16;
constexpr int kExtraPeriods = 3;

// Status bits of one motor's homing.
constexpr int kCoarseEdgeFound = 1;
constexpr int kFineEdgeFound = 2;

struct HomingPlan {
    int start_level;  // a failed start read counts as level 0
    uint8_t direction;
    int fine_passes;
    int search_periods;
};

int read_pi(uint8_t motor) {
    return Gpio_GetValue(zoomaf::motor::pi_gpio(motor));
}

HomingPlan plan_for(uint8_t motor, int level) {
    const int start = level == 1 ? 1 : 0;
    if (motor == MOTOR_ZOOM) return {start, uint8_t(start == 1 ? 1 : 0), start == 1 ? 1 : 2, 878};
    return {start, uint8_t(start == 1 ? 0 : 1), start == 1 ? 1 : 2, 698};
}

void extra_periods(uint8_t psum, uint8_t direction, uint8_t motor) {
    for (int i = 0; i < kExtraPeriods; ++i) StartMotorRun(psum, kHomingIntct, direction, motor);
}

// Runs up to the search length in the search direction until the PI leaves its start level.
int coarse_search(uint8_t motor, const HomingPlan& plan) {
    for (int period = 0; period < plan.search_periods; ++period) {
        SetRegAndRun(kCoarsePsum, kHomingIntct, plan.direction, 0, motor);
        const int level = read_pi(motor);
        if (level == -1) {
            std::printf("[%s] [%d] motor id: %d, read gpio error\n", "InitPI", __LINE__, motor);
            continue;
        }
        if (level == plan.start_level) continue;
        extra_periods(kCoarsePsum, plan.direction, motor);
        gRunData.motor[motor].last_dir = plan.direction;
        read_pi(motor);
        return kCoarseEdgeFound;
    }
    return 0;
}

// Pass 0 goes back over the edge, pass 1 crosses it again in the search direction; the last
// pass uses the finest step. Returns the direction of the last pass.
uint8_t fine_passes(uint8_t motor, const HomingPlan& plan, int& status) {
    uint8_t direction = plan.direction;
    for (int pass = 0; pass < plan.fine_passes; ++pass) {
        direction = pass == 0 ? uint8_t(plan.direction == 1 ? 0 : 1) : plan.direction;
        const bool last_pass = pass == plan.fine_passes - 1;
        const uint8_t psum = last_pass ? 2 : 8;
        const int periods = plan.search_periods * (8 / psum);
        for (int period = 0; period < periods; ++period) {
            SetRegAndRun(psum, kHomingIntct, direction, 0, motor);
            const int level = read_pi(motor);
            if (level == -1) continue;
            const bool at_edge =
                pass % 2 == 0 ? level == plan.start_level : level != plan.start_level;
            if (!at_edge) continue;
            if (!last_pass) {
                extra_periods(psum, direction, motor);
            } else {
                status |= kFineEdgeFound;
            }
            if (read_pi(motor) == level) break;
        }
    }
    return direction;
}

}  // namespace

extern "C" int InitPI(uint8_t motor_selector) {
    std::printf("[%s] [%d] start init pi\n", __func__, __LINE__);
    HomingPlan plans[2];
    for (uint8_t motor : {uint8_t{MOTOR_ZOOM}, uint8_t{MOTOR_FOCUS}}) {
        const int level = read_pi(motor);
        if (level == -1) MOTOR_LOG("motor id: %d, read gpio error 1\n", motor);
        plans[motor] = plan_for(motor, level);
    }
    MOTOR_LOG("start check pi\n");

    int result = 0;
    for (uint8_t motor : {uint8_t{MOTOR_FOCUS}, uint8_t{MOTOR_ZOOM}}) {
        if (motor_selector != motor && motor_selector != 255) continue;
        SetMotorPWM(motor, 0);
        int status = coarse_search(motor, plans[motor]);
        const uint8_t last_direction = fine_passes(motor, plans[motor], status);
        SetMotorPWM(motor, 1);
        gRunData.motor[motor].last_dir = last_direction;
        lastdirection[motor] = last_direction;
        const int level = read_pi(motor);
        const bool homed = status == (kCoarseEdgeFound | kFineEdgeFound);
        if (!homed) result -= 1 + motor;
        const MotorRunState& state = gRunData.motor[motor];
        MOTOR_LOG(
            "check pi %s, motor id: %d, cur gpio: %d, last dir: %d, compen_steps_forward: %d, "
            "compen_steps_backward: %d\n\n",
            homed ? "succeed" : "faild", motor, level, last_direction, state.compen_steps_forward,
            state.compen_steps_backward);
    }
    return result;
}
