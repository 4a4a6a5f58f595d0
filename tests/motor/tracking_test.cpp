// Lookups in the compiled-in tracking table and the mechanical ranges.
#include <gmock/gmock.h>

#include "tests/motor/motor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

// Row index of a key in the 4.49 mm table (keys 35..110 in steps of 1).
int row(int key) {
    return key - 35;
}
int cell(int key, int column) {
    return focus_zoom_data_449[row(key)][column];
}

class TrackingTable : public MotorTest {
protected:
    void SetUp() override {
        MotorTest::SetUp();
        LoadParamList();
    }
    static int32_t lookup(uint8_t kind, float multiple, float distance,
                          std::string* out = nullptr) {
        int32_t result = 0;
        std::string text = captured([&] { result = GetListSteps(kind, multiple, distance); });
        if (out != nullptr) *out = text;
        return result;
    }
};

TEST_F(TrackingTable, LoadsThe449Set) {
    EXPECT_EQ(gFocusParam.rows, 76);
    EXPECT_EQ(gFocusParam.columns, 9);
    EXPECT_STREQ(gFocusParam.column_name[0], "4.49mm");
    EXPECT_EQ(gFocusParam.data[0][0], 35);
    EXPECT_EQ(gFocusParam.data[75][0], 110);
}

TEST_F(TrackingTable, ZoomPositionOfAMultiple) {
    EXPECT_EQ(lookup(0, 3.5f, 0), 1416 * 16);
    EXPECT_EQ(lookup(0, 4.4f, 0), -32 * 16);
    EXPECT_EQ(lookup(0, 11.0f, 0), -5392 * 16);
}

TEST_F(TrackingTable, FocusPositionIsTheFoundCellTwice) {
    EXPECT_EQ(lookup(1, 3.5f, 15.0f), 5746 * 16);        // column 8, 2 x 2873
    EXPECT_EQ(lookup(1, 3.5f, 10.0f), 2 * 2797 * 16);    // column 4 named "10"
    EXPECT_EQ(lookup(1, 7.4f, 40.0f), 2 * 0 * 16);       // "50" is the first farther
    EXPECT_EQ(lookup(1, 7.4f, 12.0f), 2 * 138 * 16);     // "15" is the first farther
    EXPECT_EQ(lookup(1, 11.0f, 25.0f), 2 * -2314 * 16);  // column 6, "30"
}

TEST_F(TrackingTable, DistancesAreClampedToTheTable) {
    std::string out;
    EXPECT_EQ(lookup(1, 3.5f, 1.0f, &out), LIST_DISTANCE_CLAMPED | 5746 * 16);
    EXPECT_THAT(out, HasSubstr("] warn 3, distance:1.000000 < 1.500000, set 1.500000\n"));
    // Above 100 m the distance becomes 100 m; no searched column is named farther, so the
    // column named nearest ("100", column 3) is taken.
    EXPECT_EQ(lookup(1, 3.5f, 150.0f, &out), LIST_DISTANCE_CLAMPED | 2 * 2784 * 16);
    EXPECT_THAT(out, HasSubstr("] warn 2, distance:150.000000 > 100.000000, set 100.000000\n"));
    EXPECT_EQ(lookup(1, 3.5f, 60.0f), 2 * 2810 * 16);  // nearest name is "50"
    EXPECT_EQ(lookup(0, 3.5f, 500.0f), 1416 * 16);     // no distance rule for zoom
}

TEST_F(TrackingTable, MultiplesAreClampedToTheKeys) {
    std::string out;
    EXPECT_EQ(lookup(0, 2.0f, 0, &out), LIST_MULTIPLE_CLAMPED | 1416 * 16);
    EXPECT_THAT(out, HasSubstr("] warn 4, min:35 > rate:20, set to 35\n"));
    EXPECT_EQ(lookup(0, 12.0f, 0, &out), LIST_MULTIPLE_CLAMPED | -5392 * 16);
    EXPECT_THAT(out, HasSubstr("] warn 5, rate:120 > max:110, set to 110\n"));
}

TEST_F(TrackingTable, TheKeyFollowsTheTextOfTheProduct) {
    // 3.509f x 10 prints as 35.090000: the '9' in the fifth character raises the key to 36.
    EXPECT_EQ(lookup(0, 3.509f, 0), cell(36, 2) * 16);
    EXPECT_EQ(lookup(0, 3.507f, 0), cell(35, 2) * 16);
    // 3.508f x 10 is 35.079998 in single precision: the text decides, and it reads '7'.
    EXPECT_EQ(lookup(0, 3.508f, 0), cell(35, 2) * 16);
    // A float product just under a key (34.999998) counts as that key.
    EXPECT_EQ(lookup(0, 3.4999998f, 0), cell(35, 2) * 16);
    // Three-digit keys look at the first decimal: 105.8 becomes 106.
    EXPECT_EQ(lookup(0, 10.58f, 0), cell(106, 2) * 16);
    EXPECT_EQ(lookup(0, 10.57f, 0), cell(105, 2) * 16);
}

TEST_F(TrackingTable, AnEmptyTableFailsTheLookup) {
    gFocusParam.rows = 0;
    std::string out;
    EXPECT_EQ(lookup(1, 5.0f, 10.0f, &out), LIST_TABLE_EMPTY);
    EXPECT_THAT(out, HasSubstr("] error 1, rows1: 0, column1:9\n"));
}

TEST(MotorRanges, EndsFromBaseAndTravel) {
    EXPECT_EQ(GeMotorRangeSteps(0, 1), 1606);
    EXPECT_EQ(GeMotorRangeSteps(0, 0), -5430);
    EXPECT_EQ(GeMotorRangeSteps(1, 1), 3022);
    EXPECT_EQ(GeMotorRangeSteps(1, 0), -2574);
    EXPECT_EQ(GeMotorRangeSteps(2, 1), 0);
    EXPECT_EQ(GetFocusRange(1), 3022);
    EXPECT_EQ(GetFocusRange(0), -2574);
    // -0.30 mm is -29 steps, masked to 13 bits and times 8: -232 as a signed 16-bit value.
    EXPECT_EQ(GetPhysicalSteps(0, -30), -232);
    EXPECT_EQ(GetPhysicalSteps(1, 50), 392);
    EXPECT_EQ(GetPhysicalSteps(3, 50), 0);
    EXPECT_DOUBLE_EQ(GetStepRatio(0), 0.010002562131693569);
    EXPECT_DOUBLE_EQ(GetStepRatio(1), 0.010002942041776994);
    EXPECT_DOUBLE_EQ(GetStepRatio(2), 0.0);
}

using FocusRanges = TrackingTable;

TEST_F(FocusRanges, AfterStartUpTheMechanicalRangeApplies) {
    quietly([] { InitAttr(10); });
    EXPECT_EQ(GetFocusRangeSteps(1, 12.0f), 2 | 3022 * 16);
    EXPECT_EQ(GetFocusRangeSteps(0, 5.0f), -2574 * 16);
    EXPECT_EQ(GetFocusRangeSteps(0, 3.0f), 2 | -2574 * 16);
}

TEST_F(FocusRanges, WithoutStartUpTheTableApplies) {
    gRunData.init_flag = 0;
    int32_t range = 0;
    quietly([&] { range = GetFocusRangeSteps(0, 3.5f); });
    EXPECT_EQ(range, 5746 * 16);  // 1.5 m: column 8, doubled
}

TEST_F(FocusRanges, ARunInProgressIsReported) {
    gRunData.running = 1;
    std::string out = captured([] { EXPECT_EQ(GetFocusRangeSteps(1, 5.0f), 1); });
    EXPECT_THAT(out, HasSubstr("] warn, motor running, return\n"));
}

}  // namespace
}  // namespace zoomaf::test
