// The IMX586 image sensor at 0x1A on I2C bus 9, as the focus service sees it: 8-bit
// registers at 16-bit addresses (RegisterFile16) with the registers the service uses named.
//
// - Group hold (0x0104): while it is 1, writes to every other register are kept back and
//   take effect together, in order, when it is written 0; reads meanwhile return the values
//   in effect. The address pointer moves as for any write.
// - PD readout hold (0xE24F): while it is 1, the PD/CL block keeps the frame it showed, so
//   a readout is consistent; the newest frame appears when it is written 0.
// - PDAF windows: area mode 0x38A3 (1: the DCC region's fixed 8 x 6 grid, 2: the eight
//   programmable windows), window enables 0x38AC + k, window geometry 0x38B4 + 8k, the DCC
//   region 0x38A4..0x38AB, the PD output switch 0x3E37, the LRC gain blocks 0x7510 and
//   0x7600, the PD set-up registers of the calibration sets.
// - Analogue gain code 0x0204 (bits 9..8) and 0x0205 (bits 7..0).
// - The PD/CL block from 0xC808 (read-only): with PD output on, window k of the eight-window
//   layout at 0xC808 + 4k, grid window (row r, column j) of the 8 x 6 layout at
//   0xC808 + 64r + 4j; four bytes each, in the sensor's own 11-bit encoding (encode_pd_cl).
//   Everything else in the block, and the whole block with PD output off or another area
//   mode, reads 0.
//
// Control face: tests and the twin's optics set each window's PD and CL and the gain code;
// the window geometry and switches the service programmed are read back in effect.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "twin/kernel/device.hpp"
#include "twin/kernel/i2c_device.hpp"

namespace zoomaf::twin {

struct PdClBytes {
    uint8_t b0, b1, b2, b3;
};

struct PdWindowGeometry {
    int x_start, y_start, x_end, y_end;  // 13-bit register values as written
    bool enabled;
};

class Imx586 final : public RegisterFile16 {
public:
    static constexpr int kAddress = 0x1A;
    static constexpr uint16_t kGroupHold = 0x0104;
    static constexpr uint16_t kGainHigh = 0x0204;
    static constexpr uint16_t kGainLow = 0x0205;
    static constexpr uint16_t kAreaMode = 0x38A3;
    static constexpr uint16_t kDccRegion = 0x38A4;       // .. 0x38AB
    static constexpr uint16_t kWindowEnable = 0x38AC;    // + k
    static constexpr uint16_t kWindowGeometry = 0x38B4;  // + 8k .. 8k + 7
    static constexpr uint16_t kPdOutput = 0x3E37;
    static constexpr uint16_t kLrcLeft = 0x7510;   // 192 bytes
    static constexpr uint16_t kLrcRight = 0x7600;  // 192 bytes
    static constexpr uint16_t kPdClBlock = 0xC808;
    static constexpr uint16_t kPdClBlockBytes = 6 * 64;
    static constexpr uint16_t kPdReadHold = 0xE24F;
    static constexpr uint8_t kAreaModeGrid = 1;
    static constexpr uint8_t kAreaModeWindows = 2;
    static constexpr int kWindows = 8;
    static constexpr int kGridColumns = 8;
    static constexpr int kGridRows = 6;
    // What the 11-bit PD field can carry; the sensor saturates beyond.
    static constexpr int kPdMin = -1022;
    static constexpr int kPdMax = 1023;
    static constexpr int kClMax = 2047;

    explicit Imx586(const DeviceContext& context);

    void receive(std::span<const uint8_t> bytes) override;

    // The four bytes the sensor reports for a window's PD and CL: CL in b0 and the top three
    // bits of b1, the PD field (PD + 1, or PD + 2047 for PD below -1) in the low five bits
    // of b1 and the top six of b2. PD 0 goes out as field 1. pd and cl are limited to
    // kPdMin..kPdMax and 0..kClMax first, as the sensor saturates.
    static PdClBytes encode_pd_cl(int pd, int cl);

    // ---- control face (window and grid indices checked: std::out_of_range) ----
    // PD and CL of window k (0..7) of the eight-window layout, and of grid window
    // index = 8 x row + column (0..47) of the 8 x 6 layout. They appear in the block at once,
    // or when the PD readout hold is released.
    void set_window_pd_cl(int window, int pd, int cl);
    void set_grid_pd_cl(int index, int pd, int cl);
    // Analogue gain code 0..1023 (std::out_of_range otherwise).
    void set_gain_code(int code);
    int gain_code() const;

    bool group_hold() const { return group_hold_; }
    bool pd_read_hold() const { return pd_read_hold_; }
    size_t held_writes() const { return held_.size(); }
    uint8_t area_mode() const { return byte(kAreaMode); }
    bool pd_output() const { return (byte(kPdOutput) & 1) != 0; }
    // The geometry of window k (0..7) in effect.
    PdWindowGeometry window(int k) const;

private:
    struct HeldWrite {
        uint16_t addr;
        uint8_t value;
    };
    struct Measurement {
        int pd = 0;
        int cl = 0;
    };

    void on_write(uint16_t addr, uint8_t value) override;
    void release_group_hold();
    // Writes the newest PD/CL frame into the block, unless the readout hold keeps it.
    void publish_frame();
    void store_window(uint16_t first, const Measurement& m);

    bool group_hold_ = false;
    bool pd_read_hold_ = false;
    std::vector<HeldWrite> held_;
    std::array<Measurement, kWindows> windows_{};
    std::array<Measurement, kGridColumns * kGridRows> grid_{};
};

}  // namespace zoomaf::twin
