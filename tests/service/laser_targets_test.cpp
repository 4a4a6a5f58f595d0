// The lens table steps chosen without a focus reading: from the laser distance, the target
// multiple or the lens's own column, and the fall-backs. Each table cell holds its own row and
// column (row * 1000 + column), so a result names the cell it came from.
#include <gmock/gmock.h>

#include "tests/support/twin_test.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/pdaf_focus.h"

namespace zoomaf::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class LaserTargets : public TwinTest {
protected:
    twin::BoardConfig board_config() override { return {.focus_start = 0}; }

    void SetUp() override {
        TwinTest::SetUp();
        bring_up_driver(MOTOR_ID_MS41928);
        for (int r = 0; r < LENS_TABLE_ROWS; ++r) {
            for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[r][c] = r * 1000 + c;
        }
    }
    static int cell(float multiple, int column) {
        return AppSetMultipleSectionRelation(multiple) * 1000 + column;
    }
};

// 4 m pauses without touching the no-echo count; no echo moves only on the third reading in a
// row (to column 101); any valid reading starts the count again.
TEST_F(LaserTargets, LaserStepColumnsNoEchoCountAndPause) {
    calibration_offset_step = 3;
    laser_1600m_cnt = 1;
    const int32_t col0 = cell(3.0f, 0) + 3, col100 = col0 + 100, col101 = col0 + 101;
    const struct {
        uint16_t distance;
        int32_t step, no_echo_count;
    } readings[] = {{40, LASER_PAUSE_STEP, 1},
                    {1000, col100, 0},
                    {65535, 0, 1},
                    {65535, 0, 2},
                    {65535, col101, 3},
                    {1001, col100, 0},
                    {65535, 0, 1},
                    {2001, col101, 0},
                    {9, col0, 0}};
    for (const auto& r : readings) {
        low_ten_pd_motor = 77;
        EXPECT_EQ(call([&] { return GetTargetPositionByLaser(r.distance, 3.0f); }), r.step)
            << r.distance;
        EXPECT_EQ(laser_1600m_cnt, r.no_echo_count) << r.distance;
        EXPECT_EQ(low_ten_pd_motor, PDAF_EMPTY_POINT);
    }
}

TEST_F(LaserTargets, AZoomKeepsTheColumnOfTheLaserDistanceOrOfTheTargetMultiple) {
    const struct {
        uint16_t laser;
        float to;
        int column;
    } cases[] = {
        {10, 5.0f, 7}, {24, 5.0f, 7},  {25, 5.0f, 8},   {29, 5.0f, 8},   {30, 5.0f, 9},
        {44, 5.0f, 9}, {45, 5.0f, 10}, {399, 5.0f, 10}, {400, 5.0f, 11}, {9, 1.9f, 1},
        {9, 2.0f, 2},  {0, 3.9f, 2},   {0, 4.0f, 3},    {0, 7.9f, 3},    {0, 8.0f, 4},
        {0, 9.9f, 4},  {0, 10.0f, 5},  {0, 15.9f, 5},   {0, 16.0f, 6},   {0, 17.4f, 6},
    };
    for (const auto& c : cases) {
        global_laser_distance = c.laser;
        EXPECT_EQ(call([&] { return GetCurrentAdjacentPosition(3.0f, c.to); }),
                  cell(c.to, c.column))
            << "laser " << c.laser << " to x" << c.to;
    }
    EXPECT_THAT(output_,
                HasSubstr("tvk set multiple 3.000000 to 17.400000,and motor position 0 to "));
    // A row from -500 in steps of 10, calibrated by +3: the lens at step 0 stands after column
    // 49 (-7) and before column 50 (+3), and the zoom keeps column 49.
    const int from_row = AppSetMultipleSectionRelation(3.0f);
    for (int c = 0; c < LENS_TABLE_COLUMNS; ++c) TxtToDat[from_row][c] = c * 10 - 500;
    calibration_offset_step = 3;
    EXPECT_EQ(call([] { return GetCurrentAdjacentPositionForLaser(3.0f, 8.0f); }),
              cell(8.0f, 49) + 3);
    EXPECT_EQ(output_, "");
}

TEST_F(LaserTargets, FallBacksWhenTheLaserFailsAndStepsWithoutPdOrLaser) {
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(4.0f); }), cell(4.0f, 8));
    EXPECT_EQ(output_,
              "\r\ntvk-Warning:Get laser distance fail,moter stop 8m position\r\n run motor "
              "step:" +
                  std::to_string(cell(4.0f, 8)) + "\r\n");
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(4.1f); }), cell(4.1f, 10));
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(9.0f); }), cell(9.0f, 10));
    EXPECT_EQ(call([] { return GetTargetPositionWhenFailGetDistance(9.1f); }), cell(9.1f, 25));
    EXPECT_THAT(output_, HasSubstr("moter stop 25m position run motor step:"));

    const std::pair<float, int> no_pd_no_laser[] = {
        {3.0f, 8}, {3.1f, 15}, {5.0f, 15}, {10.0f, 20}, {14.0f, 30}, {17.0f, 40}, {17.1f, 50}};
    for (const auto& [multiple, steps] : no_pd_no_laser) {
        EXPECT_EQ(call([&] { return GetNoPDNolaserValue(multiple); }), steps) << multiple;
    }
    EXPECT_THAT(output_,
                EndsWith("Get No PD No laser motor Value-----------------------------\r\n"));
}

}  // namespace
}  // namespace zoomaf::test
