// The MS41908 / MS41928 stepper-motor driver chip of the lens module, as the bus and the
// motors see it.
//
// Bus face: a 16-bit register file at 0x00..0x3F reached by 3-byte frames (address with
// bit 6 set for a read, data bits 7..0, data bits 15..8), honoured only while chip select
// is high. Motor face: two channels, AB (psum/direction 0x24, intct 0x25) and CD (0x29,
// 0x2A); on each VD rising edge a channel with psum > 0 moves its motor by psum steps,
// taking psum * intct * 24 / 27 MHz to send the pulses. The two module types wire the
// channels to the motors the other way round. Misuse (a frame without chip select or not 3
// bytes long, a pulse or channel write while pulses still run) goes to the board's fault
// log; its fault hook (FaultRule::Op::readback) can corrupt a register's read-back.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "twin/kernel/device.hpp"
#include "twin/module/lens_motor.hpp"

namespace zoomaf::twin {

enum class DriverType { ms41928, ms41908 };  // module motor id 1 / 2

struct RegisterWrite {
    uint64_t time_ns;  // board monotonic time
    int addr;          // 0x00..0x3F
    uint16_t value;
};

class DriverChip {
public:
    static constexpr int kRegisterCount = 0x40;
    static constexpr int kReadBit = 0x40;
    static constexpr int kFrameLength = 3;

    static constexpr const char* kName = "driver chip";  // its fault hook's object name

    DriverChip(DriverType type, LensMotor& zoom, LensMotor& focus, const DeviceContext& context);

    // One SPI frame as it arrives on the wire; rx comes zeroed and is filled on a read.
    void frame(std::span<const uint8_t> tx, std::span<uint8_t> rx, bool selected);
    // A rising edge of the VD line: every channel with psum > 0 moves its motor.
    void vd_rising_edge();

    DriverType type() const { return type_; }
    uint16_t reg(int addr) const { return registers_.at(addr); }
    void set_reg(int addr, uint16_t value) { registers_.at(addr) = value; }
    const std::vector<RegisterWrite>& register_writes() const { return writes_; }
    void clear_register_writes() { writes_.clear(); }
    uint64_t vd_pulses() const { return vd_pulses_; }

    // Time the chip takes to send psum pulses at interval count intct.
    static uint64_t pulse_time_ns(unsigned psum, unsigned intct);

private:
    struct Channel {
        const char* name;
        int psum_reg;   // bits 7..0 psum, bit 8 direction
        int intct_reg;  // pulse interval count
        LensMotor* motor;
        bool is_zoom;
        uint64_t busy_until_ns = 0;  // end of the pulses of the last VD period
    };

    void record(FaultKind kind, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void write_register(int addr, uint16_t value);

    DriverType type_;
    const DeviceContext& context_;
    std::array<uint16_t, kRegisterCount> registers_{};
    std::array<Channel, 2> channels_;
    std::vector<RegisterWrite> writes_;
    uint64_t vd_pulses_ = 0;
};

}  // namespace zoomaf::twin
