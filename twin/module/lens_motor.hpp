// One stepper motor of the lens: a position in driver steps between two mechanical end
// stops. Pulses that would push it past an end stop are lost against the stop. Whatever
// senses the motor (its photo-interrupter) is told of every change of position.
#pragma once

#include <cstdint>
#include <functional>

namespace zoomaf::twin {

enum class Motor { zoom = 0, focus = 1 };

class LensMotor {
public:
    // Mechanical ranges of the module's motors, end stops included.
    static constexpr int kZoomMin = -5430, kZoomMax = 1606;
    static constexpr int kFocusMin = -2574, kFocusMax = 3022;

    LensMotor(int min, int max, int start);

    // Called after every change of position (a move or a placement).
    void on_moved(std::function<void()> listener) { on_moved_ = std::move(listener); }

    // Moves by delta steps, stopping at the end stops; returns the steps actually moved.
    int move(int delta);

    int position() const { return position_; }
    // Places the motor (tests). Throws std::out_of_range for a place beyond the end stops.
    void set_position(int position);
    int min() const { return min_; }
    int max() const { return max_; }
    // Steps actually moved, in either direction, since the board started.
    uint64_t steps_moved() const { return steps_moved_; }
    // Pulses lost against an end stop.
    uint64_t clamped_pulses() const { return clamped_pulses_; }

private:
    int min_, max_, position_;
    std::function<void()> on_moved_;
    uint64_t steps_moved_ = 0;
    uint64_t clamped_pulses_ = 0;
};

}  // namespace zoomaf::twin
