// zoomaf-zoom-demo: the zoom requests on the digital twin, against its true lens.
//  - Pacing: start-up (homing and the zoom to x3.5 with the 10 m focus step), then
//    AppSetMultipleByPdTrend from x3.5 to x11 with the laser on a 30 m subject, in real time;
//    reports the request's elapsed time over its pacing limit, the sum over its periods of
//    the period waits (every sleep of 1.515 ms and more), as zoomaf-motor-demo does for the
//    driver's zoom alone.
//  - Focus error: on a 30 m subject, the physical focus position minus the true in-focus
//    step after each zoom of x3.5 -> x5 -> x8 -> x11 -> x3.5 (virtual time), with the laser
//    on, with it off from the start-up focus, and with it off from a focus already on the
//    subject (where a focus lock leaves the lens).
// The service prints its messages as it goes; the report comes last.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "tools/demo_options.hpp"
#include "twin/kernel/recording_platform.hpp"
#include "twin/module/board.hpp"
#include "twin/module/laser.hpp"
#include "twin/module/lens_model.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/zoom_control.h"

namespace {

using zoomaf::tools::position;
using zoomaf::tools::real_ns;
using zoomaf::tools::timing_faults;
using zoomaf::tools::vd_pulses;
using zoomaf::twin::Board;
using zoomaf::twin::Motor;

constexpr uint64_t kPeriodWaitMinNs = 1515000;
constexpr double kSubjectM = 30.0;
constexpr uint16_t kSubjectDecimetres = 300;
constexpr float kSequence[] = {5.0f, 8.0f, 11.0f, 3.5f};

std::string lens_table() {
    std::ifstream in(std::string(ZOOMAF_DATA_DIR) + "/" + LENS_TABLE_FILE, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

// A board with the lens table in its working directory and the laser channel attached;
// the laser (when wanted) measures the 30 m subject.
struct Bench {
    Board board;
    zoomaf::twin::RecordingPlatform meter{board};
    std::optional<zoomaf::twin::Laser> laser;

    Bench(uint64_t seed, bool laser_on) : board({.seed = seed}) {
        zoomaf::install_platform(&meter);
        board.write_file(LENS_TABLE_FILE, lens_table());
        if (ReadAFTXT() != READ_AFTXT_OK) std::exit(2);
        LaserMenManHandle = VrelShareMan{};
        global_laser_distance = 0;
        last_laser = kSubjectDecimetres;
        VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL);
        if (laser_on)
            laser.emplace(board, zoomaf::twin::LaserConfig{.distance = kSubjectDecimetres});
        board.sleep_ns(100'000'000);  // the laser's first reading
        current_multiple = 1.0f;
        frist_zoom = 0;
        is_out_20_step = 0;
    }
    ~Bench() {
        UnInitmotor();
        laser.reset();
        zoomaf::install_platform(nullptr);
    }

    int focus_error() const {
        const double truth =
            zoomaf::twin::in_focus_focus_step(position(board, Motor::zoom), kSubjectM);
        return int(std::lround(position(board, Motor::focus) - truth));
    }
};

struct Pacing {
    double elapsed_ms = 0, limit_ms = 0;
    uint64_t periods = 0, timing_faults = 0;
    int error = 0;
};

Pacing pacing(uint64_t seed, double speed) {
    Bench bench(seed, true);
    bench.board.set_real_time(10 * speed);  // start-up is not what is measured
    VerificationSetMotordevInit(3.5f);
    bench.board.set_real_time(speed);
    const uint64_t waits = bench.meter.slept_ns_at_least(kPeriodWaitMinNs);
    const uint64_t pulses = vd_pulses(bench.board);
    const uint64_t start = real_ns();
    AppSetMultipleByPdTrend(11.0f);
    Pacing p;
    p.elapsed_ms = double(real_ns() - start) / 1e6;
    p.limit_ms = double(bench.meter.slept_ns_at_least(kPeriodWaitMinNs) - waits) / speed / 1e6;
    p.periods = vd_pulses(bench.board) - pulses;
    p.timing_faults = timing_faults(bench.board);
    p.error = bench.focus_error();
    return p;
}

struct Sequence {
    const char* what;
    std::vector<int> errors;  // at x3.5, then after each zoom
    uint64_t timing_faults = 0;
};

Sequence sequence(const char* what, uint64_t seed, bool laser_on, bool focus_on_subject,
                  int32_t (*request)(float)) {
    Bench bench(seed, laser_on);
    VerificationSetMotordevInit(3.5f);
    if (focus_on_subject) {
        const double truth =
            zoomaf::twin::in_focus_focus_step(position(bench.board, Motor::zoom), kSubjectM);
        SetFocusLens(int16_t(std::lround(truth)), 0);
        motor_position = GetCurSteps(MOTOR_FOCUS);
    }
    Sequence s{what, {bench.focus_error()}};
    for (float multiple : kSequence) {
        request(multiple);
        s.errors.push_back(bench.focus_error());
    }
    s.timing_faults = timing_faults(bench.board);
    return s;
}

}  // namespace

int main(int argc, char** argv) {
    const zoomaf::tools::DemoOptions options = zoomaf::tools::parse_demo_options(argc, argv, false);
    if (!options.valid) {
        std::fprintf(stderr,
                     "usage: zoomaf-zoom-demo [--speed N] [--seed S]\n"
                     "  N > 0 runs the pacing measurement N times faster than real time\n");
        return 2;
    }

    const uint64_t seed = options.seed;
    const Pacing p = pacing(seed, options.speed);
    const Sequence runs[] = {
        sequence("ByPdTrend, laser on", seed, true, false, AppSetMultipleByPdTrend),
        sequence("AppSetMultiple, laser on", seed, true, false, AppSetMultiple),
        sequence("ByPdTrend, laser off", seed, false, false, AppSetMultipleByPdTrend),
        sequence("ByPdTrend, laser off, focus on subject", seed, false, true,
                 AppSetMultipleByPdTrend),
        sequence("AppSetMultiple, laser off, focus on subject", seed, false, true, AppSetMultiple),
    };

    std::printf(
        "\n== AppSetMultipleByPdTrend x3.5 -> x11, laser on a 30 m subject, speed %g, seed "
        "%llu\n",
        options.speed, (unsigned long long)seed);
    std::printf(
        "  %llu VD periods, %.3f ms, pacing limit %.3f ms, elapsed/pacing limit %.4f, "
        "timing faults %llu, focus error %d\n",
        (unsigned long long)p.periods, p.elapsed_ms, p.limit_ms,
        p.limit_ms > 0 ? p.elapsed_ms / p.limit_ms : 0.0, (unsigned long long)p.timing_faults,
        p.error);
    std::printf("\n== Focus error on a 30 m subject (physical focus - true in-focus step)\n");
    std::printf("  %-44s  x3.5   x5   x8  x11  x3.5  timing faults\n", "");
    bool faults = p.timing_faults != 0;
    for (const Sequence& s : runs) {
        std::printf("  %-44s", s.what);
        for (int e : s.errors) std::printf(" %4d", e);
        std::printf("  %llu\n", (unsigned long long)s.timing_faults);
        faults = faults || s.timing_faults != 0;
    }
    return faults ? 1 : 0;
}
