// zoomaf-motor-demo: the motor driver on the digital twin in real time. Programs the
// driver's default registers, runs the focus motor, the zoom motor and a zoom move with
// focus following, and reports the emulated positions and the VD pacing: how much time the
// run engine spends per VD period beyond the waits it is prescribed.
#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "twin/board.hpp"
#include "zoomaf/lib_motor.h"

namespace {

using zoomaf::twin::Board;
using zoomaf::twin::Motor;

uint64_t real_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000u + uint64_t(ts.tv_nsec);
}

struct Pacing {
    uint64_t periods = 0;
    uint64_t prescribed_ns = 0;
    uint64_t elapsed_ns = 0;
};

// Runs one planned move and measures it against the sleeps the driver asked for.
template <class Run>
Pacing measured(Board& board, double speed, Run run) {
    const uint64_t pulses = board.vd_pulses();
    const uint64_t slept = board.slept_ns();
    const uint64_t start = real_ns();
    run();
    Pacing p;
    p.elapsed_ns = real_ns() - start;
    p.periods = board.vd_pulses() - pulses;
    p.prescribed_ns = uint64_t((board.slept_ns() - slept) / speed);
    return p;
}

void plan(int motor, int distance, uint8_t steps_per_period) {
    MotorRunState& m = gRunData.motor[motor];
    const bool up = distance > 0;
    m.dir = motor == MOTOR_FOCUS ? up : !up;
    m.total_steps = static_cast<uint16_t>(std::abs(distance));
    m.dst_steps = static_cast<int16_t>(m.cur_steps + distance);
    m.psum = steps_per_period;
    m.loops = static_cast<uint16_t>((m.total_steps + steps_per_period - 1) / steps_per_period);
    m.last_psum = static_cast<uint8_t>(m.total_steps - steps_per_period * (m.loops - 1));
    m.intct = 400;
}

void report(const char* what, const Pacing& p, Board& board) {
    const double period_us = p.periods ? p.prescribed_ns / 1e3 / p.periods : 0;
    const double overhead_us =
        p.periods ? (double(p.elapsed_ns) - double(p.prescribed_ns)) / 1e3 / p.periods : 0;
    std::printf(
        "\n== %s: %llu VD periods, prescribed %.3f ms, took %.3f ms\n"
        "   overhead per period %.1f us = %.2f %% of the %.1f us period\n"
        "   emulated zoom %d, focus %d; driver zoom %d, focus %d; timing faults %llu\n\n",
        what, (unsigned long long)p.periods, p.prescribed_ns / 1e6, p.elapsed_ns / 1e6, overhead_us,
        period_us > 0 ? 100.0 * overhead_us / period_us : 0.0, period_us,
        board.motor_position(Motor::zoom), board.motor_position(Motor::focus),
        GetCurSteps(MOTOR_ZOOM), GetCurSteps(MOTOR_FOCUS),
        (unsigned long long)board.timing_faults());
}

}  // namespace

int main(int argc, char** argv) {
    double speed = 1.0;
    if (argc > 2 && std::strcmp(argv[1], "--speed") == 0) speed = std::atof(argv[2]);
    if (speed <= 0) {
        std::fprintf(stderr, "usage: zoomaf-motor-demo [--speed N]  (N > 0, 1 = real time)\n");
        return 2;
    }

    Board board({.seed = 2026, .zoom_start = 0, .focus_start = 0});
    zoomaf::install_platform(&board);
    board.set_real_time(speed);

    std::printf("== programming the driver's default registers (MS41928 module)\n");
    InitAttr(10);
    if (InitSpi() != 0) return 1;
    InitGPIO(1);
    InitReg();
    std::printf("\n   chip registers:");
    for (int i = 0; i < REG_MOTOR_ENTRIES; ++i) {
        const int addr = reg_motor[i][0];
        std::printf("%s 0x%02X=0x%04X", i % 6 ? "" : "\n  ", addr, board.chip_register(addr));
    }
    std::printf("\n   lens placed at both photo-interrupter edges: zoom %d, focus %d\n\n",
                board.motor_position(Motor::zoom), board.motor_position(Motor::focus));

    plan(MOTOR_FOCUS, 400, 8);
    gRunData.motor_order = 2;
    gRunData.maxloops = gRunData.motor[MOTOR_FOCUS].loops;
    const Pacing focus = measured(board, speed, [] { StartRun(); });

    plan(MOTOR_ZOOM, -600, 16);
    gRunData.motor_order = 1;
    gRunData.maxloops = gRunData.motor[MOTOR_ZOOM].loops;
    const Pacing zoom = measured(board, speed, [] { StartRun(); });

    gRunData.multiple_cur = 3.5f;
    plan(MOTOR_ZOOM, 1200, 16);
    plan(MOTOR_FOCUS, -700, 8);
    gRunData.motor_order = 1 | 2 << 2;
    const Pacing both = measured(board, speed, [] { StartRunReNew(); });

    report("focus +400 steps (StartRun)", focus, board);
    report("zoom -600 steps (StartRun)", zoom, board);
    report("zoom +1200 with focus -700 (StartRunReNew)", both, board);

    Pacing all;
    for (const Pacing& p : {focus, zoom, both}) {
        all.periods += p.periods;
        all.prescribed_ns += p.prescribed_ns;
        all.elapsed_ns += p.elapsed_ns;
    }
    report("all runs", all, board);
    zoomaf::install_platform(nullptr);
    return board.timing_faults() == 0 ? 0 : 1;
}
