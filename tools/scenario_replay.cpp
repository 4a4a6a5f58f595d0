#include "tools/scenario_replay.hpp"

#include <algorithm>
#include <cstdio>

#include "bench/start_up.hpp"
#include "service/af_loop.hpp"
#include "service/area_focus_updates.hpp"
#include "service/console.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/night_focus.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf::scenario {
namespace {

// The cells of the free focus point in the frame of AppSetFocusCoordinates, as the
// free-area readout takes them: the window under the point is the cell it falls in.
constexpr int32_t kPointCellWidth = 480;
constexpr int32_t kPointCellHeight = 360;
constexpr int64_t kNoReadout = -1;

double seconds(uint64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

int window_under_point(int32_t x, int32_t y) {
    const int column = std::clamp(x / kPointCellWidth, 0, twin::kSceneColumns - 1);
    const int row = std::clamp(y / kPointCellHeight, 0, twin::kSceneRows - 1);
    return twin::kSceneColumns * row + column;
}

// By day the service's own lock, at night in centre mode the search done, in manual mode
// the requested move made.
bool focus_locked() {
    const int32_t mode = current_focus_mode.load(std::memory_order_relaxed);
    if (mode == MANUAL_FOCUS_MODE) return is_manual_positon_update == 0;
    if (cur_day_night_mode != 0 && mode == PDAF_CENTER_MODE)
        return night_focus_man.state == NIGHT_STATE_DONE;
    return is_free_focus_opr_over.load(std::memory_order_relaxed) == 1;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string light_text(double lux) {
    return lux == twin::kDayLux ? "day" : lux == twin::kNightLux ? "night" : number(lux);
}

// The event's changes as "key value" items, and its keys.
void describe(const twin::SceneEvent& event, std::vector<std::string>& items,
              std::vector<std::string>& keys) {
    auto add = [&](const std::string& key, const std::string& value) {
        items.push_back(value.empty() ? key : key + " " + value);
        if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    };
    const twin::SceneChange& scene = event.scene;
    if (scene.subject) add("subject", "");
    if (!scene.windows.empty()) add("windows", "");
    if (scene.lux) add("light", light_text(*scene.lux));
    if (scene.laser) {
        add("laser", scene.laser->off          ? "none"
                     : scene.laser->distance_m ? number(*scene.laser->distance_m) + " m"
                                               : "");
    }
    if (scene.area_point)
        add("area_point", number(scene.area_point->x) + " " + number(scene.area_point->y));
    const twin::AppCalls& app = event.app;
    static const char* const kModes[] = {"centre", "free", "manual"};
    if (app.mode) add("mode", kModes[static_cast<int>(*app.mode)]);
    if (app.point) add("point", number(app.point->x) + " " + number(app.point->y));
    if (app.manual) add("manual", number(*app.manual));
    if (app.day_night) add("day_night", *app.day_night == twin::DayNight::night ? "night" : "day");
    if (app.zoom) add("zoom", number(*app.zoom));
    if (app.refocus) add("refocus", "");
}

// The application's calls of an event, as its threads would make them. The mode goes first,
// since a point and a manual position are refused in another mode.
void make_calls(const twin::AppCalls& app) {
    if (app.mode) {
        static const int32_t kModes[] = {PDAF_CENTER_MODE, PDAF_FREE_MODE, MANUAL_FOCUS_MODE};
        AppSetMode(kModes[static_cast<int>(*app.mode)]);
    }
    if (app.point) AppSetFocusCoordinates(app.point->x, app.point->y);
    if (app.manual) AppSetFocusPercentagePosition(*app.manual);
    if (app.day_night) set_day_or_night_focus_mode(*app.day_night == twin::DayNight::night);
    if (app.zoom) AppSetMultipleByPdTrend(*app.zoom);
    if (app.refocus) focus_once_more();
}

std::string joined(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : separator) + part;
    return text;
}

class Replayer {
public:
    Replayer(bench::SimBoard& sim, const twin::Scene& scene, Replay& replay)
        : sim_(sim),
          scene_(scene),
          replay_(replay),
          unit_{scene.lens_offset_steps},
          scene_state_(scene.start) {}

    void run(const volatile std::sig_atomic_t& stop) {
        sim_.player().start_events();
        start_ns_ = sim_.board().now_ns();
        VrelShareManInit(&area_channel_, VREL_AREA_FOCUS_CHANNEL);
        start_af_loop(loop_, LoopVariant::application);
        replay_.moments.push_back({0.0, "start", 0, false});
        while (stop == 0 && now_s() < scene_.duration_s) {
            const std::string event = take_due_moments();
            poll_area_channel();
            pass(event);
        }
        replay_.board_time_s = now_s();
        replay_.interrupted = stop != 0;
    }

private:
    double now_s() const { return seconds(sim_.board().now_ns() - start_ns_); }

    // The moments due by now: their calls made, their changes described. The lock is noted
    // for the segment that starts here once the calls are made.
    std::string take_due_moments() {
        std::vector<std::string> items;
        const auto& events = scene_.events;
        while (next_event_ < events.size() && events[next_event_].at_s <= now_s()) {
            const double at = events[next_event_].at_s;
            std::vector<std::string> keys;
            for (; next_event_ < events.size() && events[next_event_].at_s == at; ++next_event_) {
                describe(events[next_event_], items, keys);
                events[next_event_].scene.apply_to(scene_state_);
                make_calls(events[next_event_].app);
            }
            if (at > 0.0) replay_.moments.push_back({at, joined(keys, "+"), replay_.rows.size()});
        }
        for (Moment& moment : replay_.moments) {
            if (moment.first_row == replay_.rows.size()) moment.locked_at_start = focus_locked();
        }
        return joined(items, "; ");
    }

    // In place of the application's area-focus thread, which polls on its own.
    void poll_area_channel() {
        if (!area_channel_ok_) return;
        area_channel_ok_ = area_focus_pass(area_channel_);
        if (!area_channel_ok_) unlock();  // the thread would have ended holding it
    }

    void pass(const std::string& event) {
        const twin::ScenePlayer& player = sim_.player();
        PassRow row;
        row.pass = static_cast<int>(replay_.rows.size()) + 1;
        row.t_s = now_s();
        row.focus_before = player.focus_position();
        row.event = event;
        loop_.chosen_cl = kNoReadout;
        run_af_pass(loop_);
        row.end_s = now_s();

        row.multiple = current_multiple;
        row.zoom_step = player.zoom_position();
        row.focus_step = player.focus_position();
        row.mode = current_focus_mode.load(std::memory_order_relaxed);
        row.day_night = cur_day_night_mode;
        row.night_state = night_focus_man.state;
        row.locked = focus_locked();
        // The scene as it stood when the pass began; the zoom moves only between passes.
        row.aimed_window = row.mode == PDAF_FREE_MODE
                               ? window_under_point(free_focus_pointx, free_focus_pointy)
                               : twin::centre_window(scene_state_);
        row.subject_distance_m =
            scene_state_.windows[static_cast<size_t>(row.aimed_window)].distance_m;
        row.true_focus_step = unit_.in_focus_focus_step(row.zoom_step, row.subject_distance_m);
        row.lux = scene_state_.lux;
        if (loop_.chosen_cl != kNoReadout) {
            row.pd = loop_.chosen_pd;
            row.cl = loop_.chosen_cl;
            if (zy_current_select_win >= 0 && zy_current_select_win < PDAF_GRID_WINDOWS)
                row.window = zy_current_select_win;
        }
        const std::vector<twin::FrameRecord> frames = player.frames();
        if (!frames.empty()) row.fv2 = frames.back().fv.fv2;
        row.laser_dm = global_laser_distance;
        replay_.rows.push_back(std::move(row));
    }

    bench::SimBoard& sim_;
    const twin::Scene& scene_;
    Replay& replay_;
    uint64_t start_ns_ = 0;
    AfLoopState loop_;
    VrelShareMan area_channel_{};
    bool area_channel_ok_ = true;
    size_t next_event_ = 0;
    const twin::LensUnit unit_;
    twin::SceneState scene_state_;  // the scene as of the last moment that fell due
};

}  // namespace

bool replay_scene(bench::SimBoard& sim, const twin::Scene& scene,
                  const volatile std::sig_atomic_t& stop, Replay& replay, std::string& error) {
    if (!bench::start_up_service()) {
        error = "the service could not read its lens table (see service.log)";
        return false;
    }
    VerificationSetMotordevInit(scene.start_multiple);
    Replayer(sim, scene, replay).run(stop);
    return true;
}

}  // namespace zoomaf::scenario
