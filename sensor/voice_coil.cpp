// The lens voice-coil driver next to the sensor (slave 0x0C on bus 9): register 0 takes
// bits 9..2 of a 10-bit position, register 1 bits 1..0 in its bits 7..6, and register 2
// written with 0 enables the driver.
#include <algorithm>
#include <cstdio>

#include "zoomaf/imx586.h"
#include "zoomaf/service_state.h"

namespace {

constexpr uint8_t kPositionHighReg = 0;
constexpr uint8_t kPositionLowReg = 1;
constexpr uint8_t kEnableReg = 2;
constexpr int32_t kMaxPosition = 1023;

}  // namespace

extern "C" {

int set_586_mator_enable(void) {
    write_motor_single_reg(kEnableReg, 0);
    return 0;
}

// The focus position is shared with the focus service (motor_position): asking for the
// position it already holds writes nothing. The register values print as 0 when nothing
// was written, and the clamped position then shows the request as it came.
int set_586_mator_position(uint16_t pos) {
    int32_t value = pos;
    uint8_t high = 0;
    uint8_t low = 0;
    if (pos != motor_position) {
        value = std::min<int32_t>(pos, kMaxPosition);
        high = static_cast<uint8_t>(value >> 2);
        low = static_cast<uint8_t>((value << 6) & 0xFF);
        write_motor_single_reg(kPositionHighReg, high);
        write_motor_single_reg(kPositionLowReg, low);
        motor_position = value;
    }
    std::printf(
        "%s: addr1: 0x%02x, val:%d, addr2 : 0x%02x, val:%d, setpos:%d, value:%d, cur pos: "
        "%d)\r\n\r\n",
        "set_586_mator_position", kPositionHighReg, high, kPositionLowReg, low, pos, value,
        motor_position);
    return 0;
}

}  // extern "C"
