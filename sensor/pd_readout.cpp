// The PD/CL block of the sensor and its analogue gain: the decoding of a window's bytes, the
// reads of the eight-window layout and of the 8 x 6 grid under the PD readout hold, the
// single-window read and the gain the defocus library takes.
#include "sensor/pd_readout.hpp"

#include <cstdio>

#include "zoomaf/imx586.h"

namespace zoomaf::sensor {

namespace {

constexpr uint16_t kPdClBlock = 0xC808;
constexpr uint16_t kWindowBytes = 4;  // the fourth byte of a window is not read
constexpr uint16_t kRowGap = 32;      // bytes between the end of one grid row and the next
constexpr uint16_t kGainHigh = 0x0204;
constexpr uint16_t kGainLow = 0x0205;

// The three bytes of the window at first, cleared before the read so that a failed read
// counts as 0.
PdCl read_window(uint16_t first) {
    uint8_t bytes[3] = {0, 0, 0};
    for (uint16_t i = 0; i < 3; ++i) read_imx586_single_reg(first + i, &bytes[i]);
    return decode_pd_cl(bytes[0], bytes[1], bytes[2]);
}

}  // namespace

PdCl decode_pd_cl(uint8_t b0, uint8_t b1, uint8_t b2) {
    const int64_t cl = (b0 << 3) | (b1 >> 5);
    const int64_t raw = ((b1 << 6) & 0x7C0) | (b2 >> 2);
    const int64_t v = raw - 1;
    return PdCl{(v >> 4) >= 64 ? v - 2046 : v, cl};
}

void read_eight_windows(PdCl (&windows)[kEightWindows]) {
    write_imx586_pd_read_hold(1);
    for (int k = 0; k < kEightWindows; ++k) {
        windows[k] = read_window(static_cast<uint16_t>(kPdClBlock + kWindowBytes * k));
    }
    write_imx586_pd_read_hold(0);
}

void read_grid_windows(PdCl (&windows)[kGridWindows], int32_t& row_counter) {
    write_imx586_pd_read_hold(1);
    uint16_t address = kPdClBlock;
    row_counter = 0;
    for (int index = 0; index < kGridWindows; ++index) {
        windows[index] = read_window(address);
        address += kWindowBytes;
        if (++row_counter == kGridColumns) {
            row_counter = 0;
            address += kRowGap;
        }
    }
    write_imx586_pd_read_hold(0);
}

}  // namespace zoomaf::sensor

extern "C" {

int32_t get_pd_and_lc(int64_t* cl, int64_t* pd) {
    if (cl == nullptr || pd == nullptr) {
        std::puts("get_pd_and_lc: no CL or PD output given\r");
        return -1;
    }
    write_imx586_pd_read_hold(1);
    const zoomaf::sensor::PdCl window = zoomaf::sensor::read_window(zoomaf::sensor::kPdClBlock);
    write_imx586_pd_read_hold(0);
    *cl = window.cl;
    *pd = window.pd;
    return 0;
}

int32_t get_gain_value(int64_t* gain) {
    if (gain == nullptr) {
        std::puts("get_gain_value: no gain output given\r");
        return -1;
    }
    uint8_t high = 0;
    uint8_t low = 0;
    read_imx586_single_reg(zoomaf::sensor::kGainHigh, &high);
    read_imx586_single_reg(zoomaf::sensor::kGainLow, &low);
    const int64_t code = ((high << 8) & 0x300) | low;
    *gain = code == 1024 ? 0 : 1024 / (1024 - code);
    return 0;
}

}  // extern "C"
