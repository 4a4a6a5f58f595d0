// Helpers shared by the zoom requests; not part of the exported interface.
#pragma once

#include <cstdint>
#include <functional>

#include "zoomaf/app_pdaf.h"

namespace zoomaf {

// Which driver results a zoom request reports with "Init motor SetMultiple running:%d".
enum class RunningNote { none, every_result, while_running };

// Calls attempt (a driver move returning its result code) until the code's low 4 bits are
// not 1 (motor running), 100 ms apart and 21 times at most. Returns those low bits, or -1
// when the 21st attempt still found the motor running: motor_position is then read back
// from the driver and the give-up message printed; the caller unlocks what it locked.
int32_t drive_with_retries(const std::function<uint32_t()>& attempt, RunningNote note);

// zoom_running_flag is 1 for the life of the object and then what it was before, so that a
// request inside another request, or inside the application's own set_zoom_running(1) ...
// set_zoom_running(0), does not end the pause early.
class ZoomRunning {
public:
    ZoomRunning() : before_(zoom_running_flag.exchange(1, std::memory_order_relaxed)) {}
    ~ZoomRunning() { zoom_running_flag.store(before_, std::memory_order_relaxed); }
    ZoomRunning(const ZoomRunning&) = delete;
    ZoomRunning& operator=(const ZoomRunning&) = delete;

private:
    int32_t before_;
};

// The multiple a request stores: the requested one plus 0.0001 (in double precision), so
// that a multiple given again compares equal to the stored one.
inline float stored_multiple(float multiple) {
    return static_cast<float>(multiple + 0.0001);
}

// A focus step as the driver's int16 argument; beyond that range the nearest end, where the
// driver's own range clamp takes over.
int16_t driver_focus_step(int32_t step);

// "...SetMultiple have sampe multiple now,return!--->%f..."
void print_same_multiple(float multiple);
// "...Request AppSetMultiple --->%f..."
void print_zoom_request(float multiple);
// The focus range of the current multiple's row, and motor_position.
void print_step_section();

}  // namespace zoomaf
