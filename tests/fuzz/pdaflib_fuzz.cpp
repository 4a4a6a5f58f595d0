// libFuzzer target of the defocus library. The input bytes choose one call and its values:
// a whole defocus computation on a valid record (every pointer holds as many values as its
// count says, every other field arbitrary), or one of the three interpolation routines on
// arbitrary 64-bit points. Besides the sanitizers' checks, each call's promises are checked:
// result codes, untouched outputs on refusal, clamps and ranges.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/fuzz/fuzz_input.hpp"
#include "zoomaf/pdaflib.h"

namespace {

using zoomaf::fuzz::Input;
using zoomaf::fuzz::require;

// Knot addresses: usually strictly ascending (so the computation gets past the input
// checks), sometimes raw.
std::vector<uint16_t> knots(Input& in, uint16_t count) {
    std::vector<uint16_t> result(count == 0 ? 1 : count);
    if (in.pick(4) == 0) {
        for (uint16_t& knot : result) knot = in.u16();
        return result;
    }
    uint32_t address = in.u16() % 4096;
    for (uint16_t& knot : result) {
        knot = static_cast<uint16_t>(address);
        address += 1 + in.byte() * 4u;
    }
    return result;
}

uint16_t window_coordinate(Input& in, uint16_t image_size) {
    if (in.pick(4) == 0 || image_size == 0) return in.u16();
    return static_cast<uint16_t>(in.u16() % image_size);
}

struct ThresholdLine {
    std::vector<uint64_t> gains, thresholds;
};

ThresholdLine threshold_line(Input& in, uint64_t points) {
    ThresholdLine line{std::vector<uint64_t>(points == 0 ? 1 : points),
                       std::vector<uint64_t>(points == 0 ? 1 : points)};
    const bool raw = in.pick(4) == 0;
    uint64_t gain = in.u16();
    for (uint64_t i = 0; i < points; ++i) {
        line.gains[i] = raw ? in.u64() : gain;
        line.thresholds[i] = raw ? in.u64() : in.u16() % 600;
        gain += in.byte();
    }
    return line;
}

void fuzz_defocus(Input& in) {
    PdLibInputData input{};
    input.PhaseDifference = in.pick(8) == 0 ? -1024 : in.i64();
    input.ConfidenceLevel = in.pick(2) == 0 ? in.u16() % 2048 : in.u64();
    input.ImageXSize = in.pick(4) == 0 ? in.u16() : 4000;
    input.ImageYSize = in.pick(4) == 0 ? in.u16() : 3000;
    input.WindowXStart = window_coordinate(in, input.ImageXSize);
    input.WindowXEnd = window_coordinate(in, input.ImageXSize);
    input.WindowYStart = window_coordinate(in, input.ImageYSize);
    input.WindowYEnd = window_coordinate(in, input.ImageYSize);

    input.DefocusXKnotNum = static_cast<uint16_t>(in.pick(13));
    input.DefocusYKnotNum = static_cast<uint16_t>(in.pick(13));
    const size_t defocus_knots = size_t{input.DefocusXKnotNum} * input.DefocusYKnotNum;
    std::vector<int64_t> dcc(defocus_knots == 0 ? 1 : defocus_knots);
    std::vector<int64_t> offsets(dcc.size());
    const bool small_coefficients = in.pick(2) == 0;
    for (size_t k = 0; k < defocus_knots; ++k) {
        dcc[k] = small_coefficients ? static_cast<int16_t>(in.u16()) : in.i64();
        offsets[k] = small_coefficients ? 0 : in.i64();
    }
    const std::vector<uint16_t> x_knots = knots(in, input.DefocusXKnotNum);
    const std::vector<uint16_t> y_knots = knots(in, input.DefocusYKnotNum);
    input.p_DefocusDcc = dcc.data();
    input.p_DefocusOffset = offsets.data();
    input.p_DefocusXKnot = x_knots.data();
    input.p_DefocusYKnot = y_knots.data();
    input.DccScale = in.pick(8) == 0 ? in.i64() : 2304;
    input.SensorGain = in.pick(4) == 0 ? in.u64() : in.u16();

    input.ThrXKnotNum = static_cast<uint16_t>(in.pick(10));
    input.ThrYKnotNum = static_cast<uint16_t>(in.pick(10));
    const size_t threshold_knots = size_t{input.ThrXKnotNum} * input.ThrYKnotNum;
    std::vector<ThresholdLine> line_values;
    std::vector<PdLibOKNGThrLine> lines(threshold_knots == 0 ? 1 : threshold_knots);
    line_values.reserve(lines.size());
    for (PdLibOKNGThrLine& line : lines) {
        const uint64_t points = in.pick(5) == 0 ? in.pick(2) : 2 + in.pick(4);
        line_values.push_back(threshold_line(in, points));
        line = {points, line_values.back().gains.data(), line_values.back().thresholds.data()};
    }
    const std::vector<uint16_t> thr_x_knots = knots(in, input.ThrXKnotNum);
    const std::vector<uint16_t> thr_y_knots = knots(in, input.ThrYKnotNum);
    input.p_DefocusOKNGThrLine = lines.data();
    input.p_ThrXKnot = thr_x_knots.data();
    input.p_ThrYKnot = thr_y_knots.data();
    const uint64_t normalisers[] = {2304, 1152, 576, in.u64()};
    input.ConfidenceNormaliser = normalisers[in.pick(4)];

    PdLibOutputData output;
    std::memset(&output, 0x5A, sizeof output);
    const int64_t code = PdLibGetDefocus(&input, &output);

    if (code != 0) {
        require(code <= -40 && code >= -53);
        require(output.Defocus == 0 && output.DefocusConfidence == -1 &&
                output.DefocusConfidenceLevel == 0 && output.PhaseDifference == 0);
        return;
    }
    require(output.Defocus >= -2147483647 && output.Defocus <= 2147483646);
    require(output.PhaseDifference == input.PhaseDifference);
    require(output.DefocusConfidenceLevel <= 4294967294u);
    switch (output.DefocusConfidence) {
        case -2:
        case -3:
            require(output.DefocusConfidenceLevel == 0);
            break;
        case 0:
            require(output.DefocusConfidenceLevel > 1023);
            break;
        case -80:
            require(output.DefocusConfidenceLevel <= 1023);
            break;
        default:
            require(false);
    }
}

// Half the time coordinates of at most 2^25: every product of two differences is then exact
// in a double, so an interpolated value stays between its end points. Beyond that, double
// rounding may carry it just past an end point (x at xb can come out as yb + 2^-30, truncated
// to yb + 1), and the routines only promise to stay defined.
// Otherwise often next to the int64 extremes, where differences and conversions overflow.
int64_t coordinate(Input& in, bool small_values) {
    if (small_values) return static_cast<int32_t>(in.bits(4)) / 64;
    switch (in.pick(4)) {
        case 0:
            return INT64_MAX - in.byte();
        case 1:
            return INT64_MIN + in.byte();
        default:
            return in.i64();
    }
}

void fuzz_line(Input& in) {
    const bool small_values = in.pick(2) == 0;
    const int64_t X[2] = {coordinate(in, small_values), coordinate(in, small_values)};
    const int64_t Y[2] = {coordinate(in, small_values), coordinate(in, small_values)};
    const int64_t x = coordinate(in, small_values);
    int64_t out = 0;
    CalcAddressOnLine_slXslY(X, Y, x, &out);
    if (small_values)
        require(out >= *std::min_element(Y, Y + 2) && out <= *std::max_element(Y, Y + 2));
}

void fuzz_broken_line(Input& in) {
    const uint64_t n = in.pick(9);
    std::vector<uint64_t> X(n == 0 ? 1 : n), Y(X.size());
    const bool raw = in.pick(2) == 0;
    uint64_t gain = in.u16();
    for (uint64_t i = 0; i < n; ++i) {
        X[i] = raw ? in.u64() : gain;
        Y[i] = raw ? in.u64() : in.u64() & 0x7FFFFFFF;
        gain += in.u16();
    }
    const uint64_t x = raw ? in.u64() : in.u64() & 0x7FFFFFFF;
    constexpr uint64_t kUntouched = 0xDEADBEEF12345678;
    uint64_t out = kUntouched;
    const int32_t code = CalcAddressOnBrokenLine_ulXulY(X.data(), Y.data(), n, x, &out);
    require(code == 0 || code == -1);
    if (code == -1) {
        require(out == kUntouched);
    } else {
        require(out <= 0x7FFFFFFF);
    }
}

void fuzz_plane(Input& in) {
    const bool small_values = in.pick(2) == 0;
    auto value = [&in, small_values] { return coordinate(in, small_values); };
    const int64_t X[2] = {value(), value()};
    const int64_t Y[2] = {value(), value()};
    const int64_t Z[4] = {value(), value(), value(), value()};
    const int64_t x = value(), y = value();
    constexpr int64_t kUntouched = 0x1234567876543210;
    int64_t out = kUntouched;
    const int32_t code = CalcAddressOnPlane_slXslYslZ(X, Y, Z, x, y, &out);
    require(code == 0 || code == -1);
    if (code == -1) {
        require(out == kUntouched);
    } else if (small_values) {
        require(out >= *std::min_element(Z, Z + 4) && out <= *std::max_element(Z, Z + 4));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    switch (in.pick(6)) {
        case 0:
            fuzz_line(in);
            break;
        case 1:
            fuzz_broken_line(in);
            break;
        case 2:
            fuzz_plane(in);
            break;
        default:
            fuzz_defocus(in);
            break;
    }
    return 0;
}
