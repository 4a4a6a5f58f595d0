// /dev/i2c-N, one I2C bus of the board as the i2c-dev driver shows it to user space.
//
// I2C_RDWR takes the kernel's struct i2c_rdwr_ioctl_data with its struct i2c_msg array and
// runs the messages as one combined transfer: each goes to the device at its 7-bit address
// on this bus, a read message is filled by the device, and the ioctl returns the number of
// messages. Failures are the kernel's: EINVAL for no message, more than 42 or one longer
// than 8192 bytes; EOPNOTSUPP for what the RK3588 controller cannot do (a zero-length read,
// 10-bit addresses, I2C_M_RECV_LEN); ENXIO when nobody acknowledges an address. Messages
// before a NAK have reached their devices, but, as in the kernel, no read data is copied
// back from a transfer that failed.
//
// The service makes every access with I2C_RDWR, so that is the one request emulated: plain
// read and write (and the I2C_SLAVE address they need) fail with EINVAL, every other
// request with ENOTTY. Each device's fault hook (FaultRule::Op::transfer, target
// i2c_device_name(bus, addr)) can make it not acknowledge its address.
#pragma once

#include <linux/i2c.h>

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "twin/kernel/clock.hpp"
#include "twin/kernel/device.hpp"
#include "twin/kernel/i2c_device.hpp"

namespace zoomaf::twin {

// One message of a transfer as the bus saw it.
struct I2cMessageRecord {
    uint16_t addr;
    bool read;
    std::vector<uint8_t> data;  // the bytes written, or the bytes the device returned
};

// One transfer on the wire: an I2C_RDWR.
struct I2cTransferRecord {
    uint64_t time_ns;                        // board monotonic time
    std::vector<I2cMessageRecord> messages;  // up to and including a NAKed one
    int error;                               // 0, or the errno the transfer failed with
};

class I2cBus final : public DeviceNode {
public:
    static constexpr size_t kMaxMessages = 42;         // I2C_RDWR_IOCTL_MAX_MSGS
    static constexpr size_t kMaxMessageLength = 8192;  // i2c-dev's limit per message
    static constexpr int kFirstAddress = 0x08;         // 0x00..0x07 and 0x78..0x7F are
    static constexpr int kLastAddress = 0x77;          // reserved by the I2C standard

    I2cBus(int number, const DeviceContext& context) : number_(number), context_(context) {}
    static std::string path(int number);
    int number() const { return number_; }

    std::unique_ptr<OpenFile> open(int flags) override;

    // Routing table. attach throws std::logic_error when the address is taken and
    // std::invalid_argument outside kFirstAddress..kLastAddress or for a null device.
    void attach(int addr, std::shared_ptr<I2cDevice> device);

    // Runs a combined transfer; returns the number of messages, or -1 with errno set.
    int transfer(std::span<const i2c_msg> messages);

    const std::vector<I2cTransferRecord>& transfers() const { return transfers_; }
    void clear_transfers() { transfers_.clear(); }

private:
    int number_;
    const DeviceContext& context_;
    std::map<int, std::shared_ptr<I2cDevice>> devices_;
    std::vector<I2cTransferRecord> transfers_;
};

}  // namespace zoomaf::twin
