// The host's compensation parameters, and the record of a PTZ channel the service reserves
// but never opens.
#include <cstdio>

#include "zoomaf/assist_info.h"

VrelShareMan PtzMenManHandle{};
// Stored for the host; nothing in the service reads them.
int32_t CompensationMaxStep = 0;
int32_t CompensationSteps = 0;

extern "C" {

void SwitchCompensation(int32_t max_step, int32_t times) {
    CompensationMaxStep = max_step;
    CompensationSteps = times;
    std::printf("Compensation maxstep is %d, times is %d", max_step, times);
}

}  // extern "C"
