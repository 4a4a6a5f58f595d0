#include "twin/kernel/clock.hpp"

#include <cmath>
#include <stdexcept>

#include "twin/kernel/random.hpp"

namespace zoomaf::twin {

namespace {
constexpr uint64_t kEpoch2024Us = 1704067200ull * 1000000ull;  // 2024-01-01 00:00:00 UTC
constexpr uint64_t kYearUs = 365ull * 24 * 3600 * 1000000ull;
}  // namespace

Clock::Clock(uint64_t seed) {
    SeededRandom random(seed_stream(seed, 1));
    wall_epoch_us_ = kEpoch2024Us + random.next() % kYearUs;
}

uint64_t Clock::real_monotonic_ns() {
    timespec ts{};
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ull + static_cast<uint64_t>(ts.tv_nsec);
}

uint64_t Clock::now_ns() const {
    if (!real_time_) return virtual_ns_;
    const double real_elapsed = static_cast<double>(real_monotonic_ns() - real_anchor_ns_);
    return virtual_ns_ + static_cast<uint64_t>(real_elapsed * speed_);
}

timespec Clock::monotonic() const {
    const uint64_t ns = now_ns();
    return timespec{static_cast<time_t>(ns / 1000000000ull), static_cast<long>(ns % 1000000000ull)};
}

timeval Clock::wall() const {
    const uint64_t us = wall_epoch_us_ + (now_ns() - kMonotonicStartNs) / 1000ull;
    return timeval{static_cast<time_t>(us / 1000000ull), static_cast<suseconds_t>(us % 1000000ull)};
}

void Clock::advance(uint64_t ns) {
    virtual_ns_ += ns;
}

uint64_t Clock::book_sleep(uint64_t ns) {
    slept_ns_ += ns;
    ++sleep_calls_;
    if (!real_time_) {
        virtual_ns_ += ns;
        return 0;
    }
    return static_cast<uint64_t>(static_cast<double>(ns) / speed_);
}

void Clock::set_real_time(double speed) {
    if (!(speed > 0.0) || !std::isfinite(speed)) {
        throw std::invalid_argument("twin clock: real-time speed must be a positive number");
    }
    virtual_ns_ = now_ns();
    real_anchor_ns_ = real_monotonic_ns();
    speed_ = speed;
    real_time_ = true;
}

void Clock::set_virtual_time() {
    virtual_ns_ = now_ns();
    real_time_ = false;
}

}  // namespace zoomaf::twin
