// The focus step for the multiple a zoom goes to. The lens table gives the in-focus step for
// every multiple and subject distance, so the target is found as a distance column, read
// in the target multiple's row: the laser's distance when it has a valid one; the column
// that the 20-step check found for the last lock when the lock disagreed with the laser;
// otherwise (no laser, or no lock judged) the distance the current focus step implies at the
// current multiple.
#include <cstdio>
#include <cstdlib>

#include "service/pdaf_internal.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/zoom_control.h"

namespace {

using zoomaf::calibrated_step;

constexpr int kFirstDistanceColumn = 1;
constexpr int kLastDistanceColumn = 106;

bool valid_laser_distance(uint16_t distance) {
    return distance != 0 && distance != 40 && distance != LASER_NO_ECHO;
}

// The step within the focus range of the row (the range's ends when they are crossed).
int32_t within_focus_range(int row, int32_t step) {
    if (step < mator_step_section[row][0]) return mator_step_section[row][0];
    if (step > mator_step_section[row][1]) return mator_step_section[row][1];
    return step;
}

// The step of the column in the target multiple's row, within its focus range.
int32_t column_target(const char* rule, int column, float from_multiple, float to_multiple) {
    const int row = AppSetMultipleSectionRelation(to_multiple);
    const int32_t step = within_focus_range(row, calibrated_step(row, column));
    std::printf("zoom focus target %f->%f by %s:column %d,step %d\r\n",
                static_cast<double>(from_multiple), static_cast<double>(to_multiple), rule, column,
                step);
    return step;
}

int32_t laser_target(uint16_t distance, float from_multiple, float to_multiple) {
    int column = zoomaf::laser_distance_column(distance);
    if (column < kFirstDistanceColumn) column = kFirstDistanceColumn;  // nearer than 1 m
    return column_target("laser", column, from_multiple, to_multiple);
}

// The column of from_multiple's row whose step is nearest to step; on a tie the nearer
// distance.
int32_t nearest_column_target(int32_t step, float from_multiple, float to_multiple) {
    const int row = AppSetMultipleSectionRelation(from_multiple);
    int nearest = kFirstDistanceColumn;
    int64_t nearest_gap = INT64_MAX;
    for (int column = kFirstDistanceColumn; column <= kLastDistanceColumn; ++column) {
        const int64_t gap = std::llabs(int64_t{calibrated_step(row, column)} - step);
        if (gap < nearest_gap) {
            nearest = column;
            nearest_gap = gap;
        }
    }
    return column_target("focus", nearest, from_multiple, to_multiple);
}

int32_t ptz_target(float to_multiple) {
    const int row = AppSetMultipleSectionRelation(to_multiple);
    return within_focus_range(row, GetTargetPositionByPTZ(to_multiple));
}

}  // namespace

extern "C" {

int32_t GetTargetMultipleFocusstep(int32_t step, int32_t flag, float from_multiple,
                                   float to_multiple) {
    if (flag != 0) return ptz_target(to_multiple);
    const uint16_t distance = GetCurrentLaserDistance();
    if (valid_laser_distance(distance)) return laser_target(distance, from_multiple, to_multiple);
    return nearest_column_target(step, from_multiple, to_multiple);
}

int32_t GetTargetMultipleFocusstepByZyMethods(int32_t step, int32_t flag, int32_t out_20_step,
                                              int32_t meter_index_min, float from_multiple,
                                              float to_multiple) {
    if (flag != 0) return ptz_target(to_multiple);
    // frist_zoom still 1 means the 20-step check did not judge a lock on this zoom (no lock,
    // or no usable laser reading): the first zoom's defaults then name no column the lens
    // stood at, and the target keeps the distance the current focus implies.
    if (out_20_step == 1 && frist_zoom != 1) {
        int column = meter_index_min;
        if (column < kFirstDistanceColumn) column = kFirstDistanceColumn;
        if (column > kLastDistanceColumn) column = kLastDistanceColumn;
        return column_target("lock", column, from_multiple, to_multiple);
    }
    if (out_20_step == 0) {
        const uint16_t distance = GetCurrentLaserDistance();
        if (valid_laser_distance(distance))
            return laser_target(distance, from_multiple, to_multiple);
    }
    return nearest_column_target(step, from_multiple, to_multiple);
}

int32_t GetTargetPositionByPTZ(float multiple) {
    const int32_t step = zoomaf::focus_position_read_back();
    std::printf("no ptz angle at multiple %f,keep focus step %d\r\n", static_cast<double>(multiple),
                step);
    return step;
}

}  // extern "C"
