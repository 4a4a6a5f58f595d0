#include "twin/kernel/i2c_bus.hpp"

#include <linux/i2c-dev.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace zoomaf::twin {

namespace {

int fail(int error) {
    errno = error;
    return -1;
}

// One open file of /dev/i2c-N: I2C_RDWR goes to the bus.
class I2cDevFile final : public OpenFile {
public:
    explicit I2cDevFile(I2cBus& bus) : bus_(bus) {}

    ssize_t read(void*, size_t) override { return fail(EINVAL); }
    ssize_t write(const void*, size_t) override { return fail(EINVAL); }
    int ioctl(unsigned long request, void* arg) override {
        if (request != I2C_RDWR) return fail(ENOTTY);
        if (arg == nullptr) return fail(EFAULT);
        i2c_rdwr_ioctl_data data{};
        std::memcpy(&data, arg, sizeof data);
        if (data.msgs == nullptr || data.nmsgs == 0) return fail(EINVAL);
        if (data.nmsgs > I2cBus::kMaxMessages) return fail(EINVAL);
        std::vector<i2c_msg> messages(data.nmsgs);
        std::memcpy(messages.data(), data.msgs, data.nmsgs * sizeof(i2c_msg));
        return bus_.transfer(messages);
    }

private:
    I2cBus& bus_;
};

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
    if (!devices_.emplace(addr, std::move(device)).second) {
        throw std::logic_error("twin I2C: two devices at address " + std::to_string(addr) + " of " +
                               path(number_));
    }
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

    I2cTransferRecord record{context_.clock.now_ns(), {}, 0};
    for (const i2c_msg& m : messages) {
        const bool read = (m.flags & I2C_M_RD) != 0;
        auto found = devices_.find(m.addr);
        std::optional<int> error;
        if (found == devices_.end()) {
            error = ENXIO;
        } else {
            error = context_.fault(FaultRule::Op::transfer, i2c_device_name(number_, m.addr));
        }
        if (error) {
            record.messages.push_back(I2cMessageRecord{m.addr, read, {}});
            record.error = *error;
            transfers_.push_back(std::move(record));
            return fail(*error);
        }
        if (read) {
            std::vector<uint8_t> data(m.len, 0);
            found->second->transmit(data);
            record.messages.push_back(I2cMessageRecord{m.addr, true, std::move(data)});
        } else {
            std::vector<uint8_t> data(m.buf, m.buf + m.len);
            found->second->receive(data);
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
