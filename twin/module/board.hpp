// The digital twin of the camera board: the camera module wired onto the virtual kernel.
//
// On the kernel's buses and lines: the MS41908/MS41928 driver chip on /dev/spidev1.0 with
// its chip select (GPIO3_D0) and VD (GPIO0_D2) lines, the zoom and focus motors behind it and
// their photo-interrupters (GPIO0_C6, GPIO0_D0); on /dev/i2c-9 the IMX586 (0x1A), the lens
// voice-coil driver (0x0C) and the module memory (0x50); on /dev/i2c-2 the sensor's
// identification registers (0x1A). The laser and the video encoder, other processes of the
// camera, publish into the assist channels (twin/module/laser.hpp, encoder.hpp).
//
// Control faces, through the kernel's with<Face>() (f runs under the board mutex):
//     DriverChip                      registers, register writes, VD pulses
//     LensMotor (Motor::zoom/focus)   positions, steps moved, pulses lost at the end stops
//     PhotoInterrupter (Motor::...)   raw levels, a line held stuck
//     ModuleEeprom, Imx586, SensorIdRegisters, VoiceCoilDriver
// for example
//     board.with<LensMotor>(Motor::focus, [](LensMotor& m) { m.set_position(0); });
//     board.with<Imx586>([](Imx586& s) { s.set_grid_pd_cl(20, -35, 2047); });
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "twin/kernel/kernel.hpp"
#include "twin/module/imx586.hpp"
#include "twin/module/lens_motor.hpp"
#include "twin/module/module_eeprom.hpp"
#include "twin/module/ms41908.hpp"
#include "twin/module/photo_interrupter.hpp"
#include "twin/module/sensor_id.hpp"
#include "twin/module/voice_coil.hpp"

namespace zoomaf::twin {

struct BoardConfig {
    uint64_t seed = 1;  // everything random is drawn from this seed
    DriverType driver = DriverType::ms41928;
    // Members without a default initializer would make -Wextra warn on designated
    // initializers that leave them out.
    std::string sandbox{};  // empty: a fresh mkdtemp dir, removed with the board
    std::optional<int> zoom_start{}, focus_start{};  // physical start positions; default seeded
    // The module memory's identification bytes (0x0000 valid, 0x0001 motor id); by default
    // those of a sound module with this driver: valid 1, motor id 1 (MS41928) or 2 (MS41908).
    std::optional<uint8_t> module_valid{}, module_motor_id{};
};

class Board final : public Kernel {
public:
    // GPIO lines of the module: driver chip select (GPIO3_D0), VD (GPIO0_D2) and the
    // photo-interrupters of zoom (GPIO0_C6) and focus (GPIO0_D0).
    static constexpr int kChipSelectGpio = 120;
    static constexpr int kVdGpio = 26;
    static constexpr int kZoomPiGpio = 22;
    static constexpr int kFocusPiGpio = 24;
    // I2C: the sensor's identification registers sit on bus 2; the sensor, the lens
    // voice-coil driver and the module memory on bus 9.
    static constexpr int kSensorIdBus = 2;
    static constexpr int kModuleBus = 9;

    explicit Board(BoardConfig config = {});
    ~Board() override;

    DriverType driver() const { return driver_; }

private:
    const DriverType driver_;
    LensMotor zoom_;
    LensMotor focus_;
    DriverChip chip_;
    std::unique_ptr<PhotoInterrupter> zoom_pi_, focus_pi_;
    std::shared_ptr<ModuleEeprom> eeprom_;
    std::shared_ptr<Imx586> imx586_;
    std::shared_ptr<SensorIdRegisters> sensor_id_;
    std::shared_ptr<VoiceCoilDriver> voice_coil_;
};

}  // namespace zoomaf::twin
