// The test console fed from a script: the menu and its answers letter for letter, bad
// entries, the end of input, the free-mode point typed in and the interval printer.
#include <cstdio>
#include <string>

#include "service/console.hpp"
#include "tests/service/af_loop_fixture.hpp"
#include "zoomaf/af_loop.h"

namespace zoomaf::test {
namespace {

const std::string kMenu =
    "\r\nplease select the focus mode:\r\n"
    "2->set to focus 1-time\r\n3->Change Multiple-A\r\n5->set day or night mode\r\n5->set "
    "ircut:1day "
    "2night\r\n";
const std::string kDayNight = "\r\nplease input the day or night mode:0-day 1-night\r\n";
const std::string kIrCut = "\r\nplease input the day or night mode:1-day 2-night\r\n";

class ConsoleTest : public AfLoopTest {
protected:
    // Runs f on a stream that holds script, with its messages in output_.
    template <class F>
    auto scripted(const std::string& script, F&& f) {
        FILE* in = fmemopen(const_cast<char*>(script.data()), script.size(), "r");
        EXPECT_NE(in, nullptr);
        decltype(f(in)) result{};
        output_ = captured([&] { result = f(in); });
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

// An entry that is not a number acts as 0; the end of input in the middle of a choice ends
// the menu without acting on it.
TEST_F(ConsoleTest, UnreadableEntriesAndAnEndInTheMiddleOfAChoice) {
    struct Case {
        const char* script;
        int32_t day_night_before;
        std::string tail;
        int32_t day_night_after;
    };
    for (const Case& c :
         {Case{"5\nnight\n", 1, kDayNight + "set day_night_mode value:0\r\n" + kMenu, 0},
          Case{"5\n", 0, kDayNight, 0}, Case{"5\n", 1, kDayNight, 1},
          Case{"3", 0, "\r\nplease input the multiple\r\n", 0}, Case{"", 0, "", 0}}) {
        cur_day_night_mode = c.day_night_before;
        menu(c.script);
        EXPECT_EQ(output_, kMenu + c.tail) << c.script;
        EXPECT_EQ(cur_day_night_mode, c.day_night_after) << c.script;
    }
}

TEST_F(ConsoleTest, ChangeMultipleZoomsWithinRangeAndTimesBoth) {
    const float start = current_multiple;
    menu("3\n11.01\n");
    EXPECT_EQ(current_multiple, start);
    EXPECT_NE(output_.find("\r\nplease input the multiple\r\nerrror:the input multiple was out of "
                           "range:3.55~11.0\r\n\r\n run time is 0.000000 s\r\n"),
              std::string::npos)
        << output_;

    menu("3\n5\n");
    EXPECT_FLOAT_EQ(current_multiple, 5.0001f);
    const size_t at = output_.find("\r\n run time is ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_GT(std::stod(output_.substr(at + 15)), 0.1);  // the zoom took board time
}

TEST_F(ConsoleTest, TvkTestSetAreamodeBounds) {
    struct Case {
        const char* script;
        int32_t result;
        const char* refusal;  // nullptr: accepted
    };
    for (const Case& c : {Case{"3840 2160\n", 0, nullptr}, Case{"0\n0\n", 0, nullptr},
                          Case{"3841 0\n", -2, "pointx:3841 and pointy:0"},
                          Case{"0 2161\n", -2, "pointx:0 and pointy:2161"},
                          Case{"x 5\n", -2, "pointx:-1 and pointy:-1"}}) {
        current_focus_mode = MANUAL_FOCUS_MODE;
        is_coordinates_update = 0;
        is_free_focus_opr_over = 1;
        free_focus_pointx = free_focus_pointy = 77;
        recorder().clear();
        EXPECT_EQ(scripted(c.script, tvk_set_area_mode), c.result) << c.script;
        const bool accepted = c.refusal == nullptr;
        EXPECT_EQ(current_focus_mode, accepted ? PDAF_FREE_MODE : MANUAL_FOCUS_MODE);
        EXPECT_EQ(is_coordinates_update, accepted ? 1 : 0);
        EXPECT_EQ(is_free_focus_opr_over, accepted ? 0 : 1);
        EXPECT_EQ(free_focus_pointx != 77, accepted);
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
    output_ = captured([] { time_interval_test(); });
    EXPECT_EQ(output_, "~timeinterval:250ms\r\n");
}

}  // namespace
}  // namespace zoomaf::test
