// The control calls: their mode and range checks in order, their exact messages, no state
// change on an error, and the manual position read back at and beyond the range ends.
#include <gmock/gmock.h>

#include <cmath>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

class ControlApi : public ServiceTest {};

TEST_F(ControlApi, SetModeChecksTheRangeFirstThenEquality) {
    is_free_focus_opr_over = 1;
    current_select_pdaf_window = 5;
    for (int32_t bad : {3, -1}) {
        EXPECT_EQ(call([&] { return AppSetMode(bad); }), -2);
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetMode modepara:" + std::to_string(bad) +
                               " is out of range(0-2)!\r\n");
    }
    EXPECT_EQ(call([] { return AppSetMode(PDAF_CENTER_MODE); }), -1);
    EXPECT_EQ(output_,
              "\r\n\r\nError: AppSetMode the current mode is equal to the mode which is to been "
              "setting!\r\n");
    EXPECT_EQ(current_focus_mode, PDAF_CENTER_MODE);
    EXPECT_EQ(is_free_focus_opr_over, 1) << "an error changes nothing";
    EXPECT_EQ(current_select_pdaf_window, 5);

    EXPECT_EQ(call([] { return AppSetMode(MANUAL_FOCUS_MODE); }), 0);
    EXPECT_EQ(output_, "Opr Success:Set Focus Mode from 0 to 2\r\n");
    EXPECT_EQ(current_focus_mode, MANUAL_FOCUS_MODE);
    EXPECT_EQ(is_free_focus_opr_over, 0);
    EXPECT_EQ(current_select_pdaf_window, 0);
    EXPECT_EQ(AppGetFocusMode(), MANUAL_FOCUS_MODE);
}

TEST_F(ControlApi, FocusCoordinatesNeedFreeModeThenAPointOnTheSensor) {
    EXPECT_EQ(call([] { return AppSetFocusCoordinates(4000, 0); }), -1) << "mode before range";
    EXPECT_EQ(output_,
              "\r\n\r\nError: AppSetFocusCoordinates the current mode is no equal to "
              "PDAF_FREE_MODE!\r\n");

    current_focus_mode = PDAF_FREE_MODE;
    for (auto [x, y] : {std::pair{4000, 0}, {-1, 0}, {0, 3000}, {0, -1}}) {
        EXPECT_EQ(call([&] { return AppSetFocusCoordinates(x, y); }), -2) << x << "," << y;
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetFocusCoordinates pointx:" + std::to_string(x) +
                               " and pointy:" + std::to_string(y) +
                               " is out of range(0-3999/0-2999)!\r\n");
    }
    EXPECT_EQ(is_coordinates_update, 0);
    EXPECT_EQ(free_focus_pointx, 0);

    EXPECT_EQ(call([] { return AppSetFocusCoordinates(3999, 2999); }), 0);
    EXPECT_EQ(output_, "");
    EXPECT_EQ(is_coordinates_update, 1);
    EXPECT_EQ(free_focus_pointx, 3999);
    EXPECT_EQ(free_focus_pointy, 2999);
}

TEST_F(ControlApi, ShockPeriodNeedsCentreModeAndKeepsItsOddRangeText) {
    current_focus_mode = PDAF_FREE_MODE;
    EXPECT_EQ(call([] { return AppSetShockPeriod(100); }), -1);
    EXPECT_EQ(output_,
              "\r\n\r\nError: AppSetShockPeriod the current mode is no equal to "
              "PDAF_CENTER_MODE!\r\n");

    current_focus_mode = PDAF_CENTER_MODE;
    for (int32_t bad : {49, 3001}) {
        EXPECT_EQ(call([&] { return AppSetShockPeriod(bad); }), -2);
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetShockPeriod Percentage:" + std::to_string(bad) +
                               "  is out of range(0-5)!\r\n");
        EXPECT_EQ(current_shockperiod, 50);
    }
    for (int32_t good : {50, 3000}) {
        EXPECT_EQ(AppSetShockPeriod(good), 0);
        EXPECT_EQ(current_shockperiod, good);
    }
}

TEST_F(ControlApi, ManualPositionIsAlwaysEchoedThenNeedsManualModeAndAFraction) {
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(0.5f); }), -1);
    EXPECT_EQ(output_,
              "Set Manual Focus 0.500000.\r\n"
              "\r\n\r\nError: AppSetFocusPercentagePosition the current mode is no equal to "
              "MANUAL_FOCUS_MODE!\r\n");

    current_focus_mode = MANUAL_FOCUS_MODE;
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(1.01f); }), -2);
    EXPECT_EQ(output_,
              "Set Manual Focus 1.010000.\r\n"
              "\r\n\r\nError: AppSetFocusPercentagePosition Percentage:1.010000  is out of "
              "range(0.0-1.0)!\r\n");
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(-0.01f); }), -2);
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(std::nanf("")); }), -2)
        << "NaN is no fraction";
    EXPECT_THAT(output_, HasSubstr("Percentage:nan  is out of range(0.0-1.0)!\r\n"));
    EXPECT_EQ(is_manual_positon_update, 0);
    EXPECT_EQ(manual_positon_percentage, 0.0f);

    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(1.0f); }), 0);
    EXPECT_EQ(output_, "Set Manual Focus 1.000000.\r\n");
    EXPECT_EQ(manual_positon_percentage, 1.0f);
    EXPECT_EQ(call([] { return AppSetFocusPercentagePosition(0.0f); }), 0);
    EXPECT_EQ(manual_positon_percentage, 0.0f);
    EXPECT_EQ(is_manual_positon_update, 1);
}

class ManualPositionReadBack : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        multiple_index = 25;
        mator_step_section[25][0] = -1000;
        mator_step_section[25][1] = 1000;
        manual_positon_percentage = 0.25f;
    }
    int32_t read_at(int16_t focus_step) {
        gRunData.motor[MOTOR_FOCUS].cur_steps = focus_step;
        return call([] { return AppGetFocusPercentagePosition(); });
    }
};

TEST_F(ManualPositionReadBack, IsAWholePercentageClampedAtTheRangeEnds) {
    EXPECT_EQ(read_at(0), 50);
    EXPECT_EQ(output_,
              "Get old manual positon percentage = 0.250000\r\n"
              "Manual focus range: form -1000 to 1000, target step value:0\r\n"
              "Get Manual Focus 50.\r\n");
    EXPECT_EQ(read_at(999), 99) << "truncated, not rounded";
    EXPECT_EQ(read_at(-1000), 0);
    EXPECT_EQ(read_at(-2574), 0);
    EXPECT_THAT(output_, HasSubstr("target step value:-2574\r\n"));  // printed before the clamp
    EXPECT_EQ(read_at(1000), 100);
    EXPECT_EQ(read_at(3022), 100);
    EXPECT_THAT(output_, HasSubstr("Get Manual Focus 100.\r\n"));
}

TEST_F(ManualPositionReadBack, AZeroRangeReadsZeroAndAnInvertedOneIsAnError) {
    mator_step_section[25][0] = mator_step_section[25][1] = 300;
    EXPECT_EQ(read_at(300), 0);
    EXPECT_EQ(read_at(2000), 0);
    EXPECT_THAT(output_, HasSubstr("Get Manual Focus 0.\r\n"));

    mator_step_section[25][0] = 301;
    EXPECT_EQ(read_at(300), -1);
    EXPECT_EQ(output_, "get Focusing meter step error!!\r\n");

    mator_step_section[25][0] = -1000;
    multiple_index = LENS_TABLE_ROWS;
    EXPECT_EQ(read_at(0), -1) << "a row outside the table is never read";
    EXPECT_EQ(output_, "get Focusing meter step error!!\r\n");
}

TEST_F(ControlApi, TheLaserCompensationReadsZeroUntilOneIsLearned) {
    laser_focus_compensation = -5;  // as every mode or zoom change leaves it
    EXPECT_EQ(call([] { return GetLaserCompensationValue(); }), 0);
    EXPECT_EQ(output_, "go get lasercompensationvalue:0\r\n");
    laser_focus_compensation = -37;
    EXPECT_EQ(call([] { return GetLaserCompensationValue(); }), -37);
    EXPECT_EQ(output_, "go get lasercompensationvalue:-37\r\n");
}

}  // namespace
}  // namespace zoomaf::test
