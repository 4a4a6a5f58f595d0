// The interpolation routines under the defocus and threshold computation.
#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <vector>

#include "zoomaf/pdaflib.h"

namespace {

constexpr int64_t kUntouched = 777;

// The code and the result of a routine that may refuse.
struct Call {
    int32_t code;
    int64_t out;
    bool operator==(const Call&) const = default;
};
std::ostream& operator<<(std::ostream& os, const Call& c) {
    return os << "code " << c.code << " out " << c.out;
}
const Call kRefused{-1, kUntouched};

int64_t line(int64_t x0, int64_t y0, int64_t x1, int64_t y1, int64_t x) {
    const int64_t xs[2] = {x0, x1}, ys[2] = {y0, y1};
    int64_t out = kUntouched;
    CalcAddressOnLine_slXslY(xs, ys, x, &out);
    return out;
}

TEST(Line, DegenerateInterpolatedAndClampedValues) {
    const struct {
        int64_t x0, y0, x1, y1, x, expected;
        const char* why;
    } cases[] = {
        {5, 9, 5, 9, 100, 9, "both points equal"},
        {0, 9, 10, 9, 100, 9, "flat line, even outside the segment"},
        {4, 3, 4, 8, 4, 5, "equal X: mean 5.5 truncated"},
        {4, -3, 4, -8, 1000, -5, "equal X: -5.5 toward zero, whatever the abscissa"},
        {0, INT64_MAX, 0, INT64_MAX - 2, 0, INT64_MAX - 1, "the mean does not overflow"},
        {0, 0, 4, -10, 1, -2, "-2.5 toward zero, not -3"},
        // 49 x 1 / 49 is exactly 1; 1 / 49 x 49 is 0.99999999999999989 and truncates to 0.
        {0, 0, 49, 49, 1, 1, "multiplication before division"},
        {20, -70, 0, 30, 5, 5, "descending X: 30 - 100 x 5 / 20"},
        {10, 100, 20, 200, 9, 100, "left of the segment: no extrapolation"},
        {10, 100, 20, 200, 21, 200, "right of the segment"},
        {INT64_MIN, INT64_MIN, INT64_MAX, INT64_MAX, INT64_MAX, INT64_MAX, "whole int64 span"},
        {0, INT64_MAX - 1, 10, INT64_MAX, 5, INT64_MAX, "rounds to 2^63: saturates"},
    };
    for (const auto& c : cases) EXPECT_EQ(line(c.x0, c.y0, c.x1, c.y1, c.x), c.expected) << c.why;
    for (int64_t x = -5; x <= 25; x += 3)
        EXPECT_EQ(line(20, -70, 0, 30, x), line(0, 30, 20, -70, x)) << "swapped points, x " << x;
}

Call broken_line(std::vector<uint64_t> xs, std::vector<uint64_t> ys, uint64_t x) {
    uint64_t out = kUntouched;
    const int32_t code = CalcAddressOnBrokenLine_ulXulY(xs.data(), ys.data(), xs.size(), x, &out);
    return {code, static_cast<int64_t>(out)};
}

TEST(BrokenLine, RefusalsLeaveTheResultUntouched) {
    const uint64_t over = 0x80000000;                                    // one above 0x7FFFFFFF
    EXPECT_EQ(broken_line({}, {}, 5), kRefused);                         // nothing may be read
    EXPECT_EQ(broken_line({5}, {7}, 5), kRefused);                       // a single point
    EXPECT_EQ(broken_line({0, over}, {1, 2}, 0), kRefused);              // last X too large
    EXPECT_EQ(broken_line({0, 10}, {1, 2}, over), kRefused);             // x too large
    EXPECT_EQ(broken_line({0, 10}, {1, over}, 5), kRefused);             // an ordinate too large
    EXPECT_EQ(broken_line({0, 20, 10, 30}, {1, 2, 3, 4}, 5), kRefused);  // X descending
    EXPECT_EQ(broken_line({over, 10}, {1, 2}, 5), kRefused);  // first X above last: descending
}

TEST(BrokenLine, EndsHoldOutsideAndTheLeftSegmentDecidesOnAVertex) {
    const uint64_t top = 0x7FFFFFFF;
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 99), (Call{0, 150}));   // left of the abscissae
    EXPECT_EQ(broken_line({100, 200}, {150, 300}, 201), (Call{0, 300}));  // right of them
    EXPECT_EQ(broken_line({0, top}, {top, top}, top), (Call{0, top}));    // largest accepted
    // Equal neighbours are accepted; on the vertex (0,0)-(10,100) decides, not the mean 150.
    EXPECT_EQ(broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 15), (Call{0, 250}));
    EXPECT_EQ(broken_line({0, 10, 10, 20}, {0, 100, 200, 300}, 10), (Call{0, 100}));
    // Down to zero and up again; outside, the end ordinate as it stands.
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 5), (Call{0, 50}));
    EXPECT_EQ(broken_line({0, 10, 20}, {100, 0, 50}, 10), (Call{0, 0}));
    EXPECT_EQ(broken_line({10, 20, 30}, {0, 0, 5}, 31), (Call{0, 5}));
}

Call plane(int64_t x0, int64_t x1, int64_t y0, int64_t y1, int64_t x, int64_t y,
           const int64_t (&z)[4] = {10, 20, 30, 40}) {
    const int64_t xs[2] = {x0, x1}, ys[2] = {y0, y1};
    Call call{0, kUntouched};
    call.code = CalcAddressOnPlane_slXslYslZ(xs, ys, z, x, y, &call.out);
    return call;
}

TEST(Plane, EdgesAreInsideAndOneBeyondIsRefused) {
    // Corners 10, 20, 30, 40 at (0,0), (8,0), (0,4), (8,4); (4,2): 15 and 35 on the edges.
    const struct {
        int64_t x, y, out;
    } inside[] = {{0, 0, 10}, {8, 0, 20}, {0, 4, 30}, {8, 4, 40}, {4, 4, 35}, {4, 2, 25}};
    for (const auto& c : inside) EXPECT_EQ(plane(0, 8, 0, 4, c.x, c.y), (Call{0, c.out}));
    const Call refusals[] = {
        plane(0, 8, 0, 4, -1, 2), plane(0, 8, 0, 4, 9, 2),  // one beyond in X
        plane(0, 8, 0, 4, 4, -1), plane(0, 8, 0, 4, 4, 5),  // one beyond in Y
        plane(8, 8, 0, 4, 8, 2),  plane(0, 8, 4, 4, 4, 4),  // empty
        plane(8, 0, 0, 4, 4, 2),  plane(0, 8, 4, 0, 4, 2),  // reversed edges
    };
    for (const Call& call : refusals) EXPECT_EQ(call, kRefused);
}

TEST(Plane, TruncatesEachIntermediateStep) {
    // At (1, 1) of the square with corners 0, 1, 1, 2 the exact value is 1, but the edges give
    // 0.5 -> 0 and 1.5 -> 1, and between them 0.5 -> 0. Negative: -0.5 -> 0, -1.5 -> -1, 0.
    EXPECT_EQ(plane(0, 2, 0, 2, 1, 1, {0, 1, 1, 2}).out, 0);
    EXPECT_EQ(plane(0, 2, 0, 2, 1, 1, {0, -1, -1, -2}).out, 0);
}

}  // namespace
