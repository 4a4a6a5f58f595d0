// The input record as the focus loop fills it: a 4000 x 3000 image, an 8 x 6 conversion grid
// and an 8 x 6 threshold grid on the same knots (264 + 496 i, 260 + 496 j), offsets 0, a flat
// threshold line of 150 over gains 0 .. 960 at every threshold knot, normaliser 2304. The
// threshold grid has knot arrays of its own so a test can break one grid without the other.
#pragma once

#include <array>
#include <cstdint>

#include "zoomaf/pdaflib.h"

namespace zoomaf::test {

struct SystemRecord {
    std::array<uint16_t, 8> x_knots{264, 760, 1256, 1752, 2248, 2744, 3240, 3736};
    std::array<uint16_t, 6> y_knots{260, 756, 1252, 1748, 2244, 2740};
    std::array<uint16_t, 8> thr_x_knots = x_knots;
    std::array<uint16_t, 6> thr_y_knots = y_knots;
    std::array<int64_t, 48> dcc{};
    std::array<int64_t, 48> offsets{};
    std::array<uint64_t, 2> gains{0, 960};
    std::array<std::array<uint64_t, 2>, 48> thresholds{};
    std::array<PdLibOKNGThrLine, 48> lines{};
    PdLibInputData input{};

    SystemRecord() {
        for (size_t k = 0; k < lines.size(); ++k) {
            thresholds[k] = {150, 150};
            lines[k] = {2, gains.data(), thresholds[k].data()};
        }
        input.PhaseDifference = 0;
        input.ConfidenceLevel = 0;
        input.ImageXSize = 4000;
        input.ImageYSize = 3000;
        input.DefocusXKnotNum = 8;
        input.DefocusYKnotNum = 6;
        input.p_DefocusDcc = dcc.data();
        input.p_DefocusOffset = offsets.data();
        input.p_DefocusXKnot = x_knots.data();
        input.p_DefocusYKnot = y_knots.data();
        input.DccScale = 2304;
        input.SensorGain = 16;
        input.ThrXKnotNum = 8;
        input.ThrYKnotNum = 6;
        input.p_DefocusOKNGThrLine = lines.data();
        input.p_ThrXKnot = thr_x_knots.data();
        input.p_ThrYKnot = thr_y_knots.data();
        input.ConfidenceNormaliser = 2304;
        centre_at(2000, 1500);
    }
    // The record points into this object.
    SystemRecord(const SystemRecord&) = delete;
    SystemRecord& operator=(const SystemRecord&) = delete;

    // A 20 x 20 window whose centre is (cx, cy); cx and cy at least 10.
    void centre_at(uint16_t cx, uint16_t cy) {
        input.WindowXStart = static_cast<uint16_t>(cx - 10);
        input.WindowXEnd = static_cast<uint16_t>(cx + 10);
        input.WindowYStart = static_cast<uint16_t>(cy - 10);
        input.WindowYEnd = static_cast<uint16_t>(cy + 10);
    }

    // Knot k converts PD 1 into 100 k + 1000: 100 more per column, 800 more per row.
    void use_ramp() {
        input.PhaseDifference = 1;
        for (size_t k = 0; k < dcc.size(); ++k) {
            dcc[k] = 100 * static_cast<int64_t>(k);
            offsets[k] = 1000;
        }
    }

    void set_threshold(size_t knot, uint64_t at_gain_0, uint64_t at_gain_960) {
        thresholds[knot] = {at_gain_0, at_gain_960};
    }

    struct Result {
        int64_t code;
        PdLibOutputData output;
    };
    // Runs the library on an output filled with values it never writes on its own.
    Result run() const {
        PdLibOutputData output{77, 77, 77, 77};
        const int64_t code = PdLibGetDefocus(&input, &output);
        return {code, output};
    }
};

}  // namespace zoomaf::test
