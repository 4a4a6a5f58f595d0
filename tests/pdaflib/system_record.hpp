// The input record as the focus loop fills it: a 4000 x 3000 image, an 8 x 6 conversion grid
// and an 8 x 6 threshold grid on the same knots (264 + 496 i, 260 + 496 j), offsets 0, a flat
// threshold line of 150 over gains 0 .. 960 at every threshold knot, normaliser 2304. The
// threshold grid has knot arrays of its own so a test can break one grid without the other.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "zoomaf/pdaflib.h"

namespace zoomaf::test {

struct SystemRecord {
    std::array<uint16_t, 8> x_knots{264, 760, 1256, 1752, 2248, 2744, 3240, 3736};
    std::array<uint16_t, 6> y_knots{260, 756, 1252, 1748, 2244, 2740};
    std::array<uint16_t, 8> thr_x_knots = x_knots;
    std::array<uint16_t, 6> thr_y_knots = y_knots;
    std::array<int64_t, 48> dcc{}, offsets{};
    std::array<uint64_t, 2> gains{0, 960};
    std::array<std::array<uint64_t, 2>, 48> thresholds{};
    std::array<PdLibOKNGThrLine, 48> lines{};
    PdLibInputData input{.ImageXSize = 4000,
                         .ImageYSize = 3000,
                         .DefocusXKnotNum = 8,
                         .DefocusYKnotNum = 6,
                         .p_DefocusDcc = dcc.data(),
                         .p_DefocusOffset = offsets.data(),
                         .p_DefocusXKnot = x_knots.data(),
                         .p_DefocusYKnot = y_knots.data(),
                         .DccScale = 2304,
                         .SensorGain = 16,
                         .ThrXKnotNum = 8,
                         .ThrYKnotNum = 6,
                         .p_DefocusOKNGThrLine = lines.data(),
                         .p_ThrXKnot = thr_x_knots.data(),
                         .p_ThrYKnot = thr_y_knots.data(),
                         .ConfidenceNormaliser = 2304};

    SystemRecord() {
        for (size_t k = 0; k < lines.size(); ++k) {
            thresholds[k] = {150, 150};
            lines[k] = {2, gains.data(), thresholds[k].data()};
        }
        centre_at(2000, 1500);
    }
    SystemRecord(const SystemRecord&) = delete;  // the record points into this object
    SystemRecord& operator=(const SystemRecord&) = delete;

    // A 21 x 21 window centred on (cx, cy), truncated from cx + 0.5 and cy + 0.5; cx, cy >= 10.
    void centre_at(uint16_t cx, uint16_t cy) {
        input.WindowXStart = static_cast<uint16_t>(cx - 10);
        input.WindowXEnd = static_cast<uint16_t>(cx + 11);
        input.WindowYStart = static_cast<uint16_t>(cy - 10);
        input.WindowYEnd = static_cast<uint16_t>(cy + 11);
    }

    // No threshold grid: both counts 0, and no knot array to read.
    void drop_threshold_grid() {
        input.ThrXKnotNum = input.ThrYKnotNum = 0;
        input.p_ThrXKnot = input.p_ThrYKnot = nullptr;
    }

    // Knot (column i, row j) converts PD 1 into 1000 + 496 i + 4960 j: over the grid the
    // defocus is the plane 1000 + (x - 264) + 10 (y - 260), one pixel off shows.
    void use_plane() {
        input.PhaseDifference = 1;
        for (size_t k = 0; k < dcc.size(); ++k) {
            dcc[k] = 496 * static_cast<int64_t>(k % 8) + 4960 * static_cast<int64_t>(k / 8);
            offsets[k] = 1000;
        }
    }

    // Runs the library on an output filled with values it never writes on its own.
    PdLibOutputData run(int64_t expected_code = 0) const {
        PdLibOutputData output{77, 77, 77, 77};
        EXPECT_EQ(PdLibGetDefocus(&input, &output), expected_code);
        return output;
    }
};

}  // namespace zoomaf::test
