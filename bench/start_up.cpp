#include "bench/start_up.hpp"

#include <cstdint>

#include "platform/platform.hpp"
#include "service/versions.hpp"
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
    print_versions();
    ReadLaserCalibration();
    if (ReadAFTXT() < 0) return false;
    ReadLaserCalibration();
    pd_init_calibration();
    motor_init_calibration();
    LaserShareMemeoryInit();
    return true;
}

}  // namespace zoomaf::bench
