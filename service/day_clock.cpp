// The day clock as a single float, for time stamps in the zoom logs.
#include <sys/time.h>

#include "platform/platform.hpp"
#include "zoomaf/zoom_control.h"

// The seconds are taken modulo 65536 so that the microseconds still count in a float.
extern "C" float Get_Time(void) {
    const timeval now = zoomaf::platform().wall();
    return static_cast<float>(now.tv_sec % 65536) + static_cast<float>(now.tv_usec) / 1e6f;
}
