// The default lens table CSV: its shape, its order, and its agreement with the 4.49 mm
// tracking table and the twin's true lens.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "tracking_tables.hpp"
#include "twin/lens_model.hpp"

namespace zoomaf::lensdata_test {
namespace {

constexpr int kRows = 170, kValues = 107;
constexpr int kOverInfinityMargin = 50;

using Row = std::vector<int>;

// Strict reading: 170 lines of 107 comma-separated decimal integers.
std::vector<Row> read_lines(std::string& error) {
    std::ifstream file(ZOOMAF_LENS_TABLE_CSV, std::ios::binary);
    if (!file) error = "cannot open " ZOOMAF_LENS_TABLE_CSV;
    std::vector<Row> rows;
    std::string line;
    while (error.empty() && std::getline(file, line)) {
        Row row;
        std::istringstream fields(line);
        std::string field;
        while (std::getline(fields, field, ',')) {
            std::size_t used = 0;
            row.push_back(std::stoi(field, &used));
            if (used != field.size()) error = "not an integer: '" + field + "'";
        }
        rows.push_back(row);
    }
    return rows;
}

class LensTableCsv : public ::testing::Test {
protected:
    static void SetUpTestSuite() { rows_ = read_lines(error_); }
    static std::vector<Row> rows_;
    static std::string error_;

    void SetUp() override {
        ASSERT_EQ(error_, "");
        ASSERT_EQ(rows_.size(), static_cast<std::size_t>(kRows));
        for (const auto& row : rows_) ASSERT_EQ(row.size(), static_cast<std::size_t>(kValues));
    }
    // Row of the 4.49 mm table for a lens-table row (multiples beyond it use its end rows).
    static int table_row(int csv_row) {
        const auto t = table_449();
        return t.row_of_key(std::clamp(csv_row + 10, t.key(0), t.key(t.rows - 1)));
    }
};
std::vector<Row> LensTableCsv::rows_;
std::string LensTableCsv::error_;

// The service reads the file with "%d" and skips one character after each value.
TEST_F(LensTableCsv, ReadsTheSameWayTheServiceReadsIt) {
    FILE* file = std::fopen(ZOOMAF_LENS_TABLE_CSV, "r");
    ASSERT_NE(file, nullptr);
    for (int r = 0; r < kRows; ++r)
        for (int c = 0; c < kValues; ++c) {
            int value = 0;
            ASSERT_EQ(std::fscanf(file, "%d", &value), 1) << r << "," << c;
            EXPECT_EQ(value, rows_[r][c]) << r << "," << c;
            EXPECT_EQ(std::fgetc(file), c + 1 < kValues ? ',' : '\n') << r << "," << c;
        }
    EXPECT_EQ(std::fgetc(file), EOF);
    std::fclose(file);
}

TEST_F(LensTableCsv, FirstFieldIsTheMultipleTimesTen) {
    for (int r = 0; r < kRows; ++r) EXPECT_EQ(rows_[r][0], r + 10);
}

TEST_F(LensTableCsv, StepsFallAsTheDistanceGrowsAndStayInTheFocusRange) {
    for (int r = 0; r < kRows; ++r) {
        const Row& row = rows_[r];
        for (int c = 1; c < kValues; ++c) {
            EXPECT_GE(row[c], kFocusMin) << r << "," << c;
            EXPECT_LE(row[c], kFocusMax) << r << "," << c;
            if (c > 1) {
                EXPECT_LE(row[c], row[c - 1]) << r << "," << c;
            }
        }
        EXPECT_EQ(*std::max_element(row.begin() + 1, row.end()), row[1]) << r;
        EXPECT_EQ(*std::min_element(row.begin() + 1, row.end()), row[106]) << r;
        EXPECT_GT(row[1], row[106]) << r;
    }
}

TEST_F(LensTableCsv, StepsFallAsTheMultipleRises) {
    for (int r = 1; r < kRows; ++r)
        for (int c = 1; c < kValues; ++c) EXPECT_LE(rows_[r][c], rows_[r - 1][c]) << r << "," << c;
}

TEST_F(LensTableCsv, MultiplesOutsideTheLensRepeatItsEndRows) {
    for (int r = 0; r < kRows; ++r) {
        const int end = r + 10 < 35 ? 25 : r + 10 > 110 ? 100 : r;
        for (int c = 1; c < kValues; ++c) EXPECT_EQ(rows_[r][c], rows_[end][c]) << r << "," << c;
    }
}

// Distance columns 10, 15, 20, 30, 50 and 100 m are the tracking table's focus columns.
TEST_F(LensTableCsv, AgreesExactlyWithTheTrackingTableAtItsDistances) {
    const auto t = table_449();
    for (int tr = 0; tr < t.rows; ++tr) {
        const Row& row = rows_[t.key(tr) - 10];
        for (int i = 0; i < 6; ++i) {
            const int column = static_cast<int>(kColumnDistanceM[i]);
            EXPECT_EQ(row[column], t.data[tr][kFirstFocusColumn + i])
                << "key " << t.key(tr) << " distance " << column;
        }
    }
}

TEST_F(LensTableCsv, IsTheTwinLensAtTheTrackingTableZoomPosition) {
    const auto t = table_449();
    for (int r = 0; r < kRows; ++r) {
        const double zoom = t.zoom(table_row(r));
        for (int c = 1; c <= 105; ++c) {
            const double distance = c <= 100 ? c : 100.0 * (c - 99);
            const double model = std::clamp(twin::in_focus_focus_step(zoom, distance),
                                            double{kFocusMin}, double{kFocusMax});
            EXPECT_NEAR(rows_[r][c], model, 0.5 + 1e-6) << r << "," << c;
        }
        const double infinity = twin::in_focus_focus_step(zoom, HUGE_VAL) - kOverInfinityMargin;
        EXPECT_NEAR(rows_[r][106], std::max(infinity, double{kFocusMin}), 0.5 + 1e-6) << r;
    }
}

// At the wide end the lens cannot focus the nearest metres: those columns hold the end stop.
TEST_F(LensTableCsv, TooNearForTheLensHoldsTheFocusEndStop) {
    const Row& wide = rows_[25];
    EXPECT_EQ(wide[1], kFocusMax);
    EXPECT_GT(twin::in_focus_focus_step(table_449().zoom(0), 1.0), kFocusMax);
    const Row& tele = rows_[100];
    EXPECT_LT(tele[1], kFocusMax);
    EXPECT_GT(tele[1], tele[2]);
}

}  // namespace
}  // namespace zoomaf::lensdata_test
