// The sensor module's memory on I2C: the module-information bytes that tell the motor
// driver type. One open, one I2C_RDWR transfer and one close per access.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cstdio>

#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

extern "C" {

int read_imx586_eeprom_reg(int bus, uint8_t device, uint16_t addr, uint8_t* value) {
    char path[32];
    std::snprintf(path, sizeof path, "/dev/i2c-%d", bus);
    zoomaf::Platform& os = zoomaf::platform();
    const int fd = os.open(path, O_RDWR);
    if (fd < 0) {
        std::printf("open iic-%d fail!\r\n", bus);
        return -1;
    }
    uint8_t address[2] = {static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr & 0xFF)};
    uint8_t byte = 0;
    i2c_msg messages[2] = {{device, 0, sizeof address, address}, {device, I2C_M_RD, 1, &byte}};
    i2c_rdwr_ioctl_data transfer = {messages, 2};
    const int ret = os.ioctl(fd, I2C_RDWR, &transfer);
    os.close(fd);
    if (ret < 0) {
        std::printf("fail! ioctl read error addr:0x%x,ret:%d\r\n", addr, ret);
        return -1;
    }
    *value = byte;
    return 0;
}

// Not used by the service; kept for field tools. Its messages name bus 8 whatever the bus.
int write_imx586_eeprom_reg(int bus, uint8_t device, uint16_t addr, uint8_t value) {
    char path[32];
    std::snprintf(path, sizeof path, "/dev/i2c-%d", bus);
    zoomaf::Platform& os = zoomaf::platform();
    const int fd = os.open(path, O_RDWR);
    if (fd < 0) {
        std::puts("open iic-8 fail!\r");
        return -1;
    }
    uint8_t data[3] = {static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr & 0xFF), value};
    i2c_msg message = {device, 0, sizeof data, data};
    i2c_rdwr_ioctl_data transfer = {&message, 1};
    const int ret = os.ioctl(fd, I2C_RDWR, &transfer);
    os.close(fd);
    if (ret < 0) {
        std::printf(
            "\r\n~ioctl write add 0x%02x error addr:0x%04x, weitr data is 0x%02x, ret:%d\r\n",
            device, addr, value, ret);
        return -1;
    }
    return 0;
}

}  // extern "C"
