// The twin's true lens (C++) against the lens data the generator made from the same model in
// Python: every value of both tracking tables and of the lens table CSV is the model's,
// rounded. The data's own properties are checked by tools/lensdata/generate.py --check.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "twin/module/lens_model.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf {
namespace {

using twin::in_focus_focus_step;

constexpr double kFocusMin = -2574, kFocusMax = 3022, kInfinity = INFINITY;
// Physical subject distance of focus columns 3..8 (the named distances in falling order).
constexpr std::array<double, 6> kColumnDistanceM = {100, 50, 30, 20, 15, 10};

TEST(TwinLens, ReproducesBothTrackingTables) {
    const struct {
        uint16_t rows;
        const int16_t (*data)[TRACKING_TABLE_COLUMNS];
    } tables[] = {{rows_471, focus_zoom_data_471}, {rows_449, focus_zoom_data_449}};
    for (const auto& t : tables) {
        for (int r = 0; r < t.rows; ++r) {
            const double zoom = t.data[r][2];
            ASSERT_NEAR(twin::efl_at_zoom_position(zoom), t.data[r][1], 1.0) << t.data[r][0];
            for (int i = 0; i < 6; ++i)
                ASSERT_NEAR(in_focus_focus_step(zoom, kColumnDistanceM[i]), t.data[r][3 + i],
                            0.5 + 1e-6)
                    << "key " << t.data[r][0] << " column " << 3 + i;
        }
    }
}

// Columns 1..100 are 1..100 m, 101..105 are 200..600 m, 106 is infinity less a margin of 50
// steps; a step beyond the focus travel holds the end stop. Rows use the 4.49 mm table's
// zoom positions, the end rows beyond its multiples.
TEST(TwinLens, ReproducesTheLensTableCsv) {
    FILE* file = std::fopen(ZOOMAF_LENS_TABLE_CSV, "r");
    ASSERT_NE(file, nullptr);
    for (int r = 0; r < 170; ++r) {
        const int key = std::clamp(r + 10, 35, 110);
        const double zoom = focus_zoom_data_449[key - 35][2];
        for (int c = 0; c < 107; ++c) {
            int value = 0;
            ASSERT_EQ(std::fscanf(file, "%d%*c", &value), 1) << r << "," << c;
            if (c == 0) continue;  // the row's label
            const double distance = c <= 100 ? c : c <= 105 ? 100.0 * (c - 99) : kInfinity;
            const double model = std::clamp(
                in_focus_focus_step(zoom, distance) - (c == 106 ? 50 : 0), kFocusMin, kFocusMax);
            ASSERT_NEAR(value, model, 0.5 + 1e-6) << r << "," << c;
        }
    }
    std::fclose(file);
}

}  // namespace
}  // namespace zoomaf
