#include "twin/module/board.hpp"

#include "twin/kernel/random.hpp"
#include "twin/module/module_calibration.hpp"

namespace zoomaf::twin {

namespace {

KernelConfig kernel_config(const BoardConfig& config) {
    return KernelConfig{.seed = config.seed, .sandbox = config.sandbox};
}

// The motors start where the seed puts them unless configured; both draws are always made,
// so placing one motor leaves the other's start alone.
int start_position(std::optional<int> configured, int min, int max, SeededRandom& random) {
    const int drawn = static_cast<int>(random.between(min, max));
    return configured.value_or(drawn);
}

}  // namespace

Board::Board(BoardConfig config)
    : Kernel(kernel_config(config)),
      driver_(config.driver),
      zoom_(LensMotor::kZoomMin, LensMotor::kZoomMax, LensMotor::kZoomMin),
      focus_(LensMotor::kFocusMin, LensMotor::kFocusMax, LensMotor::kFocusMin),
      chip_(config.driver, zoom_, focus_, context()) {
    SeededRandom random(seed_stream(config.seed, 4));
    zoom_.set_position(
        start_position(config.zoom_start, LensMotor::kZoomMin, LensMotor::kZoomMax, random));
    focus_.set_position(
        start_position(config.focus_start, LensMotor::kFocusMin, LensMotor::kFocusMax, random));

    // MS41908 modules have the photo-interrupters mounted inverted.
    const bool inverted = driver_ == DriverType::ms41908;
    zoom_pi_ = std::make_unique<PhotoInterrupter>(zoom_, gpio(), kZoomPiGpio, inverted);
    focus_pi_ = std::make_unique<PhotoInterrupter>(focus_, gpio(), kFocusPiGpio, inverted);
    zoom_.on_moved([this] { zoom_pi_->refresh(); });
    focus_.on_moved([this] { focus_pi_->refresh(); });

    gpio().set_listener([this](int line, int level) {
        if (line == kVdGpio && level == 1) chip_.vd_rising_edge();
    });
    spi().connect([this](std::span<const uint8_t> tx, std::span<uint8_t> rx) {
        chip_.frame(tx, rx, gpio().physical(kChipSelectGpio) == 1);
    });

    eeprom_ = std::make_shared<ModuleEeprom>(context());
    eeprom_->set_byte(ModuleEeprom::kModuleValidAddr,
                      config.module_valid.value_or(ModuleEeprom::kModuleValid));
    eeprom_->set_byte(ModuleEeprom::kMotorIdAddr,
                      config.module_motor_id.value_or(ModuleEeprom::motor_id_of(driver_)));
    write_module_calibration(*eeprom_);
    imx586_ = std::make_shared<Imx586>(context());
    sensor_id_ = std::make_shared<SensorIdRegisters>(context());
    voice_coil_ = std::make_shared<VoiceCoilDriver>(context());
    attach_i2c_device(kSensorIdBus, SensorIdRegisters::kAddress, sensor_id_);
    attach_i2c_device(kModuleBus, ModuleEeprom::kAddress, eeprom_);
    attach_i2c_device(kModuleBus, Imx586::kAddress, imx586_);
    attach_i2c_device(kModuleBus, VoiceCoilDriver::kAddress, voice_coil_);

    add_face(chip_);
    add_face(zoom_, static_cast<int>(Motor::zoom));
    add_face(focus_, static_cast<int>(Motor::focus));
    add_face(*zoom_pi_, static_cast<int>(Motor::zoom));
    add_face(*focus_pi_, static_cast<int>(Motor::focus));
    add_face(*eeprom_);
    add_face(*imx586_);
    add_face(*sensor_id_);
    add_face(*voice_coil_);
}

Board::~Board() = default;

}  // namespace zoomaf::twin
