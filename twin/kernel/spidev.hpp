// /dev/spidev1.0, the SPI controller as user space sees it: the 32-bit mode, bits per word
// and maximum speed are stored and read back by their ioctls (the requests the motor driver
// makes), and SPI_IOC_MESSAGE(N) takes the kernel's own struct spi_ioc_transfer array. Each
// transfer is one frame handed to the device connected to the bus (none: the frame goes
// nowhere and reads zeros). The device on this bus is LSB-first: when the mode lacks
// SPI_LSB_FIRST the controller shifts MSB-first, so the device sees every byte bit-reversed
// and its answer comes back bit-reversed too.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

class SpiDevice final : public DeviceNode {
public:
    static constexpr const char* kPath = "/dev/spidev1.0";

    // One full-duplex frame as the device sees it on the wire: rx is zeroed beforehand and
    // has the size of tx.
    using Bus = std::function<void(std::span<const uint8_t> tx, std::span<uint8_t> rx)>;

    std::unique_ptr<OpenFile> open(int flags) override;
    // Wires the device on the bus (the camera module does, for the driver chip).
    void connect(Bus bus) { bus_ = std::move(bus); }

    // Settings of the controller, shared by every open file as in the kernel.
    uint32_t mode() const { return mode_; }
    uint8_t bits_per_word() const { return bits_per_word_; }
    uint32_t max_speed_hz() const { return max_speed_hz_; }
    uint64_t messages() const { return messages_; }

    int ioctl(unsigned long request, void* arg);

private:
    int transfer(const void* arg, size_t count);

    Bus bus_;
    uint32_t mode_ = 0;
    uint8_t bits_per_word_ = 8;
    uint32_t max_speed_hz_ = 500000;
    uint64_t messages_ = 0;
};

uint8_t reverse_bits(uint8_t byte);

}  // namespace zoomaf::twin
