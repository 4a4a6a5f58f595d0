// Start-up of the laser channel.
#include "service/versions.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

extern "C" {

// The result of opening the channel is not tested here: a laser channel without its
// semaphore ends the process at the first read (see VrelSemaphoreP), by design.
int32_t LaserShareMemeoryInit(void) {
    VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL);
    zoomaf::print_versions();
    return 0;
}

}  // extern "C"
