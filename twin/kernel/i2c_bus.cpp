#include "twin/i2c_bus.hpp"

#include <linux/i2c-dev.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zoomaf::twin {

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

// What the RK3588 controller offers through i2c-dev here: plain I2C transfers.
constexpr unsigned long kFunctionality = I2C_FUNC_I2C;

// One open file of /dev/i2c-N: the i2c-dev client, with the address plain read and write
// go to (0 until I2C_SLAVE sets one, as in the kernel).
class I2cDevFile final : public OpenFile {
public:
    explicit I2cDevFile(I2cBus& bus) : bus_(bus) {}

    ssize_t read(void* buf, size_t n) override {
        return plain_transfer(I2C_M_RD, static_cast<uint8_t*>(buf), n);
    }
    ssize_t write(const void* buf, size_t n) override {
        // The bus only reads a write message's buffer.
        return plain_transfer(0, static_cast<uint8_t*>(const_cast<void*>(buf)), n);
    }
    int ioctl(unsigned long request, void* arg) override;

private:
    ssize_t plain_transfer(uint16_t flags, uint8_t* buf, size_t n) {
        // i2c-dev cuts a plain read or write to one message of at most 8192 bytes.
        n = std::min(n, I2cBus::kMaxMessageLength);
        const i2c_msg message{address_, flags, static_cast<uint16_t>(n), buf};
        if (bus_.transfer(std::span(&message, 1)) < 0) return -1;
        return static_cast<ssize_t>(n);
    }
    int rdwr(const void* arg);

    I2cBus& bus_;
    uint16_t address_ = 0;
};

int I2cDevFile::ioctl(unsigned long request, void* arg) {
    switch (request) {
        case I2C_SLAVE:
        case I2C_SLAVE_FORCE: {
            // The address comes as the argument's value, not through a pointer. No kernel
            // driver holds an address on this board, so I2C_SLAVE is never EBUSY.
            const uintptr_t addr = reinterpret_cast<uintptr_t>(arg);
            if (addr > 0x7F) return fail(EINVAL);
            address_ = static_cast<uint16_t>(addr);
            return 0;
        }
        case I2C_RETRIES:
        case I2C_TIMEOUT:
            return 0;  // the transfer never times out or retries on the twin
        case I2C_FUNCS: {
            if (arg == nullptr) return fail(EFAULT);
            std::memcpy(arg, &kFunctionality, sizeof kFunctionality);
            return 0;
        }
        case I2C_RDWR:
            return rdwr(arg);
        default:
            return fail(ENOTTY);
    }
}

int I2cDevFile::rdwr(const void* arg) {
    if (arg == nullptr) return fail(EFAULT);
    i2c_rdwr_ioctl_data data{};
    std::memcpy(&data, arg, sizeof data);
    if (data.msgs == nullptr || data.nmsgs == 0) return fail(EINVAL);
    if (data.nmsgs > I2cBus::kMaxMessages) return fail(EINVAL);
    std::vector<i2c_msg> messages(data.nmsgs);
    std::memcpy(messages.data(), data.msgs, data.nmsgs * sizeof(i2c_msg));
    return bus_.transfer(messages);
}

}  // namespace

std::string I2cBus::path(int number) {
    return "/dev/i2c-" + std::to_string(number);
}

std::unique_ptr<OpenFile> I2cBus::open(int /*flags*/) {
    return std::make_unique<I2cDevFile>(*this);
}

void I2cBus::attach(int addr, std::shared_ptr<I2cDevice> device) {
    if (addr < kFirstAddress || addr > kLastAddress || !device) {
        throw std::invalid_argument("twin I2C: no device can sit at address " +
                                    std::to_string(addr) + " of " + path(number_));
    }
    if (!slots_.emplace(addr, Slot{std::move(device)}).second) {
        throw std::logic_error("twin I2C: two devices at address " + std::to_string(addr) + " of " +
                               path(number_));
    }
}

void I2cBus::set_present(int addr, bool present) {
    auto it = slots_.find(addr);
    if (it == slots_.end()) {
        throw std::out_of_range("twin I2C: no device at address " + std::to_string(addr) + " of " +
                                path(number_));
    }
    it->second.present = present;
}

I2cDevice* I2cBus::device(int addr) const {
    auto it = slots_.find(addr);
    return it == slots_.end() ? nullptr : it->second.device.get();
}

std::vector<const I2cDevice*> I2cBus::devices() const {
    std::vector<const I2cDevice*> all;
    for (const auto& [addr, slot] : slots_) all.push_back(slot.device.get());
    return all;
}

int I2cBus::transfer(std::span<const i2c_msg> messages) {
    // The kernel checks every message before the first one goes on the wire.
    for (const i2c_msg& m : messages) {
        if (m.len > kMaxMessageLength) return fail(EINVAL);
        if ((m.flags & (I2C_M_TEN | I2C_M_RECV_LEN)) != 0) return fail(EOPNOTSUPP);
        if ((m.flags & I2C_M_RD) != 0 && m.len == 0) return fail(EOPNOTSUPP);
        if (m.addr > 0x7F) return fail(EINVAL);
        if (m.len > 0 && m.buf == nullptr) return fail(EFAULT);
    }

    I2cTransferRecord record{clock_.now_ns(), {}, 0};
    for (const i2c_msg& m : messages) {
        const bool read = (m.flags & I2C_M_RD) != 0;
        auto slot = slots_.find(m.addr);
        if (slot == slots_.end() || !slot->second.present) {
            record.messages.push_back(I2cMessageRecord{m.addr, read, {}});
            record.error = ENXIO;
            transfers_.push_back(std::move(record));
            return fail(ENXIO);
        }
        if (read) {
            std::vector<uint8_t> data(m.len, 0);
            slot->second.device->transmit(data);
            record.messages.push_back(I2cMessageRecord{m.addr, true, std::move(data)});
        } else {
            std::vector<uint8_t> data(m.buf, m.buf + m.len);
            slot->second.device->receive(data);
            record.messages.push_back(I2cMessageRecord{m.addr, false, std::move(data)});
        }
    }
    // Only a transfer that went through hands its read data back.
    for (size_t i = 0; i < messages.size(); ++i) {
        if (record.messages[i].read) {
            std::memcpy(messages[i].buf, record.messages[i].data.data(), messages[i].len);
        }
    }
    transfers_.push_back(std::move(record));
    return static_cast<int>(messages.size());
}

}  // namespace zoomaf::twin
