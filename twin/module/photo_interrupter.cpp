#include "twin/module/photo_interrupter.hpp"

namespace zoomaf::twin {

PhotoInterrupter::PhotoInterrupter(const LensMotor& motor, GpioBank& gpio, int line, bool inverted)
    : motor_(motor), gpio_(gpio), line_(line), inverted_(inverted) {
    gpio_.preset_input(line_, raw_level());
}

int PhotoInterrupter::raw_level() const {
    if (stuck_) return *stuck_;
    const int logical = motor_.position() >= 0 ? 1 : 0;
    return inverted_ ? 1 - logical : logical;
}

void PhotoInterrupter::refresh() {
    gpio_.drive_input(line_, raw_level());
}

void PhotoInterrupter::set_stuck(std::optional<int> raw_level) {
    if (raw_level) raw_level = *raw_level != 0 ? 1 : 0;
    stuck_ = raw_level;
    refresh();
}

}  // namespace zoomaf::twin
