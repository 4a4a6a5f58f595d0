// The window-register writer of sensor/pdaf_windows.cpp for the service's centre free area.
#pragma once

#include <cstdint>

namespace zoomaf::sensor {

// Window 0 of the eight-window mode as one rectangle: area mode 2 and window 0 enabled (the
// other enables keep their values), both read back and printed, then the window's geometry
// (start, start + size, each masked to 13 bits) assembled in focus_area, written, read back
// and printed, and a closing "\r" line. False when a register could not be written or read:
// the window then may not have reached the sensor.
bool write_single_window(int64_t x, int64_t y, int64_t width, int64_t height);

}  // namespace zoomaf::sensor
