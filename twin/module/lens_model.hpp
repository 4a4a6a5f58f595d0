// The twin's true lens: where the focus motor must stand for a sharp image, for a zoom
// position and a subject distance. It is the same model that tools/lensdata/generate.py
// uses to write the tracking tables and the lens table CSV, so the twin agrees with every
// table the service reads.
//
// The model: the published tracking-table rows of both lenses are knots by zoom position
// (kLensKnots, generated). The focal length and the in-focus step of each knot distance are
// monotone piecewise-cubic (PCHIP) curves of the zoom position; beyond the outer knots they
// continue along the secant of the end interval. Between the knot distances (100, 50, 30,
// 20, 15 and 10 m) the step is linear in 1/distance; nearer or farther it continues
// linearly in 1/distance at the average rate of the knot distances.
#pragma once

#include <array>

namespace zoomaf::twin {

inline constexpr int kLensZoomKnots = 6;      // zoom positions at which the lens is known
inline constexpr int kLensDistanceKnots = 6;  // subject distances known at every knot

struct LensKnots {
    std::array<double, kLensZoomKnots> zoom_steps;  // rising
    std::array<double, kLensZoomKnots> efl;         // focal length, 0.01 mm, at each zoom knot
    // Subject distance in metres, falling (the far distance first). Distance d belongs to
    // focus column 3 + d of the tracking tables.
    std::array<double, kLensDistanceKnots> distance_m;
    // In-focus focus step [distance][zoom knot].
    std::array<std::array<double, kLensZoomKnots>, kLensDistanceKnots> focus_steps;
};

extern const LensKnots kLensKnots;  // generated: twin/module/lens_model_data.cpp

// Subjects nearer than this are taken as at this distance (keeps 1/distance finite).
inline constexpr double kLensNearestDistanceM = 0.1;

// Focal length in 0.01 mm at a zoom motor position (falls as the position rises).
double efl_at_zoom_position(double zoom_steps);

// Zoom motor position at which the lens has this focal length (the inverse of the above).
double zoom_position_for_efl(double efl);

// In-focus focus motor step of the lens alone for a zoom position and a subject distance
// in metres (infinity allowed; nearer than kLensNearestDistanceM, or NaN, counts as that
// distance). It is not limited to the focus motor's mechanical range: a subject too close
// for the lens gives a step beyond it.
double in_focus_focus_step(double zoom_steps, double distance_m);

// One unit of the lens: the lens model shifted by the unit's own offset (assembly
// tolerance), which the board draws from its seed.
struct LensUnit {
    double offset_steps = 0.0;

    double in_focus_focus_step(double zoom_steps, double distance_m) const {
        return twin::in_focus_focus_step(zoom_steps, distance_m) + offset_steps;
    }
};

}  // namespace zoomaf::twin
