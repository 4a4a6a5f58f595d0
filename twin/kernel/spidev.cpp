#include "twin/kernel/spidev.hpp"

#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace zoomaf::twin {

namespace {

class SpiDeviceFile final : public OpenFile {
public:
    explicit SpiDeviceFile(SpiDevice& device) : device_(device) {}
    // spidev's half-duplex read/write is not used by the service; the frame always goes
    // through SPI_IOC_MESSAGE.
    ssize_t read(void*, size_t) override { return fail(EINVAL); }
    ssize_t write(const void*, size_t) override { return fail(EINVAL); }
    int ioctl(unsigned long request, void* arg) override { return device_.ioctl(request, arg); }

private:
    static ssize_t fail(int error) {
        errno = error;
        return -1;
    }
    SpiDevice& device_;
};

int fail(int error) {
    errno = error;
    return -1;
}

template <typename T>
int read_arg(const void* arg, T& value) {
    if (arg == nullptr) return fail(EFAULT);
    std::memcpy(&value, arg, sizeof value);
    return 0;
}

template <typename T>
int write_arg(void* arg, T value) {
    if (arg == nullptr) return fail(EFAULT);
    std::memcpy(arg, &value, sizeof value);
    return 0;
}

}  // namespace

uint8_t reverse_bits(uint8_t byte) {
    uint8_t out = 0;
    for (int bit = 0; bit < 8; ++bit) {
        if ((byte & (1u << bit)) != 0) out = static_cast<uint8_t>(out | (0x80u >> bit));
    }
    return out;
}

std::unique_ptr<OpenFile> SpiDevice::open(int /*flags*/) {
    return std::make_unique<SpiDeviceFile>(*this);
}

int SpiDevice::ioctl(unsigned long request, void* arg) {
    // SPI_IOC_MESSAGE(N) carries N in the size field of the request.
    if (_IOC_TYPE(request) == SPI_IOC_MAGIC && _IOC_NR(request) == 0 &&
        _IOC_DIR(request) == _IOC_WRITE) {
        const size_t size = _IOC_SIZE(request);
        if (size == 0 || size % sizeof(spi_ioc_transfer) != 0) return fail(EINVAL);
        return transfer(arg, size / sizeof(spi_ioc_transfer));
    }
    switch (request) {
        case SPI_IOC_WR_MODE32:
            return read_arg(arg, mode_);
        case SPI_IOC_RD_MODE32:
            return write_arg(arg, mode_);
        case SPI_IOC_WR_BITS_PER_WORD:
            return read_arg(arg, bits_per_word_);
        case SPI_IOC_RD_BITS_PER_WORD:
            return write_arg(arg, bits_per_word_);
        case SPI_IOC_WR_MAX_SPEED_HZ:
            return read_arg(arg, max_speed_hz_);
        case SPI_IOC_RD_MAX_SPEED_HZ:
            return write_arg(arg, max_speed_hz_);
        default:
            return fail(ENOTTY);
    }
}

int SpiDevice::transfer(const void* arg, size_t count) {
    if (arg == nullptr) return fail(EFAULT);
    std::vector<spi_ioc_transfer> transfers(count);
    std::memcpy(transfers.data(), arg, count * sizeof(spi_ioc_transfer));

    const bool lsb_first = (mode_ & SPI_LSB_FIRST) != 0;
    size_t total = 0;
    for (const spi_ioc_transfer& t : transfers) {
        // The kernel reads tx_buf (zeros when it is 0) and fills rx_buf (when not 0).
        std::vector<uint8_t> wire_tx(t.len, 0);
        std::vector<uint8_t> wire_rx(t.len, 0);
        if (t.tx_buf != 0 && t.len > 0) {
            std::memcpy(wire_tx.data(), reinterpret_cast<const void*>(t.tx_buf), t.len);
        }
        if (!lsb_first) {
            for (uint8_t& byte : wire_tx) byte = reverse_bits(byte);
        }
        if (bus_) bus_(wire_tx, wire_rx);
        if (!lsb_first) {
            for (uint8_t& byte : wire_rx) byte = reverse_bits(byte);
        }
        if (t.rx_buf != 0 && t.len > 0) {
            std::memcpy(reinterpret_cast<void*>(t.rx_buf), wire_rx.data(), t.len);
        }
        total += t.len;
    }
    ++messages_;
    return static_cast<int>(total);
}

}  // namespace zoomaf::twin
