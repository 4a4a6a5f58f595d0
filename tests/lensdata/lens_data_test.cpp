// The twin's true lens (C++) against the lens data the generator made from the same model in
// Python: every value of the lens table CSV is the model's, rounded, at the zoom positions of
// the tracking table. The data's own properties are checked by tools/lensdata/generate.py --check.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "twin/module/lens_model.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf {
namespace {

using twin::in_focus_focus_step;

constexpr double kFocusMin = -2574, kFocusMax = 3022, kInfinity = INFINITY;

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
