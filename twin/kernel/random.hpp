// Seeded randomness of the twin. Everything the board draws by chance comes from these
// generators, so a board built twice from one seed behaves the same. SplitMix64 is used
// rather than <random>'s distributions, whose results differ between standard libraries.
#pragma once

#include <cstdint>

namespace zoomaf::twin {

class SeededRandom {
public:
    explicit SeededRandom(uint64_t seed) : state_(seed) {}

    uint64_t next() {
        uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // Uniform in [0, 1), from the top 53 bits.
    double unit() { return static_cast<double>(next() >> 11) * 0x1.0p-53; }

    // Uniform in [lo, hi], both included (lo <= hi). The modulo bias is far below
    // anything a test can see for the small ranges the board uses.
    int64_t between(int64_t lo, int64_t hi) {
        const uint64_t span = static_cast<uint64_t>(hi - lo) + 1;
        return lo + static_cast<int64_t>(next() % span);
    }

private:
    uint64_t state_;
};

// An independent stream of the board seed for one purpose (motor positions, fault rates,
// the wall-clock epoch ...), so drawing more for one purpose never shifts another.
inline uint64_t seed_stream(uint64_t seed, uint64_t purpose) {
    SeededRandom mixer(seed ^ (purpose * 0xD1B54A32D192ED03ull));
    return mixer.next();
}

}  // namespace zoomaf::twin
