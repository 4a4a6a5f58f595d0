// The calibration files a factory writes for one unit of the camera module, into
// /usr/hx7/calibration/ on its board: what this unit's lens and sensor really are, measured
// as the factory's calibration measures them. The twin knows the truth, so its calibration
// is exact:
//   lasertable_calibration.cfg  one line per zoom row: the unit's true in-focus focus step
//                               of the reference distance at the zoom position of each
//                               calibrated row; 0 (not calibrated) on every other row
//   pd_calibration.cfg          minus the sensor's PD bias (the twin's sensor has none: 0)
//   motor_calibration.cfg       present, so the service applies its motor calibration
#pragma once

#include <span>
#include <string>

#include "twin/module/lens_model.hpp"

namespace zoomaf::twin {

// A zoom row the factory calibrates, and where the zoom motor stands for it (the position
// the motor driver drives to for the row's multiple).
struct CalibratedRow {
    int row = 0;
    double zoom_position = 0.0;
};

struct FactoryCalibration {
    std::string laser_table;
    std::string pd;
    std::string motor;
};

// The files of a unit with rows zoom rows (rows outside 0 .. rows-1 are left out).
FactoryCalibration factory_calibration(const LensUnit& unit, int rows,
                                       std::span<const CalibratedRow> calibrated,
                                       double reference_distance_m);

}  // namespace zoomaf::twin
