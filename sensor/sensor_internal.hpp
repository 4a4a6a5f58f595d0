// Helpers shared by the sensor units; not part of the exported interface.
#pragma once

#include <linux/i2c-dev.h>
#include <linux/i2c.h>

#include <cstdint>

namespace zoomaf::sensor {

// Buses and 7-bit addresses of the camera module.
inline constexpr int kModuleBus = 9;    // sensor, lens voice-coil driver, module memory
inline constexpr int kSensorIdBus = 2;  // the sensor's identification registers
inline constexpr uint16_t kSensorAddress = 0x1A;
inline constexpr uint16_t kModuleMemoryAddress = 0x50;
inline constexpr uint16_t kVoiceCoilAddress = 0x0C;

// The transfer buffers every register access shares. No lock guards them: sensor access
// runs on one thread at a time.
inline constexpr int kMessageSlots = 16;
inline constexpr int kDataBufferSize = 64;
extern i2c_rdwr_ioctl_data bat_data;
extern i2c_msg msg_buffer[kMessageSlots];
extern uint8_t data_buf0[kDataBufferSize];
extern uint8_t data_buf1[kDataBufferSize];

// Opens /dev/i2c-<bus> read-write through the platform, the path formatted into a buffer of
// 19 characters as the board's own tools do. -1 when the node cannot be opened.
int open_bus(int bus);

// One I2C_RDWR on an open bus: a write of the 16-bit register address (high byte first)
// to slave, then a 1-byte read into *value. Returns the ioctl's result.
int read_reg16_on(int fd, uint16_t slave, uint16_t reg, uint8_t* value);

// Pauses after accesses, through the platform.
void pause_us(uint64_t us);

}  // namespace zoomaf::sensor
