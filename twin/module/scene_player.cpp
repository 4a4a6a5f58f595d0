#include "twin/module/scene_player.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string>

#include "twin/module/optics.hpp"
#include "twin/module/pd_conversion.hpp"

namespace zoomaf::twin {

namespace {

// The seeded streams of the scene's noise (apart from the board's own).
constexpr uint64_t kPdNoiseStream = 30;
constexpr uint64_t kFvNoiseStream = 31;

double gaussian(SeededRandom& random) {
    const double u1 = 1.0 - random.unit();  // (0, 1]
    const double u2 = random.unit();
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2);
}

uint16_t decimetres(double metres) {
    return static_cast<uint16_t>(std::clamp(std::lround(metres * 10.0), 0L, 65534L));
}

// A scene made in code may hold any rate; the laser takes 0 .. 1.
double no_echo_rate(const LaserTarget& target) {
    return target.no_echo_rate >= 0.0 ? std::min(target.no_echo_rate, 1.0) : 0.0;
}

LaserConfig laser_config(const Scene& scene, const ScenePlayerConfig& config) {
    const LaserTarget target = scene.start.laser.value_or(LaserTarget{});
    return LaserConfig{.period_ns = config.laser_period_ns,
                       .distance = decimetres(target.distance_m),
                       .no_echo_rate = no_echo_rate(target),
                       .seed = scene.seed};
}

}  // namespace

ScenePlayer::ScenePlayer(Board& board, Scene scene, ScenePlayerConfig config)
    : board_(board),
      scene_(std::move(scene)),
      config_(config),
      unit_{scene_.lens_offset_steps},
      laser_(board, laser_config(scene_, config)),
      encoder_(board, EncoderConfig{.frame_period_ns = 0}),
      area_channel_(board, VREL_AREA_FOCUS_CHANNEL),
      state_(scene_.start),
      pd_noise_(seed_stream(scene_.seed, kPdNoiseStream)),
      fv_noise_(seed_stream(scene_.seed, kFvNoiseStream)),
      first_frame_ns_(board.now_ns()),
      exposed_(lens_now()) {
    laser_.set_present(scene_.start.laser.has_value());
    event_ = board_.add_periodic(config_.frame_period_ns,
                                 [this](uint64_t now_ns) { on_frame_time(now_ns); });
}

ScenePlayer::~ScenePlayer() {
    board_.cancel_periodic(event_);
}

void ScenePlayer::start_events() {
    const uint64_t now = board_.now_ns();
    std::lock_guard lock(mutex_);
    if (!events_start_ns_) events_start_ns_ = now;
}

SceneState ScenePlayer::state() const {
    std::lock_guard lock(mutex_);
    return state_;
}

ScenePlayer::Lens ScenePlayer::lens_now() const {
    return Lens{
        board_.with<LensMotor>(Motor::zoom, [](const LensMotor& m) { return m.position(); }),
        board_.with<LensMotor>(Motor::focus, [](const LensMotor& m) { return m.position(); })};
}

int ScenePlayer::zoom_position() const {
    return lens_now().zoom;
}

int ScenePlayer::focus_position() const {
    return lens_now().focus;
}

double ScenePlayer::in_focus_step(int window) const {
    if (window < 0 || window >= kSceneWindows) {
        throw std::out_of_range("twin scene: no grid window " + std::to_string(window));
    }
    const int zoom = zoom_position();
    std::lock_guard lock(mutex_);
    return unit_.in_focus_focus_step(zoom, state_.windows[window].distance_m);
}

int ScenePlayer::centre_window() const {
    std::lock_guard lock(mutex_);
    return twin::centre_window(state_);
}

double ScenePlayer::centre_in_focus_step() const {
    return in_focus_step(centre_window());
}

std::vector<FrameRecord> ScenePlayer::frames() const {
    std::lock_guard lock(mutex_);
    return {frames_.begin(), frames_.end()};
}

uint64_t ScenePlayer::frames_made() const {
    std::lock_guard lock(mutex_);
    return frames_made_;
}

void ScenePlayer::apply_events_due(uint64_t time_ns, std::vector<AreaPoint>& points,
                                   bool& laser_changed) {
    if (!events_start_ns_) return;
    const auto& events = scene_.events;
    while (next_event_ < events.size() &&
           *events_start_ns_ +
                   static_cast<uint64_t>(std::llround(events[next_event_].at_s * 1e9)) <=
               time_ns) {
        const SceneChange& change = events[next_event_].scene;
        change.apply_to(state_);
        if (change.area_point) points.push_back(*change.area_point);
        laser_changed = laser_changed || change.laser.has_value();
        ++next_event_;
    }
}

FrameRecord ScenePlayer::make_frame(
    uint64_t time_ns, Lens lens, const std::array<PdWindowGeometry, Imx586::kWindows>& geometry) {
    FrameRecord frame;
    frame.time_ns = time_ns;
    frame.zoom_position = lens.zoom;
    frame.focus_position = lens.focus;
    const Exposure exposure = exposure_for_light(state_.lux);
    frame.gain_code = gain_code_for(exposure.gain);

    auto defocus_of = [&](const Subject& subject) {
        return lens.focus - unit_.in_focus_focus_step(lens.zoom, subject.distance_m);
    };
    // The reading of a window centred at (x, y) on the subject of grid window `window`.
    auto reading = [&](int window, double x, double y) {
        const Subject& subject = state_.windows[window];
        const double defocus = defocus_of(subject);
        const double true_pd = phase_difference_for_defocus(defocus, x, y);
        const PdafView view =
            pdaf_view(subject.texture, exposure, blur_diameter_um(lens.zoom, defocus), true_pd);
        const double pd = std::clamp(true_pd + view.pd_noise_sd * gaussian(pd_noise_),
                                     double{Imx586::kPdMin}, double{Imx586::kPdMax});
        return PdCl{static_cast<int>(std::lround(pd)), view.cl};
    };
    for (int i = 0; i < kSceneWindows; ++i) {
        frame.grid[i] = reading(i, grid_window_centre_x(i), grid_window_centre_y(i));
    }
    for (int k = 0; k < Imx586::kWindows; ++k) {
        const PdWindowGeometry& g = geometry[k];
        const double x = 0.5 * (g.x_start + g.x_end), y = 0.5 * (g.y_start + g.y_end);
        frame.windows[k] = reading(grid_window_at(x, y), x, y);
    }

    frame.centre_window = twin::centre_window(state_);
    const Subject& centre = state_.windows[frame.centre_window];
    const double centre_defocus = defocus_of(centre);
    frame.centre_in_focus_step = lens.focus - centre_defocus;
    const FocusValues mean =
        focus_values(centre.texture, exposure, blur_diameter_um(lens.zoom, centre_defocus));
    const double spread = focus_value_noise(exposure);
    auto noisy = [&](int64_t value) {
        const double v = static_cast<double>(value) * (1.0 + spread * gaussian(fv_noise_));
        return static_cast<int64_t>(std::llround(std::max(v, 0.0)));
    };
    frame.fv = FocusValues{noisy(mean.fv1), noisy(mean.fv2)};
    return frame;
}

void ScenePlayer::set_laser(const std::optional<LaserTarget>& target) {
    laser_.set_present(target.has_value());
    if (!target) return;
    laser_.set_distance(decimetres(target->distance_m));
    laser_.set_no_echo_rate(no_echo_rate(*target));
}

void ScenePlayer::on_frame_time(uint64_t now_ns) {
    const Lens lens = lens_now();
    std::array<PdWindowGeometry, Imx586::kWindows> geometry{};
    board_.with<Imx586>([&](const Imx586& sensor) {
        for (int k = 0; k < Imx586::kWindows; ++k) geometry[k] = sensor.window(k);
    });

    std::optional<FrameRecord> shown;
    std::vector<AreaPoint> points;
    bool laser_changed = false;
    std::optional<LaserTarget> laser;
    {
        std::lock_guard lock(mutex_);
        const uint64_t period = config_.frame_period_ns;
        const uint64_t last = (now_ns - first_frame_ns_) / period;
        for (uint64_t k = last_frame_ + 1; k <= last; ++k) {
            // Frame k was exposed while frame k-1 showed: the first of this stretch saw the
            // lens of the last frame time; the later ones, the lens as it stands now.
            const Lens exposure = k == last_frame_ + 1 ? exposed_ : lens;
            apply_events_due(first_frame_ns_ + (k - 1) * period, points, laser_changed);
            // Frames that would fall out of the record at once are not worth making.
            if (last - k >= config_.recorded_frames) continue;
            shown = make_frame(first_frame_ns_ + k * period, exposure, geometry);
            frames_.push_back(*shown);
            if (frames_.size() > config_.recorded_frames) frames_.pop_front();
            ++frames_made_;
        }
        last_frame_ = std::max(last_frame_, last);
        exposed_ = lens;
        laser = state_.laser;
    }
    if (laser_changed) set_laser(laser);
    for (const AreaPoint& point : points) {
        const VrelAreaFocusPoint payload{point.x, point.y};
        area_channel_.publish(&payload, sizeof payload);
    }
    if (!shown) return;
    board_.with<Imx586>([&](Imx586& sensor) {
        sensor.show_frame(shown->grid, shown->windows);
        sensor.set_gain_code(shown->gain_code);
    });
    encoder_.encode(shown->fv);
}

}  // namespace zoomaf::twin
