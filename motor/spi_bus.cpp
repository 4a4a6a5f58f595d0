// SPI access to the motor driver chip: the bus lock, nanosecond sleeps, the 3-byte register
// frame with software chip select, and the write verified by reading it back.
#include <linux/spi/spidev.h>

#include <cstring>

#include "motor/motor_internal.hpp"
#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

// The start-up values; InitAttr sets them again (the pins through RK3588_GPIO).
SpiDevAttr gSpiDev = {-1, SPI_LSB_FIRST, 8, 6000000, 0, "/dev/spidev1.0", 120, 0, 26, 26, 22, 24,
                      10};
pthread_mutex_t spi_safe_lock = PTHREAD_MUTEX_INITIALIZER;

namespace zoomaf::motor {

void sleep_ns(uint64_t ns) {
    if (platform().sleep_ns(ns) == -1) std::printf("\n nanousleep %8u not support\n", unsigned(ns));
}

}  // namespace zoomaf::motor

extern "C" {

// Blocks until the bus is free, despite its name.
int spi_try_lock(void) {
    pthread_mutex_lock(&spi_safe_lock);
    return 0;
}

int spi_unlock(void) {
    pthread_mutex_unlock(&spi_safe_lock);
    return 0;
}

void nSleep(uint32_t ns) {
    zoomaf::motor::sleep_ns(ns);
}

int Spi_Transfer(int fd, const uint8_t* tx, uint8_t* rx, uint64_t len) {
    spi_ioc_transfer transfer;
    std::memset(&transfer, 0, sizeof transfer);
    transfer.tx_buf = reinterpret_cast<uintptr_t>(tx);
    transfer.rx_buf = reinterpret_cast<uintptr_t>(rx);
    transfer.len = static_cast<uint32_t>(len);
    transfer.delay_usecs = gSpiDev.delay;
    // Speed and word size stay 0: the device defaults set by InitSpi apply.
    if (zoomaf::platform().ioctl(fd, SPI_IOC_MESSAGE(1), &transfer) > 0) {
        nSleep(100000);
        return 0;
    }
    std::printf("can't send spi message");
    return -1;
}

uint32_t Spi_WriteReg(int fd, uint32_t cs_gpio, uint16_t addr, uint16_t value) {
    const uint8_t tx[3] = {static_cast<uint8_t>(addr), static_cast<uint8_t>(value & 0xFF),
                           static_cast<uint8_t>(value >> 8)};
    uint8_t rx[3] = {0, 0, 0};
    spi_try_lock();
    Gpio_SetValue(cs_gpio, 1);
    nSleep(1000);
    const int result = Spi_Transfer(fd, tx, rx, sizeof tx);
    Gpio_SetValue(cs_gpio, 0);
    spi_unlock();
    if (result == -1) return 0xFFFFFFFFu;
    return rx[2] * 256u + rx[1];
}

// The caller passes the address with the read bit (0x40) already added.
uint32_t Spi_ReadReg(int fd, uint32_t cs_gpio, uint16_t addr) {
    return Spi_WriteReg(fd, cs_gpio, addr, 0);
}

uint32_t Spi_Write_Reg(int fd, uint32_t cs_gpio, uint16_t addr, uint16_t value) {
    Spi_WriteReg(fd, cs_gpio, addr, value);
    zoomaf::platform().sleep_ns(1000);  // usleep(1)
    const uint32_t read_back = Spi_ReadReg(fd, cs_gpio, addr + 0x40);
    if (read_back == value) return 0;  // a failed read (0xFFFFFFFF) never matches
    MOTOR_LOG("Spi_RW err, fd:%d, %s, addr: 0x%02x, setval: 0x%04x, getval: 0x%04x\n", fd,
              "/dev/spidev1.0", addr, value, read_back);
    return 0xFFFFFFFFu;
}

}  // extern "C"
