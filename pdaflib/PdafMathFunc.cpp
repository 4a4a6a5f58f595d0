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

// Differences of two int64 are taken in 128 bits: exact, so a non-zero difference never
// becomes a zero divisor and nothing overflows.
double difference(int64_t a, int64_t b) {
    return static_cast<double>(static_cast<__int128>(a) - b);
}

}  // namespace

void CalcAddressOnLine_slXslY(const int64_t X[2], const int64_t Y[2], int64_t x, int64_t* out) {
    // Equal ordinates give that ordinate, whether the points coincide or the line is flat.
    if (Y[0] == Y[1]) {
        *out = Y[0];
        return;
    }
    // A vertical line: the mean of the two ordinates, truncated toward zero.
    if (X[0] == X[1]) {
        *out = static_cast<int64_t>((static_cast<__int128>(Y[0]) + Y[1]) / 2);
        return;
    }
    int64_t xa = X[0], ya = Y[0], xb = X[1], yb = Y[1];
    if (xa > xb) {
        std::swap(xa, xb);
        std::swap(ya, yb);
    }
    // No extrapolation: outside the segment the nearer end holds.
    if (x < xa) {
        *out = ya;
        return;
    }
    if (x > xb) {
        *out = yb;
        return;
    }
    const double value =
        static_cast<double>(ya) + difference(yb, ya) * difference(x, xa) / difference(xb, xa);
    *out = truncate_toward_zero(value);
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
            const int64_t xs[2] = {static_cast<int64_t>(X[i]), static_cast<int64_t>(X[i + 1])};
            const int64_t ys[2] = {static_cast<int64_t>(Y[i]), static_cast<int64_t>(Y[i + 1])};
            int64_t y = 0;
            CalcAddressOnLine_slXslY(xs, ys, static_cast<int64_t>(x), &y);
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
    int64_t near_edge = 0;
    int64_t far_edge = 0;
    const int64_t near_values[2] = {Z[0], Z[1]};
    const int64_t far_values[2] = {Z[2], Z[3]};
    CalcAddressOnLine_slXslY(X, near_values, x, &near_edge);
    CalcAddressOnLine_slXslY(X, far_values, x, &far_edge);
    const int64_t edge_values[2] = {near_edge, far_edge};
    CalcAddressOnLine_slXslY(Y, edge_values, y, out);
    return 0;
}
