// Start-up of the lens: the motors initialised and homed, then zoom and focus brought to a
// start multiple.
#include <cstdio>

#include "service/service_internal.hpp"
#include "service/zoom_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/zoom_control.h"

namespace {
constexpr uint16_t kVdPeriodMs = 10;
constexpr uint8_t kHoming = 1;
constexpr int kStartColumn = 10;  // the lens table's 10 m column
}  // namespace

extern "C" {

// The service keeps x1.0 while the driver clamps the zoom to its minimum, x3.5, so that a
// first request for x3.5 is not refused as the same multiple and sets focus for it.
int32_t AppSetMotordevInit(void) {
    zoomaf::ZoomRunning running;
    const uint32_t status = Initmotor(kVdPeriodMs, kHoming);
    current_multiple = 1.0f;
    const int32_t row = AppSetMultipleSectionRelation(current_multiple);
    multiple_index = row;
    std::printf("min step:%d,max step:%d\r\n", mator_step_section[row][0],
                mator_step_section[row][1]);
    SetMultiple(0, 0, 1.0f);
    const int32_t start_step = mator_step_section[row][2];
    SetFocusLens(zoomaf::driver_focus_step(start_step), 0);
    motor_position = start_step;
    std::printf("over init motor_position:%d\r\n", motor_position);
    return static_cast<int32_t>(status);
}

int32_t VerificationSetMotordevInit(float multiple) {
    zoomaf::ZoomRunning running;
    init_motor_status = static_cast<int32_t>(Initmotor(kVdPeriodMs, kHoming));
    current_focus_mode = PDAF_CENTER_MODE;
    const int32_t row = AppSetMultipleSectionRelation(multiple);
    const int32_t step = zoomaf::calibrated_step(row, kStartColumn);  // the unit's offset added
    std::printf("init step:%d,temp_multiple_index:%d\r\n", step, row);
    AppSetMultipleWithFocus(zoomaf::driver_focus_step(step), multiple);
    motor_position = step;
    std::printf("over init motor_position:%d\r\n", motor_position);
    std::printf("初始化倍数:%f,马达步数:%d\r\n", static_cast<double>(multiple), motor_position);
    return init_motor_status.load(std::memory_order_relaxed);
}

}  // extern "C"
