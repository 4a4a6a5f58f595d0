#include "twin/kernel/i2c_device.hpp"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace zoomaf::twin {

void I2cDevice::record_misuse(const char* format, ...) {
    char text[256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    context_.recorded.record(FaultKind::i2c_misuse, name_ + ": " + text);
}

RegisterFile16::RegisterFile16(std::string name, size_t size, const DeviceContext& context)
    : I2cDevice(std::move(name), context) {
    if (size == 0 || size > 0x10000 || (size & (size - 1)) != 0) {
        throw std::invalid_argument("twin I2C device: register file size must be a power of two");
    }
    bytes_.assign(size, 0);
}

uint8_t RegisterFile16::byte(uint32_t addr) const {
    return bytes_.at(addr);
}

void RegisterFile16::set_byte(uint32_t addr, uint8_t value) {
    bytes_.at(addr) = value;
}

void RegisterFile16::name_register(uint16_t addr, std::string name, Access access) {
    named_[addr] = NamedRegister{std::move(name), access};
}

uint16_t RegisterFile16::masked(uint32_t addr) {
    const uint32_t mask = static_cast<uint32_t>(bytes_.size() - 1);
    if ((addr & ~mask) != 0) {
        record_misuse("address 0x%04X is beyond the %zu bytes of the chip and reaches 0x%04X", addr,
                      bytes_.size(), addr & mask);
    }
    return static_cast<uint16_t>(addr & mask);
}

bool RegisterFile16::check_access(uint16_t addr, bool write) {
    if (named_.empty()) return true;
    auto it = named_.find(addr);
    if (it == named_.end()) {
        record_misuse("%s register 0x%04X, which the chip does not have",
                      write ? "write to" : "read of", addr);
        return true;
    }
    const NamedRegister& reg = it->second;
    if (write && reg.access == Access::read_only) {
        record_misuse("write to the read-only register 0x%04X (%s) is ignored", addr,
                      reg.name.c_str());
        return false;
    }
    return true;
}

void RegisterFile16::receive(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;  // an address-only probe: acknowledged, nothing changes
    if (bytes.size() == 1) {
        record_misuse("write of 1 byte: a register address takes 2 bytes, high byte first");
        return;
    }
    pointer_ = masked(static_cast<uint32_t>(bytes[0] << 8 | bytes[1]));
    for (const uint8_t value : bytes.subspan(2)) {
        const uint16_t addr = pointer_;
        if (check_access(addr, true)) {
            bytes_[addr] = value;
            writes_.push_back(I2cRegisterWrite{now_ns(), addr, value});
            on_write(addr, value);
        }
        advance();
    }
}

void RegisterFile16::transmit(std::span<uint8_t> bytes) {
    for (uint8_t& out : bytes) {
        check_access(pointer_, false);
        out = bytes_[pointer_];
        advance();
    }
}

}  // namespace zoomaf::twin
