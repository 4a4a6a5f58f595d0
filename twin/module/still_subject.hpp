// A still, textured subject at one distance in front of the twin's lens, for the runs that
// have no scene: what the video encoder measures of it and where the lens is truly in focus
// for it. The sharpness peaks where the focus motor physically stands at the lens model's
// in-focus step for the zoom motor's physical position and the subject's distance, and falls
// off with the defocus. It has no noise, texture or light level: those belong to the scene.
#pragma once

#include <cstdint>

#include "twin/module/encoder.hpp"

namespace zoomaf::twin {

class Board;

// The in-focus focus step for the lens as it physically stands now.
double true_focus_step(const Board& board, double distance_m);

// Focus values at a defocus in steps: fv2 = kStillSubjectPeakFv / (1 + (defocus / 30)^2),
// fv1 = fv2 / 2.
inline constexpr int64_t kStillSubjectPeakFv = 1'000'000;
FocusValues still_subject_focus_values(double defocus_steps);

// An encoder source for a subject at distance_m, reading the board's physical positions
// each frame. The board must outlive the encoder that holds the source.
Encoder::Source still_subject_source(const Board& board, double distance_m);

}  // namespace zoomaf::twin
