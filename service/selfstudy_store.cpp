// The self-study memory: for every zoom row and laser distance index, the focus step at
// which a phase-detection focus once succeeded with the best confidence seen, so that a
// later focus at the same zoom and distance can go straight to a step that was right on
// this very unit.
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "service/selfstudy_internal.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"

static_assert(sizeof(SelfStudyBlock) == 38400, "the file's block layout");
static_assert(SELFSTUDY_STORE_BYTES == 6912000, "the file's size");

SelfStudyBlock* selfstudy_point = nullptr;
std::atomic<int32_t> is_selfstudy_point_update{0};
std::atomic<int32_t> is_deal_selfstudy{1};

namespace {
// Laser indices 4 and 1600 carry no distance.
bool laser_carries_no_distance(int32_t laser) {
    return laser == 4 || laser == 1600;
}
bool laser_in_store(int32_t laser) {
    return laser >= 0 && laser < SELFSTUDY_LASER_ENTRIES;
}
}  // namespace

extern "C" {

// The row is always that of the current zoom; multiple is only printed. A store that is
// not loaded yet learns nothing.
int32_t update_selfstudy_info_memofy(int32_t pd, int32_t cl, uint32_t motor, int32_t laser,
                                     float multiple) {
    if (is_deal_selfstudy.load(std::memory_order_relaxed) == 0 ||
        laser_carries_no_distance(laser)) {
        return -1;
    }
    if (!laser_in_store(laser)) {
        std::printf("Error: update_selfstudy_info_memofy laser:%d is out of range(0-1599)!\r\n",
                    laser);
        return -1;
    }
    if (selfstudy_point == nullptr) return -1;
    const int32_t row = AppSetMultipleSectionRelation(current_multiple);

    std::lock_guard lock(zoomaf::selfstudy::store_mutex);
    SelfStudyBlock& block = selfstudy_point[row];
    if (block.valid[laser] != 1) {
        block.valid[laser] = 1;
        block.cl[laser] = cl;
        block.motor[laser] = static_cast<int32_t>(motor);
        block.pd[laser] = pd;
        std::printf("selfstudy-info-Init multiple:%f,laser:%d,more fresh motor:%d,pd:%d,cl:%d\r\n",
                    multiple, laser, static_cast<int32_t>(motor), pd, cl);
        is_selfstudy_point_update.store(1, std::memory_order_relaxed);
        return 0;
    }
    // A better focus has a higher CL (compared unsigned, a negative cl sign-extended) and
    // a smaller |PD| (the stored PD taken as 32 bits).
    const bool higher_cl =
        static_cast<uint64_t>(static_cast<int64_t>(cl)) > static_cast<uint64_t>(block.cl[laser]);
    const bool smaller_pd =
        std::llabs(pd) < std::llabs(static_cast<int64_t>(static_cast<int32_t>(block.pd[laser])));
    if (higher_cl && smaller_pd) {
        block.cl[laser] = cl;
        block.motor[laser] = static_cast<int32_t>(motor);
        block.pd[laser] = pd;
        std::printf(
            "selfstudy-info-Update multiple:%f,laser:%d,more fresh motor:%d,pd:%d,cl:%d\r\n",
            multiple, laser, static_cast<int32_t>(motor), pd, cl);
        is_selfstudy_point_update.store(1, std::memory_order_relaxed);
    }
    return 0;
}

int32_t get_selfstudy_motor(int32_t row, int32_t laser) {
    if (row < 0 || row >= SELFSTUDY_BLOCKS || !laser_in_store(laser)) {
        std::printf(
            "Error: get_selfstudy_motor multiple row:%d or laser:%d is out of "
            "range(0-179/0-1599)!\r\n",
            row, laser);
        return SELFSTUDY_NOT_LEARNED;
    }
    if (selfstudy_point == nullptr) return SELFSTUDY_NOT_LEARNED;
    int32_t motor = 0;
    {
        std::lock_guard lock(zoomaf::selfstudy::store_mutex);
        if (selfstudy_point[row].valid[laser] != 1) return SELFSTUDY_NOT_LEARNED;
        motor = selfstudy_point[row].motor[laser];
    }
    std::printf("AHAHAHA Get SelfStudy distance:%d success,it's clear motor is:%d\r\n", laser,
                motor);
    return motor;
}

// The distance picks a pair of neighbouring lens table columns by the ranges below; no
// distance picks column 1 (2 m and less pick column 0, 3 m picks column 2).
int32_t judge_is_laserdistance_relateto_motorposition(int32_t motor, int32_t distance,
                                                      float multiple) {
    const int32_t row = AppSetMultipleSectionRelation(multiple);
    int column = 10;
    if (distance <= 2) {
        column = 0;
    } else if (distance == 3) {
        column = 2;
    } else if (distance <= 5) {
        column = 3;
    } else if (distance <= 8) {
        column = 4;
    } else if (distance <= 10) {
        column = 5;
    } else if (distance <= 25) {
        column = 6;
    } else if (distance <= 30) {
        column = 7;
    } else if (distance <= 45) {
        column = 8;
    } else if (distance <= 400) {
        column = 9;
    }
    const int32_t low = zoomaf::calibrated_step(row, column);
    const int32_t high = zoomaf::calibrated_step(row, column + 1);
    if (low <= motor && motor <= high) return 0;
    std::printf("temp_multiple_index:%d,and meter_index:%d\r\n", row, column);
    std::printf("Fail to selfstudy,current motor:%d was out of distance:%d range form:%d to %d\r\n",
                motor, distance, low, high);
    return -1;
}

}  // extern "C"
