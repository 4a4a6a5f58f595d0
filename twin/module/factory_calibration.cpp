#include "twin/module/factory_calibration.hpp"

#include <cmath>
#include <vector>

namespace zoomaf::twin {

FactoryCalibration factory_calibration(const LensUnit& unit, int rows,
                                       std::span<const CalibratedRow> calibrated,
                                       double reference_distance_m) {
    std::vector<long> steps(rows > 0 ? static_cast<size_t>(rows) : 0, 0);
    for (const CalibratedRow& row : calibrated) {
        if (row.row < 0 || row.row >= rows) continue;
        steps[static_cast<size_t>(row.row)] =
            std::lround(unit.in_focus_focus_step(row.zoom_position, reference_distance_m));
    }
    FactoryCalibration files;
    for (long step : steps) files.laser_table += std::to_string(step) + "\n";
    files.pd = "0\n";
    files.motor = "0\n";
    return files;
}

}  // namespace zoomaf::twin
