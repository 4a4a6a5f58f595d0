// Version records printed at start-up: the motor driver's and the focus software's.
#include "service/versions.hpp"

#include <cstdio>

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

namespace zoomaf {

void print_versions() {
    const VersionTriple motor = ReadMotorVersion();
    std::printf("hardware is %d, motor software main is %d, sup is %d.\r\n", motor.hardware,
                motor.main, motor.sub);
    const VersionTriple app = ReadAppPdafVersion();
    std::printf("dcc is %d, pdaf software main is %d, sup is %d.\r\n", app.hardware, app.main,
                app.sub);
}

}  // namespace zoomaf
