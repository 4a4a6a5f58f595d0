// What the twin demos share: their command line (--speed N, --seed S and, where the demo
// offers it, --ms41908), the real clock they measure pacing with and the board readings
// they report.
#pragma once

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "twin/module/board.hpp"

namespace zoomaf::tools {

struct DemoOptions {
    double speed = 1.0;  // times faster than real time
    uint64_t seed = 2026;
    bool ms41908 = false;
    bool valid = true;  // false: an unknown option or a speed that is not positive
};

inline DemoOptions parse_demo_options(int argc, char** argv, bool offer_ms41908) {
    DemoOptions options;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--speed") == 0 && i + 1 < argc) {
            options.speed = std::atof(argv[++i]);
        } else if (std::strcmp(argv[i], "--seed") == 0 && i + 1 < argc) {
            options.seed = std::strtoull(argv[++i], nullptr, 10);
        } else if (offer_ms41908 && std::strcmp(argv[i], "--ms41908") == 0) {
            options.ms41908 = true;
        } else {
            options.valid = false;
        }
    }
    options.valid = options.valid && options.speed > 0;
    return options;
}

inline uint64_t real_ns() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000u + uint64_t(ts.tv_nsec);
}

// A motor's physical position on the twin.
inline int position(const twin::Board& board, twin::Motor motor) {
    return board.with<twin::LensMotor>(motor,
                                       [](const twin::LensMotor& m) { return m.position(); });
}
inline uint64_t vd_pulses(const twin::Board& board) {
    return board.with<twin::DriverChip>(
        [](const twin::DriverChip& chip) { return chip.vd_pulses(); });
}
inline size_t timing_faults(const twin::Board& board) {
    size_t count = 0;
    for (const auto& fault : board.faults()) count += fault.kind == twin::FaultKind::timing;
    return count;
}

}  // namespace zoomaf::tools
