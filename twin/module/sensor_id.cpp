#include "twin/module/sensor_id.hpp"

#include <stdexcept>

namespace zoomaf::twin {

SensorIdRegisters::SensorIdRegisters(const DeviceContext& context)
    : RegisterFile16("IMX586 identification", 0x10000, context) {
    using A = Access;
    name_register(kClockHigh, "external clock MHz", A::read_write);
    name_register(kClockLow, "external clock fraction", A::read_write);
    name_register(kOtpControl, "OTP read control", A::read_write);
    name_register(kOtpStatus, "OTP read status", A::read_only);
    name_register(kOtpPage, "OTP page select", A::read_write);
    for (uint16_t i = 0; i < kOtpPageBytes; ++i) {
        name_register(kOtpWindow + i, "OTP read window", A::read_only);
    }
    // A 24 MHz external clock, as the module is wired.
    set_byte(kClockHigh, 0x18);
    set_byte(kClockLow, 0x00);
    // The identification page: a lot and wafer record before the chip type.
    Page id{};
    for (size_t i = 0; i < kOtpPageBytes; ++i) id[i] = static_cast<uint8_t>(0xA0 + i);
    id[kChipTypeReg - kOtpWindow] = kImx586ChipType;
    pages_[kIdPage] = id;
}

void SensorIdRegisters::set_otp_byte(uint8_t page, uint16_t reg, uint8_t value) {
    if (reg < kOtpWindow || reg >= kOtpWindow + kOtpPageBytes) {
        throw std::out_of_range("twin sensor identification: no OTP window register " +
                                std::to_string(reg));
    }
    pages_[page][reg - kOtpWindow] = value;
}

void SensorIdRegisters::on_write(uint16_t addr, uint8_t value) {
    if (addr != kOtpControl || (value & 1) == 0) return;
    reading_ = true;
    reading_page_ = byte(kOtpPage);
    read_done_ns_ = now_ns() + kOtpReadNs;
    ++reads_started_;
    set_byte(kOtpStatus, 0);
}

void SensorIdRegisters::finish_read_when_due() {
    if (!reading_ || now_ns() < read_done_ns_) return;
    reading_ = false;
    const auto page = pages_.find(reading_page_);
    for (uint16_t i = 0; i < kOtpPageBytes; ++i) {
        set_byte(kOtpWindow + i, page == pages_.end() ? 0 : page->second[i]);
    }
    set_byte(kOtpStatus, kStatusDone);
}

void SensorIdRegisters::transmit(std::span<uint8_t> bytes) {
    finish_read_when_due();
    RegisterFile16::transmit(bytes);
}

}  // namespace zoomaf::twin
