// The control calls through which the camera application steers the focus service: focus
// mode, free-mode point, loop period, day/night, and the small queries. They only set
// state and flags; the auto-focus loop acts on them on its next pass. The mode tests are
// made before the service lock is taken, so a refused call answers at once even while a
// pass holds the lock; the application relies on that.
#include <cstdio>

#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"

namespace {
int32_t focus_mode() {
    return current_focus_mode.load(std::memory_order_relaxed);
}
}  // namespace

extern "C" {

int32_t AppSetMode(int32_t mode) {
    if (mode < PDAF_CENTER_MODE || mode > MANUAL_FOCUS_MODE) {
        std::printf("\r\n\r\nError: AppSetMode modepara:%d is out of range(0-2)!\r\n", mode);
        return -2;
    }
    if (mode == focus_mode()) {
        std::puts(
            "\r\n\r\nError: AppSetMode the current mode is equal to the mode which is to been "
            "setting!\r");
        return -1;
    }
    try_lock();
    std::printf("Opr Success:Set Focus Mode from %d to %d\r\n", focus_mode(), mode);
    current_focus_mode.store(mode, std::memory_order_relaxed);
    is_free_focus_opr_over.store(0, std::memory_order_relaxed);
    current_select_pdaf_window = 0;
    unlock();
    return 0;
}

int32_t AppSetFocusCoordinates(int32_t x, int32_t y) {
    if (focus_mode() != PDAF_FREE_MODE) {
        std::puts(
            "\r\n\r\nError: AppSetFocusCoordinates the current mode is no equal to "
            "PDAF_FREE_MODE!\r");
        return -1;
    }
    if (!zoomaf::focus_point_in_range(x, y)) {
        std::printf(
            "\r\n\r\nError: AppSetFocusCoordinates pointx:%d and pointy:%d is out of "
            "range(0-3999/0-2999)!\r\n",
            x, y);
        return -2;
    }
    try_lock();
    is_coordinates_update = 1;
    free_focus_pointx = x;
    free_focus_pointy = y;
    unlock();
    return 0;
}

int32_t AppSetShockPeriod(int32_t ms) {
    if (focus_mode() != PDAF_CENTER_MODE) {
        std::puts(
            "\r\n\r\nError: AppSetShockPeriod the current mode is no equal to "
            "PDAF_CENTER_MODE!\r");
        return -1;
    }
    if (ms < 50 || ms > 3000) {
        // The text names "0-5" although 50..3000 is accepted; the application's logs know it so.
        std::printf("\r\n\r\nError: AppSetShockPeriod Percentage:%d  is out of range(0-5)!\r\n",
                    ms);
        return -2;
    }
    try_lock();
    current_shockperiod = ms;
    unlock();
    return 0;
}

int32_t AppGetFocusMode(void) {
    try_lock();
    const int32_t mode = focus_mode();
    unlock();
    return mode;
}

// Any value is taken: 0 is day, anything else night.
int32_t set_day_or_night_focus_mode(int32_t mode) {
    try_lock();
    cur_day_night_mode = mode;
    unlock();
    return 0;
}

int32_t GetFocusStart(void) {
    return is_free_focus_opr_over.load(std::memory_order_relaxed);
}

// The loop writes the compensation under the service lock, so it is read under it too.
int32_t GetLaserCompensationValue(void) {
    try_lock();
    const int32_t value = laser_focus_compensation == -5 ? 0 : laser_focus_compensation;
    unlock();
    std::printf("go get lasercompensationvalue:%d\r\n", value);
    return value;
}

int32_t return_motor_init_status(void) {
    return init_motor_status.load(std::memory_order_relaxed);
}

int32_t InitCheckMotor(void) {
    return static_cast<int32_t>(Initmotor(10, 1));
}

int32_t definition_focus_init(void) {
    return 0;
}

int32_t set_focus_distance_mode(int32_t /*mode*/) {
    return 0;
}

}  // extern "C"
