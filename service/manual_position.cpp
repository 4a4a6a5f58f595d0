// The manual focus position: set as a fraction 0.0..1.0 of the current zoom's focus range
// (applied by the loop's next pass), read back as a whole percentage 0..100. The two
// scales differ on purpose; the application relies on both.
#include <cstdio>

#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"

extern "C" {

// A range of zero (min = max) reads as 0 %: the motor is at the only step there is, and a
// division by zero must not decide the result.
int32_t AppGetFocusPercentagePosition(void) {
    const int32_t row = zoomaf::current_section_row();
    const int32_t min = row >= 0 ? mator_step_section[row][0] : 0;
    const int32_t max = row >= 0 ? mator_step_section[row][1] : 0;
    const float range = static_cast<float>(int64_t{max} - min);
    if (row < 0 || range < 0) {
        std::puts("get Focusing meter step error!!\r");
        return -1;
    }
    try_lock();
    std::printf("Get old manual positon percentage = %f\r\n", manual_positon_percentage);
    int32_t step = static_cast<int16_t>(GetCurSteps(MOTOR_FOCUS));
    std::printf("Manual focus range: form %d to %d, target step value:%d\r\n", min, max, step);
    step = step < min ? min : (step > max ? max : step);
    int32_t percent = 0;
    if (range > 0) {
        percent = static_cast<int32_t>(static_cast<float>(int64_t{step} - min) / range * 100.0f);
    }
    std::printf("Get Manual Focus %d.\r\n", percent);
    unlock();
    return percent;
}

int32_t AppSetFocusPercentagePosition(float fraction) {
    std::printf("Set Manual Focus %f.\r\n", fraction);
    if (current_focus_mode.load(std::memory_order_relaxed) != MANUAL_FOCUS_MODE) {
        std::puts(
            "\r\n\r\nError: AppSetFocusPercentagePosition the current mode is no equal to "
            "MANUAL_FOCUS_MODE!\r");
        return -1;
    }
    // Written so that NaN is out of range too.
    if (!(fraction >= 0.0f && fraction <= 1.0f)) {
        std::printf(
            "\r\n\r\nError: AppSetFocusPercentagePosition Percentage:%f  is out of "
            "range(0.0-1.0)!\r\n",
            fraction);
        return -2;
    }
    try_lock();
    is_manual_positon_update = 1;
    manual_positon_percentage = fraction;
    unlock();
    return 0;
}

}  // extern "C"
