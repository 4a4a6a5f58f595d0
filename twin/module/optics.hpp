// The twin's optics: one physical model of how the camera sees a subject, behind every
// reader of the service (the sensor's PD and CL, its gain, the encoder's focus values).
// twin/module/scene_player.hpp applies it to the scene frame by frame; this unit is pure.
//
// Focus. A subject at distance u is sharp when the focus motor stands at the lens model's
// in-focus step for the zoom motor's position and u (twin/module/lens_model.hpp), plus the
// unit's offset. The defocus is the focus motor's step minus that step.
//
// Blur. By the thin-lens law the image of a subject moves by f^2 per unit of 1/u, while the
// lens model moves the in-focus step by r steps per unit of 1/u (r: the model's rate between
// 10 m and 100 m at that zoom), so one focus step shifts the image plane by f^2 / r. The blur
// circle of a defocus d is then |d| f^2 / (r N) at f-number kFNumber. The shift per step
// grows with the focal length, so the same step count blurs more at the tele end: the depth
// of focus narrows as the lens zooms in (about +-25 steps at x3.5, +-8 at x11 for a blur of
// two pixels).
//
// Light. The sensor's auto exposure holds the image level down to kFullExposureLux with a
// shorter exposure, then opens to the full frame time and raises the analogue gain as
// kFullExposureLux / lux, up to kMaxGain; below that the image darkens. The photon signal,
// and with it the signal-to-noise ratio (shot noise: sqrt of the signal), falls in
// proportion to the light below kFullExposureLux.
//
// Phase detection. The sensor correlates the two half-pupil images of a window. The
// strength of the correlation is q = texture x sqrt(photon signal) x the contrast the blur
// leaves of the coarse structure the correlation uses, 1 / (1 + (blur / kPdBlurHalf)^2),
// x a range factor: a shift beyond what the 11-bit PD field can carry (|PD| > 1022) falls
// out of the sensor's search, so the factor drops as exp(-(excess / kPdRangeFalloff)^2).
// The confidence level saturates in q, CL = 2047 (1 - exp(-(q / kClKnee)^2)): a textured
// subject in focus by day reads 2047, a blank wall (texture <= 0.05) stays below 150 in any
// light. The PD is the true per-knot conversion of the defocus at the window's centre
// (twin/module/pd_conversion.hpp) plus Gaussian noise of spread kPdNoiseAtFullSignal / q,
// which grows as the confidence falls.
//
// Focus values. The encoder's two sharpness values are high-pass energies of the frame's
// centre: fv2 of a high band that halves at a blur of two pixels, fv1 of a lower band that
// halves at four. Each is scale x texture x image level / (1 + (blur / half)^2), which peaks
// at the in-focus step and falls on both sides without a second maximum, plus the energy of
// the sensor noise that passes the filter (growing with the gain), with Gaussian frame-to-
// frame noise of kFvNoise x sqrt(gain) of the value.
#pragma once

#include "twin/module/encoder.hpp"

namespace zoomaf::twin {

inline constexpr double kDayLux = 10000.0;    // `light: day`: overcast daylight
inline constexpr double kNightLux = 10.0;     // `light: night`: a street at night
inline constexpr double kFNumber = 2.0;       // over the whole zoom range
inline constexpr double kPixelPitchUm = 1.6;  // a pixel of the sensor's 4000 x 3000 frame
inline constexpr double kFullExposureLux = 2000.0;
inline constexpr double kMaxGain = 16.0;  // gain code 960
inline constexpr double kPdBlurHalf = 8 * kPixelPitchUm;
inline constexpr double kPdRangeFalloff = 200.0;  // PD units beyond the field's range
inline constexpr double kClKnee = 0.2;
inline constexpr double kPdNoiseAtFullSignal = 2.0;  // PD units at q = 1
inline constexpr double kFv1Scale = 5'000'000.0;
inline constexpr double kFv2Scale = 2'000'000.0;
inline constexpr double kFv1BlurHalf = 4 * kPixelPitchUm;
inline constexpr double kFv2BlurHalf = 2 * kPixelPitchUm;
inline constexpr double kFvNoiseEnergy = 0.002;  // of the scale, per unit of gain
inline constexpr double kFvNoise = 0.01;

struct Exposure {
    double gain = 1.0;        // analogue gain, 1 .. kMaxGain
    double brightness = 1.0;  // image level against a fully exposed frame, 0 .. 1
    double signal = 1.0;      // photon signal against a fully exposed frame, 0 .. 1
};

// The auto exposure at an illuminance in lux (0 or more).
Exposure exposure_for_light(double lux);

// The sensor's gain code (registers 0x0204/0x0205) of an analogue gain: the gain is
// 1024 / (1024 - code).
int gain_code_for(double gain);

// How far the image plane moves per focus step, in micrometres, at a zoom motor position.
double image_shift_um_per_step(double zoom_steps);

// Diameter of the blur circle of a defocus (focus steps) at a zoom motor position, in
// micrometres.
double blur_diameter_um(double zoom_steps, double defocus_steps);

// What the phase detection of one window sees: the correlation strength q, the confidence
// level and the spread of the PD noise.
struct PdafView {
    double strength = 0.0;
    int cl = 0;
    double pd_noise_sd = 0.0;  // PD units
};
PdafView pdaf_view(double texture, const Exposure& exposure, double blur_um, double true_pd);

// The noise-free focus values of a frame whose centre subject has this texture and blur.
FocusValues focus_values(double texture, const Exposure& exposure, double blur_um);

// The spread of the focus values' frame-to-frame noise, relative to the values.
double focus_value_noise(const Exposure& exposure);

}  // namespace zoomaf::twin
