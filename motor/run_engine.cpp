#include "motor/run_engine.hpp"

#include <algorithm>
#include <cstdlib>

#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

#define RUN_LOG(fmt, ...) std::printf("[%s] [%d] " fmt, func, __LINE__, ##__VA_ARGS__)

int8_t old_error_step[120];
uint32_t run_times;

namespace zoomaf::motor {

namespace {

// Where one motor of the run stands.
struct MotorProgress {
    int id = -1;
    uint16_t first_period = 0;  // late motor: the delay
    uint16_t last_period = 0;
    int running_position = 0;  // position tracked period by period
    int error_step = 0;        // disagreement of the photo-interrupter with the tracking
    bool finished = false;
    bool written = false;  // a pulse count has been written in this run
    uint8_t written_count = 0;
    uint32_t period_time = 0;  // µs of the count last written
    bool pulsed = false;       // pulsed in the current period
};

// Focus moves up with direction 1, zoom moves down with direction 1.
int signed_steps(int motor, uint8_t dir, int steps) {
    const bool up = motor == MOTOR_FOCUS ? dir == 1 : dir != 1;
    return up ? steps : -steps;
}

int reduce_error_step(int error_step) {
    if (std::abs(error_step) < 17) return error_step / 2;
    return error_step < 1 ? -16 : 16;
}

// The history of the revised loop: the error step of each motor for the last 60 runs.
constexpr uint32_t kHistoryRuns = sizeof old_error_step / 2;

void track_position(const char* func, MotorProgress& p) {
    MotorRunState& motor = gRunData.motor[p.id];
    p.running_position += signed_steps(p.id, motor.dir, motor.psum);
    const int pi = GetCurGPIO(static_cast<uint8_t>(p.id));
    const bool before_edge_but_lit = pi == 1 && p.running_position < 0;
    const bool past_edge_but_dark = pi == 0 && p.running_position > 0;
    if (!before_edge_but_lit && !past_edge_but_dark) return;
    p.error_step += before_edge_but_lit ? -motor.psum : motor.psum;
    RUN_LOG(
        "motor %d pi is %d, start steps is %d, run step is %d, end steps is %d, error step "
        "%d.\r\n",
        p.id, pi, motor.cur_steps, p.running_position, motor.dst_steps, p.error_step);
}

bool stop_motor(const char* func, MotorProgress& p, RunLog log) {
    MotorRunState& motor = gRunData.motor[p.id];
    if (SetRunReg(0, 0, motor.dir, static_cast<uint8_t>(p.id)) == 0xFFFFFFFFu) {
        RUN_LOG("SetRunReg Write error ！！\r\n");
        return false;
    }
    SetMotorPWM(static_cast<uint8_t>(p.id), 1);
    p.error_step = reduce_error_step(p.error_step);
    if (log == RunLog::plain) {
        std::printf("use error_step is %d.\r\n", p.error_step);
    } else {
        const uint32_t slot = (run_times % kHistoryRuns) * 2 + p.id;
        const uint32_t previous = ((run_times + kHistoryRuns - 1) % kHistoryRuns) * 2 + p.id;
        std::printf("old_error_step is %d, error_step is %d.\r\n", old_error_step[previous],
                    p.error_step);
        old_error_step[slot] = static_cast<int8_t>(p.error_step);
    }
    motor.cur_steps = motor.dst_steps;
    motor.last_dir = motor.dir;
    return true;
}

}  // namespace

RunSlots slots_from_order(uint8_t motor_order) {
    RunSlots slots;
    const int first = (motor_order & 3) - 1;
    const int second = ((motor_order >> 2) & 3) - 1;
    // An id + 1 of 3 names no motor; such a slot stays empty.
    if (first == MOTOR_ZOOM || first == MOTOR_FOCUS) slots.motors[0] = first;
    if (second == MOTOR_ZOOM || second == MOTOR_FOCUS) slots.motors[1] = second;
    return slots;
}

int run_periods(const char* func, const RunSlots& slots, uint16_t maxloops, RunLog log) {
    MotorProgress progress[2];
    for (int s = 0; s < 2; ++s) {
        MotorProgress& p = progress[s];
        p.id = slots.motors[s];
        if (p.id < 0) continue;
        const MotorRunState& motor = gRunData.motor[p.id];
        p.running_position = motor.cur_steps;
        p.first_period = p.id == slots.late_motor ? slots.delay : 0;
        if (motor.loops == 0) {
            p.finished = true;  // nothing planned for this motor
            continue;
        }
        p.last_period = static_cast<uint16_t>(p.first_period + motor.loops - 1);
    }

    for (uint16_t period = 0; period < maxloops; ++period) {
        uint8_t mask = 0;
        uint32_t shortest = UINT32_MAX;
        uint32_t longest = 0;
        for (MotorProgress& p : progress) {
            p.pulsed = false;
            if (p.id < 0 || p.finished || period < p.first_period) continue;
            const MotorRunState& motor = gRunData.motor[p.id];
            const uint8_t count = period == p.last_period ? motor.last_psum : motor.psum;
            // The registers are written only when the count changes: normally in the first
            // and the last period.
            if (!p.written || count != p.written_count) {
                p.period_time = GetTimes(count, motor.intct);
                if (SetRunReg(count, motor.intct, motor.dir, static_cast<uint8_t>(p.id)) ==
                    0xFFFFFFFFu) {
                    RUN_LOG("SetRunReg Write error ！！\r\n");
                    return 1;
                }
                p.written = true;
                p.written_count = count;
            }
            p.pulsed = true;
            mask = static_cast<uint8_t>(mask | 1u << p.id);
            shortest = std::min(shortest, p.period_time);
            longest = std::max(longest, p.period_time);
        }
        if (mask == 0) continue;

        SetVDGpio(mask);
        if (log == RunLog::revised) {
            RUN_LOG("run number is %ld, sleep time is %d.\r\n", long(period), int(longest));
        }
        // One wait when the pulsed motors take equally long, else the shortest and then the
        // rest. A motor stops after the wait that completes its own period time.
        const uint32_t waits[2] = {shortest, longest - shortest};
        const int wait_count = shortest == longest ? 1 : 2;
        uint32_t elapsed = 0;
        for (int w = 0; w < wait_count; ++w) {
            sleep_ns(waits[w] * 1000ull + 1515000);
            elapsed += waits[w];
            for (MotorProgress& p : progress) {
                if (!p.pulsed) continue;
                if (w == 0) track_position(func, p);
                if (period != p.last_period || p.period_time != elapsed) continue;
                p.finished = true;
                if (!stop_motor(func, p, log)) return 1;
            }
        }
    }
    return 0;
}

void clear_run_plan() {
    gRunData.running = 0;
    gRunData.motor_order = 0;
    for (MotorRunState& motor : gRunData.motor) {
        motor.dst_steps = 0;
        motor.dir = 0;
        motor.loops = 0;
        motor.total_steps = 0;
        motor.intct = 0;
        motor.psum = 0;
        motor.last_psum = 0;
    }
}

}  // namespace zoomaf::motor
