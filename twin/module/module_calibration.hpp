// The sensor calibration a camera module carries in its memory (ModuleEeprom): the DCC of
// each of the 48 knots at 0x092F + 2k (low byte) and 0x0930 + 2k (high byte), as the
// module's calibration measured them (PdConversionKnots::calibrated_dcc), and the LRC gain
// data, 192 bytes for the left and 192 for the right phase pixels, from 0x07AF.
#pragma once

#include <cstdint>

#include "twin/kernel/i2c_device.hpp"

namespace zoomaf::twin {

inline constexpr uint16_t kModuleDccStart = 0x092F;
inline constexpr uint16_t kModuleLrcStart = 0x07AF;
inline constexpr int kModuleLrcBytes = 384;

// This unit's LRC byte i (0..383; the left block first). Rows of 16 gains: the left
// pixels' gains fall and the right pixels' rise across the 16 columns of a row.
uint8_t module_lrc_byte(int i);

// Writes the DCC values and the LRC data into a module memory of at least 8 KiB.
void write_module_calibration(RegisterFile16& memory);

}  // namespace zoomaf::twin
