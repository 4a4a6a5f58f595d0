// A photo-interrupter of the lens: a slotted optical switch that drives a GPIO input line,
// reading 1 while its motor stands on the positive side of the edge at position 0. MS41908
// modules have it mounted inverted, which the driver's active_low setting undoes.
//
// Control face: the raw level, and a line held at a level whatever the motor does (a stuck
// or dirty sensor).
#pragma once

#include <optional>

#include "twin/kernel/gpio_sysfs.hpp"
#include "twin/module/lens_motor.hpp"

namespace zoomaf::twin {

class PhotoInterrupter {
public:
    // Sets the line's level before the board starts (no edge is recorded).
    PhotoInterrupter(const LensMotor& motor, GpioBank& gpio, int line, bool inverted);

    // Drives the line from the motor's position; the motor calls it after every move.
    void refresh();

    // ---- control face ----
    int raw_level() const;
    // Holds the raw line at a level (0 or 1, anything non-zero is 1); nullopt releases it.
    void set_stuck(std::optional<int> raw_level);

private:
    const LensMotor& motor_;
    GpioBank& gpio_;
    int line_;
    bool inverted_;
    std::optional<int> stuck_;
};

}  // namespace zoomaf::twin
