// Entry points through which the host steers the focus service directly: a PTZ or platform
// move, and the choice of the PDAF window the readouts use.
#include <cstdio>

#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"

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

// Under the service lock; the one-second hold keeps the focus loop off the sensor while the
// new choice settles, also when the index was refused.
int change_select_pdaf_window(int32_t index) {
    try_lock();
    int result = -1;
    if (index < 0 || index > 7) {
        std::printf("Error:window index:%d is out of range:0~6!\r\n", index);
    } else if (index >= 1 && index <= 4) {
        std::printf("Error:window index:%d is out of range:0/5/6/7!\r\n", index);
    } else {
        std::printf("change window index form %d to %d\r\n", current_select_pdaf_window, index);
        current_select_pdaf_window = index;
        result = 0;
    }
    zoomaf::platform().sleep_ns(1000000000ull);
    unlock();
    return result;
}

}  // extern "C"
