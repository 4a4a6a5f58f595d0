#include "twin/module/pd_conversion.hpp"

#include <algorithm>
#include <cstddef>

namespace zoomaf::twin {
namespace {

// The cell of a rising knot list that holds v, and v's place in it (0..1), held at the ends.
template <std::size_t N>
std::pair<std::size_t, double> cell_of(const std::array<double, N>& knots, double v) {
    if (v <= knots.front()) return {0, 0.0};
    if (v >= knots.back()) return {N - 2, 1.0};
    std::size_t i = 0;
    while (v > knots[i + 1]) ++i;
    return {i, (v - knots[i]) / (knots[i + 1] - knots[i])};
}

}  // namespace

double true_dcc_at(double x, double y) {
    const PdConversionKnots& k = kPdConversionKnots;
    const auto [column, tx] = cell_of(k.x, x);
    const auto [row, ty] = cell_of(k.y, y);
    auto at = [&](std::size_t r, std::size_t c) { return k.true_dcc[r * kPdKnotColumns + c]; };
    const double top = at(row, column) + tx * (at(row, column + 1) - at(row, column));
    const double bottom =
        at(row + 1, column) + tx * (at(row + 1, column + 1) - at(row + 1, column));
    return top + ty * (bottom - top);
}

double phase_difference_for_defocus(double defocus_steps, double x, double y) {
    return defocus_steps * kDefocusUnitsPerStep / true_dcc_at(x, y);
}

}  // namespace zoomaf::twin
