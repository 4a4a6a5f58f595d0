#include "twin/module/lens_motor.hpp"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace zoomaf::twin {

LensMotor::LensMotor(int min, int max, int start) : min_(min), max_(max), position_(min) {
    if (min > max) throw std::invalid_argument("twin motor: empty range");
    set_position(start);
}

int LensMotor::move(int delta) {
    const int target = position_ + delta;
    const int reached = std::clamp(target, min_, max_);
    clamped_pulses_ += static_cast<uint64_t>(std::abs(target - reached));
    steps_moved_ += static_cast<uint64_t>(std::abs(reached - position_));
    const int moved = reached - position_;
    position_ = reached;
    if (on_moved_) on_moved_();
    return moved;
}

void LensMotor::set_position(int position) {
    if (position < min_ || position > max_) {
        throw std::out_of_range("twin motor: position " + std::to_string(position) +
                                " beyond the end stops");
    }
    position_ = position;
    if (on_moved_) on_moved_();
}

}  // namespace zoomaf::twin
