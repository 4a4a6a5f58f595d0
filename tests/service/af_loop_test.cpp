// The auto-focus loop pass by pass on the twin (closed-loop runs are in closed_loop_test.cpp),
// and the test console fed from a script.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "service/af_loop.hpp"
#include "service/console.hpp"
#include "tests/support/twin_test.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/night_focus.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

constexpr uint64_t kMs = 1'000'000;

// The service and motors started as the bench does (x3.5); the loop driven pass by pass.
class AfLoopTest : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        start_focus_service();
        start_motors(3.5f);
    }

    void start(LoopVariant variant) {
        quietly([&] { start_af_loop(state_, variant); });
    }

    // One pass with its messages in output_ and only its own requests in the recorder.
    bool pass() {
        recorder().clear();
        return call([&] { return run_af_pass(state_); });
    }

    int sleeps_of(uint64_t ns) {
        const std::vector<uint64_t> sleeps = recorder().sleeps();
        return static_cast<int>(std::count(sleeps.begin(), sleeps.end(), ns));
    }

    AfLoopState state_;
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
    EXPECT_EQ(onoff, 1);
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

TEST_F(ConsoleTest, ChangeMultipleZoomsWithinRangeAndTimesBoth) {
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

TEST_F(ConsoleTest, TimeIntervalPrintsTheWallClockMilliseconds) {
    quietly([] { time_interval_test(); });
    board().sleep_ns(250'000'000);
    call(time_interval_test);
    EXPECT_EQ(output_, "~timeinterval:250ms\r\n");
}

}  // namespace
}  // namespace zoomaf::test
