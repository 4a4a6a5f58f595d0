// The size and place of the centre-mode PDAF window: one of the fixed centre layouts by
// ratio, or one free rectangle. Both act on the sensor at once, inside a group hold so that
// the sensor takes the new window at one frame boundary.
#include <cstdio>

#include "sensor/pdaf_windows.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"

namespace {

bool in_centre_mode() {
    return current_focus_mode.load(std::memory_order_relaxed) == PDAF_CENTER_MODE;
}

void say_not_centre_mode() {
    std::puts(
        "\r\n\r\nError: AppSetCenterFocusWindownsRatio the current mode is no equal to "
        "PDAF_CENTER_MODE!\r");
}

}  // namespace

extern "C" {

int32_t AppSetCenterFocusWindownsRatio(int32_t ratio) {
    if (!in_centre_mode()) {
        say_not_centre_mode();
        return -1;
    }
    if (ratio < 0 || ratio > 4) {
        std::printf(
            "\r\n\r\nError: AppSetCenterFocusWindownsRatio Percentage:%d  is out of "
            "range(0-4)!\r\n",
            ratio);
        return -2;
    }
    try_lock();
    is_center_af_winratio_update = 1;
    write_imx586_group_hold(1);
    set_pdaf_windows_center_area(ratio);
    write_imx586_group_hold(0);
    unlock();
    return 0;
}

// The mode message names the ratio call and the bounds are one below those of
// AppSetFocusCoordinates; no lower bound is checked on the size. Like the ratio call it takes
// the service lock: the sensor's transfer buffers are shared with the loop's PD readout,
// which runs under that lock. The result is the closing group hold's, or -1 when the area
// did not reach the sensor.
int32_t AppSetCenterFocusWindownsFreearea(int32_t x, int32_t y, int32_t width, int32_t height) {
    if (!in_centre_mode()) {
        say_not_centre_mode();
        return -1;
    }
    if (x < 0 || x > 3998 || y < 0 || y > 2998) {
        std::printf(
            "\r\n\r\nError: AppSetFocusCoordinates pointx:%d and pointy:%d is out of "
            "range(0-3999/0-2999)!\r\n",
            x, y);
        return -2;
    }
    if (width > 3999 || height > 2999) {
        std::printf(
            "\r\n\r\nError: AppSetFocusCoordinates width:%d and height:%d is out of "
            "range(0-3999/0-2999)!\r\n",
            width, height);
        return -2;
    }
    try_lock();
    is_center_af_winratio_update = 1;
    write_imx586_group_hold(1);
    const int32_t area = set_pdaf_centermode_freearea_attr(
        static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(width),
        static_cast<uint32_t>(height));
    const int32_t hold = write_imx586_group_hold(0);
    unlock();
    return area != 0 ? area : hold;
}

// Window 0 of the eight-window mode as one rectangle, written by the sensor's window unit.
// Returns 0, or -1 (with a message) when a register could not be written or read: a window
// that did not reach the sensor must not look set.
int32_t set_pdaf_centermode_freearea_attr(uint32_t x, uint32_t y, uint32_t width, uint32_t height) {
    std::puts("PDAF SWITCH CHENTER AREA:\r");
    if (!zoomaf::sensor::write_single_window(x, y, width, height)) {
        std::puts("Error: set_pdaf_centermode_freearea_attr the area did not reach the sensor!\r");
        return -1;
    }
    return 0;
}

}  // extern "C"
