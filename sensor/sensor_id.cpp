// Start-up identification of the sensor. The identification registers are read over bus 2
// while the group hold around each read is written over bus 9; the split is deliberate.
#include <cstdio>

#include "zoomaf/imx586.h"

namespace {

constexpr uint8_t kExpectedChipType = 0x40;

// What the identification reads; only the chip type is judged.
struct SensorIdRecord {
    uint8_t otp[5];      // 0x0A1F .. 0x0A23, kept but not used
    uint8_t otp_status;  // 0x0A01
    uint8_t chip_type;   // 0x0A29 in the end
};

}  // namespace

extern "C" {

int read_sensor_id(void) {
    SensorIdRecord id = {{1, 1, 1, 1, 1}, 0, 0};
    read_sensor_version_reg(0x0136, &id.chip_type);
    read_sensor_version_reg(0x0137, &id.chip_type);

    // Select the identification page, then start its read.
    write_sensor_version_reg(0x0A02, 0x7F);
    write_sensor_version_reg(0x0A00, 0x01);
    read_sensor_version_reg(0x0A01, &id.otp_status);
    std::printf("read otp-read-status:%d\r\n", id.otp_status);

    for (uint16_t k = 0; k < 5; ++k) {
        write_imx586_group_hold(1);
        read_sensor_version_reg(static_cast<uint16_t>(0x0A1F + k), &id.otp[k]);
        write_imx586_group_hold(0);
    }
    // Only the last of these reads survives: 0x0A29 holds the chip type.
    for (uint16_t reg = 0x0A24; reg <= 0x0A29; ++reg) {
        id.chip_type = 0;
        write_imx586_group_hold(1);
        read_sensor_version_reg(reg, &id.chip_type);
        write_imx586_group_hold(0);
    }

    std::printf("\r\nover read sensor chip type:0x%x!\r\n", id.chip_type);
    if (id.chip_type == kExpectedChipType) {
        std::puts("Success:true sensor chip type!\r");
    } else {
        std::puts("Error:error sensor chip type!\r");
    }
    return 0;
}

}  // extern "C"
