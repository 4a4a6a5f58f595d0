// The two compiled-in tracking tables seen through one record, for the lens-data tests.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "zoomaf/lib_motor.h"

namespace zoomaf::lensdata_test {

inline constexpr int kFocusMin = -2574, kFocusMax = 3022;
inline constexpr int kZoomMin = -5430, kZoomMax = 1606;
inline constexpr int kFirstFocusColumn = 3, kLastFocusColumn = 8;
// Physical subject distance of focus columns 3..8: the values rise from column 3 to 8,
// so they are the named distances in falling order.
inline constexpr std::array<double, 6> kColumnDistanceM = {100, 50, 30, 20, 15, 10};

struct TrackingTable {
    std::string lens;
    uint16_t rows, columns;
    uint8_t distance_unit, data_len;
    const char (*names)[TRACKING_NAME_LENGTH];
    const int16_t (*data)[TRACKING_TABLE_COLUMNS];

    int key(int row) const { return data[row][0]; }
    int zoom(int row) const { return data[row][2]; }
    // The row of a multiple x 10, or -1.
    int row_of_key(int key) const {
        for (int r = 0; r < rows; ++r)
            if (data[r][0] == key) return r;
        return -1;
    }
};

inline TrackingTable table_471() {
    return {"4.71mm",     rows_471,        column_471,         distance_unit_471,
            data_len_471, column_name_471, focus_zoom_data_471};
}

inline TrackingTable table_449() {
    return {"4.49mm",     rows_449,        column_449,         distance_unit_449,
            data_len_449, column_name_449, focus_zoom_data_449};
}

}  // namespace zoomaf::lensdata_test
