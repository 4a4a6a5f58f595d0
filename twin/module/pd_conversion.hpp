// The twin sensor's true phase-detection conversion: how far the lens is out of focus,
// in focus-motor steps, for each unit of phase difference (PD) the sensor reports, over the
// 8 x 6 knots of the sensor's conversion grid. It is the same model that
// tools/lensdata/generate.py uses to write the module's calibrated DCC values (the module
// memory and the default DCC file), so the service's calibration matches the twin's truth
// within the calibration's own error.
//
// Units: a DCC is the defocus in 1/16384 of a focus-motor step per PD unit, as the defocus
// library takes it. Sign: the defocus is the lens's focus position minus its in-focus step;
// a positive defocus gives a positive PD, and the service moves the focus motor by minus
// DCC x PD / 16384, which brings the lens to focus.
#pragma once

#include <array>
#include <cstdint>

namespace zoomaf::twin {

inline constexpr int kPdKnotColumns = 8;
inline constexpr int kPdKnotRows = 6;
inline constexpr int kPdKnots = kPdKnotColumns * kPdKnotRows;  // knot k = 8 x row + column
inline constexpr double kDefocusUnitsPerStep = 16384.0;

struct PdConversionKnots {
    // Knot addresses in the sensor's 4000 x 3000 coordinate space, rising.
    std::array<double, kPdKnotColumns> x;
    std::array<double, kPdKnotRows> y;
    // The unit's true conversion at each knot.
    std::array<double, kPdKnots> true_dcc;
    // What the module's calibration measured at each knot, whole numbers as the module
    // memory and the DCC file store them.
    std::array<uint16_t, kPdKnots> calibrated_dcc;
};

extern const PdConversionKnots kPdConversionKnots;  // generated: twin/module/pd_conversion_data.cpp

// The true conversion at a point of the sensor: bilinear between the knots, the edge
// knots' values held beyond the grid.
double true_dcc_at(double x, double y);

// The PD a window centred at (x, y) sees for a defocus in focus-motor steps, before the
// sensor rounds and limits it to its 11-bit range.
double phase_difference_for_defocus(double defocus_steps, double x, double y);

}  // namespace zoomaf::twin
