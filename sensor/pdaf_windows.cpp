// The PDAF window layouts the focus service programs into the sensor: the fixed centre
// layout of eight windows, six windows around a centre point, one free rectangle (also the
// centre mode's free area); and the PD output switch. This is the one unit that writes the
// window registers. Callers wrap a layout in a group hold so that the sensor takes it at one
// frame boundary.
#include "sensor/pdaf_windows.hpp"

#include <cstdio>

#include "zoomaf/imx586.h"
#include "zoomaf/service_state.h"

namespace {

constexpr uint16_t kAreaModeReg = 0x38A3;
constexpr uint8_t kAreaModeWindows = 2;
constexpr uint16_t kWindowEnableReg = 0x38AC;    // + k, k = 0..7
constexpr uint16_t kWindowGeometryReg = 0x38B4;  // + 8k .. 8k + 7
constexpr uint16_t kPdOutputReg = 0x3E37;
constexpr int kWindowCount = 8;
constexpr int32_t kWindowWidth = 666;
constexpr int32_t kWindowHeight = 500;
// The coordinate space of the windows.
constexpr int32_t kSpaceWidth = 4000;
constexpr int32_t kSpaceHeight = 3000;

struct WindowStart {
    int32_t x, y;
};

// The eight fixed windows of the centre layout.
constexpr WindowStart kCentreWindows[kWindowCount] = {
    {1500, 1000}, {1500, 1250}, {1500, 1500}, {1833, 1000},
    {1833, 1250}, {1833, 1500}, {1334, 1250}, {2000, 1250},
};

// The six windows around a centre point: the offsets of their starts from the point.
constexpr WindowStart kCentrePointOffsets[6] = {
    {-415, -332}, {-415, -249}, {-415, -166}, {-249, -332}, {-249, -249}, {-249, -166},
};

// Reads a register for the printout; a failed read shows as 0 and clears ok.
uint8_t read_back(uint16_t reg, bool& ok) {
    uint8_t value = 0;
    if (read_imx586_single_reg(reg, &value) != 0) ok = false;
    return value;
}

uint8_t read_back(uint16_t reg) {
    bool ignored = true;
    return read_back(reg, ignored);
}

// Writes a register; a failed write clears ok.
void write_reg(uint16_t reg, uint8_t value, bool& ok) {
    if (write_imx586_single_reg(reg, value) != 0) ok = false;
}

// Bits 12..8 and 7..0 of a coordinate. The sums are formed in 64 bits so that any start
// and size a host passes wrap to 13 bits instead of overflowing.
void put_coordinate(int index, int64_t value) {
    focus_area[index] = static_cast<uint8_t>((value >> 8) & 31);
    focus_area[index + 1] = static_cast<uint8_t>(value & 0xFF);
}

// Writes window k and reads it back; a mismatch is only printed. A register that could not
// be written or read clears ok.
void write_window(int k, int64_t x, int64_t y, int64_t width, int64_t height, bool& ok) {
    put_coordinate(0, x);
    put_coordinate(2, y);
    put_coordinate(4, x + width);
    put_coordinate(6, y + height);
    const uint16_t first = static_cast<uint16_t>(kWindowGeometryReg + 8 * k);
    for (int i = 0; i < 8; ++i) write_reg(static_cast<uint16_t>(first + i), focus_area[i], ok);
    for (int i = 0; i < 8; ++i) {
        const uint16_t reg = static_cast<uint16_t>(first + i);
        const uint8_t value = read_back(reg, ok);
        std::printf("\r\nread windows addr:0x%x,value:0x%x,source write value:0x%x", reg, value,
                    focus_area[i]);
    }
}

// Area mode 2 with all eight windows enabled, and the registers read back.
void enable_all_windows() {
    std::puts("PDAF SWITCH CHENTER AREA:\r");
    write_imx586_single_reg(kAreaModeReg, kAreaModeWindows);
    for (int k = 0; k < kWindowCount; ++k) {
        write_imx586_single_reg(static_cast<uint16_t>(kWindowEnableReg + k), 1);
    }
    std::printf("\r\n0x38A3 value:0x%x", read_back(kAreaModeReg));
    for (uint16_t reg = 0x38AC; reg <= 0x38AF; ++reg) {
        std::printf("\r\n0x38AC value:0x%x", read_back(reg));
    }
    for (uint16_t reg = 0x38B0; reg <= 0x38B3; ++reg) {
        std::printf("\r\n0x38B0 value:0x%x", read_back(reg));
    }
}

// Printed before every window but the first; the size printed is that of the coordinate
// space, not of the window.
void announce_window(int32_t x, int32_t y) {
    std::printf("set window xstar:%d,ystart:%d,width:%d,height:%d\r\n", x, y, kSpaceWidth,
                kSpaceHeight);
}

}  // namespace

namespace zoomaf::sensor {

bool write_single_window(int64_t x, int64_t y, int64_t width, int64_t height) {
    bool ok = true;
    write_reg(kAreaModeReg, kAreaModeWindows, ok);
    write_reg(kWindowEnableReg, 1, ok);
    const uint8_t mode = read_back(kAreaModeReg, ok);
    std::printf("\r\n0x38A3 value:0x%x", mode);
    const uint8_t enabled = read_back(kWindowEnableReg, ok);
    std::printf("\r\n0x38AC value:0x%x", enabled);
    write_window(0, x, y, width, height, ok);
    std::puts("\r");
    return ok;
}

}  // namespace zoomaf::sensor

extern "C" {

// The ratio is accepted and not used: every ratio gives the same layout. The layouts report
// no failure of their own: the register primitives print theirs.
int set_pdaf_windows_center_area(int32_t /*ratio*/) {
    enable_all_windows();
    bool ok = true;
    for (int k = 0; k < kWindowCount; ++k) {
        const WindowStart start = kCentreWindows[k];
        if (k > 0) announce_window(start.x, start.y);
        write_window(k, start.x, start.y, kWindowWidth, kWindowHeight, ok);
    }
    return 0;
}

// The centre is neither checked nor clamped: a start outside the space is written as its
// low 13 bits. Windows 6 and 7 stay enabled with the geometry they had.
int set_pdaf_area_windows_by_center_coordinate(int32_t center_x, int32_t center_y) {
    enable_all_windows();
    bool ok = true;
    for (int k = 0; k < 6; ++k) {
        const WindowStart offset = kCentrePointOffsets[k];
        const int32_t x = static_cast<int32_t>(int64_t{center_x} + offset.x);
        const int32_t y = static_cast<int32_t>(int64_t{center_y} + offset.y);
        if (k > 0) announce_window(x, y);
        write_window(k, x, y, kWindowWidth, kWindowHeight, ok);
    }
    return 0;
}

int set_pdaf_windows_free_area(int32_t x_start, int32_t y_start, int32_t width, int32_t height) {
    if (width > kSpaceWidth - 1 || height > kSpaceHeight - 1 || width < 0 || height < 0) {
        std::puts("error para error!\r");
        return -1;
    }
    // The limit tested and the value set differ by one; the window then ends one short of
    // the last column or row.
    if (x_start < 0) x_start = 0;
    if (x_start > kSpaceWidth - 1 - width) x_start = kSpaceWidth - 2 - width;
    if (y_start < 0) y_start = 0;
    if (y_start > kSpaceHeight - 1 - height) y_start = kSpaceHeight - 2 - height;
    // There is no pause: the text names one that the layout does not need.
    std::printf(
        "\r\n\r\nsleep 5s PDAF SWITCH CHENTER AREA:xstart:%d,ystart:%d,width:%d,height:%d\r\n",
        x_start, y_start, width, height);
    zoomaf::sensor::write_single_window(x_start, y_start, width, height);
    return 0;
}

int switch_pd_output(uint8_t value) {
    write_imx586_single_reg(kPdOutputReg, value);
    std::printf("\r\npd output addr:0x%x,value:0x%x\r\n", kPdOutputReg, read_back(kPdOutputReg));
    return 0;
}

}  // extern "C"
