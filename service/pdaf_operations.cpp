// The per-mode day focus operations on one PD/CL reading: the centre mode moves by the
// defocus when the confidence is good and probes back and forth with growing legs when it
// is poor; the free mode scans the focus range and falls back to the best CL it saw; the
// manual mode goes to a fraction of the range. Every move is clamped to the focus range of
// the current zoom.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "service/pdaf_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/pdaf_focus.h"

int32_t try_direction = 1;
int32_t try_counter = 0;
int32_t probe_number = 4;
int32_t fail_counter_level_50 = 0;
int32_t fail_counter_level_150 = 0;
uint8_t shock_manager[16] = {};
int32_t free_focus_probe_counter = 0;
int64_t temp_max_fd_cl_value = 0;
int32_t temp_max_fd_cl_motor_step = 0;

namespace {

using zoomaf::current_focus_range;
using zoomaf::defocus_steps;
using zoomaf::move_focus_to;
using zoomaf::record_cl;
using zoomaf::window_defocus;

// Poor readings the centre mode tolerates before each probe step, by CL class.
constexpr int32_t kToleratedBelow50 = 5;
constexpr int32_t kToleratedBelow150 = 9;
constexpr int32_t kFirstProbeNumber = 4;
// The centre mode probes only from this multiple up (compared in single precision, so that
// a multiple of exactly 2.9 does not probe).
constexpr float kProbeFromMultiple = 2.9f;

// Clamps target to [min, max] with a warning and moves there unless the clamped target is
// where the motor stands.
void move_within_range(int64_t target, int32_t min, int32_t max) {
    int32_t step = static_cast<int32_t>(target);
    if (step < min || step > max) {
        std::printf("warnning:target motor_position:%d was out of range:%d~%d\r\n", step, min, max);
        step = step < min ? min : max;
    }
    if (step != motor_position) move_focus_to(step);
}

void reset_probing() {
    fail_counter_level_50 = 0;
    fail_counter_level_150 = 0;
    try_counter = 0;
    try_direction = 1;
    probe_number = kFirstProbeNumber;
    std::memset(shock_manager, 0, sizeof shock_manager);
}

void print_centre_move(const PdLibInputData& record) {
    std::printf("calibration:%d,cl:%ld,pd:%ld,motor_position:%d\r\n", pd_calibration_value,
                record_cl(record), record.PhaseDifference, motor_position);
}

// A poor reading: tolerated while counter is below tolerated, else one probe step. The
// counter is not reset by the probe, so every further poor reading probes again.
int32_t tolerate_or_probe(int32_t& counter, int32_t tolerated, const PdLibInputData& record) {
    if (counter < tolerated) {
        ++counter;
        return -1;
    }
    AppSetMotorMoveByStep(shock_manager);
    print_centre_move(record);
    return 0;
}

// Probe step size by multiple. Below x4 the board's first rule gives 16, but the next rule
// (below x7) always overrides it: the smallest step is 24.
int32_t probe_step(float multiple) {
    if (multiple < 7.0f) return 24;
    if (multiple < 9.0f) return 32;
    if (multiple < 14.0f) return 40;
    return 48;
}

// Free-mode scan positions per focus range, by multiple.
int32_t scan_divisions(float multiple) {
    if (multiple < 4.0f) return 6;
    if (multiple < 11.0f) return 10;
    return 14;
}

// A product of a float, truncated toward zero into 64 bits; NaN counts as 0 and values
// beyond the range saturate, where a plain conversion would be undefined.
int64_t truncate_saturating(float value) {
    if (std::isnan(value)) return 0;
    constexpr float kLimit = 9.2e18f;
    return static_cast<int64_t>(std::clamp(value, -kLimit, kLimit));
}

}  // namespace

extern "C" {

int32_t AppSetMotorMoveByOffset(int64_t offset) {
    if (offset == 0) return 0;
    int32_t min = 0;
    int32_t max = 0;
    if (!current_focus_range("AppSetMotorMoveByOffset", min, max)) return 0;
    // The sum is taken in 32 bits.
    move_within_range(
        static_cast<int32_t>(static_cast<uint32_t>(motor_position) + static_cast<uint32_t>(offset)),
        min, max);
    return 0;
}

int32_t AppSetMotorMoveByStep(void* /*manager*/) {
    int32_t min = 0;
    int32_t max = 0;
    if (!current_focus_range("AppSetMotorMoveByStep", min, max)) return 0;
    const int64_t step = probe_step(current_multiple);
    move_within_range(int64_t{motor_position} + try_direction * step, min, max);
    ++try_counter;
    if (motor_position > min && motor_position < max) {
        if (try_counter <= probe_number) return 0;
        try_direction = -try_direction;
        try_counter = 0;
        probe_number *= 3;
        std::printf("\r\n!out of try_counter range change probenum to %d!\r\n", probe_number);
    } else {
        try_direction = -try_direction;
        try_counter = 0;
        probe_number *= 3;
        std::printf("\r\n!out of step range change direction to %d!\r\n", try_direction);
    }
    return 0;
}

int32_t APPSetCenterFocusOpr(int32_t reset, PdLibInputData* record) {
    if (reset != 0) {
        reset_probing();
        return 0;
    }
    if (record == nullptr) {
        std::puts("APPSetCenterFocusOpr: no input record given\r");
        return 0;
    }
    const int64_t cl = record_cl(*record);
    if (cl >= PDAF_VALID_CL) {
        reset_probing();
        int64_t defocus = 0;
        if (!window_defocus(record, defocus)) {
            std::puts("focsu-pd get error\r");
        } else if (cl > PDAF_VALID_CL) {
            // A CL of exactly 150 is computed but does not move the lens.
            AppSetMotorMoveByOffset(defocus_steps(defocus));
            print_centre_move(*record);
        }
        return 0;
    }
    if (current_multiple > kProbeFromMultiple) {
        if (cl < 50) return tolerate_or_probe(fail_counter_level_50, kToleratedBelow50, *record);
        return tolerate_or_probe(fail_counter_level_150, kToleratedBelow150, *record);
    }
    std::printf("！！warn,centerfocus  cl: %ld < valid: %d, ignore\n", cl, PDAF_VALID_CL);
    return 0;
}

int32_t APPSinglePDAFOpr(PdLibInputData* record) {
    if (record == nullptr) {
        std::puts("APPSinglePDAFOpr: no input record given\r");
        return 0;
    }
    const int64_t cl = record_cl(*record);
    if (cl < PDAF_VALID_CL) {
        std::printf("！！warn,multiplefocus cl: %ld < valid: %d, ignore\n", cl, PDAF_VALID_CL);
        return 0;
    }
    int64_t defocus = 0;
    if (window_defocus(record, defocus)) {
        AppSetMotorMoveByOffset(defocus_steps(defocus));
    } else {
        std::puts("multiple focus focsu-pd get error\r");
    }
    return 0;
}

int32_t APPSetFreeFocusOpr(int32_t reset, int32_t* done_count, std::atomic<int32_t>* scan_over,
                           PdLibInputData* record) {
    if (reset != 0) {
        free_focus_probe_counter = 0;
        temp_max_fd_cl_value = 0;
        temp_max_fd_cl_motor_step = 0;
        return 0;
    }
    if (done_count == nullptr || scan_over == nullptr || record == nullptr) {
        std::puts("APPSetFreeFocusOpr: no done count, scan flag or input record given\r");
        return 0;
    }
    const int64_t cl = record_cl(*record);
    std::printf("freefocus cl:%ld\r\n", cl);
    if (cl >= PDAF_VALID_CL) {
        *scan_over = 1;
        ++*done_count;
        int64_t defocus = 0;
        if (window_defocus(record, defocus)) {
            AppSetMotorMoveByOffset(defocus_steps(defocus));
        } else {
            std::puts("free focus focsu-pd get error\r");
        }
        return 0;
    }
    if (*scan_over == 0) {
        int32_t min = 0;
        int32_t max = 0;
        if (!current_focus_range("APPSetFreeFocusOpr", min, max)) return 0;
        if (cl > temp_max_fd_cl_value) {
            temp_max_fd_cl_value = cl;
            temp_max_fd_cl_motor_step = motor_position;
        }
        const int64_t step = (int64_t{max} - min) / scan_divisions(current_multiple);
        const int64_t target = min + free_focus_probe_counter * step;
        ++free_focus_probe_counter;
        if (target != motor_position) {
            std::printf("freefocus: current step:%d,target step:%d\r\n", motor_position,
                        static_cast<int32_t>(target));
            if (target > max) {
                move_focus_to(max);
                *scan_over = 1;
                free_focus_probe_counter = 0;
            } else {
                move_focus_to(static_cast<int32_t>(target));
            }
        }
        return 0;
    }
    if (*done_count == 0 && temp_max_fd_cl_value > 0) {
        // The scan found no good CL: go once to where the CL was best.
        std::printf(
            "Warnning:didn't fine high pdcl position,go to the max cl:%ld's position:%d\r\n",
            temp_max_fd_cl_value, temp_max_fd_cl_motor_step);
        ++*done_count;
        move_focus_to(temp_max_fd_cl_motor_step);
        return 0;
    }
    std::printf("！！warn,freefocus cl: %ld < valid: %d, ignore\n", cl, PDAF_VALID_CL);
    return 0;
}

// No lower clamp: a negative ratio goes below the range minimum, where the motor driver's
// own range decides.
int32_t APPSetManualFocusOpr(float ratio) {
    int32_t min = 0;
    int32_t max = 0;
    if (!current_focus_range("APPSetManualFocusOpr", min, max)) return 0;
    const int64_t target =
        min + truncate_saturating(static_cast<float>(int64_t{max} - min) * ratio);
    const int32_t step = static_cast<int32_t>(std::clamp<int64_t>(
        target, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
    std::printf("Manual position modify: form %d to %d,percentage:%f\r\n", motor_position, step,
                static_cast<double>(ratio));
    move_focus_to(std::min(step, max));
    return 0;
}

int32_t GetPD(void) {
    PdLibInputData record = {};
    InitPdLibInputData(&record);
    int64_t cl = 0;
    int64_t pd = 0;
    get_pd_and_lc(&cl, &pd);
    record.ConfidenceLevel = static_cast<uint64_t>(cl);
    record.PhaseDifference = pd;
    std::printf("\r\ncl:%ld,pd:%ld\r\n", cl, pd);
    return static_cast<int32_t>(pd);
}

}  // extern "C"
