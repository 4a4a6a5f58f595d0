// Focus steps from the lens table for a laser distance, for a zoom that keeps the subject
// distance, and for when no distance is known. Every step of the table has the unit's
// calibration_offset_step added.
#include <cstdio>

#include "service/pdaf_internal.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/pdaf_focus.h"

int32_t laser_1600m_cnt = 0;
int32_t laser_4m_cnt = 0;

namespace {

using zoomaf::calibrated_step;

constexpr uint16_t kInvalidDistance = 40;  // a reading of exactly 4 m is not trusted
constexpr int kFarColumn = 101;            // beyond 200 m, and no echo
constexpr int kNoEchoReadingsBeforeMove = 3;

// The first column k (1..106) whose next column's step lies above the current focus step;
// 1 when none does. motor_position takes the driver's focus position on the way.
int column_of_focus_position(int row) {
    motor_position = zoomaf::focus_position_read_back();
    for (int k = 1; k <= 106; ++k) {
        if (calibrated_step(row, k + 1) > motor_position) return k;
    }
    return 1;
}

}  // namespace

extern "C" {

int32_t GetTargetPositionByLaser(uint16_t distance, float multiple) {
    std::printf("get laser current-multiple:%f\r\n", static_cast<double>(current_multiple));
    const int row = AppSetMultipleSectionRelation(multiple);
    // Reset on entry, so the lookup below always sees "no low-PD step": a plain table lookup.
    low_ten_pd_motor = PDAF_EMPTY_POINT;
    if (distance != kInvalidDistance && distance != LASER_NO_ECHO) {
        laser_1600m_cnt = 0;
        laser_4m_cnt = 0;
    }
    if (distance == kInvalidDistance) {
        std::puts("warning:distance 40 pause!\r");
        return LASER_PAUSE_STEP;
    }
    const int column = zoomaf::laser_distance_column(distance);
    if (distance == LASER_NO_ECHO) {
        std::puts("tvk:laser > 1600m!->200m\r");
        ++laser_1600m_cnt;
        laser_4m_cnt = 0;
        // No echo moves the lens only from the third such reading in a row.
        if (laser_1600m_cnt < kNoEchoReadingsBeforeMove) {
            std::printf("tvk0920:invalid laser 1600,cnt:%d is lower than %d,so pause\r\n",
                        laser_1600m_cnt, kNoEchoReadingsBeforeMove);
            return 0;
        }
        const int32_t step = calibrated_step(row, kFarColumn);
        std::printf("get laser distance:%d,and now havn't low_ten_pd so set motor 600m step:%d\r\n",
                    distance, step);
        return step;
    }
    const int32_t step = calibrated_step(row, column);
    std::printf("get laser distance:%d,now low_ten_pd_motor:%d,so set%dm motor:%d\r\n", distance,
                PDAF_EMPTY_POINT, column, step);
    return step;
}

int32_t GetCurrentAdjacentPosition(float from_multiple, float to_multiple) {
    int column = column_of_focus_position(AppSetMultipleSectionRelation(from_multiple));
    const uint16_t laser = global_laser_distance;
    if (laser > 9) {
        if (laser < 25) {
            column = 7;
        } else if (laser < 30) {
            column = 8;
        } else if (laser < 45) {
            column = 9;
        } else if (laser < 400) {
            column = 10;
        } else {
            column = 11;
        }
    } else if (to_multiple < 2.0f) {
        column = 1;
    } else if (to_multiple < 4.0f) {
        column = 2;
    } else if (to_multiple < 8.0f) {
        column = 3;
    } else if (to_multiple < 10.0f) {
        column = 4;
    } else if (to_multiple < 16.0f) {
        column = 5;
    } else if (to_multiple < 17.5f) {
        column = 6;
    }
    const int row = AppSetMultipleSectionRelation(to_multiple);
    std::printf(
        "\r\n\r\ntvk set multiple %f to %f,and motor position %d to %d, txtdata[%d][%d].\r\n\r\n",
        static_cast<double>(from_multiple), static_cast<double>(to_multiple), motor_position,
        TxtToDat[row][column], row, column);
    return calibrated_step(row, column);
}

int32_t GetCurrentAdjacentPositionForLaser(float from_multiple, float to_multiple) {
    const int column = column_of_focus_position(AppSetMultipleSectionRelation(from_multiple));
    return calibrated_step(AppSetMultipleSectionRelation(to_multiple), column);
}

int32_t GetTargetPositionWhenFailGetDistance(float multiple) {
    const int row = AppSetMultipleSectionRelation(multiple);
    int column = 8;
    if (multiple > 9.0f) {
        column = 25;
        std::printf("\r\ntvk-Warning:Get laser distance fail,moter stop 25m position");
    } else if (multiple > 4.0f) {
        column = 10;
        std::printf("\r\ntvk-Warning:Get laser distance fail,moter stop 10m position");
    } else {
        std::puts("\r\ntvk-Warning:Get laser distance fail,moter stop 8m position\r");
    }
    const int32_t step = calibrated_step(row, column);
    std::printf(" run motor step:%d\r\n", step);
    return step;
}

int32_t GetNoPDNolaserValue(float multiple) {
    std::puts(
        "----------------------------Get No PD No laser motor Value-----------------------------"
        "\r");
    if (multiple <= 3.0f) return 8;
    if (multiple <= 5.0f) return 15;
    if (multiple <= 10.0f) return 20;
    if (multiple <= 14.0f) return 30;
    if (multiple <= 17.0f) return 40;
    return 50;
}

}  // extern "C"
