// The board's clock. In virtual mode time only moves when the service sleeps (or a test
// advances it), so a drive of the service is deterministic and runs as fast as the CPU
// allows. In real-time mode the clock follows CLOCK_MONOTONIC, optionally scaled, so the
// interactive bench can be watched. The clock has no lock of its own: the board calls it
// under the board mutex.
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <ctime>

namespace zoomaf::twin {

class Clock {
public:
    static constexpr uint64_t kMonotonicStartNs = 1000ull * 1000000000ull;

    explicit Clock(uint64_t seed);

    // Virtual CLOCK_MONOTONIC in nanoseconds (starts at kMonotonicStartNs).
    uint64_t now_ns() const;
    timespec monotonic() const;
    // A fixed, seeded epoch plus the virtual time elapsed since the board started.
    timeval wall() const;

    // Moves virtual time forward without a sleep call.
    void advance(uint64_t ns);

    // Books a sleep of ns. Returns the real time to sleep for it: 0 in virtual mode (the
    // clock has already advanced), ns / speed in real-time mode.
    uint64_t book_sleep(uint64_t ns);
    uint64_t slept_ns() const { return slept_ns_; }
    uint64_t sleep_calls() const { return sleep_calls_; }

    // Real-time mode at `speed` times real time (speed > 0), continuous with the current
    // virtual time. Throws std::invalid_argument on a speed that is not positive.
    void set_real_time(double speed);
    void set_virtual_time();
    bool real_time() const { return real_time_; }

    // The host's CLOCK_MONOTONIC in nanoseconds, which real-time mode follows.
    static uint64_t real_monotonic_ns();

private:
    bool real_time_ = false;
    double speed_ = 1.0;
    uint64_t virtual_ns_ = kMonotonicStartNs;  // the time in virtual mode, the anchor in real
    uint64_t real_anchor_ns_ = 0;              // CLOCK_MONOTONIC when real time was entered
    uint64_t wall_epoch_us_;                   // wall time at virtual time kMonotonicStartNs
    uint64_t slept_ns_ = 0;
    uint64_t sleep_calls_ = 0;
};

}  // namespace zoomaf::twin
