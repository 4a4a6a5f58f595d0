// The control calls and the host's entries: refusals with their messages and no state
// change, the accepted range ends, the centre windows, the manual position, the service
// lock; the PTZ start, the readout window and the area-focus thread.
#include <gmock/gmock.h>
#include <sys/shm.h>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <thread>
#include <tuple>

#include "channels/channel_layout.hpp"
#include "service/area_focus_updates.hpp"
#include "tests/support/twin_test.hpp"
#include "twin/module/channel_publisher.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

using namespace std::chrono_literals;

class ControlApi : public TwinTest {
protected:
    // Window 0 as the sensor holds it (outside a group hold): start, end and enabled.
    std::tuple<int, int, int, int, bool> window0() {
        const auto w = with<twin::Imx586>([](twin::Imx586& s) { return s.window(0); });
        EXPECT_FALSE(with<twin::Imx586>([](twin::Imx586& s) { return s.group_hold(); }));
        return {w.x_start, w.y_start, w.x_end, w.y_end, w.enabled};
    }
    int32_t manual_position_at(int16_t focus_step) {
        gRunData.motor[MOTOR_FOCUS].cur_steps = focus_step;
        return call(AppGetFocusPercentagePosition);
    }
};

// Everything a setter writes, to see that a refused call wrote none of it.
auto setter_state() {
    return std::tuple(current_focus_mode.load(), is_free_focus_opr_over.load(),
                      current_select_pdaf_window, is_coordinates_update, free_focus_pointx,
                      free_focus_pointy, current_shockperiod, is_manual_positon_update,
                      manual_positon_percentage, is_center_af_winratio_update);
}

struct Refusal {
    int32_t mode;  // the focus mode at the call
    int32_t (*call)();
    int32_t result;
    const char* message = nullptr;  // each distinct text once
};

// AppSetMode checks the range before the equality; every other setter the mode first.
// The free area keeps the ratio call's mode text, and point bounds one below the point's.
const Refusal kRefusals[] = {
    {MANUAL_FOCUS_MODE, [] { return AppSetMode(3); }, -2,
     "\r\n\r\nError: AppSetMode modepara:3 is out of range(0-2)!\r\n"},
    {MANUAL_FOCUS_MODE, [] { return AppSetMode(-1); }, -2},
    {MANUAL_FOCUS_MODE, [] { return AppSetMode(MANUAL_FOCUS_MODE); }, -1,
     "\r\n\r\nError: AppSetMode the current mode is equal to the mode which is to been "
     "setting!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetFocusCoordinates(4000, 0); }, -1,
     "\r\n\r\nError: AppSetFocusCoordinates the current mode is no equal to PDAF_FREE_MODE!\r\n"},
    {PDAF_FREE_MODE, [] { return AppSetFocusCoordinates(4000, 0); }, -2,
     "\r\n\r\nError: AppSetFocusCoordinates pointx:4000 and pointy:0 is out of "
     "range(0-3999/0-2999)!\r\n"},
    {PDAF_FREE_MODE, [] { return AppSetFocusCoordinates(-1, 0); }, -2},
    {PDAF_FREE_MODE, [] { return AppSetFocusCoordinates(0, 3000); }, -2},
    {PDAF_FREE_MODE, [] { return AppSetFocusCoordinates(0, -1); }, -2},
    {PDAF_FREE_MODE, [] { return AppSetShockPeriod(100); }, -1,
     "\r\n\r\nError: AppSetShockPeriod the current mode is no equal to PDAF_CENTER_MODE!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetShockPeriod(49); }, -2,
     "\r\n\r\nError: AppSetShockPeriod Percentage:49  is out of range(0-5)!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetShockPeriod(3001); }, -2},
    {PDAF_CENTER_MODE, [] { return AppSetFocusPercentagePosition(0.5f); }, -1,
     "Set Manual Focus 0.500000.\r\n\r\n\r\nError: AppSetFocusPercentagePosition the current "
     "mode is no equal to MANUAL_FOCUS_MODE!\r\n"},
    {MANUAL_FOCUS_MODE, [] { return AppSetFocusPercentagePosition(1.01f); }, -2,
     "Set Manual Focus 1.010000.\r\n\r\n\r\nError: AppSetFocusPercentagePosition "
     "Percentage:1.010000  is out of range(0.0-1.0)!\r\n"},
    {MANUAL_FOCUS_MODE, [] { return AppSetFocusPercentagePosition(-0.01f); }, -2},
    {MANUAL_FOCUS_MODE, [] { return AppSetFocusPercentagePosition(std::nanf("")); }, -2},
    {PDAF_FREE_MODE, [] { return AppSetCenterFocusWindownsRatio(2); }, -1,
     "\r\n\r\nError: AppSetCenterFocusWindownsRatio the current mode is no equal to "
     "PDAF_CENTER_MODE!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsRatio(5); }, -2,
     "\r\n\r\nError: AppSetCenterFocusWindownsRatio Percentage:5  is out of range(0-4)!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsRatio(-1); }, -2},
    {MANUAL_FOCUS_MODE, [] { return AppSetCenterFocusWindownsFreearea(9, 9, 9, 9); }, -1,
     "\r\n\r\nError: AppSetCenterFocusWindownsRatio the current mode is no equal to "
     "PDAF_CENTER_MODE!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(3999, 0, 9, 9); }, -2,
     "\r\n\r\nError: AppSetFocusCoordinates pointx:3999 and pointy:0 is out of "
     "range(0-3999/0-2999)!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(-1, 0, 9, 9); }, -2},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(0, 2999, 9, 9); }, -2},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(0, -1, 9, 9); }, -2},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(0, 0, 4000, 0); }, -2,
     "\r\n\r\nError: AppSetFocusCoordinates width:4000 and height:0 is out of "
     "range(0-3999/0-2999)!\r\n"},
    {PDAF_CENTER_MODE, [] { return AppSetCenterFocusWindownsFreearea(0, 0, 0, 3000); }, -2},
};

TEST_F(ControlApi, RefusedCallsSayWhyInTheirOrderAndChangeNothing) {
    is_free_focus_opr_over = 1;
    current_select_pdaf_window = 5;
    for (const Refusal& each : kRefusals) {
        SCOPED_TRACE(testing::Message() << "refusal " << &each - kRefusals);
        current_focus_mode = each.mode;
        const auto before = setter_state();
        EXPECT_EQ(call(each.call), each.result);
        if (each.message != nullptr) {
            EXPECT_EQ(output_, each.message);
        }
        EXPECT_EQ(setter_state(), before);
    }
    EXPECT_TRUE(sensor_writes().empty()) << "a refused window call reaches no register";
}

TEST_F(ControlApi, TheSettersTakeTheEndsOfTheirRanges) {
    is_free_focus_opr_over = 1;
    current_select_pdaf_window = 5;
    EXPECT_EQ(call([] { return AppSetMode(PDAF_FREE_MODE); }), 0);
    EXPECT_EQ(output_, "Opr Success:Set Focus Mode from 0 to 1\r\n");
    EXPECT_EQ(setter_state(), std::tuple(PDAF_FREE_MODE, 0, 0, 0, 0, 0, 50, 0, 0.0f, 0));

    EXPECT_EQ(AppSetFocusCoordinates(3999, 2999), 0);
    current_focus_mode = PDAF_CENTER_MODE;
    EXPECT_EQ(AppSetShockPeriod(3000), 0);
    current_focus_mode = MANUAL_FOCUS_MODE;
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(1.0f); }), 0);
    EXPECT_EQ(output_, "Set Manual Focus 1.000000.\r\n");
    EXPECT_EQ(setter_state(), std::tuple(MANUAL_FOCUS_MODE, 0, 0, 1, 3999, 2999, 3000, 1, 1.0f, 0));

    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(0.0f); }), 0);
    EXPECT_EQ(manual_positon_percentage, 0.0f);
    current_focus_mode = PDAF_CENTER_MODE;
    EXPECT_EQ(AppSetShockPeriod(50), 0);
    EXPECT_EQ(current_shockperiod, 50);
    // The laser compensation reads 0 until one is learned (-5, as every change leaves it).
    laser_focus_compensation = -5;
    EXPECT_EQ(call(GetLaserCompensationValue), 0);
    EXPECT_EQ(output_, "go get lasercompensationvalue:0\r\n");
    laser_focus_compensation = -37;
    EXPECT_EQ(call(GetLaserCompensationValue), -37);
}

// The free area (window 0, 13-bit coordinates) and the ratio, both inside a group hold.
TEST_F(ControlApi, TheCentreWindowsAreWrittenInsideAGroupHold) {
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(1000, 800, 400, 300); }), 0);
    EXPECT_EQ(sensor_writes().at(0), std::pair(twin::Imx586::kGroupHold, uint8_t{1}));
    const uint8_t expected[8] = {0x03, 0xE8, 0x03, 0x20, 0x05, 0x78, 0x04, 0x4C};
    EXPECT_EQ(std::memcmp(focus_area, expected, 8), 0);
    EXPECT_EQ(window0(), std::tuple(1000, 800, 1400, 1100, true));
    EXPECT_EQ(is_center_af_winratio_update, 1);
    // Read back inside the group hold, the registers still show what they held before.
    EXPECT_THAT(output_, StartsWith("PDAF SWITCH CHENTER AREA:\r\n"
                                    "\r\n0x38A3 value:0x0\r\n0x38AC value:0x0"
                                    "\r\nread windows addr:0x38b4,value:0x0,source write "
                                    "value:0x3\r\nread windows addr:0x38b5"));

    // A negative size is not checked: the end wraps to 13 bits.
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(10, 3, -20, 0); }), 0);
    EXPECT_EQ(window0(), std::tuple(10, 3, 8182, 3, true));
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsRatio(4); }), 0);
    EXPECT_EQ(window0(), std::tuple(1500, 1000, 2166, 1500, true));

    unplug_i2c(twin::Board::kModuleBus, twin::Imx586::kAddress);
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(1000, 800, 400, 300); }), -1);
    EXPECT_THAT(output_, HasSubstr("Error: set_pdaf_centermode_freearea_attr the area did not "
                                   "reach the sensor!\r\n"));
}

TEST_F(ControlApi, TheManualPositionReadsAsAWholePercentageClampedToTheRange) {
    multiple_index = 25;
    mator_step_section[25][0] = -1000;
    mator_step_section[25][1] = 1000;
    manual_positon_percentage = 0.25f;
    const std::pair<int16_t, int32_t> reads[] = {{0, 50},    {999, 99},   {-1000, 0},
                                                 {-2574, 0}, {1000, 100}, {3022, 100}};
    for (auto [step, percent] : reads) EXPECT_EQ(manual_position_at(step), percent) << step;
    EXPECT_EQ(output_,
              "Get old manual positon percentage = 0.250000\r\n"
              "Manual focus range: form -1000 to 1000, target step value:3022\r\n"
              "Get Manual Focus 100.\r\n");

    mator_step_section[25][0] = mator_step_section[25][1] = 300;
    EXPECT_EQ(manual_position_at(2000), 0) << "a zero range reads 0";
    mator_step_section[25][0] = 301;
    EXPECT_EQ(manual_position_at(300), -1);
    EXPECT_EQ(output_, "get Focusing meter step error!!\r\n");
    mator_step_section[25][0] = -1000;
    multiple_index = LENS_TABLE_ROWS;
    EXPECT_EQ(manual_position_at(0), -1) << "a row outside the table is never read";
}

// The loop holds the service lock for a pass; the mode tests come before the setters take it.
TEST_F(ControlApi, SettersWaitForThePassThatHoldsTheLockAndRefusalsDoNot) {
    auto ready_within = [](std::future<int32_t>& f, auto wait) {
        return f.wait_for(wait) == std::future_status::ready;
    };
    std::future<int32_t> mode, period, wrong_mode, same_mode;
    bool refusals_answered = false, setters_waited = false;
    (void)captured([&] {
        try_lock();  // the loop's pass
        mode = std::async(std::launch::async, [] { return AppSetMode(PDAF_FREE_MODE); });
        period = std::async(std::launch::async, [] { return AppSetShockPeriod(200); });
        wrong_mode = std::async(std::launch::async, [] { return AppSetFocusCoordinates(1, 1); });
        same_mode = std::async(std::launch::async, [] { return AppSetMode(PDAF_CENTER_MODE); });
        refusals_answered = ready_within(wrong_mode, 10s) && ready_within(same_mode, 10s);
        setters_waited =
            !ready_within(mode, 50ms) && !ready_within(period, 1ms) && current_shockperiod == 50;
        unlock();
        mode.wait();
        period.wait();
    });
    ASSERT_TRUE(refusals_answered);
    EXPECT_TRUE(setters_waited) << "nothing is written while the pass runs";
    EXPECT_EQ(wrong_mode.get(), -1);
    EXPECT_EQ(same_mode.get(), -1);
    EXPECT_EQ(mode.get(), 0);
    // The period call tested the mode before the lock: centre mode, so it went on.
    EXPECT_EQ(period.get(), 0);
    EXPECT_EQ(current_shockperiod, 200);
}

template <class Pred>
bool wait_for(Pred pred) {
    for (int i = 0; i < 5000 && !pred(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return pred();
}

class HostEntries : public TwinTest {
protected:
    uint64_t sleep_calls() {
        return with<twin::Clock>([](const twin::Clock& c) { return c.sleep_calls(); });
    }
};

// The thread polls its channel until the channel's semaphore is gone, then ends holding the
// service lock: a service that lost its area channel stops rather than run half blind.
TEST_F(HostEntries, TheAreaFocusThreadPollsUntilItsChannelIsGone) {
    board().set_real_time(20.0);  // a 100 ms poll takes 5 ms
    twin::ChannelPublisher ui(board(), VREL_AREA_FOCUS_CHANNEL);
    void* returned = &returned;  // anything but null
    bool held_lock_after_return = false;
    output_ = captured([&] {
        std::thread thread([&] {
            returned = GetAreaFocusUpdateStatus(nullptr);
            held_lock_after_return = !service_lock_free();
            unlock();
        });
        ASSERT_TRUE(wait_for([&] { return sleep_calls() >= 5; }));
        ASSERT_EQ(board().semctl(ui.sem_id(), 0, IPC_RMID, 0), 0);
        thread.join();
    });
    EXPECT_THAT(output_, HasSubstr("SemaphoreP failed\r\nError:GetAreaFocusUpdateStatus "
                                   "SemaphoreP failed!"));
    EXPECT_EQ(returned, nullptr);
    EXPECT_TRUE(held_lock_after_return);
}

// A point outside the picture is consumed, said so and changes nothing.
TEST_F(HostEntries, TheAreaFocusChannelRefusesPointsOutsideThePicture) {
    twin::ChannelPublisher ui(board(), VREL_AREA_FOCUS_CHANNEL);
    VrelShareMan channel{};
    quietly([&] { VrelShareManInit(&channel, VREL_AREA_FOCUS_CHANNEL); });
    const std::pair<VrelAreaFocusPoint, bool> points[] = {
        {{4000, 0}, false},      {{0, 3000}, false},   {{-1, -1}, false}, {{INT32_MIN, 5}, false},
        {{5, INT32_MAX}, false}, {{3999, 2999}, true}, {{0, 0}, true}};
    for (const auto& [point, taken] : points) {
        SCOPED_TRACE(testing::Message() << point.point_x << "," << point.point_y);
        current_focus_mode = MANUAL_FOCUS_MODE;
        is_coordinates_update = 0;
        free_focus_pointx = free_focus_pointy = 77;
        const uint32_t reserved = 0xDEADBEEF;
        std::memcpy(channel.shm_addr + VREL_RESERVED_OFFSET, &reserved, sizeof reserved);
        ASSERT_TRUE(ui.publish(&point, sizeof point));
        EXPECT_TRUE(call([&] { return area_focus_pass(channel); }));
        EXPECT_EQ(channels::update_flag(ui.segment()), 0u) << "consumed either way";
        EXPECT_EQ(channels::reserved_word(ui.segment()), 0u) << "cleared with the flag";
        EXPECT_EQ(is_coordinates_update, taken ? 1 : 0);
        EXPECT_EQ(current_focus_mode, taken ? PDAF_FREE_MODE : MANUAL_FOCUS_MODE);
        EXPECT_EQ(free_focus_pointx, taken ? point.point_x : 77);
        if (taken) {
            EXPECT_THAT(output_, HasSubstr("\r\n\r\nnget airstatus update,point_x:"));
        } else {
            EXPECT_THAT(output_, HasSubstr("Error: GetAreaFocusUpdateStatus point_x:" +
                                           std::to_string(point.point_x) +
                                           " and point_y:" + std::to_string(point.point_y) +
                                           " is out of range(0-3999/0-2999), the point is not "
                                           "taken!\r\n"));
        }
    }
}

TEST_F(HostEntries, PtzStartGoesBackToCentreFocusFromScratch) {
    current_focus_mode = MANUAL_FOCUS_MODE;
    is_free_focus_opr_over = 1;
    laser_focus_compensation = 12;
    current_select_pdaf_window = 17;
    EXPECT_EQ(call(SetPZTstart), 0);
    EXPECT_EQ(output_,
              "Set Plane Or PTZ Status!!!\r\n"
              "change plane or set ptz status set laser_focus_compensation to be zero!\r\n");
    EXPECT_EQ(current_focus_mode, PDAF_CENTER_MODE);
    EXPECT_EQ(is_free_focus_opr_over, 0);
    EXPECT_EQ(laser_focus_compensation, -5) << "-5: none learned";
    EXPECT_EQ(current_select_pdaf_window, 0);
    call([] { SwitchCompensation(35, -2); });
    EXPECT_EQ(output_, "Compensation maxstep is 35, times is -2");
}

TEST_F(HostEntries, OnlyReadoutWindowsZeroFiveSixAndSevenAreTaken) {
    const struct {
        int index, result, selected;
        const char* text;
    } cases[] = {
        {5, 0, 5, "change window index form 0 to 5\r\n"},
        {7, 0, 7, "change window index form 5 to 7\r\n"},
        {3, -1, 7, "Error:window index:3 is out of range:0/5/6/7!\r\n"},
        {1, -1, 7, "Error:window index:1 is out of range:0/5/6/7!\r\n"},
        {8, -1, 7, "Error:window index:8 is out of range:0~6!\r\n"},
        {-1, -1, 7, "Error:window index:-1 is out of range:0~6!\r\n"},
        {0, 0, 0, "change window index form 7 to 0\r\n"},
    };
    for (const auto& c : cases) {
        const uint64_t before = board().now_ns();
        EXPECT_EQ(call([&] { return change_select_pdaf_window(c.index); }), c.result);
        EXPECT_EQ(output_, c.text);
        EXPECT_EQ(current_select_pdaf_window, c.selected);
        EXPECT_EQ(board().now_ns() - before, 1'000'000'000u) << "one second, refused or not";
    }

    // The service lock is held through the second.
    board().set_real_time(10.0);  // the second lasts 100 ms
    const uint64_t sleeps_before = sleep_calls();
    bool free_while_sleeping = true;
    quietly([&] {
        std::thread host([] { change_select_pdaf_window(6); });
        wait_for([&] { return sleep_calls() != sleeps_before; });
        free_while_sleeping = service_lock_free();
        host.join();
    });
    EXPECT_FALSE(free_while_sleeping);
    EXPECT_EQ(current_select_pdaf_window, 6);
}

}  // namespace
}  // namespace zoomaf::test
