#include "twin/module/still_subject.hpp"

#include "twin/module/board.hpp"
#include "twin/module/lens_model.hpp"

namespace zoomaf::twin {
namespace {

constexpr double kHalfWidthSteps = 30.0;  // defocus at which the sharpness halves

int physical_position(const Board& board, Motor motor) {
    return board.with<LensMotor>(motor, [](const LensMotor& m) { return m.position(); });
}

}  // namespace

double true_focus_step(const Board& board, double distance_m) {
    return in_focus_focus_step(physical_position(board, Motor::zoom), distance_m);
}

FocusValues still_subject_focus_values(double defocus_steps) {
    const double ratio = defocus_steps / kHalfWidthSteps;
    const auto fv2 =
        static_cast<int64_t>(static_cast<double>(kStillSubjectPeakFv) / (1.0 + ratio * ratio));
    return FocusValues{fv2 / 2, fv2};
}

Encoder::Source still_subject_source(const Board& board, double distance_m) {
    return [&board, distance_m](uint64_t) {
        const double defocus =
            physical_position(board, Motor::focus) - true_focus_step(board, distance_m);
        return still_subject_focus_values(defocus);
    };
}

}  // namespace zoomaf::twin
