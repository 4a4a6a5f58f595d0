// The DCC values (one defocus conversion coefficient per knot of the 8 x 6 grid) from the
// DCC file, a DCC text file or the module memory, and the LRC bytes from the module memory.
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/platform.hpp"
#include "sensor/sensor_internal.hpp"
#include "zoomaf/imx586.h"

int64_t eeprom_dcc[IMX586_DCC_KNOTS] = {};

namespace {

using namespace zoomaf::sensor;

constexpr size_t kDccFileBytes = 2 * IMX586_DCC_KNOTS;
constexpr uint16_t kDccMemoryStart = 0x092F;  // value k: low byte at +2k, high byte next
constexpr uint16_t kLrcMemoryStart = 0x07AF;
constexpr uint64_t kMemoryValuePauseUs = 2000;

}  // namespace

extern "C" {

// A missing or short file gives zeros for the values it lacks: the day focus then computes
// no defocus there and never moves by phase detection.
int read_dcc_data_reg_byfile(const char* path, int64_t* dcc) {
    if (path == nullptr || dcc == nullptr) {
        std::puts("read_dcc_data_reg_byfile: no file name or no DCC array given\r");
        return -1;
    }
    uint8_t bytes[kDccFileBytes] = {};
    FILE* file = zoomaf::platform().fopen(path, "r+");
    if (file != nullptr) {
        std::fread(bytes, 1, sizeof bytes, file);
        std::printf("get dcc success from file:%s\r\n", path);
    } else {
        std::puts("\r\n\r\n!!!ERROR:read dcc file error!\r\n\r");
    }
    for (size_t k = 0; k < IMX586_DCC_KNOTS; ++k) {
        dcc[k] = bytes[2 * k] << 8 | bytes[2 * k + 1];
    }
    if (file != nullptr) std::fclose(file);
    return 0;
}

// One value per line. The file must not hold more values than the knots: the values past
// the 48th are not stored (the array has no room for them) and a line says so. A line
// that is no number leaves its value as it was.
int read_dcc_data_from_file(int64_t* dcc, float multiple) {
    if (dcc == nullptr) {
        std::puts("read_dcc_data_from_file: no DCC array given\r");
        return -1;
    }
    char name[64];
    std::snprintf(name, sizeof name, "%0.1f_dcc_data", static_cast<double>(multiple));
    FILE* file = zoomaf::platform().fopen(name, "r");
    std::printf("fopen %s success!\r\n", name);
    if (file == nullptr) {
        std::printf("fopen file:%f error！\r\n", static_cast<double>(multiple));
        return -1;
    }
    char line[16];
    size_t count = 0;
    bool overflow = false;
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (count >= IMX586_DCC_KNOTS) {
            overflow = true;
            continue;
        }
        long value = 0;
        if (std::sscanf(line, "%ld\r\n", &value) == 1) dcc[count] = value;
        ++count;
    }
    std::fclose(file);
    if (overflow) {
        std::printf("dcc file %s holds more than %d values, the rest is ignored\r\n", name,
                    IMX586_DCC_KNOTS);
    }
    return 0;
}

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
