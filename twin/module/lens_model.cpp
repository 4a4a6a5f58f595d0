#include "twin/module/lens_model.hpp"

#include <cmath>
#include <cstddef>
#include <utility>

namespace zoomaf::twin {
namespace {

// A monotone piecewise-cubic Hermite curve through knots with rising xs: the knot slopes by
// Fritsch-Carlson, the secant of the end interval beyond the knots. The generator evaluates
// the very same curve.
template <std::size_t N>
class MonotoneCurve {
    static_assert(N >= 3, "a curve needs at least three knots");

public:
    MonotoneCurve(const std::array<double, N>& xs, const std::array<double, N>& ys)
        : xs_(xs), ys_(ys) {
        std::array<double, N - 1> h{};
        for (std::size_t k = 0; k + 1 < N; ++k) {
            h[k] = xs[k + 1] - xs[k];
            secant_[k] = (ys[k + 1] - ys[k]) / h[k];
        }
        for (std::size_t k = 1; k + 1 < N; ++k) {
            // Zero at a local extremum; else the weighted harmonic mean of the secants.
            if (secant_[k - 1] * secant_[k] > 0) {
                const double w1 = 2 * h[k] + h[k - 1];
                const double w2 = h[k] + 2 * h[k - 1];
                slope_[k] = (w1 + w2) / (w1 / secant_[k - 1] + w2 / secant_[k]);
            }
        }
        slope_[0] = end_slope(h[0], h[1], secant_[0], secant_[1]);
        slope_[N - 1] = end_slope(h[N - 2], h[N - 3], secant_[N - 2], secant_[N - 3]);
    }

    double operator()(double x) const {
        if (x <= xs_[0]) return ys_[0] + secant_[0] * (x - xs_[0]);
        if (x >= xs_[N - 1]) return ys_[N - 1] + secant_[N - 2] * (x - xs_[N - 1]);
        std::size_t k = 0;
        while (x > xs_[k + 1]) ++k;
        const double h = xs_[k + 1] - xs_[k];
        const double t = (x - xs_[k]) / h;
        return (1 + 2 * t) * (1 - t) * (1 - t) * ys_[k] + t * (1 - t) * (1 - t) * h * slope_[k] +
               t * t * (3 - 2 * t) * ys_[k + 1] + t * t * (t - 1) * h * slope_[k + 1];
    }

private:
    // The shape-preserving three-point end slope.
    static double end_slope(double h0, double h1, double d0, double d1) {
        const double slope = ((2 * h0 + h1) * d0 - h0 * d1) / (h0 + h1);
        if (slope * d0 <= 0) return 0.0;
        if (d0 * d1 < 0 && std::fabs(slope) > 3 * std::fabs(d0)) return 3 * d0;
        return slope;
    }

    std::array<double, N> xs_, ys_;
    std::array<double, N - 1> secant_{};
    std::array<double, N> slope_{};
};

using ZoomCurve = MonotoneCurve<kLensZoomKnots>;

const ZoomCurve& efl_curve() {
    static const ZoomCurve curve(kLensKnots.zoom_steps, kLensKnots.efl);
    return curve;
}

template <std::size_t... D>
std::array<ZoomCurve, sizeof...(D)> make_focus_curves(std::index_sequence<D...>) {
    return {ZoomCurve(kLensKnots.zoom_steps, kLensKnots.focus_steps[D])...};
}

// One curve per knot distance: the in-focus step at that distance by zoom position.
const std::array<ZoomCurve, kLensDistanceKnots>& focus_curves() {
    static const auto curves = make_focus_curves(std::make_index_sequence<kLensDistanceKnots>{});
    return curves;
}

}  // namespace

double efl_at_zoom_position(double zoom_steps) {
    return efl_curve()(zoom_steps);
}

double zoom_position_for_efl(double efl) {
    const auto& zoom = kLensKnots.zoom_steps;
    const auto& curve = efl_curve();
    // Beyond the knots the curve is a straight line: invert it directly.
    const double tele_efl = curve(zoom.front()), wide_efl = curve(zoom.back());
    if (efl >= tele_efl || efl <= wide_efl) {
        const bool tele = efl >= tele_efl;
        const double z0 = tele ? zoom[0] : zoom[kLensZoomKnots - 2];
        const double z1 = tele ? zoom[1] : zoom[kLensZoomKnots - 1];
        const double secant = (curve(z1) - curve(z0)) / (z1 - z0);
        const double z_end = tele ? z0 : z1;
        return z_end + (efl - curve(z_end)) / secant;
    }
    // Inside the knots: bisection, the focal length falling as the position rises.
    double low = zoom.front(), high = zoom.back();
    for (int i = 0; i < 200 && high - low > 1e-9; ++i) {
        const double middle = 0.5 * (low + high);
        if (curve(middle) > efl) {
            low = middle;
        } else {
            high = middle;
        }
    }
    return 0.5 * (low + high);
}

double in_focus_focus_step(double zoom_steps, double distance_m) {
    // !(d >= nearest) also catches NaN.
    if (!(distance_m >= kLensNearestDistanceM)) distance_m = kLensNearestDistanceM;
    const double x = 1.0 / distance_m;  // 0 at infinity

    std::array<double, kLensDistanceKnots> step{}, inverse{};
    for (int d = 0; d < kLensDistanceKnots; ++d) {
        step[d] = focus_curves()[d](zoom_steps);
        inverse[d] = 1.0 / kLensKnots.distance_m[d];  // rising
    }
    constexpr int last = kLensDistanceKnots - 1;
    if (x >= inverse[0] && x <= inverse[last]) {
        int d = 0;
        while (x > inverse[d + 1]) ++d;
        const double t = (x - inverse[d]) / (inverse[d + 1] - inverse[d]);
        return step[d] + t * (step[d + 1] - step[d]);
    }
    // Beyond the knot distances: the thin-lens law at the knots' average rate.
    const double rate = (step[last] - step[0]) / (inverse[last] - inverse[0]);
    return x < inverse[0] ? step[0] + rate * (x - inverse[0])
                          : step[last] + rate * (x - inverse[last]);
}

}  // namespace zoomaf::twin
