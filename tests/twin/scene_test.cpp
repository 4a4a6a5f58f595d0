// The scene behind the twin, closed loop: the lens placed against the truth, the sensor read
// through the service's register access and defocus library; and the scene files, whose
// every key must be read as written (a misread key changes the scene silently).
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "sensor/pd_readout.hpp"
#include "tests/pdaflib/system_record.hpp"
#include "tests/support/twin_test.hpp"
#include "twin/module/lens_model.hpp"
#include "twin/module/pd_conversion.hpp"
#include "twin/module/scene_file.hpp"
#include "twin/module/scene_player.hpp"
#include "zoomaf/imx586.h"

namespace zoomaf::test {
namespace {

using twin::Motor;

constexpr uint64_t kFrameNs = 33'333'333;
// The zoom positions of the lens at x3.5 and x11 (knots of the lens model).
const int kWide = static_cast<int>(twin::kLensKnots.zoom_steps[4]);
const int kTele = static_cast<int>(twin::kLensKnots.zoom_steps[0]);

twin::Scene scene_of(const std::string& text) {
    const twin::SceneFileResult result = twin::parse_scene(text);
    EXPECT_TRUE(result.scene) << result.error;
    return result.scene.value_or(twin::Scene{});
}

struct GridReading {
    sensor::PdCl windows[sensor::kGridWindows];
    const sensor::PdCl& operator[](int i) const { return windows[i]; }
};

class SceneOnBoard : public TwinTest {
protected:
    // Plays the scene, with the sensor's PD output on the 8 x 6 grid, as the day focus sets
    // it up.
    void play(const std::string& scene_text) {
        player_ = std::make_unique<twin::ScenePlayer>(board(), scene_of(scene_text));
        quietly([] {
            switch_pd_output(1);
            write_dcc_roi(1);
        });
    }
    twin::ScenePlayer& player() { return *player_; }

    // Places the lens and lets two frames pass, so the frame on show was exposed there.
    void place_lens(int zoom, int focus) {
        place_motor(Motor::zoom, zoom);
        place_motor(Motor::focus, focus);
        board().sleep_ns(2 * kFrameNs);
    }

    // The 48 grid windows as the service reads them, under the PD readout hold.
    GridReading read_grid() {
        GridReading grid{};
        int32_t row_counter = 0;
        sensor::read_grid_windows(grid.windows, row_counter);
        return grid;
    }

    // The defocus, in focus steps, the service's library makes of a grid window's PD and CL
    // with the DCC values of the shipped file, on the window of the 48-window layout.
    double library_defocus(int window, int64_t pd, int64_t cl) {
        std::copy(eeprom_dcc, eeprom_dcc + 48, record_.dcc.begin());  // loaded by the test
        const int column = window % 8, row = window / 8;
        record_.input.WindowXStart = static_cast<uint16_t>(80 + 480 * column);
        record_.input.WindowXEnd = static_cast<uint16_t>(560 + 480 * column);
        record_.input.WindowYStart = static_cast<uint16_t>(420 + 360 * row);
        record_.input.WindowYEnd = static_cast<uint16_t>(780 + 360 * row);
        record_.input.PhaseDifference = pd;
        record_.input.ConfidenceLevel = cl;
        return static_cast<double>(record_.run().Defocus) / 16384.0;
    }

    // The mean PD of a window over four frames (the noise halved) and its last CL.
    std::pair<int64_t, int64_t> settled_pd_cl(int window) {
        int64_t sum = 0, cl = 0;
        for (int frame = 0; frame < 4; ++frame) {
            board().sleep_ns(kFrameNs);
            const GridReading grid = read_grid();
            sum += grid[window].pd;
            cl = grid[window].cl;
        }
        return {(sum + 2) / 4, cl};
    }

    SystemRecord record_;
    std::unique_ptr<twin::ScenePlayer> player_;
};

const char* const kTexturedWall = R"(
subject: {distance_m: 12, texture: 0.8}
windows:
  - {index: [5, 6], distance_m: 5, texture: 0.9}
  - {index: 40, texture: 0.03}   # a blank patch of wall
)";

TEST_F(SceneOnBoard, AtTheTrueStepPdIsZeroAndOffItTheServiceLibraryGivesTheDefocusBack) {
    play(kTexturedWall);
    board().write_file(IMX586_DCC_FILE, data_file(IMX586_DCC_FILE));
    quietly([] { read_dcc_data_reg_byfile(IMX586_DCC_FILE, eeprom_dcc); });
    ASSERT_EQ(eeprom_dcc[0], twin::kPdConversionKnots.calibrated_dcc[0]) << "the shipped file";

    uint64_t readout_ns = 0;
    // The defocus stays where the confidence is high: the tele end blurs faster.
    const std::pair<int, std::array<int, 4>> zooms[] = {{kWide, {-100, -40, 40, 100}},
                                                        {kTele, {-60, -30, 30, 60}}};
    for (const auto& [zoom, defocus_steps] : zooms) {
        place_motor(Motor::zoom, zoom);
        const double truth = player().in_focus_step(20);
        const int in_focus = static_cast<int>(std::lround(truth));
        place_lens(zoom, in_focus);
        const uint64_t before = board().now_ns();
        GridReading grid = read_grid();
        readout_ns = board().now_ns() - before;
        for (int i = 0; i < 48; ++i) {
            if (i == 5 || i == 6) continue;  // nearer: out of focus
            if (i == 40) {
                EXPECT_LT(grid[i].cl, 150) << "a blank wall";
                continue;
            }
            EXPECT_LE(std::abs(grid[i].pd), 12) << "window " << i << " within noise of 0";
            EXPECT_GE(grid[i].cl, 2000) << "window " << i;
        }
        if (zoom == kWide) {
            EXPECT_LT(grid[5].pd, -500) << "the nearer subject: the lens stands too low";
        }
        for (int defocus : defocus_steps) {
            place_lens(zoom, in_focus + defocus);
            const double off = in_focus + defocus - truth;
            for (int window : {0, 20, 47}) {
                const auto [pd, cl] = settled_pd_cl(window);
                EXPECT_NEAR(library_defocus(window, pd, cl), off, 0.05 * std::fabs(off))
                    << "zoom " << zoom << ", window " << window << ", PD " << pd << ", CL " << cl;
            }
            EXPECT_LT(read_grid()[40].cl, 150) << "the blank wall at any defocus";
        }
    }
    // 144 reads of one register (120 us each at 400 kHz) and the hold set and released (95 us
    // each, and the service's 20 us wait after each write).
    EXPECT_EQ(readout_ns, 17'510'000u) << "one 48-window readout";
}

TEST(SceneFile, EveryKeyReadsAsWrittenAndBackAgain) {
    const char* const every_key = R"(
name: every_key
seed: 7
module: ms41908
lens_offset_steps: -4.5
start_multiple: 3.5
light: 250
subject: {distance_m: .inf, texture: 0.25}
windows: [{index: [11, 12], distance_m: 5, texture: 0.9}, {index: 47, texture: 0}]
laser: {distance_m: 12, no_echo: 0.05}
events:
  - {at: 2.0, zoom: 8.0}
  - {at: 4.0, subject: {distance_m: 30}, laser: {distance_m: 30}, light: night}
  - {at: 4.0, windows: [{index: 3, distance_m: 2}], laser: none}
  - {at: 5.0, day_night: night, mode: free, point: [1920, 1080], area_point: [1, 2]}
  - {at: 8.0, manual: 0.4, refocus: true, mode: manual, light: day}
duration_s: 20
)";
    const twin::Scene scene = scene_of(every_key);
    EXPECT_EQ(scene.start.windows[12], (twin::Subject{5, 0.9}));
    EXPECT_EQ(scene.start.windows[47], (twin::Subject{INFINITY, 0}));
    EXPECT_EQ(scene.events[1].scene.laser, (twin::LaserChange{false, 30.0, std::nullopt}));
    const twin::SceneFileResult again = twin::parse_scene(twin::write_scene(scene));
    ASSERT_TRUE(again.scene) << again.error << "\n" << twin::write_scene(scene);
    EXPECT_EQ(*again.scene, scene) << twin::write_scene(scene);
}

}  // namespace
}  // namespace zoomaf::test
