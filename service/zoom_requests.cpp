// The plain zoom requests: with a focus target from the lens table, with a given focus step,
// and without a focus move; and what every zoom request shares: the retry while the driver
// is running, the zoom-running flag and the messages.
#include <cstdio>

#include "platform/platform.hpp"
#include "service/pdaf_internal.hpp"
#include "service/zoom_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/zoom_control.h"

int32_t frist_zoom = 0;
int32_t is_out_20_step = 0;
int32_t meter_index_min = 2;

namespace zoomaf {

namespace {
constexpr int kMaxAttempts = 21;
constexpr uint64_t kRetryPauseNs = 100'000'000;
}  // namespace

int32_t drive_with_retries(const std::function<uint32_t()>& attempt, RunningNote note) {
    for (int made = 1;; ++made) {
        const int32_t code = static_cast<int32_t>(attempt() & 15);
        const bool running = code == MOVE_MOTOR_RUNNING;
        if (note == RunningNote::every_result || (note == RunningNote::while_running && running))
            std::printf("Init motor SetMultiple running:%d\r\n", code);
        if (!running) return code;
        if (made == kMaxAttempts) break;
        platform().sleep_ns(kRetryPauseNs);
    }
    motor_position = focus_position_read_back();
    std::puts("\r\n\r\n\r\n\r\n\r\n!Error !Error !Error,set multiple fail!->return\r\n\r\n\r");
    return -1;
}

int16_t driver_focus_step(int32_t step) {
    if (step < INT16_MIN) return INT16_MIN;
    if (step > INT16_MAX) return INT16_MAX;
    return static_cast<int16_t>(step);
}

void print_same_multiple(float multiple) {
    std::printf("\r\n\r\n\r\nSetMultiple have sampe multiple now,return!--->%f\r\n\r\n\r\n\r\n",
                static_cast<double>(multiple));
}

void print_zoom_request(float multiple) {
    std::printf("\r\n\r\n\r\nRequest AppSetMultiple --->%f\r\n\r\n\r\n\r\n",
                static_cast<double>(multiple));
}

void print_step_section() {
    const int32_t row = AppSetMultipleSectionRelation(current_multiple);
    std::printf("min step:%d,max step:%d,current_positon:%d\r\n", mator_step_section[row][0],
                mator_step_section[row][1], motor_position);
}

}  // namespace zoomaf

using zoomaf::drive_with_retries;
using zoomaf::focus_position_read_back;
using zoomaf::RunningNote;
using zoomaf::ZoomRunning;

extern "C" {

int32_t set_zoom_running(int32_t flag) {
    zoom_running_flag.store(flag, std::memory_order_relaxed);
    if (flag == 1) frist_zoom = 1;
    return 0;
}

int32_t AppSetMultiple(float multiple) {
    const float target = zoomaf::stored_multiple(multiple);
    if (target == current_multiple) {
        zoomaf::print_same_multiple(target);
        return -1;
    }
    ZoomRunning running;
    zoomaf::print_zoom_request(target);
    try_lock();
    std::printf("\r\n\r\n\r\ntvk enter setmultiple,current_multiple:%f,multiple:%f\r\n",
                static_cast<double>(current_multiple), static_cast<double>(target));
    const int16_t focus = zoomaf::driver_focus_step(
        GetTargetMultipleFocusstep(motor_position, 0, current_multiple, target));
    const int32_t code = drive_with_retries([&] { return SetMultipleValue(focus, 1, target); },
                                            RunningNote::every_result);
    if (code >= 0) {
        multiple_index = AppSetMultipleSectionRelation(target);
        motor_position = focus_position_read_back();
        current_multiple = target;
        zoomaf::print_step_section();
    }
    unlock();
    return code;
}

int32_t AppSetMultipleWithFocus(int16_t focus_step, float multiple) {
    if (multiple == current_multiple) {
        zoomaf::print_same_multiple(multiple);
        return -1;
    }
    ZoomRunning running;
    const float target = zoomaf::stored_multiple(multiple);
    const int32_t code = drive_with_retries([&] { return SetMultipleValue(focus_step, 1, target); },
                                            RunningNote::none);
    if (code < 0) return -1;
    motor_position = focus_position_read_back();
    current_multiple = target;
    multiple_index = AppSetMultipleSectionRelation(target);
    std::printf("over change multiple_inde:%d\r\b", multiple_index.load(std::memory_order_relaxed));
    return code;
}

int32_t AppSetMultipleWithoutLock(float multiple) {
    multiple_index = AppSetMultipleSectionRelation(multiple);
    if (multiple == current_multiple) {
        zoomaf::print_same_multiple(multiple);
        return -1;
    }
    ZoomRunning running;
    zoomaf::print_zoom_request(multiple);
    const int32_t code =
        drive_with_retries([&] { return SetMultiple(0, 0, multiple); }, RunningNote::while_running);
    if (code < 0) return -1;
    motor_position = focus_position_read_back();
    current_multiple = multiple;
    zoomaf::print_step_section();
    return code;
}

}  // extern "C"
