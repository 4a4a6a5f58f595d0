// Defocus of one PDAF window: the conversion coefficient and offset of each knot give a
// per-knot defocus, the OK/NG threshold lines a per-knot threshold; both are interpolated at
// the window centre over their own knot grid.
#include <cstddef>
#include <cstdint>

#include "pdaflib/pdaf_internal.h"
#include "zoomaf/pdaflib.h"

namespace {

constexpr int64_t kRequiredDccScale = 2304;
constexpr double kDccScaleDivisor = 2304.0;
constexpr int64_t kNoPhaseDifference = -1024;
constexpr uint64_t kUnitNormaliser = 2304;

constexpr int8_t kConfidenceOk = 0;
constexpr int8_t kConfidenceNg = -80;
constexpr int8_t kConfidenceNoThresholdGrid = -2;
constexpr int8_t kConfidenceNoPhaseDifference = -3;
constexpr int8_t kConfidenceNotComputed = -1;

// A level of 1024 is exactly the threshold; anything above 1023 passes.
constexpr uint64_t kThresholdLevel = 1024;
constexpr uint64_t kHighestFailingLevel = 1023;

bool strictly_ascending(const uint16_t* knots, size_t count) {
    for (size_t i = 1; i < count; ++i) {
        if (knots[i - 1] >= knots[i]) return false;
    }
    return true;
}

bool has_threshold_grid(const PdLibInputData& input) {
    return input.ThrXKnotNum != 0 && input.ThrYKnotNum != 0;
}

struct KnotGrid {
    const uint16_t* x_knots;
    uint16_t x_count;
    const uint16_t* y_knots;
    uint16_t y_count;
};

// Knot numbers are 16-bit unsigned: they wrap on grids beyond 65535 knots. A wrapped number is
// smaller than the true one, so it still falls inside the per-knot arrays. Computed in 32 bits
// (no int overflow), then reduced.
uint16_t knot_number(uint32_t row, uint32_t x_count, uint32_t column) {
    return static_cast<uint16_t>(row * x_count + column);
}

uint16_t knot_after(uint16_t knot, uint32_t step) {
    return static_cast<uint16_t>(knot + step);
}

// The first cell [knots[i], knots[i + 1]] holding c, so a centre on an inner knot belongs to
// the cell on its left; cell 0 when none holds it.
uint16_t cell_of(uint16_t c, const uint16_t* knots, size_t count) {
    for (size_t i = 0; i + 1 < count; ++i) {
        if (knots[i] <= c && c <= knots[i + 1]) return static_cast<uint16_t>(i);
    }
    return 0;
}

enum class Band { kBefore, kWithin, kAfter };

Band band_of(uint16_t c, const uint16_t* knots, uint16_t count) {
    if (c < knots[0]) return Band::kBefore;
    if (c > knots[count - 1]) return Band::kAfter;
    return Band::kWithin;
}

int64_t on_line(int64_t x0, int64_t v0, int64_t x1, int64_t v1, int64_t at) {
    const int64_t xs[2] = {x0, x1};
    const int64_t vs[2] = {v0, v1};
    int64_t value = 0;
    CalcAddressOnLine_slXslY(xs, vs, at, &value);
    return value;
}

// The value at the window centre from the knot values value_at(k), k = row x nx + column:
// bilinear inside the grid, linear along the nearest edge beside it, the corner knot's value
// diagonally outside. Reads at most four knot values. The grid has at least 2 x 2 knots.
template <typename KnotValue>
int64_t interpolate_at_window_centre(const PdLibInputData& input, const KnotGrid& grid,
                                     KnotValue value_at) {
    const uint16_t cx = static_cast<uint16_t>((input.WindowXStart + input.WindowXEnd) / 2);
    const uint16_t cy = static_cast<uint16_t>((input.WindowYStart + input.WindowYEnd) / 2);
    const uint16_t nx = grid.x_count;
    const uint16_t ny = grid.y_count;
    const uint16_t* xk = grid.x_knots;
    const uint16_t* yk = grid.y_knots;
    const uint16_t ix = cell_of(cx, xk, nx);
    const uint16_t iy = cell_of(cy, yk, ny);
    const Band row = band_of(cy, yk, ny);
    const Band column = band_of(cx, xk, nx);

    const uint16_t last_column = static_cast<uint16_t>(nx - 1);
    const uint16_t last_row = static_cast<uint16_t>(ny - 1);

    if (row == Band::kWithin && column == Band::kWithin) {
        const uint16_t k = knot_number(iy, nx, ix);
        const int64_t xs[2] = {xk[ix], xk[ix + 1]};
        const int64_t ys[2] = {yk[iy], yk[iy + 1]};
        const int64_t zs[4] = {value_at(k), value_at(knot_after(k, 1)), value_at(knot_after(k, nx)),
                               value_at(knot_after(k, nx + 1u))};
        int64_t value = 0;  // stays 0 if the plane refuses the centre
        CalcAddressOnPlane_slXslYslZ(xs, ys, zs, cx, cy, &value);
        return value;
    }
    if (row != Band::kWithin && column != Band::kWithin) {
        const uint16_t corner_row = row == Band::kBefore ? 0 : last_row;
        const uint16_t corner_column = column == Band::kBefore ? 0 : last_column;
        return value_at(knot_number(corner_row, nx, corner_column));
    }
    if (row != Band::kWithin) {  // above or below the grid: along the top or bottom row
        const uint16_t k = knot_number(row == Band::kBefore ? 0 : last_row, nx, ix);
        return on_line(xk[ix], value_at(k), xk[ix + 1], value_at(knot_after(k, 1)), cx);
    }
    // Left or right of the grid: along the first or last column.
    const uint16_t k = column == Band::kBefore
                           ? knot_number(iy, nx, 0)
                           : static_cast<uint16_t>(knot_number(iy + 1u, nx, 0) - 1u);
    return on_line(yk[iy], value_at(k), yk[iy + 1], value_at(knot_after(k, nx)), cy);
}

}  // namespace

void PdLibGetVersion(PdLibVersion* version) {
    version->Major = 1;
    version->Minor = 0;
}

int64_t PdLibGetDefocus(const PdLibInputData* input, PdLibOutputData* output) {
    job_init_output_data(output);
    const int64_t result = job_check_input(input);
    if (result != 0) return result;

    PdLibOutputData computed;
    job_init_output_data(&computed);
    job_calc_defocus(input, &computed);
    job_calc_defocus_confidence_level(input, &computed);
    job_calc_defocus_confidence(input, &computed);
    job_calc_phase_difference(input, &computed);
    *output = computed;
    return 0;
}

void job_init_output_data(PdLibOutputData* output) {
    output->Defocus = 0;
    output->DefocusConfidence = kConfidenceNotComputed;
    output->DefocusConfidenceLevel = 0;
    output->PhaseDifference = 0;
}

int64_t job_check_input(const PdLibInputData* input) {
    const PdLibInputData& in = *input;
    if (in.ImageXSize < 2) return -40;
    if (in.ImageYSize < 2) return -41;
    if (!(in.WindowXStart < in.WindowXEnd && in.WindowXEnd < in.ImageXSize)) return -42;
    if (!(in.WindowYStart < in.WindowYEnd && in.WindowYEnd < in.ImageYSize)) return -43;
    if (in.DefocusXKnotNum < 2 || in.DefocusYKnotNum < 2) return -44;
    if (in.DccScale != kRequiredDccScale) return -45;
    if (!strictly_ascending(in.p_DefocusXKnot, in.DefocusXKnotNum)) return -46;
    if (!strictly_ascending(in.p_DefocusYKnot, in.DefocusYKnotNum)) return -47;
    if ((in.ThrXKnotNum == 0) != (in.ThrYKnotNum == 0)) return -48;
    if (has_threshold_grid(in) && (in.ThrXKnotNum == 1) != (in.ThrYKnotNum == 1)) return -49;
    // Only the first threshold line is checked; the others are trusted.
    if (in.p_DefocusOKNGThrLine[0].PointNum < 2) return -50;
    if (!strictly_ascending(in.p_ThrXKnot, in.ThrXKnotNum)) return -51;
    if (!strictly_ascending(in.p_ThrYKnot, in.ThrYKnotNum)) return -52;
    const uint64_t n = in.ConfidenceNormaliser;
    if (n != 2304 && n != 1152 && n != 576) return -53;
    return 0;
}

int64_t limit_defocus_formula(double defocus) {
    if (defocus <= -2147483647.0) return -2147483647;
    if (defocus >= 2147483646.0) return 2147483646;
    return static_cast<int64_t>(defocus);
}

int64_t calc_defocus_formula(const PdLibInputData* input, uint16_t knot) {
    // Scale times coefficient, times PD, divided, offset added: in this order, in doubles.
    const double defocus = static_cast<double>(input->DccScale) *
                               static_cast<double>(input->p_DefocusDcc[knot]) *
                               static_cast<double>(input->PhaseDifference) / kDccScaleDivisor +
                           static_cast<double>(input->p_DefocusOffset[knot]);
    return limit_defocus_formula(defocus);
}

void job_calc_defocus(const PdLibInputData* input, PdLibOutputData* output) {
    const KnotGrid grid{input->p_DefocusXKnot, input->DefocusXKnotNum, input->p_DefocusYKnot,
                        input->DefocusYKnotNum};
    output->Defocus = interpolate_at_window_centre(
        *input, grid, [input](uint16_t k) { return calc_defocus_formula(input, k); });
}

int64_t calc_defocus_ok_ng_thr(const PdLibInputData* input, uint16_t knot) {
    const PdLibOKNGThrLine& line = input->p_DefocusOKNGThrLine[knot];
    uint64_t threshold = 0;
    if (CalcAddressOnBrokenLine_ulXulY(line.p_X, line.p_Y, line.PointNum, input->SensorGain,
                                       &threshold) != 0) {
        return 0;
    }
    return static_cast<int64_t>(threshold);  // at most 0x7FFFFFFF
}

uint64_t limit_defocus_confidence_level(double level) {
    if (level <= 0.0) return 0;
    if (level >= 4294967294.0) return 4294967294u;
    return static_cast<uint64_t>(level);
}

void job_calc_defocus_confidence_level(const PdLibInputData* input, PdLibOutputData* output) {
    if (!has_threshold_grid(*input) || input->PhaseDifference == kNoPhaseDifference) {
        output->DefocusConfidenceLevel = 0;
        return;
    }

    int64_t threshold = 0;
    if (input->ThrXKnotNum == 1 && input->ThrYKnotNum == 1) {
        threshold = calc_defocus_ok_ng_thr(input, 0);
    } else {
        const KnotGrid grid{input->p_ThrXKnot, input->ThrXKnotNum, input->p_ThrYKnot,
                            input->ThrYKnotNum};
        threshold = interpolate_at_window_centre(
            *input, grid, [input](uint16_t k) { return calc_defocus_ok_ng_thr(input, k); });
    }
    // No positive threshold: every CL passes.
    if (threshold <= 0) {
        output->DefocusConfidenceLevel = kThresholdLevel;
        return;
    }

    const uint64_t normaliser =
        input->ConfidenceNormaliser == 0 ? kUnitNormaliser : input->ConfidenceNormaliser;
    const double level = static_cast<double>(input->ConfidenceLevel) * 1024.0 * 2304.0 /
                         static_cast<double>(normaliser) / static_cast<double>(threshold);
    output->DefocusConfidenceLevel = limit_defocus_confidence_level(level);
}

void job_calc_defocus_confidence(const PdLibInputData* input, PdLibOutputData* output) {
    if (!has_threshold_grid(*input)) {
        output->DefocusConfidence = kConfidenceNoThresholdGrid;
    } else if (input->PhaseDifference == kNoPhaseDifference) {
        output->DefocusConfidence = kConfidenceNoPhaseDifference;
    } else {
        output->DefocusConfidence =
            output->DefocusConfidenceLevel > kHighestFailingLevel ? kConfidenceOk : kConfidenceNg;
    }
}

void job_calc_phase_difference(const PdLibInputData* input, PdLibOutputData* output) {
    output->PhaseDifference = input->PhaseDifference;
}
