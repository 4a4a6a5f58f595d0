// The compiled-in tracking tables: the published rows kept, the rest monotone and in range.
#include <gtest/gtest.h>

#include <vector>

#include "tracking_tables.hpp"

namespace zoomaf::lensdata_test {
namespace {

struct PublishedRow {
    int key, efl, zoom;
    std::array<int, 6> focus;
};

struct TableCase {
    TrackingTable table;
    int rows, first_key, last_key;
    std::vector<PublishedRow> published;
};

std::vector<TableCase> table_cases() {
    return {
        {table_471(),
         73,
         33,
         105,
         {{33, 1552, 1504, {2820, 2832, 2845, 2863, 2885, 2907}},
          {42, 1976, -32, {2103, 2118, 2136, 2159, 2188, 2217}},
          {70, 3298, -3024, {-14, 13, 42, 82, 131, 179}},
          {105, 4943, -5392, {-2452, -2413, -2370, -2314, -2243, -2173}}}},
        {table_449(),
         76,
         35,
         110,
         {{35, 1573, 1416, {2784, 2797, 2810, 2828, 2851, 2873}},
          {44, 1976, -32, {2103, 2118, 2136, 2159, 2188, 2217}},
          {74, 3326, -3072, {-57, -30, 0, 40, 89, 138}},
          {110, 4943, -5392, {-2452, -2413, -2370, -2314, -2243, -2173}}}},
    };
}

class TrackingTableTest : public ::testing::TestWithParam<TableCase> {};

TEST_P(TrackingTableTest, HeaderAndColumnNamesAreTheLensOwn) {
    const auto& c = GetParam();
    EXPECT_EQ(c.table.rows, c.rows);
    EXPECT_EQ(c.table.columns, 9);
    EXPECT_EQ(c.table.distance_unit, 0);
    EXPECT_EQ(c.table.data_len, 8);
    const std::array<std::string, 10> names = {c.table.lens, "EFL", "zoom", "100", "10",
                                               "50",         "30",  "20",   "15",  ""};
    for (int i = 0; i < TRACKING_TABLE_COLUMNS; ++i) EXPECT_EQ(c.table.names[i], names[i]) << i;
}

TEST_P(TrackingTableTest, PublishedRowsAreKeptExactly) {
    const auto& c = GetParam();
    for (const auto& p : c.published) {
        const int r = c.table.row_of_key(p.key);
        ASSERT_GE(r, 0) << "no row for key " << p.key;
        EXPECT_EQ(c.table.data[r][1], p.efl) << "key " << p.key;
        EXPECT_EQ(c.table.data[r][2], p.zoom) << "key " << p.key;
        for (int i = 0; i < 6; ++i) EXPECT_EQ(c.table.data[r][3 + i], p.focus[i]) << p.key;
    }
}

TEST_P(TrackingTableTest, KeysRunInStepsOfOne) {
    const auto& c = GetParam();
    for (int r = 0; r < c.table.rows; ++r) EXPECT_EQ(c.table.key(r), c.first_key + r);
    EXPECT_EQ(c.table.key(c.table.rows - 1), c.last_key);
}

TEST_P(TrackingTableTest, FocusColumnsRiseFromColumnThreeToEightInEveryRow) {
    const auto& t = GetParam().table;
    for (int r = 0; r < t.rows; ++r)
        for (int k = kFirstFocusColumn; k < kLastFocusColumn; ++k)
            EXPECT_LT(t.data[r][k], t.data[r][k + 1]) << "key " << t.key(r) << " column " << k;
}

TEST_P(TrackingTableTest, ZoomAndFocusFallAndFocalLengthRisesWithTheMultiple) {
    const auto& t = GetParam().table;
    for (int r = 1; r < t.rows; ++r) {
        EXPECT_GT(t.data[r][1], t.data[r - 1][1]) << "EFL at key " << t.key(r);
        for (int k = 2; k <= kLastFocusColumn; ++k)
            EXPECT_LT(t.data[r][k], t.data[r - 1][k]) << "key " << t.key(r) << " column " << k;
    }
}

TEST_P(TrackingTableTest, EveryPositionIsInsideTheMotorsMechanicalRange) {
    const auto& t = GetParam().table;
    for (int r = 0; r < t.rows; ++r) {
        EXPECT_GE(t.zoom(r), kZoomMin);
        EXPECT_LE(t.zoom(r), kZoomMax);
        for (int k = kFirstFocusColumn; k <= kLastFocusColumn; ++k) {
            EXPECT_GE(t.data[r][k], kFocusMin);
            EXPECT_LE(t.data[r][k], kFocusMax);
        }
    }
}

TEST_P(TrackingTableTest, RowsBeyondTheCountAndTheTenthColumnAreZero) {
    const auto& t = GetParam().table;
    for (int r = 0; r < TRACKING_TABLE_ROWS; ++r)
        for (int k = 0; k < TRACKING_TABLE_COLUMNS; ++k)
            if (r >= t.rows || k == TRACKING_TABLE_COLUMNS - 1) {
                EXPECT_EQ(t.data[r][k], 0) << "row " << r << " column " << k;
            }
}

std::string lens_name(const ::testing::TestParamInfo<TableCase>& info) {
    std::string name = "lens";
    for (char ch : info.param.table.lens)
        if (ch >= '0' && ch <= '9') name += ch;
    return name;
}

INSTANTIATE_TEST_SUITE_P(BothLenses, TrackingTableTest, ::testing::ValuesIn(table_cases()),
                         lens_name);

}  // namespace
}  // namespace zoomaf::lensdata_test
