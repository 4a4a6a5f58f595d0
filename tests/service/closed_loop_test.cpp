// The auto-focus loop on the twin. Closed loop on the twin's scene: the service's own loop pass
// driven in virtual time, the application's zooms between passes, every result judged against
// the lens's truth (the centre subject's in-focus step); each run prints its figures ("[ figures
// ]" lines). Then the loop pass by pass without a scene, and the test console fed from a script.
#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "service/af_loop.hpp"
#include "service/console.hpp"
#include "tests/support/twin_test.hpp"
#include "twin/module/scene_file.hpp"
#include "twin/module/scene_player.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/night_focus.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class ClosedLoop : public TwinTest {
protected:
    // The scene in front of the lens, the service and motors started as the bench does, the
    // laser's first reading in, and the application's loop started.
    void play(const std::string& text) {
        const twin::SceneFileResult parsed = twin::parse_scene(text);
        ASSERT_TRUE(parsed.scene) << parsed.error;
        player_ = std::make_unique<twin::ScenePlayer>(board(), *parsed.scene);
        start_focus_service();
        start_motors(parsed.scene->start_multiple);
        board().sleep_ns(100'000'000);
        player_->start_events();
        quietly([&] { start_af_loop(state_, LoopVariant::application); });
    }
    void TearDown() override {
        player_.reset();
        TwinTest::TearDown();
    }

    // One pass with its messages in output_ and only its own requests in the recorder.
    bool pass() {
        recorder().clear();
        return call([&] { return run_af_pass(state_); });
    }
    // Passes until done() holds after one, at most max; returns the passes run, their
    // messages in said_.
    template <class Done>
    int passes_until(Done done, int max) {
        said_.clear();
        int passes = 0;
        while (passes < max) {
            pass();
            said_ += output_;
            ++passes;
            if (done()) break;
        }
        return passes;
    }
    static bool locked() { return is_free_focus_opr_over == 1; }
    // The focus motor's physical step minus the centre subject's true in-focus step.
    double error() const { return player_->focus_position() - player_->centre_in_focus_step(); }
    static void zoom(float multiple) {
        quietly([&] { AppSetMultipleByPdTrend(multiple); });
    }

    std::unique_ptr<twin::ScenePlayer> player_;
    AfLoopState state_;
    std::string said_;
};

// Day, centre mode, a subject at 12 m with the laser on it: from start-up 60 steps off, then
// after zooms in centre mode and from free mode, the loop locks on the truth. A lock takes three
// calls in a row with |PD| < 10 and CL > 1000, and 11 passes since a zoom that left free mode.
TEST_F(ClosedLoop, DayLocksOnTheTruthFromStartUpAndAfterEveryZoom) {
    play("subject: {distance_m: 12, texture: 0.8}\nlaser: {distance_m: 12}\n");
    quietly([&] {
        SetFocusLens(static_cast<int16_t>(std::lround(player_->centre_in_focus_step() + 60)), 0);
        motor_position = GetCurSteps(MOTOR_FOCUS);
    });
    const struct {
        const char* what;
        float multiple;  // 0: no zoom
        bool from_free;  // the zoom is asked for in free mode
        int probe_dir;
        int passes;  // to the lock; the rules allow no fewer than 11 / 11 / 3 / 3
    } cases[] = {
        {"start-up, 60 steps off", 0.0f, false, 0, 11},
        {"x8 from free mode", 8.0f, true, 1, 11},
        {"x11", 11.0f, false, 1, 7},
        {"x3.5", 3.5f, false, -1, 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        if (c.multiple != 0.0f) {
            ASSERT_TRUE(locked());
            if (c.from_free) current_focus_mode = PDAF_FREE_MODE;
            laser_focus_compensation = 7;
            zoom(c.multiple);
        }
        const double start_error = error();
        const int passes = passes_until(locked, 60);
        ASSERT_TRUE(locked()) << passes << " passes";
        EXPECT_LE(std::abs(error()), 2.0);
        EXPECT_EQ(passes, c.passes);
        EXPECT_EQ(zy_focus_lock_step, GetCurSteps(MOTOR_FOCUS));
        std::printf(
            "[ figures  ] day x%.1f %-24s start %+6.1f: lock after %2d passes, error %+.1f\n",
            current_multiple, c.what, start_error, passes, error());
        if (c.multiple != 0.0f) {
            // The first pass after the zoom leaves free mode, sets the probing direction,
            // forgets the laser compensation and restarts the centre focus.
            EXPECT_EQ(current_focus_mode, PDAF_CENTER_MODE);
            EXPECT_EQ(defauult_probe_dir, c.probe_dir);
            EXPECT_EQ(laser_focus_compensation, -5);
            EXPECT_EQ(
                said_.find("******multiple change,so set center mode\r\n") != std::string::npos,
                c.from_free);
            EXPECT_THAT(said_, HasSubstr("变倍初始化参数重置完成"));
        }
        // Locked: the next pass takes no step.
        const int at = player_->focus_position();
        pass();
        EXPECT_EQ(output_.find("获取48窗口前"), std::string::npos);
        EXPECT_EQ(player_->focus_position(), at);
    }
}

// Free mode: after the centre lock on a 40 m background the application picks a point on a
// person at 30 m; the loop reads the 2 x 2 group under it and locks on the person.
TEST_F(ClosedLoop, FreePointLocksOnTheSubjectUnderIt) {
    play(
        "light: day\nsubject: {distance_m: 40, texture: 0.6}\nstart_multiple: 6\n"
        "windows: [{index: [9, 10, 17, 18], distance_m: 30, texture: 0.9}]\n"
        "laser: {distance_m: 40}\n");
    ASSERT_LT(passes_until(locked, 60), 60);
    quietly([] {
        AppSetMode(PDAF_FREE_MODE);
        AppSetFocusCoordinates(780, 610);
    });
    const int passes = passes_until(locked, 60);
    const double err = player_->focus_position() - player_->in_focus_step(9);
    std::printf(
        "[ figures  ] free point x6.0, 30 m before 40 m: lock after %d passes, error %+.1f\n",
        passes, err);
    EXPECT_TRUE(locked());
    EXPECT_LE(std::abs(err), 2.0);
    EXPECT_THAT(said_,
                HasSubstr("change coordinates set laser_focus_compensation to be zero!\r\n"));
    EXPECT_EQ(current_focus_mode, PDAF_FREE_MODE);
}

// A blank wall gives no usable window: the loop counts two a pass (1, 3, 5), goes to the laser's
// table step on the fourth and stays there; a laser at 4 m pauses it and the count starts over.
TEST_F(ClosedLoop, BlankWallFollowsTheLaser) {
    play(
        "subject: {distance_m: 30, texture: 0}\nlaser: {distance_m: 30}\n"
        "events: [{at: 0.5, laser: {distance_m: 4}}]\n");
    const int start = player_->focus_position();
    const char* counts[] = {"更新此次雷达计数为:1\r\n", "更新此次雷达计数为:3\r\n",
                            "更新此次雷达计数为:5\r\n"};
    for (const char* count : counts) {
        pass();
        EXPECT_THAT(output_, HasSubstr(count));
        EXPECT_EQ(player_->focus_position(), start);
    }
    pass();
    EXPECT_THAT(output_, HasSubstr("超过计数，进行雷达辅助策略!\r\n"));
    const int table_step = TxtToDat[multiple_index][30] + calibration_offset_step;
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), table_step);
    EXPECT_EQ(m0_motor, table_step);
    std::printf("[ figures  ] blank wall x%.1f, laser 30 m: table step %d, error %+.1f\n",
                current_multiple, table_step, error());
    pass();
    EXPECT_THAT(output_, HasSubstr("超过计数，进行雷达辅助策略!\r\n"));
    // The 4 m reading arrives within 0.5 s.
    passes_until([&] { return need_laser_cnt == 0; }, 12);
    EXPECT_THAT(output_, HasSubstr("因为雷达获取到距离为4米,所以此次暂停不走!\r\n"));
    EXPECT_EQ(GetCurSteps(MOTOR_FOCUS), table_step);
    pass();
    EXPECT_THAT(output_, HasSubstr(counts[0]));
}

// Night: after each zoom the loop searches from state 0 and parks in state 4, where a pass only
// takes the lock and sleeps. The errors are pinned in whole steps (seeded noise): with the laser
// within 3 steps, but at x3 (a peak some 25 steps wide each side) noise picks, 4 off at 300 m;
// without a laser the five coarse points decide, and at x10 an 8 m subject's narrow peak falls
// between the 6 m and 10 m points, both on the noise floor.
struct NightCase {
    double distance_m;
    bool laser;
    int errors[3];  // at x3, x5, x10
};

class NightLoop : public ClosedLoop, public ::testing::WithParamInterface<NightCase> {};

TEST_P(NightLoop, SearchesParkNearTheTruth) {
    const NightCase& c = GetParam();
    char scene[160];
    std::snprintf(scene, sizeof scene,
                  "light: night\nsubject: {distance_m: %g, texture: 0.8}\n%s%g}\n", c.distance_m,
                  c.laser ? "laser: {distance_m: " : "# ", c.distance_m);
    play(scene);
    quietly([] { set_day_or_night_focus_mode(1); });
    const float multiples[] = {3.0f, 5.0f, 10.0f};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(multiples[i]);
        zoom(multiples[i]);
        passes_until([] { return night_focus_man.state == NIGHT_STATE_DONE; }, 120);
        const size_t frames = occurrences(said_, "app_pdaf get fvinfo");
        ASSERT_EQ(night_focus_man.state, NIGHT_STATE_DONE);
        const double err = error();
        std::printf("[ figures  ] night x%-4.1f %5.0f m %-8s: %2zu frames, error %+.1f\n",
                    multiples[i], c.distance_m, c.laser ? "laser" : "no laser", frames, err);
        EXPECT_EQ(std::lround(err), c.errors[i]);
        const int at = player_->focus_position();
        pass();
        EXPECT_EQ(output_, "");
        EXPECT_EQ(player_->focus_position(), at);
        EXPECT_TRUE(service_lock_free());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Subjects, NightLoop,
    ::testing::Values(NightCase{8, true, {2, -3, 0}}, NightCase{40, true, {2, -3, -2}},
                      NightCase{300, true, {4, -1, 2}}, NightCase{8, false, {0, -6, -352}},
                      NightCase{40, false, {-5, -4, 2}}, NightCase{300, false, {1, 0, 9}}));

constexpr uint64_t kMs = 1'000'000;

// The service and motors started as the bench does (x3.5); the loop driven pass by pass.
class AfLoopTest : public ClosedLoop {
protected:
    void SetUp() override {
        ClosedLoop::SetUp();
        start_focus_service();
        start_motors(3.5f);
    }
    void start(LoopVariant variant) {
        quietly([&] { start_af_loop(state_, variant); });
    }
    int sleeps_of(uint64_t ns) {
        const std::vector<uint64_t> sleeps = recorder().sleeps();
        return static_cast<int>(std::count(sleeps.begin(), sleeps.end(), ns));
    }
};

// Without a new frame the loop tries four times, 15 ms apart, reports after the third
// failure and runs the search step on the values it still holds.
TEST_F(AfLoopTest, FourFailedFocusValueReadsThenAStaleStep) {
    const struct {
        float multiple;
        uint16_t laser;  // 0: no laser
        int32_t state;
        const char* report;
    } cases[] = {
        {3.5f, 0, NIGHT_STATE_COARSE,
         "\r\n\r\nError!!!get fv fail!\r\n\r\n\r\n\r\n\r\nError get fv sleep!\r\n\r\n\r\n"},
        {5.0f, 120, NIGHT_STATE_BIGSTEP,
         "Error!!!get fv fail!\r\n\r\n\r\n\r\nError get fv sleep!\r\n\r\n\r\n"},
        {3.5f, 120, NIGHT_STATE_SMALLSTEP,
         "\r\n\r\n!!!get fv fail!\r\n\r\n\r\nError get fv sleep!\r\n"},
        // 4 m and 1600 m mean no echo: the rough range, as without a reading.
        {3.5f, 40, NIGHT_STATE_COARSE, "Error!!!get fv fail!"},
        {3.5f, 16000, NIGHT_STATE_COARSE, "Error!!!get fv fail!"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.state);
        if (c.laser != 0) laser_on(c.laser);
        start(LoopVariant::application);
        current_multiple = c.multiple;
        cur_day_night_mode = 1;
        pass();
        ASSERT_EQ(night_focus_man.state, c.state);

        state_.fv.fv2 = 4321;  // what the record holds from an earlier frame
        const int32_t at = c.state == NIGHT_STATE_COARSE ? night_focus_man.coarse_index
                                                         : night_focus_man.exact_index;
        pass();
        EXPECT_THAT(output_, HasSubstr(c.report));
        EXPECT_EQ(sleeps_of(15 * kMs), 4);
        EXPECT_EQ(sleeps_of(1000 * kMs), c.state == NIGHT_STATE_SMALLSTEP ? 1 : 0);
        const int64_t stored = c.state == NIGHT_STATE_COARSE ? night_focus_man.coarse_points[at].fv
                                                             : night_focus_man.exact_points[at].fv;
        EXPECT_EQ(stored, 4321);
        cur_day_night_mode = 0;
        laser_off();
    }
}

// The two variants differ in the row they start from, at night in free mode and on a new
// free point.
TEST_F(AfLoopTest, VariantsDifferInStartRowFreeModeAtNightAndNewPoints) {
    for (LoopVariant variant : {LoopVariant::console, LoopVariant::application}) {
        const bool console = variant == LoopVariant::console;
        night_focus_man.state = NIGHT_STATE_SMALLSTEP;
        start(variant);
        // The console's variant starts from the row of x1.0 whatever the zoom.
        const int32_t row = console ? 0 : 25;
        EXPECT_EQ(current_multiple_index, row);
        EXPECT_EQ(night_focus_man.state, NIGHT_STATE_UNINITIALISED);
        EXPECT_EQ(night_focus_man.range_near, TxtToDat[row][6]);
        EXPECT_EQ(night_focus_man.range_far, TxtToDat[row][105] - 50);
        current_focus_mode = PDAF_FREE_MODE;
        cur_day_night_mode = 1;
        pass();
        EXPECT_EQ(output_.find("夜视模式不支持区域对焦!\r\n") != std::string::npos, console);
        EXPECT_EQ(output_.find("获取48窗口前") != std::string::npos, !console);

        laser_focus_compensation = 3;
        is_coordinates_update = 1;
        pass();
        EXPECT_EQ(is_coordinates_update, 0);
        EXPECT_EQ(laser_focus_compensation, console ? 3 : -5);
        EXPECT_EQ(output_.find("change coordinates set laser_focus_compensation to be zero!\r\n") !=
                      std::string::npos,
                  !console);
        EXPECT_EQ(sleeps_of(50 * kMs), console ? 1 : 2);  // the point's pause; the Run period
        current_focus_mode = PDAF_CENTER_MODE;
        cur_day_night_mode = 0;
    }
}

TEST_F(AfLoopTest, RunVariantSkipsPassesWhileZoomingAndStopsOnlyAfterThenEnds) {
    start(LoopVariant::application);
    zoom_running_flag = 1;
    onoff = 1;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(pass());
        EXPECT_EQ(output_, "");
        EXPECT_EQ(recorder().sleeps(), std::vector<uint64_t>{40 * kMs});
    }
    zoom_running_flag = 0;
    EXPECT_FALSE(pass());
    EXPECT_EQ(sleeps_of(50 * kMs), 1);
    onoff = 0;

    // The whole Run variant on its own thread, stopped from another, in real time.
    board().set_real_time(20);
    const std::string printed = captured([&] {
        std::thread loop([] { EXPECT_EQ(RunAFByUsingAssistInfo(), 0); });
        board().sleep_ns(200 * kMs);
        EXPECT_GT(StopAFByUsingAssistInfo(), 0);
        loop.join();
    });
    board().set_virtual_time();
    EXPECT_EQ(onoff, 0);
    EXPECT_THAT(printed, HasSubstr("] Auto focus close Success!\r\n"));
    EXPECT_THAT(printed, HasSubstr("] StopAFByUsingAssistInfo  close auto pdaf\n"));

    onoff = 1;
    EXPECT_EQ(StopAFByUsingAssistInfo(), 1);
    onoff = 0;
}

const std::string kMenu =
    "\r\nplease select the focus mode:\r\n2->set to focus 1-time\r\n3->Change Multiple-A\r\n"
    "5->set day or night mode\r\n5->set ircut:1day 2night\r\n";
const std::string kDayNight = "\r\nplease input the day or night mode:0-day 1-night\r\n";
const std::string kIrCut = "\r\nplease input the day or night mode:1-day 2-night\r\n";

class ConsoleTest : public AfLoopTest {
protected:
    // Runs f on a stream that holds script, with its messages in output_.
    template <class F>
    auto scripted(const std::string& script, F&& f) {
        FILE* in = fmemopen(const_cast<char*>(script.data()), script.size(), "r");
        EXPECT_NE(in, nullptr);
        const auto result = call([&] { return f(in); });
        std::fclose(in);
        return result;
    }
    void menu(const std::string& script) {
        scripted(script, [](FILE* in) {
            console_menu(in);
            return 0;
        });
    }
};

TEST_F(ConsoleTest, MenuAnswersLetterForLetterUntilTheEndOfInput) {
    is_free_focus_opr_over = 1;
    night_focus_man.state = NIGHT_STATE_DONE;
    menu("2\n4\n7\nabc\n5\n2\n5\n1\n6\n1\n6\n3 and more\n");
    EXPECT_EQ(output_, kMenu + kMenu + kMenu + kMenu + kMenu + kDayNight +
                           "warning:parameter:2 is out of range\r\n" + kMenu + kDayNight +
                           "set day_night_mode value:1\r\n" + kMenu + kIrCut +
                           "SetIrCutValue:1\r\n" + kMenu + kIrCut +
                           "warning:parameter:3 is out of range\r\n" + kMenu);
    EXPECT_EQ(is_free_focus_opr_over, 0);
    EXPECT_EQ(night_focus_man.state, NIGHT_STATE_UNINITIALISED);
    EXPECT_EQ(cur_day_night_mode, 1);
}

TEST_F(ConsoleTest, ChangeMultipleZoomsWithinRangeAndTimesBothAsTheIntervalPrinterDoes) {
    const float start = current_multiple;
    menu("3\n11.01\n");
    EXPECT_EQ(current_multiple, start);
    EXPECT_THAT(output_, HasSubstr("\r\nplease input the multiple\r\nerrror:the input multiple was "
                                   "out of range:3.55~11.0\r\n\r\n run time is 0.000000 s\r\n"));

    menu("3\n5\n");
    EXPECT_FLOAT_EQ(current_multiple, 5.0001f);
    const size_t at = output_.find("\r\n run time is ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GT(std::stod(output_.substr(at + 15)), 0.1);  // the zoom took board time

    quietly([] { time_interval_test(); });
    board().sleep_ns(250'000'000);
    call(time_interval_test);
    EXPECT_EQ(output_, "~timeinterval:250ms\r\n");
}

TEST_F(ConsoleTest, TvkTestSetAreamodeBounds) {
    const struct {
        const char* script;
        int32_t result;
        const char* refusal;  // nullptr: accepted
    } cases[] = {{"3840 2160\n", 0, nullptr},
                 {"3841 0\n", -2, "pointx:3841 and pointy:0"},
                 {"0 2161\n", -2, "pointx:0 and pointy:2161"}};
    for (const auto& c : cases) {
        current_focus_mode = MANUAL_FOCUS_MODE;
        is_coordinates_update = 0;
        recorder().clear();
        EXPECT_EQ(scripted(c.script, tvk_set_area_mode), c.result) << c.script;
        const bool accepted = c.refusal == nullptr;
        EXPECT_EQ(current_focus_mode, accepted ? PDAF_FREE_MODE : MANUAL_FOCUS_MODE);
        EXPECT_EQ(is_coordinates_update, accepted ? 1 : 0);
        EXPECT_EQ(sleeps_of(2'000'000'000), accepted ? 0 : 1);
        const std::string prompts = "please input x coordinate\r\nplease input y coordinate\r\n";
        EXPECT_EQ(output_, accepted ? prompts
                                    : prompts + "\r\n\r\nError: TvkTestSetAreamode " + c.refusal +
                                          " is out of range(0-3840/0-2160)!\r\n");
    }
}

}  // namespace
}  // namespace zoomaf::test
