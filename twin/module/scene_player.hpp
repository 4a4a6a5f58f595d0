// Plays a scene on the board: what the camera sees follows from the scene and from where the
// motors physically stand, through the one optical model (twin/module/optics.hpp).
//
// - Sensor: a new frame every frame period of board time. Frame k shows the lens as it stood
//   when frame k-1 appeared (its exposure: one frame of latency). Each grid window reads the
//   PD and CL of its own subject at its centre; each of the eight programmable windows reads
//   the subject of the grid window under its centre, at its own centre. The frame appears in
//   the PD/CL block when the PD readout hold allows; the gain code follows the light.
// - Encoder: every frame publishes the centre subject's focus values on channel 30.
// - Laser: measures the scene's laser target on its own period into channel 12 (no laser:
//   nothing is published).
// - Events: once start_events() is called, the scene's events fall due at their time; each
//   applies to the first frame exposed at or after it. An area point is published on the
//   area-focus channel 19 as another process would. The application's calls of the events
//   are left to whoever replays the scene.
//
// Frames come from the board's periodic events: when the clock passes several frame times
// at once (a long sleep), each of those frames is made and recorded, and the last one is
// shown. The motors move only when the service drives them, never while the clock runs, so
// a frame whose exposure fell inside that stretch saw the lens where it stands now.
//
// Control face (thread-safe; the truth for tests and the scenario runner): the physical
// positions, the true in-focus step of any window and of the centre subject, the scene as
// it stands, and the record of the latest frames.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "twin/kernel/random.hpp"
#include "twin/module/board.hpp"
#include "twin/module/channel_publisher.hpp"
#include "twin/module/encoder.hpp"
#include "twin/module/imx586.hpp"
#include "twin/module/laser.hpp"
#include "twin/module/lens_model.hpp"
#include "twin/module/scene.hpp"

namespace zoomaf::twin {

// One frame as the sensor and the encoder showed it, with the truth behind it.
struct FrameRecord {
    uint64_t time_ns = 0;                           // board time the frame appeared
    int zoom_position = 0, focus_position = 0;      // the motors at exposure
    int centre_window = 0;                          // the centre subject's window
    double centre_in_focus_step = 0.0;              // its true in-focus step at exposure
    std::array<PdCl, Imx586::kGridWindows> grid{};  // as the 11-bit fields carry them
    std::array<PdCl, Imx586::kWindows> windows{};
    int gain_code = 0;
    FocusValues fv{};
};

struct ScenePlayerConfig {
    uint64_t frame_period_ns = 33'333'333;  // 30 frames a second
    uint64_t laser_period_ns = 100'000'000;
    size_t recorded_frames = 1024;  // the newest frames kept (about 34 s)
};

class ScenePlayer {
public:
    // Starts the frames and the laser on the board (from one period on). Must go before the
    // board does. Throws what ChannelPublisher throws.
    ScenePlayer(Board& board, Scene scene, ScenePlayerConfig config = {});
    ~ScenePlayer();
    ScenePlayer(const ScenePlayer&) = delete;
    ScenePlayer& operator=(const ScenePlayer&) = delete;

    // The scene's events fall due at their `at` seconds from now on (once; later calls do
    // nothing).
    void start_events();

    // ---- control face ----
    const Scene& scene() const { return scene_; }
    SceneState state() const;
    int zoom_position() const;
    int focus_position() const;
    // The true in-focus focus step of a grid window (0..47, std::out_of_range otherwise) at
    // the zoom motor's position now, the unit's offset included.
    double in_focus_step(int window) const;
    // The centre subject: the nearest subject among the centre windows (the first of equals).
    int centre_window() const;
    double centre_in_focus_step() const;
    // The recorded frames, oldest first, and the number of frames made so far.
    std::vector<FrameRecord> frames() const;
    uint64_t frames_made() const;
    const Laser& laser() const { return laser_; }

private:
    struct Lens {
        int zoom = 0, focus = 0;
    };

    Lens lens_now() const;
    void on_frame_time(uint64_t now_ns);
    // Under mutex_: the events due by a time, then one frame.
    void apply_events_due(uint64_t time_ns, std::vector<AreaPoint>& points, bool& laser_changed);
    FrameRecord make_frame(uint64_t time_ns, Lens lens,
                           const std::array<PdWindowGeometry, Imx586::kWindows>& geometry);
    void set_laser(const std::optional<LaserTarget>& target);

    Board& board_;
    const Scene scene_;
    const ScenePlayerConfig config_;
    const LensUnit unit_;
    Laser laser_;
    Encoder encoder_;
    ChannelPublisher area_channel_;

    mutable std::mutex mutex_;
    SceneState state_;
    SeededRandom pd_noise_, fv_noise_;
    const uint64_t first_frame_ns_;  // frame k appears at first_frame_ns_ + k x period
    uint64_t last_frame_ = 0;
    Lens exposed_{};  // the lens when the last frame appeared: the next frame's exposure
    std::optional<uint64_t> events_start_ns_;
    size_t next_event_ = 0;
    std::deque<FrameRecord> frames_;
    uint64_t frames_made_ = 0;
    int event_ = 0;
};

}  // namespace zoomaf::twin
