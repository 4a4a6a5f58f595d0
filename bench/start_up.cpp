#include "bench/start_up.hpp"

#include <cstdint>
#include <cstdio>

#include "platform/platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/imx586.h"

namespace zoomaf::bench {
namespace {
constexpr uint64_t kSensorSettleNs = 500'000'000;
}  // namespace

// The laser calibration goes before the lens table, which applies it; the second read only
// re-reads and re-prints it.
bool start_up_service() {
    read_sensor_id();
    platform().sleep_ns(kSensorSettleNs);
    cur_day_night_mode = 0;
    const VersionTriple motor = ReadMotorVersion();
    std::printf("hardware is %d, motor software main is %d, sup is %d.\r\n", motor.hardware,
                motor.main, motor.sub);
    const VersionTriple app = ReadAppPdafVersion();
    std::printf("dcc is %d, pdaf software main is %d, sup is %d.\r\n", app.hardware, app.main,
                app.sub);
    ReadLaserCalibration();
    if (ReadAFTXT() < 0) return false;
    ReadLaserCalibration();
    pd_init_calibration();
    motor_init_calibration();
    LaserShareMemeoryInit();
    return true;
}

}  // namespace zoomaf::bench
