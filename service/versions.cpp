// Version records printed at start-up: the motor driver's and the focus software's.
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"

extern "C" {

VersionTriple ReadMotorVersion(void) {
    const ModuleVersion module = GetVersion();
    return VersionTriple{static_cast<int32_t>(module.pcb_version),
                         static_cast<int32_t>(module.code_major),
                         static_cast<int32_t>(module.code_minor)};
}

// DCC version 416, focus software 2.4.
VersionTriple ReadAppPdafVersion(void) {
    return VersionTriple{416, 2, 4};
}

}  // extern "C"
