// What every day focus strategy does the same way: look up the current zoom's focus range,
// send the focus motor to a step and read back where it is, and ask the defocus library for
// a window's defocus at the sensor's current gain.
#include <algorithm>
#include <cstdio>

#include "service/pdaf_internal.hpp"
#include "service/service_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"

namespace zoomaf {

bool current_focus_range(const char* caller, int32_t& min, int32_t& max) {
    const int32_t row = current_section_row();
    if (row < 0) {
        std::printf("%s: zoom row %d is outside the focus range table, no move\r\n", caller,
                    multiple_index.load(std::memory_order_relaxed));
        return false;
    }
    min = mator_step_section[row][0];
    max = mator_step_section[row][1];
    return true;
}

int32_t focus_position_read_back() {
    return static_cast<int16_t>(GetCurSteps(MOTOR_FOCUS));
}

// A step beyond the driver's 16-bit range goes out as the nearest end of that range, where
// the driver's own range clamp takes over.
void move_focus_to(int32_t step) {
    motor_position = step;
    SetFocusLens(static_cast<int16_t>(std::clamp<int32_t>(step, INT16_MIN, INT16_MAX)), 0);
    motor_position = focus_position_read_back();
}

void put_sensor_gain(PdLibInputData* record) {
    int64_t gain = 0;
    get_gain_value(&gain);
    record->SensorGain = static_cast<uint64_t>(gain);
}

bool window_defocus(PdLibInputData* record, int64_t& defocus) {
    put_sensor_gain(record);
    return library_defocus(record, record->PhaseDifference,
                           static_cast<int64_t>(record->ConfidenceLevel), defocus);
}

bool library_defocus(PdLibInputData* record, int64_t pd, int64_t cl, int64_t& defocus) {
    record->ConfidenceLevel = static_cast<uint64_t>(cl);
    record->PhaseDifference = pd;
    PdLibOutputData output = {};
    const bool ok = PdLibGetDefocus(record, &output) == 0;
    defocus = output.Defocus;
    return ok;
}

}  // namespace zoomaf

namespace zoomaf {

bool readout_args_given(const PdLibInputData* input, const int64_t* cl_out, const int64_t* pd_out,
                        const char* caller) {
    if (input != nullptr && cl_out != nullptr && pd_out != nullptr) return true;
    std::printf("%s: no input record or output given\r\n", caller);
    return false;
}

}  // namespace zoomaf
