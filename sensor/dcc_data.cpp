// The DCC values (one defocus conversion coefficient per knot of the 8 x 6 grid) and the LRC
// bytes from the module memory. The DCC files are read in dcc_files.cpp.
#include <cstdio>
#include <cstring>

#include "platform/platform.hpp"
#include "sensor/sensor_internal.hpp"
#include "zoomaf/imx586.h"

int64_t eeprom_dcc[IMX586_DCC_KNOTS] = {};

namespace {

using namespace zoomaf::sensor;

constexpr uint16_t kDccMemoryStart = 0x092F;  // value k: low byte at +2k, high byte next
constexpr uint16_t kLrcMemoryStart = 0x07AF;
constexpr uint64_t kMemoryValuePauseUs = 2000;

}  // namespace

extern "C" {

int read_dcc_data_reg(int64_t* dcc) {
    if (dcc == nullptr) {
        std::puts("read_dcc_data_reg: no DCC array given\r");
        return -1;
    }
    const int fd = open_bus(kModuleBus);
    if (fd < 0) {
        std::puts("open iic-8 fail!\r");
        return -1;
    }
    std::memset(eeprom_dcc, 0, sizeof eeprom_dcc);
    for (uint16_t k = 0; k < IMX586_DCC_KNOTS; ++k) {
        const uint16_t low_addr = static_cast<uint16_t>(kDccMemoryStart + 2 * k);
        uint8_t low = 0;
        uint8_t high = 0;
        int ret = read_reg16_on(fd, kModuleMemoryAddress, low_addr, &low);
        if (ret < 0) {
            zoomaf::platform().close(fd);
            std::printf("~ioctl read error addr:0x%x,ret:%d\r\n", low_addr, ret);
            return -1;
        }
        ret = read_reg16_on(fd, kModuleMemoryAddress, static_cast<uint16_t>(low_addr + 1), &high);
        if (ret < 0) {
            zoomaf::platform().close(fd);
            std::printf("ioctl read error addr:0x%x\r\n", low_addr + 1);
            return -1;
        }
        dcc[k] = high * 256 + low;
        pause_us(kMemoryValuePauseUs);
    }
    zoomaf::platform().close(fd);
    return 0;
}

int read_lrc_data_reg(uint8_t* buffer) {
    if (buffer == nullptr) {
        std::puts("read_lrc_data_reg: no buffer given\r");
        return -1;
    }
    const int fd = open_bus(kModuleBus);
    if (fd < 0) {
        std::puts("open iic-8 fail!\r");
        return -1;
    }
    for (uint16_t i = 0; i < IMX586_LRC_BYTES; ++i) {
        const uint16_t addr = static_cast<uint16_t>(kLrcMemoryStart + i);
        const int ret = read_reg16_on(fd, kModuleMemoryAddress, addr, &buffer[i]);
        if (ret < 0) {
            zoomaf::platform().close(fd);
            std::printf("~ioctl read error addr:0x%x,ret:%d\r\n", addr, ret);
            return -1;
        }
        pause_us(kMemoryValuePauseUs);
    }
    zoomaf::platform().close(fd);
    return 0;
}

}  // extern "C"
