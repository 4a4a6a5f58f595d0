// Helpers shared by the motor driver's units; not part of the exported interface.
#pragma once

#include <cstdint>
#include <cstdio>

// Every driver message names the reporting function and its source line.
#define MOTOR_LOG(fmt, ...) std::printf("[%s] [%d] " fmt, __func__, __LINE__, ##__VA_ARGS__)

namespace zoomaf::motor {

// A nanosleep of any length through the platform, reporting a failed sleep like nSleep.
void sleep_ns(uint64_t ns);

// The GPIO number of a motor's photo-interrupter (0 zoom, 1 focus).
uint16_t pi_gpio(uint8_t motor);

}  // namespace zoomaf::motor

namespace zoomaf::motor {

// Microseconds on the monotonic clock, for the move calls that time themselves.
int64_t monotonic_us();

// Reads both photo-interrupters after a move (a failed read reports itself).
void read_both_photo_interrupters();

}  // namespace zoomaf::motor
