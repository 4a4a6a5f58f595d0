#include "twin/module/module_calibration.hpp"

#include <cmath>

#include "twin/module/pd_conversion.hpp"

namespace zoomaf::twin {

uint8_t module_lrc_byte(int i) {
    const int block = i / 192;
    const int row = (i % 192) / 16;
    const int column = i % 16;
    const double gain = block == 0 ? 137.5 - 1.8 * column + 0.15 * row : 112.5 + 1.95 * column;
    return static_cast<uint8_t>(std::lround(gain));
}

void write_module_calibration(RegisterFile16& memory) {
    for (int k = 0; k < kPdKnots; ++k) {
        const uint16_t dcc = kPdConversionKnots.calibrated_dcc[static_cast<size_t>(k)];
        memory.set_byte(kModuleDccStart + 2u * static_cast<uint32_t>(k), dcc & 0xFF);
        memory.set_byte(kModuleDccStart + 2u * static_cast<uint32_t>(k) + 1u, dcc >> 8);
    }
    for (int i = 0; i < kModuleLrcBytes; ++i) {
        memory.set_byte(kModuleLrcStart + static_cast<uint32_t>(i), module_lrc_byte(i));
    }
}

}  // namespace zoomaf::twin
