// Interpolation on a straight line, a broken line and a bilinear plane. Points are 64-bit
// integers; values are computed in double precision and truncated toward zero.
#include <cstdint>
#include <utility>

#include "zoomaf/pdaflib.h"

namespace {

// Abscissae and ordinates of a broken line must stay within the positive int32 range.
constexpr uint64_t kBrokenLineLimit = 0x7FFFFFFF;

// Truncation toward zero. An interpolated value lies between two int64 ordinates, but double
// rounding can carry it to 2^63, which has no int64: saturate rather than convert out of range.
int64_t truncate_toward_zero(double value) {
    constexpr double kTwoPow63 = 9223372036854775808.0;
    if (value >= kTwoPow63) return INT64_MAX;
    if (value < -kTwoPow63) return INT64_MIN;
    return static_cast<int64_t>(value);
}

// The difference a - b, exact before its conversion, so a non-zero difference never becomes
// a zero divisor. Beyond the int64 range it is taken in 128 bits (slower, never on the
// system's values) instead of overflowing.
double difference(int64_t a, int64_t b) {
    int64_t exact = 0;
    if (!__builtin_sub_overflow(a, b, &exact)) return static_cast<double>(exact);
    return static_cast<double>(static_cast<__int128>(a) - b);
}

// The line through (x0, y0) and (x1, y1) at x; shared by the three routines and inlined into
// the broken line and the plane, which run it several times per window.
inline int64_t line_at(int64_t x0, int64_t y0, int64_t x1, int64_t y1, int64_t x) {
    // Equal ordinates give that ordinate, whether the points coincide or the line is flat.
    if (y0 == y1) return y0;
    // A vertical line: the mean of the two ordinates, truncated toward zero.
    if (x0 == x1) return static_cast<int64_t>((static_cast<__int128>(y0) + y1) / 2);
    if (x0 > x1) {
        std::swap(x0, x1);
        std::swap(y0, y1);
    }
    // No extrapolation: outside the segment the nearer end holds.
    if (x < x0) return y0;
    if (x > x1) return y1;
    return truncate_toward_zero(static_cast<double>(y0) +
                                difference(y1, y0) * difference(x, x0) / difference(x1, x0));
}

}  // namespace

void CalcAddressOnLine_slXslY(const int64_t X[2], const int64_t Y[2], int64_t x, int64_t* out) {
    *out = line_at(X[0], Y[0], X[1], Y[1], x);
}

int32_t CalcAddressOnBrokenLine_ulXulY(const uint64_t* X, const uint64_t* Y, uint64_t n, uint64_t x,
                                       uint64_t* out) {
    if (n <= 1) return -1;
    if (X[n - 1] > kBrokenLineLimit) return -1;
    if (x > kBrokenLineLimit) return -1;
    for (uint64_t i = 0; i < n; ++i) {
        if (Y[i] > kBrokenLineLimit) return -1;
    }
    for (uint64_t i = 0; i + 1 < n; ++i) {
        if (X[i] > X[i + 1]) return -1;
    }

    if (x < X[0]) {
        *out = Y[0];
        return 0;
    }
    if (x > X[n - 1]) {
        *out = Y[n - 1];
        return 0;
    }
    // The first segment containing x decides, so an inner vertex belongs to its left segment.
    // Every value was checked against 0x7FFFFFFF above, so the signed views are exact.
    uint64_t result = 0;
    for (uint64_t i = 0; i + 1 < n; ++i) {
        if (X[i] <= x && x <= X[i + 1]) {
            const int64_t y = line_at(static_cast<int64_t>(X[i]), static_cast<int64_t>(Y[i]),
                                      static_cast<int64_t>(X[i + 1]),
                                      static_cast<int64_t>(Y[i + 1]), static_cast<int64_t>(x));
            result = y > 0 ? static_cast<uint64_t>(y) : 0;
            break;
        }
    }
    *out = result;
    return 0;
}

int32_t CalcAddressOnPlane_slXslYslZ(const int64_t X[2], const int64_t Y[2], const int64_t Z[4],
                                     int64_t x, int64_t y, int64_t* out) {
    if (x < X[0] || x > X[1] || y < Y[0] || y > Y[1] || X[0] >= X[1] || Y[0] >= Y[1]) return -1;

    // Along X on both Y edges, then along Y between them; each step truncates on its own.
    const int64_t near_edge = line_at(X[0], Z[0], X[1], Z[1], x);
    const int64_t far_edge = line_at(X[0], Z[2], X[1], Z[3], x);
    *out = line_at(Y[0], near_edge, Y[1], far_edge, y);
    return 0;
}
