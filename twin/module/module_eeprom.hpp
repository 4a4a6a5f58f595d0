// The camera module's memory at 0x50 on I2C bus 9: 8 KiB at 16-bit addresses, high byte
// first, one byte each. The first two bytes identify the module: 0x0000 tells whether the
// module information is valid and 0x0001 is the lens motor driver's id. The sensor's
// calibration (LRC data from 0x07AF, DCC values from 0x092F) lives here too and is zero
// until the sensor's model fills it.
#pragma once

#include <cstdint>

#include "twin/kernel/device.hpp"
#include "twin/kernel/i2c_device.hpp"
#include "twin/module/ms41908.hpp"

namespace zoomaf::twin {

class ModuleEeprom final : public RegisterFile16 {
public:
    static constexpr int kAddress = 0x50;
    static constexpr size_t kSize = 0x2000;
    static constexpr uint16_t kModuleValidAddr = 0x0000;
    static constexpr uint16_t kMotorIdAddr = 0x0001;
    static constexpr uint8_t kModuleValid = 1;
    static constexpr uint8_t kMotorIdMs41928 = 1;
    static constexpr uint8_t kMotorIdMs41908 = 2;

    explicit ModuleEeprom(const DeviceContext& context)
        : RegisterFile16("module EEPROM", kSize, context) {}

    // The motor id a module with this driver carries.
    static constexpr uint8_t motor_id_of(DriverType driver) {
        return driver == DriverType::ms41908 ? kMotorIdMs41908 : kMotorIdMs41928;
    }
};

}  // namespace zoomaf::twin
