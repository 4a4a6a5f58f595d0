// What the twin demos share: their command line (--speed N, --seed S and, where the demo
// offers it, --ms41908) and the real clock they measure pacing with.
#pragma once

#include <time.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

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

}  // namespace zoomaf::tools
