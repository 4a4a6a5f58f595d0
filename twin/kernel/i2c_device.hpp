// Devices on the board's I2C buses, each with two faces. The bus face sees one message at
// a time as the wire carries it after the device's address: the bytes the master writes,
// or a read the device fills byte by byte. The control face lets tests set the device's
// contents and read what the service wrote, without going through the bus.
//
// RegisterFile16 is the common shape of the module's I2C chips: 8-bit registers at 16-bit
// addresses. A write message starts with the address (high byte first) that sets the
// address pointer; its further bytes are stored from the pointer on. A read message reads
// from the pointer. The pointer moves on by one per byte and rolls over at the end of the
// register file, as in the memory chips. Misuse the chip would not refuse but that shows a
// bug in the service (an incomplete address, a register that does not exist or does not
// take writes) is recorded in the board's fault log.
//
// Devices are called under the board mutex, like every device node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

class I2cDevice {
public:
    I2cDevice(std::string name, const DeviceContext& context)
        : name_(std::move(name)), context_(context) {}
    virtual ~I2cDevice() = default;
    I2cDevice(const I2cDevice&) = delete;
    I2cDevice& operator=(const I2cDevice&) = delete;

    // Bus face: one write message addressed to the device (the bytes after the address).
    virtual void receive(std::span<const uint8_t> bytes) = 0;
    // Bus face: one read message; the device fills every byte (the bus never asks for 0).
    virtual void transmit(std::span<uint8_t> bytes) = 0;

    const std::string& name() const { return name_; }

protected:
    uint64_t now_ns() const { return context_.clock.now_ns(); }
    // Records misuse in the board's fault log, prefixed with the device's name.
    void record_misuse(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    std::string name_;
    const DeviceContext& context_;
};

struct I2cRegisterWrite {
    uint64_t time_ns;  // board monotonic time
    uint16_t addr;
    uint8_t value;
};

class RegisterFile16 : public I2cDevice {
public:
    enum class Access { read_write, read_only };

    // size: bytes in the register file, a power of two up to 0x10000. Address bits above it
    // are ignored by the chip (the address aliases), which is recorded as misuse.
    RegisterFile16(std::string name, size_t size, const DeviceContext& context);

    void receive(std::span<const uint8_t> bytes) override;
    void transmit(std::span<uint8_t> bytes) override;

    // Control face. addr must be below size() (std::out_of_range otherwise). set_byte sets
    // the chip's content as it is, whatever the access of the register, and is not logged.
    size_t size() const { return bytes_.size(); }
    uint8_t byte(uint32_t addr) const;
    void set_byte(uint32_t addr, uint8_t value);
    uint16_t pointer() const { return pointer_; }
    // Every byte the bus stored, in order.
    const std::vector<I2cRegisterWrite>& writes() const { return writes_; }
    void clear_writes() { writes_.clear(); }

protected:
    // Names a register. Once a device names any register, the bus reaching one it has not
    // named is misuse, as is a write to a read-only register.
    void name_register(uint16_t addr, std::string name, Access access);
    // Called after the bus stored a byte, for registers that act (start a read-out ...).
    virtual void on_write(uint16_t /*addr*/, uint8_t /*value*/) {}

private:
    struct NamedRegister {
        std::string name;
        Access access;
    };

    uint16_t masked(uint32_t addr);
    // The register's rule for an access by the bus; records misuse and tells whether the
    // access goes through (only a write to a read-only register does not).
    bool check_access(uint16_t addr, bool write);
    void advance() { pointer_ = static_cast<uint16_t>((pointer_ + 1) & (bytes_.size() - 1)); }

    std::vector<uint8_t> bytes_;
    uint16_t pointer_ = 0;
    std::map<uint16_t, NamedRegister> named_;
    std::vector<I2cRegisterWrite> writes_;
};

}  // namespace zoomaf::twin
