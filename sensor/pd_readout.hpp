// The sensor's PD/CL block as the day focus reads it: the decoding of one window's bytes and
// the reads of the eight-window layout and of the 8 x 6 grid under the PD readout hold.
// Raw sensor data only; choosing a window is the focus service's business.
#pragma once

#include <cstdint>

namespace zoomaf::sensor {

inline constexpr int kEightWindows = 8;
inline constexpr int kGridColumns = 8;
inline constexpr int kGridRows = 6;
inline constexpr int kGridWindows = kGridColumns * kGridRows;

// PD and CL of one window as the sensor reports them, before any calibration.
struct PdCl {
    int64_t pd;
    int64_t cl;
};

// CL = b0 << 3 | b1 >> 5. PD from the 11-bit field raw = (b1 << 6 & 0x7C0) | b2 >> 2:
// v = raw - 1, and PD = v - 2046 when v >= 1024, else v. The offsets of 1 and 2046 are the
// sensor's own encoding (raw 0 is -1, raw 1 is 0, raw 2047 is 0 again).
PdCl decode_pd_cl(uint8_t b0, uint8_t b1, uint8_t b2);

// Windows 0..7 of the eight-window layout (0xC808 + 4k), read under the PD readout hold.
// A byte whose read fails counts as 0, so a failed window decodes as CL 0 and PD -1.
void read_eight_windows(PdCl (&windows)[kEightWindows]);

// The 48 grid windows in index order (0xC808 + 64 row + 4 column), read under the PD
// readout hold, failed bytes as above. row_counter counts the windows read in the current
// row: at 8 it goes back to 0 and the address skips the 32 bytes between two rows.
void read_grid_windows(PdCl (&windows)[kGridWindows], int32_t& row_counter);

}  // namespace zoomaf::sensor
