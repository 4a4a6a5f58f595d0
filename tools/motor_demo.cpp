// zoomaf-motor-demo: the motor driver on the digital twin. Initialises the driver (module
// memory, SPI, GPIO, default registers) and homes both motors from unknown seeded start
// positions, then zooms and focuses in real time and reports the emulated positions and the
// VD pacing:
//  - the run engine's overhead per VD period beyond every wait it is prescribed (SPI, GPIO
//    and period sleeps), timer slack and sleep overshoot included;
//  - a zoom's elapsed time over its pacing limit, the sum over its periods of the period
//    waits (GetTimes + 1.515 ms).
#include <cstdio>
#include <string>

#include "tools/demo_options.hpp"
#include "twin/kernel/recording_platform.hpp"
#include "twin/module/board.hpp"
#include "zoomaf/lib_motor.h"

namespace {

using zoomaf::tools::position;
using zoomaf::tools::real_ns;
using zoomaf::tools::timing_faults;
using zoomaf::tools::vd_pulses;
using zoomaf::twin::Board;
using zoomaf::twin::Motor;
using zoomaf::twin::RecordingPlatform;

constexpr uint64_t kPeriodWaitMinNs = 1515000;  // every period wait ends with 1.515 ms

struct Pacing {
    const char* what = "";
    uint64_t periods = 0;
    double prescribed_ns = 0;    // every requested sleep, in real time
    double period_waits_ns = 0;  // the period waits alone, in real time
    double elapsed_ns = 0;
    int zoom = 0, focus = 0, driver_zoom = 0, driver_focus = 0;
};

template <class Move>
Pacing measured(const char* what, Board& board, RecordingPlatform& meter, double speed, Move move) {
    const uint64_t pulses = vd_pulses(board);
    const uint64_t slept = meter.slept_ns_at_least(0);
    const uint64_t waits = meter.slept_ns_at_least(kPeriodWaitMinNs);
    const uint64_t start = real_ns();
    move();
    Pacing p;
    p.what = what;
    p.elapsed_ns = double(real_ns() - start);
    p.periods = vd_pulses(board) - pulses;
    p.prescribed_ns = double(meter.slept_ns_at_least(0) - slept) / speed;
    p.period_waits_ns = double(meter.slept_ns_at_least(kPeriodWaitMinNs) - waits) / speed;
    p.zoom = position(board, Motor::zoom);
    p.focus = position(board, Motor::focus);
    p.driver_zoom = GetCurSteps(MOTOR_ZOOM);
    p.driver_focus = GetCurSteps(MOTOR_FOCUS);
    return p;
}

void report(const Pacing& p) {
    const double period_us = p.periods ? p.period_waits_ns / 1e3 / p.periods : 0;
    const double overhead_us = p.periods ? (p.elapsed_ns - p.prescribed_ns) / 1e3 / p.periods : 0;
    std::printf(
        "  %-34s %4llu periods  %9.3f ms  overhead/period %6.1f us (%5.2f %% of %7.1f us)  "
        "elapsed/pacing limit %.4f\n"
        "  %-34s lens zoom %5d focus %5d   driver zoom %5d focus %5d\n",
        p.what, (unsigned long long)p.periods, p.elapsed_ns / 1e6, overhead_us,
        period_us > 0 ? 100.0 * overhead_us / period_us : 0.0, period_us,
        p.period_waits_ns > 0 ? p.elapsed_ns / p.period_waits_ns : 0.0, "", p.zoom, p.focus,
        p.driver_zoom, p.driver_focus);
}

}  // namespace

int main(int argc, char** argv) {
    const zoomaf::tools::DemoOptions options = zoomaf::tools::parse_demo_options(argc, argv, true);
    const double speed = options.speed;
    const uint64_t seed = options.seed;
    const bool ms41908 = options.ms41908;
    if (!options.valid) {
        std::fprintf(stderr,
                     "usage: zoomaf-motor-demo [--speed N] [--seed S] [--ms41908]\n"
                     "  N > 0 runs the twin N times faster than real time (default 1)\n");
        return 2;
    }

    Board board({.seed = seed,
                 .driver = ms41908 ? zoomaf::twin::DriverType::ms41908
                                   : zoomaf::twin::DriverType::ms41928});
    RecordingPlatform meter(board);
    zoomaf::install_platform(&meter);
    const int zoom_start = position(board, Motor::zoom);
    const int focus_start = position(board, Motor::focus);

    // Homing is not what is measured: it runs ten times faster than the moves.
    board.set_real_time(10 * speed);
    const uint32_t init = Initmotor(10, 1);
    board.set_real_time(speed);
    std::printf("\n== Initmotor(10, 1) = %u; homed from zoom %d, focus %d to zoom %d, focus %d\n",
                init, zoom_start, focus_start, position(board, Motor::zoom),
                position(board, Motor::focus));

    const Pacing wide =
        measured("zoom to x3.5 (StartRun)", board, meter, speed, [] { SetMultiple(0, 0, 3.5f); });
    const Pacing focus =
        measured("focus to 1500 (StartRun)", board, meter, speed, [] { SetFocusLens(1500, 0); });
    const Pacing tele = measured("x3.5 to x11, focus -2000 (ReNew)", board, meter, speed,
                                 [] { SetMultiple(-2000, 1, 11.0f); });

    std::printf("\n== VD pacing in real time (speed %g), %s module, seed %llu\n", speed,
                ms41908 ? "MS41908" : "MS41928", (unsigned long long)seed);
    for (const Pacing& p : {wide, focus, tele}) report(p);
    std::printf("  timing faults %llu, VD pulses %llu\n", (unsigned long long)timing_faults(board),
                (unsigned long long)vd_pulses(board));
    zoomaf::install_platform(nullptr);
    return init == 0 && timing_faults(board) == 0 ? 0 : 1;
}
