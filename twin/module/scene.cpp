#include "twin/module/scene.hpp"

#include <algorithm>
#include <cmath>

namespace zoomaf::twin {

namespace {
constexpr double kGridLeft = 80.0, kGridTop = 420.0;
constexpr double kCellWidth = 480.0, kCellHeight = 360.0;
}  // namespace

void SubjectChange::apply_to(Subject& subject) const {
    if (distance_m) subject.distance_m = *distance_m;
    if (texture) subject.texture = *texture;
}

void SceneChange::apply_to(SceneState& state) const {
    if (subject) {
        for (Subject& window : state.windows) subject->apply_to(window);
    }
    for (const WindowsChange& change : windows) {
        for (int index : change.indices) {
            if (index >= 0 && index < kSceneWindows) change.subject.apply_to(state.windows[index]);
        }
    }
    if (lux) state.lux = *lux;
    if (laser) {
        if (laser->off) {
            state.laser.reset();
        } else if (state.laser || laser->distance_m) {
            LaserTarget target = state.laser.value_or(LaserTarget{});
            if (laser->distance_m) target.distance_m = *laser->distance_m;
            if (laser->no_echo_rate) target.no_echo_rate = *laser->no_echo_rate;
            state.laser = target;
        }
    }
}

int centre_window(const SceneState& state) {
    return *std::min_element(kCentreWindows.begin(), kCentreWindows.end(), [&](int a, int b) {
        return state.windows[a].distance_m < state.windows[b].distance_m;
    });
}

BoardConfig board_config_for(const Scene& scene) {
    return BoardConfig{.seed = scene.seed, .driver = scene.module};
}

int grid_window_at(double x, double y) {
    const int column = std::clamp(static_cast<int>(std::floor((x - kGridLeft) / kCellWidth)), 0,
                                  kSceneColumns - 1);
    const int row =
        std::clamp(static_cast<int>(std::floor((y - kGridTop) / kCellHeight)), 0, kSceneRows - 1);
    return kSceneColumns * row + column;
}

double grid_window_centre_x(int index) {
    return kGridLeft + kCellWidth * (index % kSceneColumns + 0.5);
}

double grid_window_centre_y(int index) {
    return kGridTop + kCellHeight * (index / kSceneColumns + 0.5);
}

}  // namespace zoomaf::twin
