// Helpers shared by the day focus units of the service; not part of the exported interface.
#pragma once

#include <cstdint>

#include "zoomaf/pdaflib.h"

namespace zoomaf {

// The focus range of the current zoom (row multiple_index of mator_step_section). False,
// with a message naming caller, when multiple_index is outside the table: nothing may move.
bool current_focus_range(const char* caller, int32_t& min, int32_t& max);

// The focus motor's position as the driver reports it, a signed 16-bit value.
int32_t focus_position_read_back();

// motor_position = step, the focus motor sent there, motor_position = the position read
// back (the driver's clamps and refusals decide where the lens really is).
void move_focus_to(int32_t step);

// The sensor's analogue gain factor into the record, as the library takes it.
void put_sensor_gain(PdLibInputData* record);

// The library's defocus of the window described by record, with the sensor's gain put into
// the record first. False when the library refused the record.
bool window_defocus(PdLibInputData* record, int64_t& defocus);

// Puts pd and cl into record and asks the library for the defocus of its window (the gain
// already in the record). False when the library refused the record.
bool library_defocus(PdLibInputData* record, int64_t pd, int64_t cl, int64_t& defocus);

// True when a readout got its record and both outputs; else a message naming caller.
bool readout_args_given(const PdLibInputData* input, const int64_t* cl_out, const int64_t* pd_out,
                        const char* caller);

// The focus motor steps of a defocus: minus the defocus shifted right by 14 bits
// (arithmetically, so the result rounds toward minus infinity).
inline int64_t defocus_steps(int64_t defocus) {
    return -defocus >> 14;
}

// A record's CL as the signed value the focus code compares and prints.
inline int64_t record_cl(const PdLibInputData& record) {
    return static_cast<int64_t>(record.ConfidenceLevel);
}

}  // namespace zoomaf
