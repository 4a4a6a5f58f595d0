#include "twin/module/ms41908.hpp"

#include <cstdarg>
#include <cstdio>

namespace zoomaf::twin {

DriverChip::DriverChip(DriverType type, LensMotor& zoom, LensMotor& focus,
                       const DeviceContext& context)
    : type_(type), context_(context) {
    // MS41928 modules drive focus from AB and zoom from CD; MS41908 modules the reverse.
    const bool ab_is_zoom = type == DriverType::ms41908;
    channels_ = {Channel{"AB", 0x24, 0x25, ab_is_zoom ? &zoom : &focus, ab_is_zoom},
                 Channel{"CD", 0x29, 0x2A, ab_is_zoom ? &focus : &zoom, !ab_is_zoom}};
}

uint64_t DriverChip::pulse_time_ns(unsigned psum, unsigned intct) {
    // psum * intct * 24 / 27 MHz seconds, rounded up to whole nanoseconds.
    const uint64_t clocks = uint64_t{psum} * intct * 24u;
    return (clocks * 1000u + 26u) / 27u;
}

void DriverChip::record(FaultKind kind, const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    context_.recorded.record(kind, std::string(kName) + ": " + text);
}

void DriverChip::frame(std::span<const uint8_t> tx, std::span<uint8_t> rx, bool selected) {
    if (!selected) {
        record(FaultKind::chip_not_selected, "frame of %zu bytes while chip select was low",
               tx.size());
        return;
    }
    if (tx.size() != kFrameLength) {
        record(FaultKind::frame_length, "frame of %zu bytes, the chip takes 3", tx.size());
        return;
    }
    const int addr = tx[0] & (kRegisterCount - 1);
    if ((tx[0] & kReadBit) != 0) {
        uint16_t value = registers_[addr];
        if (context_.fault(FaultRule::Op::readback, kName, addr)) value ^= 1u;
        rx[1] = static_cast<uint8_t>(value & 0xFFu);
        rx[2] = static_cast<uint8_t>(value >> 8);
        return;
    }
    write_register(addr, static_cast<uint16_t>(tx[1] | (tx[2] << 8)));
}

void DriverChip::write_register(int addr, uint16_t value) {
    const uint64_t now = context_.clock.now_ns();
    for (const Channel& ch : channels_) {
        if ((addr == ch.psum_reg || addr == ch.intct_reg) && now < ch.busy_until_ns) {
            record(FaultKind::timing,
                   "register 0x%02X of channel %s written %llu ns before its pulses finish",
                   static_cast<unsigned>(addr), ch.name,
                   static_cast<unsigned long long>(ch.busy_until_ns - now));
        }
    }
    registers_[addr] = value;
    writes_.push_back(RegisterWrite{now, addr, value});
}

void DriverChip::vd_rising_edge() {
    const uint64_t now = context_.clock.now_ns();
    ++vd_pulses_;
    for (const Channel& ch : channels_) {
        if (now < ch.busy_until_ns) {
            record(FaultKind::timing, "VD pulse %llu ns before the pulses of channel %s finish",
                   static_cast<unsigned long long>(ch.busy_until_ns - now), ch.name);
            break;  // one fault per VD pulse
        }
    }
    for (Channel& ch : channels_) {
        const uint16_t control = registers_[ch.psum_reg];
        const unsigned psum = control & 0xFFu;
        if (psum == 0) continue;
        const bool dir = (control & 0x100u) != 0;
        // Focus moves up with the direction bit set, zoom moves down: the motors are
        // mounted the other way round.
        const int step = static_cast<int>(psum);
        ch.motor->move(dir != ch.is_zoom ? step : -step);
        ch.busy_until_ns = now + pulse_time_ns(psum, registers_[ch.intct_reg]);
    }
}

}  // namespace zoomaf::twin
