// The compiled-in register sets written to the sensor, or read back and printed, and the
// version of the defocus library.
#include <cstdio>

#include "zoomaf/imx586.h"
#include "zoomaf/pdaflib.h"

namespace {

void write_set(const Imx586RegSetting* set, bool announce) {
    for (; set->addr != 0 || set->value != 0; ++set) {
        if (announce) std::printf("settin2 write:0x%x,value:0x%x\r\n", set->addr, set->value);
        write_imx586_single_reg(static_cast<uint16_t>(set->addr), static_cast<uint8_t>(set->value));
    }
}

void print_set(const Imx586RegSetting* set, const char* heading, const char* footer) {
    std::puts(heading);
    for (; set->addr != 0 || set->value != 0; ++set) {
        uint8_t value = 0;
        read_imx586_single_reg(static_cast<uint16_t>(set->addr), &value);
        std::printf("read 0x%x,value 0x%x\r\n", set->addr, value);
    }
    std::puts(footer);
}

}  // namespace

extern "C" {

int write_setting2_lrcver(int32_t write) {
    if (write != 0) {
        write_set(setting2_for_lrcver_table, true);
    } else {
        print_set(setting2_for_lrcver_table, "\r\nread setting2_lrcver!\r",
                  "\r\nover read setting2_lrcver!\r");
    }
    return 0;
}

int write_setting3_fordcc(int32_t write) {
    if (write != 0) {
        write_set(setting3_for_dcc_table, false);
    } else {
        print_set(setting3_for_dcc_table, "\r\nread setting3!\r", "\r\nover read setting3 over!\r");
    }
    return 0;
}

int write_dcc_roi(int32_t write) {
    if (write != 0) {
        write_set(dcc_roi_table, false);
    } else {
        print_set(dcc_roi_table, "\r\nread dcc_roi!\r", "\r\nover read dcc_roi over!\r");
    }
    return 0;
}

int get_pdaflib_version(void) {
    PdLibVersion version = {0, 0};
    PdLibGetVersion(&version);
    std::printf("\r\nPDAF library version is :%ld.%ld\r\n", static_cast<long>(version.Major),
                static_cast<long>(version.Minor));
    return 0;
}

}  // extern "C"
