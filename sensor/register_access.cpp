// Single-register access to the sensor, its identification registers, the module memory
// and the lens voice-coil driver over i2c-dev: one open, one I2C_RDWR transfer and one
// close per access, through the shared transfer buffers.
#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "platform/platform.hpp"
#include "sensor/sensor_internal.hpp"
#include "zoomaf/imx586.h"

namespace zoomaf::sensor {

i2c_rdwr_ioctl_data bat_data;
i2c_msg msg_buffer[kMessageSlots];
uint8_t data_buf0[kDataBufferSize];
uint8_t data_buf1[kDataBufferSize];

int open_bus(int bus) {
    char path[19];
    std::snprintf(path, sizeof path, "/dev/i2c-%d", bus);
    return platform().open(path, O_RDWR);
}

void pause_us(uint64_t us) {
    platform().sleep_ns(us * 1000);
}

int read_reg16_on(int fd, uint16_t slave, uint16_t reg, uint8_t* value) {
    data_buf0[0] = static_cast<uint8_t>(reg >> 8);
    data_buf0[1] = static_cast<uint8_t>(reg & 0xFF);
    msg_buffer[0] = i2c_msg{slave, 0, 2, data_buf0};
    msg_buffer[1] = i2c_msg{slave, I2C_M_RD, 1, value};
    bat_data = i2c_rdwr_ioctl_data{msg_buffer, 2};
    return platform().ioctl(fd, I2C_RDWR, &bat_data);
}

namespace {

// The node name names bus 8 whatever bus was opened; the text stays as it is.
void report_open_failure() {
    std::puts("open iic-8 fail!\r");
}

// A 1-byte write at a 16-bit register address of the sensor on bus; pause_after in
// microseconds. The version write reports a failure with the read text: the messages are
// the system's own, letter for letter.
int write_sensor_reg(int bus, uint16_t reg, uint8_t value, uint64_t pause_after,
                     const char* failure_format) {
    const int fd = open_bus(bus);
    if (fd < 0) {
        report_open_failure();
        return -1;
    }
    data_buf0[0] = static_cast<uint8_t>(reg >> 8);
    data_buf0[1] = static_cast<uint8_t>(reg & 0xFF);
    data_buf0[2] = value;
    msg_buffer[0] = i2c_msg{kSensorAddress, 0, 3, data_buf0};
    bat_data = i2c_rdwr_ioctl_data{msg_buffer, 1};
    const int ret = platform().ioctl(fd, I2C_RDWR, &bat_data);
    platform().close(fd);
    if (ret < 0) {
        std::printf(failure_format, reg, ret);
        return -1;
    }
    pause_us(pause_after);
    return 0;
}

// A 1-byte read at a 16-bit register address of the sensor on bus. The byte lands on the
// stack first, so a failed read leaves *value as it was.
int read_sensor_reg(int bus, uint16_t reg, uint8_t* value, uint64_t pause_after) {
    if (value == nullptr) {
        std::printf("read sensor reg 0x%x: no result byte given\r\n", reg);
        return -1;
    }
    const int fd = open_bus(bus);
    if (fd < 0) {
        report_open_failure();
        return -1;
    }
    uint8_t byte = 0;
    const int ret = read_reg16_on(fd, kSensorAddress, reg, &byte);
    platform().close(fd);
    if (ret < 0) {
        std::printf("~ioctl read error addr:0x%x,ret:%d\r\n", reg, ret);
        return -1;
    }
    *value = byte;
    if (pause_after > 0) pause_us(pause_after);
    return 0;
}

constexpr uint64_t kSensorWritePauseUs = 20;
constexpr uint64_t kVersionPauseUs = 2000;
constexpr uint64_t kModuleMemoryPauseUs = 2000;
constexpr uint64_t kVoiceCoilPauseUs = 20;

}  // namespace

}  // namespace zoomaf::sensor

using namespace zoomaf::sensor;

extern "C" {

int write_imx586_single_reg(uint16_t reg, uint8_t value) {
    return write_sensor_reg(kModuleBus, reg, value, kSensorWritePauseUs,
                            "\r\n~ioctl write error addr:0x%x,ret:%d\r\n");
}

int read_imx586_single_reg(uint16_t reg, uint8_t* value) {
    return read_sensor_reg(kModuleBus, reg, value, 0);
}

int read_sensor_version_reg(uint16_t reg, uint8_t* value) {
    return read_sensor_reg(kSensorIdBus, reg, value, kVersionPauseUs);
}

int write_sensor_version_reg(uint16_t reg, uint8_t value) {
    return write_sensor_reg(kSensorIdBus, reg, value, kVersionPauseUs,
                            "~ioctl read error addr:0x%x,ret:%d\r\n");
}

// The length is checked against the 64-byte receive buffer (a longer read would overrun
// it); a bad length or buffer is refused with a message before the bus is touched. A bus
// failure prints nothing here; the caller sees -1.
int iic_read_single_reg(uint8_t reg, int32_t len, uint8_t* buf) {
    if (buf == nullptr || len < 1 || len > kDataBufferSize) {
        std::printf("iic_read_single_reg: length %d is not 1..%d or no buffer given\r\n", len,
                    kDataBufferSize);
        return -1;
    }
    const int fd = open_bus(kModuleBus);
    if (fd < 0) return -1;
    const uint16_t length = static_cast<uint16_t>(len);
    std::memset(data_buf1, 0, length);
    data_buf0[0] = reg;
    msg_buffer[0] = i2c_msg{kModuleMemoryAddress, 0, 1, data_buf0};
    msg_buffer[1] = i2c_msg{kModuleMemoryAddress, I2C_M_RD, length, data_buf1};
    bat_data = i2c_rdwr_ioctl_data{msg_buffer, 2};
    const int ret = zoomaf::platform().ioctl(fd, I2C_RDWR, &bat_data);
    zoomaf::platform().close(fd);
    if (ret < 0) return -1;
    std::memcpy(buf, data_buf1, length);
    pause_us(kModuleMemoryPauseUs);
    return 0;
}

int write_motor_single_reg(uint8_t reg, uint8_t value) {
    const int fd = open_bus(kModuleBus);
    if (fd < 0) {
        report_open_failure();
        return -1;
    }
    data_buf0[0] = reg;
    data_buf0[1] = value;
    msg_buffer[0] = i2c_msg{kVoiceCoilAddress, 0, 2, data_buf0};
    bat_data = i2c_rdwr_ioctl_data{msg_buffer, 1};
    const int ret = zoomaf::platform().ioctl(fd, I2C_RDWR, &bat_data);
    zoomaf::platform().close(fd);
    if (ret < 0) {
        std::printf("\r\n~586 mator ioctl write error addr:0x%x,ret:%d\r\n", reg, ret);
        return -1;
    }
    pause_us(kVoiceCoilPauseUs);
    return 0;
}

int write_imx586_group_hold(uint8_t value) {
    write_imx586_single_reg(0x0104, value);
    return 0;
}

int write_imx586_pd_read_hold(uint8_t value) {
    write_imx586_single_reg(0xE24F, value);
    return 0;
}

}  // extern "C"
