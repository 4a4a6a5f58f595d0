#include "twin/module/optics.hpp"

#include <algorithm>
#include <cmath>

#include "twin/module/imx586.hpp"
#include "twin/module/lens_model.hpp"

namespace zoomaf::twin {

namespace {

double attenuation(double blur_um, double half_um) {
    const double ratio = blur_um / half_um;
    return 1.0 / (1.0 + ratio * ratio);
}

}  // namespace

Exposure exposure_for_light(double lux) {
    lux = std::max(lux, 0.0);
    Exposure e;
    e.signal = std::min(lux / kFullExposureLux, 1.0);
    e.gain = lux > 0.0 ? std::clamp(kFullExposureLux / lux, 1.0, kMaxGain) : kMaxGain;
    e.brightness = std::min(e.signal * e.gain, 1.0);
    return e;
}

int gain_code_for(double gain) {
    const double code = 1024.0 - 1024.0 / std::max(gain, 1.0);
    return std::clamp(static_cast<int>(std::lround(code)), 0, 1023);
}

double image_shift_um_per_step(double zoom_steps) {
    constexpr double near_m = 10.0, far_m = 100.0;
    const double steps_per_dioptre =
        (in_focus_focus_step(zoom_steps, near_m) - in_focus_focus_step(zoom_steps, far_m)) /
        (1.0 / near_m - 1.0 / far_m);
    const double focal_m = efl_at_zoom_position(zoom_steps) * 1e-5;  // 0.01 mm
    return focal_m * focal_m / steps_per_dioptre * 1e6;
}

double blur_diameter_um(double zoom_steps, double defocus_steps) {
    return std::fabs(defocus_steps) * image_shift_um_per_step(zoom_steps) / kFNumber;
}

PdafView pdaf_view(double texture, const Exposure& exposure, double blur_um, double true_pd) {
    const double excess = std::max(std::fabs(true_pd) - Imx586::kPdMax + 1, 0.0);
    const double in_range = std::exp(-(excess / kPdRangeFalloff) * (excess / kPdRangeFalloff));
    PdafView view;
    view.strength = std::clamp(texture, 0.0, 1.0) * std::sqrt(exposure.signal) *
                    attenuation(blur_um, kPdBlurHalf) * in_range;
    const double knee = view.strength / kClKnee;
    view.cl = static_cast<int>(std::lround(Imx586::kClMax * (1.0 - std::exp(-knee * knee))));
    view.pd_noise_sd = view.strength > 0.0
                           ? std::min(kPdNoiseAtFullSignal / view.strength, double{Imx586::kPdMax})
                           : double{Imx586::kPdMax};
    return view;
}

FocusValues focus_values(double texture, const Exposure& exposure, double blur_um) {
    auto value = [&](double scale, double half_um) {
        const double signal =
            std::clamp(texture, 0.0, 1.0) * exposure.brightness * attenuation(blur_um, half_um);
        return static_cast<int64_t>(
            std::llround(scale * (signal + kFvNoiseEnergy * exposure.gain)));
    };
    return FocusValues{value(kFv1Scale, kFv1BlurHalf), value(kFv2Scale, kFv2BlurHalf)};
}

double focus_value_noise(const Exposure& exposure) {
    return kFvNoise * std::sqrt(exposure.gain);
}

}  // namespace zoomaf::twin
