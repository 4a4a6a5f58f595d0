// The zoom that follows a previous focus lock. On the first zoom after
// set_zoom_running(1), a lock is checked against the laser: within 19 steps of the lens
// table's step for the laser distance the laser is trusted for the new multiple; farther
// off, the lens table column where the lock lies is kept instead.
#include <cstdio>

#include "service/service_internal.hpp"
#include "service/zoom_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace {

using zoomaf::calibrated_step;

constexpr uint16_t kInvalidDistance = 40;
constexpr int32_t kAgreeingSteps = 19;
constexpr int kFirstSearchedColumn = 2;
constexpr int kLastSearchedColumn = 106;

// The lens table column of a laser distance, announcing a reading without an echo.
int lock_check_column(uint16_t distance) {
    const int column = zoomaf::laser_distance_column(distance);
    if (distance == LASER_NO_ECHO)
        std::printf("velmor:laser > 1600m! meter_index is %d。\r\n", column);
    return column;
}

// Compares the last lock with the lens table's step for the laser distance in the row of
// the current multiple; sets is_out_20_step, and meter_index_min when they disagree.
void check_lock_against_laser(uint16_t distance, float multiple) {
    std::puts("有上次对清步数和雷达距离,所以先判断是否与雷达是否差距20步!\r");
    std::printf("上次锁焦步数为:%d\r\n", zy_focus_lock_step);
    const int row = AppSetMultipleSectionRelation(current_multiple);
    ++frist_zoom;
    const int column = lock_check_column(distance);
    const int32_t laser_step = calibrated_step(row, column);
    std::printf("目标倍数 %f 雷达：%d,雷达列数:%d,雷达步数:%d\r\n", static_cast<double>(multiple),
                distance, column, laser_step);
    std::printf("表格索引:%d\r\n", row);
    const int64_t difference = int64_t{zy_focus_lock_step} - laser_step;
    if (difference >= -kAgreeingSteps && difference <= kAgreeingSteps) {
        is_out_20_step = 0;
        std::puts("与雷达相差在20步内!\r");
        return;
    }
    is_out_20_step = 1;
    // Steps fall as the distance grows: the lock lies between the column before the first
    // step below it and that column.
    for (int i = kFirstSearchedColumn; i <= kLastSearchedColumn; ++i) {
        const int32_t step = calibrated_step(row, i);
        if (step < zy_focus_lock_step) {
            std::printf("zy_focus_lock_step:%d, TxtToDat[temp_multiple_index][i]:%d\r\n",
                        zy_focus_lock_step, step);
            meter_index_min = i - 1;
            break;
        }
    }
    std::printf("对清的第一列是:%d,步数是:%d\r\n", meter_index_min,
                calibrated_step(row, meter_index_min));
    std::puts("与雷达相差超出!\r");
}

}  // namespace

extern "C" int32_t AppSetMultipleByPdTrend(float multiple) {
    if (multiple == current_multiple) {
        zoomaf::print_same_multiple(multiple);
        return -1;
    }
    zoomaf::ZoomRunning running;
    try_lock();
    const uint16_t distance = GetCurrentLaserDistance();
    const int32_t focus_locked = is_free_focus_opr_over.load(std::memory_order_relaxed);
    std::printf("\r\n\r\n开始变倍,之前对清标志:%d,当前雷达距离:%d,目标倍数:%f,当前倍数:%f\r\n",
                focus_locked, distance, static_cast<double>(multiple),
                static_cast<double>(current_multiple));
    if (frist_zoom == 1) {
        is_out_20_step = 1;
        meter_index_min = 2;
    }
    if (focus_locked == 1 && distance != 0 && distance != kInvalidDistance && frist_zoom == 1)
        check_lock_against_laser(distance, multiple);
    const int32_t target = GetTargetMultipleFocusstepByZyMethods(
        motor_position, 0, is_out_20_step, meter_index_min, current_multiple, multiple);
    std::printf("tvk b sete target multiple:%f,and target_focus:%d\r\n",
                static_cast<double>(multiple), target);
    const int32_t result = AppSetMultipleWithFocus(zoomaf::driver_focus_step(target), multiple);
    unlock();
    return result;
}
