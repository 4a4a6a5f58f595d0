#include "twin/module/laser.hpp"

#include <stdexcept>

#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {

namespace {
double checked_rate(double rate) {
    if (!(rate >= 0.0 && rate <= 1.0)) {
        throw std::invalid_argument("twin laser: the no-echo rate must lie in 0..1");
    }
    return rate;
}
}  // namespace

Laser::Laser(Kernel& board, LaserConfig config)
    : board_(board),
      channel_(board, VREL_LASER_CHANNEL),
      distance_(config.distance),
      no_echo_rate_(checked_rate(config.no_echo_rate)),
      random_(seed_stream(config.seed, 12)) {
    event_ = board_.add_periodic(config.period_ns, [this](uint64_t now_ns) { measure(now_ns); });
}

Laser::~Laser() {
    board_.cancel_periodic(event_);
}

void Laser::set_distance(uint16_t decimetres) {
    std::lock_guard lock(mutex_);
    distance_ = decimetres;
}

void Laser::set_no_echo(bool no_echo) {
    std::lock_guard lock(mutex_);
    no_echo_ = no_echo;
}

void Laser::set_no_echo_rate(double rate) {
    std::lock_guard lock(mutex_);
    no_echo_rate_ = checked_rate(rate);
}

uint64_t Laser::readings() const {
    std::lock_guard lock(mutex_);
    return readings_;
}

std::optional<uint16_t> Laser::last_reading() const {
    std::lock_guard lock(mutex_);
    return last_reading_;
}

void Laser::measure(uint64_t /*now_ns*/) {
    uint16_t reading = 0;
    {
        std::lock_guard lock(mutex_);
        // Drawn for every measurement, so the no-echo pattern depends on the seed only.
        const bool lost = random_.unit() < no_echo_rate_;
        reading = (no_echo_ || lost) ? kNoEcho : distance_;
    }
    if (!channel_.publish(&reading, sizeof reading)) return;
    std::lock_guard lock(mutex_);
    ++readings_;
    last_reading_ = reading;
}

}  // namespace zoomaf::twin
