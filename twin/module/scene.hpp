// What is in front of the camera: the scene the twin sees, as a scene file describes it
// (docs/scenes.md; twin/module/scene_file.hpp reads and writes the files).
//
// Per window of the sensor's 8 x 6 grid (index 8 x row + column) a subject with its distance
// and texture; the light; the laser's target, or no laser. Changes come as events at board
// seconds after start-up: the twin's part (subject, windows, light, laser, an area-focus
// point another process publishes) is applied by the scene player on board time; the
// application's part (zoom, day/night, focus mode, point, manual position, refocus) is for
// whoever replays the scene to call into the service.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "twin/module/board.hpp"
#include "twin/module/optics.hpp"

namespace zoomaf::twin {

inline constexpr int kSceneColumns = 8;
inline constexpr int kSceneRows = 6;
inline constexpr int kSceneWindows = kSceneColumns * kSceneRows;
// The windows of the frame's centre; the centre subject is the nearest of them.
inline constexpr std::array<int, 4> kCentreWindows = {19, 20, 27, 28};

struct Subject {
    double distance_m = 10.0;  // > 0; infinity allowed
    double texture = 0.5;      // 0 (a blank wall) .. 1
    bool operator==(const Subject&) const = default;
};

struct LaserTarget {
    double distance_m = 10.0;   // 0 .. 6553.4 (the 16-bit reading in 0.1 m, below no-echo)
    double no_echo_rate = 0.0;  // 0 .. 1: the share of measurements that get no echo
    bool operator==(const LaserTarget&) const = default;
};

// The scene at one moment.
struct SceneState {
    std::array<Subject, kSceneWindows> windows{};
    double lux = kDayLux;
    std::optional<LaserTarget> laser;  // none: the camera has no laser (or it is off)
    bool operator==(const SceneState&) const = default;
};

// A change of subject: what is given changes, the rest stays.
struct SubjectChange {
    std::optional<double> distance_m, texture;
    void apply_to(Subject& subject) const;
    bool operator==(const SubjectChange&) const = default;
};

struct WindowsChange {
    std::vector<int> indices;  // 0 .. 47
    SubjectChange subject;
    bool operator==(const WindowsChange&) const = default;
};

struct LaserChange {
    bool off = false;  // `laser: none`
    std::optional<double> distance_m, no_echo_rate;
    bool operator==(const LaserChange&) const = default;
};

struct AreaPoint {
    int32_t x = 0, y = 0;
    bool operator==(const AreaPoint&) const = default;
};

// The twin's part of an event.
struct SceneChange {
    std::optional<SubjectChange> subject;  // every window, before the window changes
    std::vector<WindowsChange> windows;
    std::optional<double> lux;
    std::optional<LaserChange> laser;
    std::optional<AreaPoint> area_point;  // published on the area-focus channel

    // Applies the subject, window, light and laser changes. A laser change that gives no
    // distance while there is no laser leaves it off (the scene file refuses it).
    void apply_to(SceneState& state) const;
    bool operator==(const SceneChange&) const = default;
};

enum class DayNight { day, night };
enum class FocusMode { centre, free, manual };

// The application's part of an event: the calls the one who replays the scene makes.
struct AppCalls {
    std::optional<float> zoom;          // AppSetMultipleByPdTrend(multiple)
    std::optional<DayNight> day_night;  // set_day_or_night_focus_mode
    std::optional<FocusMode> mode;      // AppSetMode
    std::optional<AreaPoint> point;     // AppSetFocusCoordinates(x, y)
    std::optional<float> manual;        // AppSetFocusPercentagePosition(fraction)
    bool refocus = false;               // focus once more, as the console does
    bool operator==(const AppCalls&) const = default;
};

struct SceneEvent {
    double at_s = 0.0;  // board seconds after start-up
    SceneChange scene;
    AppCalls app;
    bool operator==(const SceneEvent&) const = default;
};

struct Scene {
    std::string name;
    uint64_t seed = 1;  // the board's draws and the scene's noise
    DriverType module = DriverType::ms41928;
    double lens_offset_steps = 0.0;  // the unit's lens against the lens model
    float start_multiple = 3.5f;     // where start-up brings the zoom
    SceneState start;
    std::vector<SceneEvent> events;  // in time order
    double duration_s = 10.0;
    bool operator==(const Scene&) const = default;
};

// The centre subject's window: the nearest subject among the centre windows (the first of
// equals).
int centre_window(const SceneState& state);

// The board a scene runs on: its seed and module type.
BoardConfig board_config_for(const Scene& scene);

// The window under a point of the sensor's 4000 x 3000 coordinates (the grid's windows span
// 480 x 360 from (80, 420); points outside take the nearest window).
int grid_window_at(double x, double y);
// The centre of a grid window in the sensor's coordinates.
double grid_window_centre_x(int index);
double grid_window_centre_y(int index);

}  // namespace zoomaf::twin
