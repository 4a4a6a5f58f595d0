// Start-up of the laser channel.
#include <cstdio>

#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

extern "C" {

// The result of opening the channel is not tested here: a laser channel without its
// semaphore ends the process at the first read (see VrelSemaphoreP), by design.
int32_t LaserShareMemeoryInit(void) {
    VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL);
    const VersionTriple motor = ReadMotorVersion();
    std::printf("hardware is %d, motor software main is %d, sup is %d.\r\n", motor.hardware,
                motor.main, motor.sub);
    const VersionTriple app = ReadAppPdafVersion();
    std::printf("dcc is %d, pdaf software main is %d, sup is %d.\r\n", app.hardware, app.main,
                app.sub);
    return 0;
}

}  // extern "C"
