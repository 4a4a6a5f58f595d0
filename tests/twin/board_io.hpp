// Service-style access to a twin board for the twin's own tests: every helper goes through
// the Platform methods with the kernel's own requests and structures, as the driver does.
#pragma once

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <linux/spi/spidev.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include "twin/module/board.hpp"

namespace zoomaf::twin::test {

// One check that a call failed (-1) with exactly this errno (errno cleared first).
inline int error_of(long result) {
    return result == -1 ? errno : 0;
}
#define EXPECT_ERRNO(call, error) \
    EXPECT_EQ((errno = 0, ::zoomaf::twin::test::error_of(call)), error) << #call

// open path, f(fd), close: f's result with its errno kept, or -1 when open failed.
template <typename F>
long with_fd(Platform& p, const std::string& path, int flags, F f) {
    const int fd = p.open(path.c_str(), flags);
    if (fd < 0) return -1;
    const long result = f(fd);
    const int saved = errno;
    p.close(fd);
    errno = saved;
    return result;
}
inline ssize_t write_path(Platform& p, const std::string& path, std::string_view bytes) {
    return with_fd(p, path, O_WRONLY,
                   [&](int fd) { return p.write(fd, bytes.data(), bytes.size()); });
}
inline std::string read_path(Platform& p, const std::string& path) {
    char buf[64];
    const long n = with_fd(p, path, O_RDONLY, [&](int fd) { return p.read(fd, buf, sizeof buf); });
    return n < 0 ? "<error>" : std::string(buf, static_cast<size_t>(n));
}

inline std::string gpio_file(int line, const char* file) {
    return "/sys/class/gpio/gpio" + std::to_string(line) + "/" + file;
}
// Exports a line the way the driver does: three bytes of a zero-terminated number.
inline ssize_t export_line(Platform& p, int line) {
    std::string text = std::to_string(line);
    text.resize(3);
    return write_path(p, "/sys/class/gpio/export", text);
}
inline ssize_t set_value(Platform& p, int line, int level) {
    return write_path(p, gpio_file(line, "value"), level == 1 ? "1" : "0");
}

// One SPI_IOC_MESSAGE(1): the ioctl's result and the bytes received (0xEE where none came).
struct Transfer {
    int result;
    std::vector<uint8_t> rx;
};
inline Transfer transfer(Platform& p, int fd, std::vector<uint8_t> tx) {
    Transfer out{0, std::vector<uint8_t>(tx.size(), 0xEE)};
    spi_ioc_transfer t{};
    t.tx_buf = reinterpret_cast<uintptr_t>(tx.data());
    t.rx_buf = reinterpret_cast<uintptr_t>(out.rx.data());
    t.len = static_cast<uint32_t>(tx.size());
    out.result = p.ioctl(fd, SPI_IOC_MESSAGE(1), &t);
    return out;
}
// A register frame inside chip select, as the motor driver sends it.
inline Transfer chip_frame(Platform& p, int fd, uint8_t addr, uint16_t value) {
    set_value(p, Board::kChipSelectGpio, 1);
    Transfer t = transfer(p, fd, {addr, uint8_t(value & 0xFF), uint8_t(value >> 8)});
    set_value(p, Board::kChipSelectGpio, 0);
    return t;
}
inline uint16_t chip_read(Platform& p, int fd, uint8_t addr) {
    const Transfer t = chip_frame(p, fd, static_cast<uint8_t>(addr + 0x40), 0);
    return static_cast<uint16_t>(t.rx[1] | (t.rx[2] << 8));
}

// A board wired the way the motor driver leaves it: chip select and VD exported as
// outputs, the SPI device open in LSB-first mode.
struct Rig {
    explicit Rig(BoardConfig config = {}) : board(std::move(config)) {
        for (int line : {Board::kChipSelectGpio, Board::kVdGpio}) {
            export_line(board, line);
            write_path(board, gpio_file(line, "direction"), "out");
        }
        spi = board.open("/dev/spidev1.0", O_RDWR);
        uint32_t mode = SPI_LSB_FIRST;
        board.ioctl(spi, SPI_IOC_WR_MODE32, &mode);
    }
    void vd() {
        set_value(board, Board::kVdGpio, 1);
        set_value(board, Board::kVdGpio, 0);
    }
    Board board;
    int spi = -1;
};

inline std::vector<FaultKind> fault_kinds(const Kernel& board) {
    std::vector<FaultKind> kinds;
    for (const auto& fault : board.faults()) kinds.push_back(fault.kind);
    return kinds;
}
inline int position(Board& board, Motor motor) {
    return board.with<LensMotor>(motor, [](const LensMotor& m) { return m.position(); });
}
inline uint16_t chip_reg(Board& board, int addr) {
    return board.with<DriverChip>([&](const DriverChip& c) { return c.reg(addr); });
}
inline std::vector<I2cTransferRecord> transfers(Kernel& board, int bus) {
    return board.with<I2cBus>(bus, [](const I2cBus& b) { return b.transfers(); });
}

// One I2C_RDWR on /dev/i2c-<bus> with the kernel's own structures; the ioctl's result.
inline int i2c_rdwr_on(Platform& p, int bus, std::vector<i2c_msg>& messages) {
    i2c_rdwr_ioctl_data data{messages.data(), static_cast<uint32_t>(messages.size())};
    return static_cast<int>(with_fd(p, "/dev/i2c-" + std::to_string(bus), O_RDWR,
                                    [&](int fd) { return p.ioctl(fd, I2C_RDWR, &data); }));
}
// A read at a 16-bit register address as the service sends it: the address (high byte
// first) and an n-byte read in one transfer; the data starts as 0xEE.
struct I2cRead {
    int result;
    std::vector<uint8_t> data;
};
inline I2cRead read_reg16(Platform& p, int bus, uint16_t device, uint16_t addr, size_t n = 1) {
    I2cRead out{-1, std::vector<uint8_t>(n, 0xEE)};
    uint8_t address[2] = {uint8_t(addr >> 8), uint8_t(addr & 0xFF)};
    std::vector<i2c_msg> messages{{device, 0, 2, address},
                                  {device, I2C_M_RD, uint16_t(n), out.data.data()}};
    out.result = i2c_rdwr_on(p, bus, messages);
    return out;
}
inline int write_reg16(Platform& p, int bus, uint16_t device, uint16_t addr,
                       std::vector<uint8_t> values) {
    values.insert(values.begin(), {uint8_t(addr >> 8), uint8_t(addr & 0xFF)});
    std::vector<i2c_msg> messages{{device, 0, uint16_t(values.size()), values.data()}};
    return i2c_rdwr_on(p, bus, messages);
}

}  // namespace zoomaf::twin::test
