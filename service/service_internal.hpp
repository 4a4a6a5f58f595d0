// Helpers shared by the focus service's units; not part of the exported interface.
#pragma once

#include <cstdint>

#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace zoomaf {

// Steps from files are not range-checked, so sums of them wrap around like the board's
// 32-bit arithmetic instead of overflowing.
inline int32_t wrapping_add(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// A focus step of the lens table with the unit's motor calibration added, as every user of
// the table takes it. row and column must be inside the table.
inline int32_t calibrated_step(int row, int column) {
    return wrapping_add(TxtToDat[row][column], calibration_offset_step);
}

// The lens table's distance column for a laser distance in 0.1 m: 101 (200 m) beyond 200 m
// and without an echo, 100 from 100.1 m, else whole metres (0 below 1 m).
inline int laser_distance_column(uint16_t distance) {
    if (distance == LASER_NO_ECHO || distance > 2000) return 101;
    if (distance > 1000) return 100;
    return distance / 10;
}

// A focus point within the picture's coordinates, 0..3999 x 0..2999, as
// AppSetFocusCoordinates takes it.
inline bool focus_point_in_range(int32_t x, int32_t y) {
    return x >= 0 && x <= 3999 && y >= 0 && y <= 2999;
}

// The current zoom's row of mator_step_section, or -1 when multiple_index is outside it.
inline int32_t current_section_row() {
    const int32_t row = multiple_index.load(std::memory_order_relaxed);
    return row >= 0 && row < LENS_TABLE_ROWS ? row : -1;
}

}  // namespace zoomaf
