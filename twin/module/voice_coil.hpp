// The lens voice-coil driver at 0x0C on I2C bus 9: 8-bit registers at 8-bit addresses.
// A write message starts with the register address, its further bytes go to that register
// and the next ones; a read message reads from the last address written. Register 0 holds
// bits 9..2 of the 10-bit position, register 1 bits 1..0 in its bits 7..6 (the low six bits
// are ignored), register 2 is the power-down switch (1 at power-up; written 0 the driver
// drives the coil). Other registers do not exist: reaching one is recorded as misuse.
//
// Control face: the position the registers command, whether the driver is enabled, and
// every register write in order.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "twin/kernel/device.hpp"
#include "twin/kernel/i2c_device.hpp"

namespace zoomaf::twin {

class VoiceCoilDriver final : public I2cDevice {
public:
    static constexpr int kAddress = 0x0C;
    static constexpr int kRegisters = 3;

    struct Write {
        uint64_t time_ns;
        uint8_t reg;
        uint8_t value;
    };

    explicit VoiceCoilDriver(const DeviceContext& context)
        : I2cDevice("voice-coil driver", context) {}

    void receive(std::span<const uint8_t> bytes) override;
    void transmit(std::span<uint8_t> bytes) override;

    // ---- control face ----
    int position() const { return registers_[0] << 2 | registers_[1] >> 6; }
    bool enabled() const { return registers_[2] == 0; }
    uint8_t reg(int r) const { return registers_.at(static_cast<size_t>(r)); }
    const std::vector<Write>& writes() const { return writes_; }
    void clear_writes() { writes_.clear(); }

private:
    std::array<uint8_t, kRegisters> registers_{0, 0, 1};
    uint8_t pointer_ = 0;
    std::vector<Write> writes_;
};

}  // namespace zoomaf::twin
