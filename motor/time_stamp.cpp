// Time stamps of the move calls: the local date and time line, and elapsed microseconds.
#include <ctime>

#include "motor/motor_internal.hpp"
#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::motor {

int64_t monotonic_us() {
    const timespec now = platform().monotonic();
    return int64_t(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void read_both_photo_interrupters() {
    GetCurGPIO(MOTOR_ZOOM);
    GetCurGPIO(MOTOR_FOCUS);
}

}  // namespace zoomaf::motor

extern "C" void Get_Times(const char* label) {
    const timeval now = zoomaf::platform().wall();
    const time_t seconds = now.tv_sec;
    tm local{};
    localtime_r(&seconds, &local);
    std::printf("%s : %04d-%02d-%02d %02d:%02d:%02d:%06ld\r\n", label, local.tm_year + 1900,
                local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                long(now.tv_usec));
}
