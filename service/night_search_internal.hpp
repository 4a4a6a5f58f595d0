// Helpers shared by the night search units: moves, the clears of the record's two lists,
// checked access to their points, the laying out of exact lists and the choice of the
// sharpest point. Everything here runs with the service lock held.
#pragma once

#include <cstdint>
#include <cstdio>

#include "zoomaf/night_focus.h"

namespace zoomaf::night {

// Moves the focus motor to an absolute step (passed to the driver as a signed 16-bit value,
// as every focus move is) and reads the position back into motor_position.
void move_focus_to(int32_t step);

// Clears the 256 bytes from exact_first onward: the exact indices and the first ten entries.
void clear_exact_list();
// Clears the record from coarse_first to its end.
void clear_coarse_part();

// Indices first..last of a list, already cut to the points the record holds.
struct Span {
    int32_t first;
    int32_t last;  // below first when the list is empty
};

// first..last cut to 0..points - 1, with a message when it reached beyond them.
Span span_in_record(int64_t first, int64_t last, int32_t points, const char* list);

// The exact point at index, or nullptr with a message when the record has no such point.
NightExactPoint* exact_point(int32_t index);

// Moves to exact point index; refused with a message, the motor left where it is, when the
// point is not in the list laid out (0..exact_last).
void move_to_exact_point(int32_t index);
// Moves to coarse point index; refused with a message when the record has no such point.
void move_to_coarse_point(int32_t index);

// Lay out an exact list over near..far (near the larger step) and move to its first point.
// The caller prints its own heading first and sets the state. The small-step list holds
// every step from near down to far, cut with a message to the points the record holds.
// The big-step list holds near, four points evenly spaced toward far, and far.
void lay_out_small_step_list(int32_t near, int32_t far);
void lay_out_big_step_list(int32_t near, int32_t far);

// Prints each point of span and returns the index of the sharpest: a point is taken when
// its fv is greater than the best so far, both compared as unsigned 64-bit numbers, from a
// best of 0 at index 0. Ties keep the lower (nearer) index; an unmeasured -9999 ranks above
// every measured value.
template <class Point>
int32_t print_and_choose_sharpest(const Point* points, Span span) {
    uint64_t best_fv = 0;
    int32_t best = 0;
    for (int32_t i = span.first; i <= span.last; ++i) {
        std::printf("focsu:%d,fv:%ld\r\n", points[i].step, static_cast<long>(points[i].fv));
        if (static_cast<uint64_t>(points[i].fv) > best_fv) {
            best_fv = static_cast<uint64_t>(points[i].fv);
            best = i;
        }
    }
    return best;
}

}  // namespace zoomaf::night
