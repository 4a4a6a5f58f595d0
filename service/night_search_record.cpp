// The night search record, its two lists and the helpers that lay them out and move the
// focus motor between their points.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "service/night_search_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/night_focus.h"

NightFocusRecord night_focus_man = {};

// The record's layout is shared with the camera application: natural alignment, no packing.
static_assert(sizeof(NightExactPoint) == 24 && offsetof(NightExactPoint, fv) == 8);
static_assert(sizeof(NightCoarsePoint) == 16 && offsetof(NightCoarsePoint, fv) == 8);
static_assert(offsetof(NightFocusRecord, exact_first) == 24);
static_assert(offsetof(NightFocusRecord, exact_points) == 40);
static_assert(offsetof(NightFocusRecord, coarse_first) == 448);
static_assert(offsetof(NightFocusRecord, coarse_points) == 472);
static_assert(sizeof(NightFocusRecord) == 552);

namespace zoomaf::night {
namespace {

constexpr size_t kExactClearBytes = 256;
static_assert(offsetof(NightFocusRecord, exact_first) + kExactClearBytes <=
                  offsetof(NightFocusRecord, coarse_first),
              "the exact clear stays inside the exact list");

unsigned char* record_bytes() {
    return reinterpret_cast<unsigned char*>(&night_focus_man);
}

// Prints the steps of exact points first..last on one line, each followed by a blank.
void print_exact_steps(int32_t first, int32_t last) {
    char line[NIGHT_EXACT_POINTS * 12 + 1] = "";
    size_t used = 0;
    for (int32_t i = first; i <= last; ++i) {
        used += std::snprintf(line + used, sizeof line - used, "%d ",
                              night_focus_man.exact_points[i].step);
    }
    std::printf("%s\r\n", line);
}

void set_exact_point(int32_t index, int32_t step) {
    night_focus_man.exact_points[index].step = step;
    night_focus_man.exact_points[index].fv = NIGHT_FV_NOT_MEASURED;
}

}  // namespace

void move_focus_to(int32_t step) {
    SetFocusLens(static_cast<int16_t>(step), 0);
    motor_position = GetCurSteps(MOTOR_FOCUS);
}

void clear_exact_list() {
    std::memset(record_bytes() + offsetof(NightFocusRecord, exact_first), 0, kExactClearBytes);
}

void clear_coarse_part() {
    constexpr size_t from = offsetof(NightFocusRecord, coarse_first);
    std::memset(record_bytes() + from, 0, sizeof(NightFocusRecord) - from);
}

Span span_in_record(int64_t first, int64_t last, int32_t points, const char* list) {
    if (last < first) return {0, -1};
    const int64_t kept_first = std::max<int64_t>(first, 0);
    const int64_t kept_last = std::min<int64_t>(last, points - 1);
    if (kept_first != first || kept_last != last) {
        std::printf(
            "Error: night search: %s points %lld..%lld reach beyond the %d the record holds; "
            "only %lld..%lld are taken\r\n",
            list, static_cast<long long>(first), static_cast<long long>(last), points,
            static_cast<long long>(kept_first), static_cast<long long>(kept_last));
    }
    return {static_cast<int32_t>(kept_first), static_cast<int32_t>(kept_last)};
}

NightExactPoint* exact_point(int32_t index) {
    if (index >= 0 && index < NIGHT_EXACT_POINTS) return &night_focus_man.exact_points[index];
    std::printf("Error: night search: exact point %d is not one of the %d the record holds\r\n",
                index, NIGHT_EXACT_POINTS);
    return nullptr;
}

// An empty list (ends reversed) has no point to go to: the motor stays rather than going
// to the cleared step 0 of the first entry.
void move_to_exact_point(int32_t index) {
    const int32_t last = std::min(night_focus_man.exact_last, NIGHT_EXACT_POINTS - 1);
    if (index < 0 || index > last) {
        std::printf(
            "Error: night search: exact point %d is not in the list laid out (0..%d); the focus "
            "motor stays at %d\r\n",
            index, night_focus_man.exact_last, motor_position);
        return;
    }
    move_focus_to(night_focus_man.exact_points[index].step);
}

void move_to_coarse_point(int32_t index) {
    if (index >= 0 && index < NIGHT_COARSE_POINTS) {
        move_focus_to(night_focus_man.coarse_points[index].step);
        return;
    }
    std::printf(
        "Error: night search: coarse point %d is not one of the %d the record holds; the focus "
        "motor stays at %d\r\n",
        index, NIGHT_COARSE_POINTS, motor_position);
}

void lay_out_small_step_list(int32_t near, int32_t far) {
    clear_exact_list();
    NightFocusRecord& record = night_focus_man;
    const int64_t last = int64_t{near} - far;
    int64_t kept_last = last;
    if (last >= NIGHT_EXACT_POINTS) {
        kept_last = NIGHT_EXACT_POINTS - 1;
        std::printf(
            "Error: night search: the small-step list %d..%d has %lld points, more than the %d "
            "the record holds; only %d..%d are searched\r\n",
            near, far, static_cast<long long>(last + 1), NIGHT_EXACT_POINTS, near,
            near - NIGHT_EXACT_POINTS + 1);
    }
    record.exact_first = 0;
    record.exact_last = static_cast<int32_t>(std::max<int64_t>(kept_last, INT32_MIN));
    for (int32_t i = 0; i <= record.exact_last; ++i) set_exact_point(i, near - i);
    print_exact_steps(0, record.exact_last);
    record.exact_index = 0;
    record.exact_best = -1;
    move_to_exact_point(record.exact_index);
}

void lay_out_big_step_list(int32_t near, int32_t far) {
    clear_exact_list();
    NightFocusRecord& record = night_focus_man;
    record.exact_first = 1;
    record.exact_last = 4;
    set_exact_point(0, near);
    set_exact_point(5, far);
    // Truncated toward zero: the points stay between the two ends.
    const int64_t spacing = (int64_t{far} - near) / 5;
    for (int32_t i = 1; i <= 4; ++i) set_exact_point(i, static_cast<int32_t>(near + i * spacing));
    print_exact_steps(1, 4);
    record.exact_index = 1;
    record.exact_best = -1;
    move_to_exact_point(record.exact_index);
}

}  // namespace zoomaf::night
