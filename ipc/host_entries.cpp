// Entry points through which the host reports a PTZ or platform move and sets compensation
// parameters.
#include <cstdio>

#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

VrelShareMan PtzMenManHandle{};
// Stored for the host; nothing in the service reads them.
int32_t CompensationMaxStep = 0;
int32_t CompensationSteps = 0;

extern "C" {

// The view changed: forget the focus operation and the laser compensation (-5 is "none
// learned", whatever the message says) and start over in centre mode.
int32_t SetPZTstart(void) {
    try_lock();
    std::puts("Set Plane Or PTZ Status!!!\r");
    is_free_focus_opr_over = 0;
    std::puts("change plane or set ptz status set laser_focus_compensation to be zero!\r");
    laser_focus_compensation = -5;
    current_select_pdaf_window = 0;
    current_focus_mode = PDAF_CENTER_MODE;
    unlock();
    return 0;
}

void SwitchCompensation(int32_t max_step, int32_t times) {
    CompensationMaxStep = max_step;
    CompensationSteps = times;
    std::printf("Compensation maxstep is %d, times is %d", max_step, times);
}

}  // extern "C"
