// The sensor's identification registers at 0x1A on I2C bus 2 (8-bit registers at 16-bit
// addresses): the clock set-up bytes 0x0136/0x0137, and the one-time-programmable (OTP)
// memory read through a 64-byte window. Writing a page number to 0x0A02 and 1 to 0x0A00
// starts a read of that page; it takes kOtpReadNs of board time, during which the status
// 0x0A01 reads 0 and the window 0x0A04..0x0A43 keeps what it held; then the status reads 1
// (read done) and the window holds the page. Page 0x7F carries the chip type at 0x0A29.
//
// Control face: the OTP pages' contents, the chip type, and how many reads were started.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>

#include "twin/kernel/device.hpp"
#include "twin/kernel/i2c_device.hpp"

namespace zoomaf::twin {

class SensorIdRegisters final : public RegisterFile16 {
public:
    static constexpr int kAddress = 0x1A;
    static constexpr uint16_t kClockHigh = 0x0136;
    static constexpr uint16_t kClockLow = 0x0137;
    static constexpr uint16_t kOtpControl = 0x0A00;
    static constexpr uint16_t kOtpStatus = 0x0A01;
    static constexpr uint16_t kOtpPage = 0x0A02;
    static constexpr uint16_t kOtpWindow = 0x0A04;  // 64 bytes
    static constexpr size_t kOtpPageBytes = 64;
    static constexpr uint8_t kIdPage = 0x7F;
    static constexpr uint16_t kChipTypeReg = 0x0A29;
    static constexpr uint8_t kImx586ChipType = 0x40;
    static constexpr uint64_t kOtpReadNs = 500'000;
    static constexpr uint8_t kStatusDone = 0x01;

    explicit SensorIdRegisters(const DeviceContext& context);

    void transmit(std::span<uint8_t> bytes) override;

    // ---- control face ----
    // One byte of an OTP page, by the window register it shows at (0x0A04..0x0A43;
    // std::out_of_range otherwise).
    void set_otp_byte(uint8_t page, uint16_t reg, uint8_t value);
    void set_chip_type(uint8_t type) { set_otp_byte(kIdPage, kChipTypeReg, type); }
    uint64_t otp_reads_started() const { return reads_started_; }

private:
    using Page = std::array<uint8_t, kOtpPageBytes>;

    void on_write(uint16_t addr, uint8_t value) override;
    void finish_read_when_due();

    std::map<uint8_t, Page> pages_;
    bool reading_ = false;
    uint8_t reading_page_ = 0;
    uint64_t read_done_ns_ = 0;
    uint64_t reads_started_ = 0;
};

}  // namespace zoomaf::twin
