// LRC gain data to the sensor's left (0x7510 + i) and right (0x7600 + i) gain registers,
// from the compiled-in tables or from the module memory, each block read back and printed.
#include <array>
#include <cstdio>

#include "zoomaf/imx586.h"

namespace {

constexpr uint16_t kLeftGainReg = 0x7510;
constexpr uint16_t kRightGainReg = 0x7600;
constexpr int kValuesPerLine = 16;

void write_block(uint16_t first_reg, const uint8_t* block) {
    for (uint16_t i = 0; i < IMX586_LRC_BLOCK; ++i) {
        write_imx586_single_reg(static_cast<uint16_t>(first_reg + i), block[i]);
    }
}

// Reads the block's registers back and prints them sixteen to a line.
void print_block(uint16_t first_reg, const char* format) {
    for (uint16_t i = 0; i < IMX586_LRC_BLOCK; ++i) {
        uint8_t value = 0;
        read_imx586_single_reg(static_cast<uint16_t>(first_reg + i), &value);
        std::printf(format, value);
        if ((i + 1) % kValuesPerLine == 0) std::printf("\r\n");
    }
}

// The module-memory variant fills the right block with the 192 bytes of compiled-in data
// that follow LRC_GAIN_TABLE_1 in the board's image: the setting-2 set, the DCC region set
// and the first 40 bytes of the setting-3 set, each setting two little-endian 32-bit words.
// The sensors on the board carry exactly those gains, so the bytes are formed here from
// the sets themselves, in that order, instead of from a layout the compiler may change.
std::array<uint8_t, IMX586_LRC_BLOCK> data_after_right_table() {
    std::array<uint8_t, IMX586_LRC_BLOCK> bytes{};
    size_t n = 0;
    auto put_word = [&](uint32_t word) {
        for (int b = 0; b < 4 && n < bytes.size(); ++b) {
            bytes[n++] = static_cast<uint8_t>(word >> (8 * b));
        }
    };
    auto put_set = [&](const Imx586RegSetting* set, size_t settings) {
        for (size_t i = 0; i < settings; ++i) {
            put_word(set[i].addr);
            put_word(set[i].value);
        }
    };
    put_set(setting2_for_lrcver_table, std::size(setting2_for_lrcver_table));
    put_set(dcc_roi_table, std::size(dcc_roi_table));
    put_set(setting3_for_dcc_table, std::size(setting3_for_dcc_table));  // cut at 192 bytes
    return bytes;
}

}  // namespace

extern "C" {

int write_lrcdata_to_imx586_byfile(void) {
    write_block(kLeftGainReg, LRC_GAIN_TABLE_0);
    std::puts("read lrc-left data!\r");
    print_block(kLeftGainReg, "0x%x ");
    std::puts("\r\nread lrc-left data over!\r");

    write_block(kRightGainReg, LRC_GAIN_TABLE_1);
    std::puts("read lrc-right data!\r");
    print_block(kRightGainReg, "0x%x ");
    std::puts("\r\nread lrc-right data over!\r");
    return 0;
}

// Not called by the service; kept for calibration work. When the module memory cannot be
// read nothing is written (zeros would wipe the left gains) and the result is -1.
int write_lrcdata_to_imx586_byeeprom(void) {
    uint8_t module_lrc[IMX586_LRC_BYTES] = {};
    if (read_lrc_data_reg(module_lrc) != 0) return -1;

    write_block(kLeftGainReg, module_lrc);
    std::puts("read lrc-left data!\r");
    print_block(kLeftGainReg, "0x%x ");
    std::puts("\r\nread lrc-left data over!\r");

    const std::array<uint8_t, IMX586_LRC_BLOCK> right = data_after_right_table();
    write_block(kRightGainReg, right.data());
    std::puts("read lrc-right data!\r");
    print_block(kRightGainReg, "0x%x");
    std::puts("\r\nread lrc-right data over!\r");
    return 0;
}

}  // extern "C"
