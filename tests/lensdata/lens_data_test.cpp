// The lens data: the compiled-in tracking tables, the twin's true lens and the default lens
// table CSV, all made from one lens model, keep the published rows and agree with each other.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "twin/lens_model.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf {
namespace {

using twin::in_focus_focus_step;

constexpr int kFocusMin = -2574, kFocusMax = 3022, kZoomMin = -5430, kZoomMax = 1606;
constexpr int kFirstFocusColumn = 3, kLastFocusColumn = 8;
// Physical subject distance of focus columns 3..8: the values rise from column 3 to 8,
// so they are the named distances in falling order.
constexpr std::array<double, 6> kColumnDistanceM = {100, 50, 30, 20, 15, 10};
constexpr double kInfinity = std::numeric_limits<double>::infinity();

using Row = std::vector<int>;

struct TrackingTable {
    std::string lens;
    uint16_t rows;
    const char (*names)[TRACKING_NAME_LENGTH];
    const int16_t (*data)[TRACKING_TABLE_COLUMNS];
    // Key (multiple x 10), EFL, zoom and focus columns 3..8; the first and last rows are
    // the table's ends.
    std::vector<Row> published;

    int key(int row) const { return data[row][0]; }
    int zoom(int row) const { return data[row][2]; }
    int row_of_key(int key) const { return key - data[0][0]; }
};

const TrackingTable kTable471{"4.71mm",
                              rows_471,
                              column_name_471,
                              focus_zoom_data_471,
                              {{33, 1552, 1504, 2820, 2832, 2845, 2863, 2885, 2907},
                               {42, 1976, -32, 2103, 2118, 2136, 2159, 2188, 2217},
                               {70, 3298, -3024, -14, 13, 42, 82, 131, 179},
                               {105, 4943, -5392, -2452, -2413, -2370, -2314, -2243, -2173}}};
const TrackingTable kTable449{"4.49mm",
                              rows_449,
                              column_name_449,
                              focus_zoom_data_449,
                              {{35, 1573, 1416, 2784, 2797, 2810, 2828, 2851, 2873},
                               {44, 1976, -32, 2103, 2118, 2136, 2159, 2188, 2217},
                               {74, 3326, -3072, -57, -30, 0, 40, 89, 138},
                               {110, 4943, -5392, -2452, -2413, -2370, -2314, -2243, -2173}}};

class TrackingTableTest : public ::testing::TestWithParam<const TrackingTable*> {};

TEST_P(TrackingTableTest, ColumnNamesAndPublishedRowsAreKeptExactly) {
    const TrackingTable& t = *GetParam();
    const std::array<std::string, 10> names = {t.lens, "EFL", "zoom", "100", "10",
                                               "50",   "30",  "20",   "15",  ""};
    for (int i = 0; i < TRACKING_TABLE_COLUMNS; ++i) EXPECT_EQ(t.names[i], names[i]) << i;
    ASSERT_EQ(t.rows, t.published.back()[0] - t.published.front()[0] + 1);
    for (const Row& published : t.published) {
        const int16_t* row = t.data[t.row_of_key(published[0])];
        EXPECT_EQ(Row(row, row + kLastFocusColumn + 1), published);
    }
}

TEST_P(TrackingTableTest, RowsAreConsecutiveMonotoneAndInRange) {
    const TrackingTable& t = *GetParam();
    for (int r = 0; r < t.rows; ++r) {
        SCOPED_TRACE("key " + std::to_string(t.key(r)));
        EXPECT_EQ(t.key(r), t.key(0) + r);
        EXPECT_GE(t.zoom(r), kZoomMin);
        EXPECT_LE(t.zoom(r), kZoomMax);
        // Focus rises from column 3 to 8, so its first and last columns bound the row.
        EXPECT_GE(t.data[r][kFirstFocusColumn], kFocusMin);
        EXPECT_LE(t.data[r][kLastFocusColumn], kFocusMax);
        for (int k = kFirstFocusColumn; k < kLastFocusColumn; ++k)
            EXPECT_LT(t.data[r][k], t.data[r][k + 1]) << "column " << k;
        if (r == 0) continue;
        EXPECT_GT(t.data[r][1], t.data[r - 1][1]) << "EFL";  // rises with the multiple
        for (int k = 2; k <= kLastFocusColumn; ++k)          // zoom and focus fall with it
            EXPECT_LT(t.data[r][k], t.data[r - 1][k]) << "column " << k;
    }
}

TEST_P(TrackingTableTest, RowsBeyondTheCountAndTheTenthColumnAreZero) {
    const TrackingTable& t = *GetParam();
    for (int r = 0; r < TRACKING_TABLE_ROWS; ++r)
        for (int k = 0; k < TRACKING_TABLE_COLUMNS; ++k)
            if (r >= t.rows || k == TRACKING_TABLE_COLUMNS - 1) {
                EXPECT_EQ(t.data[r][k], 0) << "row " << r << " column " << k;
            }
}

// Each table value is the twin's lens at the row's whole zoom position, rounded.
TEST_P(TrackingTableTest, EveryRowIsTheTwinLensAtItsZoomPosition) {
    const TrackingTable& t = *GetParam();
    for (int r = 0; r < t.rows; ++r) {
        SCOPED_TRACE("key " + std::to_string(t.key(r)));
        EXPECT_NEAR(twin::efl_at_zoom_position(t.zoom(r)), t.data[r][1], 1.0);
        for (int i = 0; i < 6; ++i)
            EXPECT_NEAR(in_focus_focus_step(t.zoom(r), kColumnDistanceM[i]),
                        t.data[r][kFirstFocusColumn + i], 0.5 + 1e-6);
    }
}

INSTANTIATE_TEST_SUITE_P(BothLenses, TrackingTableTest, ::testing::Values(&kTable471, &kTable449),
                         [](const auto& info) { return info.index == 0 ? "lens471" : "lens449"; });

TEST(TwinLens, FocalLengthFallsAndItsInverseHoldsOverTheWholeZoomTravel) {
    double previous = kInfinity;
    // Beyond the travel the lens continues in straight lines, still invertible.
    for (int z = kZoomMin - 500; z <= kZoomMax + 500; ++z) {
        const double efl = twin::efl_at_zoom_position(z);
        ASSERT_LT(efl, previous) << "zoom " << z;
        ASSERT_NEAR(twin::zoom_position_for_efl(efl), z, 1e-6) << "zoom " << z;
        previous = efl;
    }
}

// Over the zoom travel the step falls as the subject moves away, from 10 cm to infinity, and
// rises with the zoom position from 1 m on (nearer, the step lies far beyond the focus travel).
TEST(TwinLens, StepFallsAsTheSubjectMovesAwayAndRisesWithTheZoomPosition) {
    std::vector<double> distances;
    for (double d = twin::kLensNearestDistanceM; d < 2000.0; d *= 1.2) distances.push_back(d);
    distances.push_back(kInfinity);
    std::vector<double> steps(distances.size()), previous;  // at z and at z - 1
    for (int z = kZoomMin; z <= kZoomMax; ++z) {
        for (size_t i = 0; i < distances.size(); ++i) {
            steps[i] = in_focus_focus_step(z, distances[i]);
            if (i > 0) {
                ASSERT_LT(steps[i], steps[i - 1]) << z << " " << distances[i];
            }
            if (!previous.empty() && distances[i] >= 1.0) {
                ASSERT_GT(steps[i], previous[i]) << z << " " << distances[i];
            }
        }
        previous = steps;
    }
    // Rising with the zoom position, far subjects stay inside the focus travel everywhere.
    EXPECT_GT(in_focus_focus_step(kZoomMin, kInfinity), kFocusMin);
    EXPECT_LT(in_focus_focus_step(kZoomMax, 10.0), kFocusMax);
}

TEST(TwinLens, IsContinuousWhereTheKnotsEnd) {
    for (double d : {2.0, 20.0, kInfinity})  // the outer zoom knots
        for (double z : {-5392.0, 1504.0})
            EXPECT_NEAR(in_focus_focus_step(z - 1e-7, d), in_focus_focus_step(z + 1e-7, d), 1e-4);
    for (double z : {-5430.0, -3024.0, 700.0})  // the outer knot distances
        for (double d : {10.0, 100.0})
            EXPECT_NEAR(in_focus_focus_step(z, d * (1 - 1e-9)),
                        in_focus_focus_step(z, d * (1 + 1e-9)), 1e-4);
}

TEST(TwinLens, TooNearOrNoDistanceCountsAsTheNearest) {
    for (double zoom : {-5430.0, -32.0, 1606.0}) {
        const double nearest = in_focus_focus_step(zoom, twin::kLensNearestDistanceM);
        ASSERT_TRUE(std::isfinite(nearest));
        for (double d : {0.0, -3.0, std::numeric_limits<double>::quiet_NaN()})
            EXPECT_EQ(in_focus_focus_step(zoom, d), nearest) << zoom << " " << d;
    }
}

constexpr int kCsvRows = 170, kCsvValues = 107;

// Reads the lens table the way the service does, "%d" and then one character, which must be
// ',' between values and '\n' after the 107th; nothing may follow the 170th line.
std::string read_lens_table(std::vector<Row>& rows) {
    FILE* file = std::fopen(ZOOMAF_LENS_TABLE_CSV, "r");
    if (file == nullptr) return "cannot open " ZOOMAF_LENS_TABLE_CSV;
    std::string error;
    rows.assign(kCsvRows, Row(kCsvValues));
    for (int r = 0; r < kCsvRows && error.empty(); ++r)
        for (int c = 0; c < kCsvValues && error.empty(); ++c)
            if (std::fscanf(file, "%d", &rows[r][c]) != 1 ||
                std::fgetc(file) != (c + 1 < kCsvValues ? ',' : '\n'))
                error = "bad value or separator at " + std::to_string(r) + "," + std::to_string(c);
    if (error.empty() && std::fgetc(file) != EOF) error = "more than 170 lines";
    std::fclose(file);
    return error;
}

class LensTableCsv : public ::testing::Test {
protected:
    static void SetUpTestSuite() { error_ = read_lens_table(rows_); }
    void SetUp() override { ASSERT_EQ(error_, ""); }
    static inline std::vector<Row> rows_;
    static inline std::string error_;
};

TEST_F(LensTableCsv, RowsByMultipleStepsFallingWithDistanceAndMultipleInsideTheRange) {
    for (int r = 0; r < kCsvRows; ++r) {
        const Row& row = rows_[r];
        EXPECT_EQ(row[0], r + 10) << "the multiple x 10";
        // Falling along the row, so column 1 is its largest step and column 106 its smallest.
        EXPECT_LE(row[1], kFocusMax) << r;
        EXPECT_GE(row[106], kFocusMin) << r;
        EXPECT_GT(row[1], row[106]) << r;
        for (int c = 2; c < kCsvValues; ++c) EXPECT_LE(row[c], row[c - 1]) << r << "," << c;
        if (r == 0) continue;
        for (int c = 1; c < kCsvValues; ++c) EXPECT_LE(row[c], rows_[r - 1][c]) << r << "," << c;
    }
}

TEST_F(LensTableCsv, MultiplesOutsideTheLensRepeatItsEndRows) {
    for (int r = 0; r < kCsvRows; ++r) {
        const int end = r + 10 < 35 ? 25 : r + 10 > 110 ? 100 : r;
        for (int c = 1; c < kCsvValues; ++c) EXPECT_EQ(rows_[r][c], rows_[end][c]) << r << "," << c;
    }
}

// Distance columns 10, 15, 20, 30, 50 and 100 m are the 4.49 mm table's focus columns.
TEST_F(LensTableCsv, AgreesExactlyWithTheTrackingTableAtItsDistances) {
    for (int tr = 0; tr < kTable449.rows; ++tr) {
        for (int i = 0; i < 6; ++i) {
            const int column = static_cast<int>(kColumnDistanceM[i]);
            EXPECT_EQ(rows_[kTable449.key(tr) - 10][column],
                      kTable449.data[tr][kFirstFocusColumn + i])
                << "key " << kTable449.key(tr) << " distance " << column;
        }
    }
}

// Columns 1..100 are 1..100 m, 101..105 are 200..600 m, 106 is infinity less a margin of 50
// steps; a step beyond the focus travel (too near at the wide end) holds the end stop.
TEST_F(LensTableCsv, IsTheTwinLensAtTheTrackingTableZoomPosition) {
    const TrackingTable& t = kTable449;
    for (int r = 0; r < kCsvRows; ++r) {
        const double zoom = t.zoom(t.row_of_key(std::clamp(r + 10, t.key(0), t.key(t.rows - 1))));
        for (int c = 1; c <= 105; ++c) {
            const double distance = c <= 100 ? c : 100.0 * (c - 99);
            const double model = std::clamp(in_focus_focus_step(zoom, distance), double{kFocusMin},
                                            double{kFocusMax});
            EXPECT_NEAR(rows_[r][c], model, 0.5 + 1e-6) << r << "," << c;
        }
        const double infinity = in_focus_focus_step(zoom, kInfinity) - 50;
        EXPECT_NEAR(rows_[r][106], std::max(infinity, double{kFocusMin}), 0.5 + 1e-6) << r;
    }
}

}  // namespace
}  // namespace zoomaf
