// The module's calibrated DCC values against the twin's true PD conversion: a PD the twin's
// sensor reports for a known defocus, converted by the defocus library with the shipped
// DCC values, gives that defocus back within the calibration's error.
#include <gmock/gmock.h>

#include <cmath>

#include "twin/pd_conversion.hpp"
#include "zoomaf/pdaflib.h"

namespace zoomaf::test {
namespace {

using twin::kPdConversionKnots;

TEST(PdConversion, CalibratedValuesMatchTheTruthWithinAFewPerCent) {
    for (int k = 0; k < twin::kPdKnots; ++k) {
        const double truth = kPdConversionKnots.true_dcc[k];
        const double calibrated = kPdConversionKnots.calibrated_dcc[k];
        EXPECT_NEAR(calibrated / truth, 1.0, 0.03) << "knot " << k;
        EXPECT_NE(calibrated, std::round(truth)) << "the calibration is not the truth itself";
        EXPECT_GE(calibrated, 1930);
        EXPECT_LE(calibrated, 1960);
    }
    // Smooth over the grid: neighbours differ by a few counts.
    for (int row = 0; row < twin::kPdKnotRows; ++row) {
        for (int column = 0; column + 1 < twin::kPdKnotColumns; ++column) {
            const int k = row * twin::kPdKnotColumns + column;
            EXPECT_LE(std::abs(kPdConversionKnots.calibrated_dcc[k] -
                               kPdConversionKnots.calibrated_dcc[k + 1]),
                      10);
        }
    }
}

TEST(PdConversion, TrueConversionIsBilinearAndHeldBeyondTheKnots) {
    const auto& k = kPdConversionKnots;
    EXPECT_DOUBLE_EQ(twin::true_dcc_at(k.x[2], k.y[3]), k.true_dcc[3 * 8 + 2]);
    EXPECT_DOUBLE_EQ(twin::true_dcc_at(0, 0), k.true_dcc[0]);
    EXPECT_DOUBLE_EQ(twin::true_dcc_at(4000, 3000), k.true_dcc[47]);
    EXPECT_DOUBLE_EQ(twin::true_dcc_at((k.x[0] + k.x[1]) / 2, k.y[0]),
                     (k.true_dcc[0] + k.true_dcc[1]) / 2);
}

// The defocus library's input for grid window (column, row) with the shipped DCC values,
// as the day focus fills it.
struct GridInput {
    uint16_t x_knots[8], y_knots[6];
    int64_t dcc[48], offsets[48] = {};
    uint64_t gains[2] = {0, 960}, thresholds[2] = {150, 150};
    PdLibOKNGThrLine lines[48];
    PdLibInputData input{};

    GridInput(int column, int row) {
        for (int i = 0; i < 8; ++i) x_knots[i] = static_cast<uint16_t>(264 + 496 * i);
        for (int j = 0; j < 6; ++j) y_knots[j] = static_cast<uint16_t>(260 + 496 * j);
        for (int k = 0; k < 48; ++k) {
            dcc[k] = kPdConversionKnots.calibrated_dcc[k];
            lines[k] = PdLibOKNGThrLine{2, gains, thresholds};
        }
        input.ImageXSize = 4000;
        input.ImageYSize = 3000;
        input.WindowXStart = static_cast<uint16_t>(80 + 480 * column);
        input.WindowYStart = static_cast<uint16_t>(420 + 360 * row);
        input.WindowXEnd = static_cast<uint16_t>(560 + 480 * column);
        input.WindowYEnd = static_cast<uint16_t>(780 + 360 * row);
        input.DefocusXKnotNum = 8;
        input.DefocusYKnotNum = 6;
        input.p_DefocusDcc = dcc;
        input.p_DefocusOffset = offsets;
        input.p_DefocusXKnot = x_knots;
        input.p_DefocusYKnot = y_knots;
        input.DccScale = 2304;
        input.SensorGain = 1;
        input.ThrXKnotNum = 8;
        input.ThrYKnotNum = 6;
        input.p_DefocusOKNGThrLine = lines;
        input.p_ThrXKnot = x_knots;
        input.p_ThrYKnot = y_knots;
        input.ConfidenceNormaliser = 2304;
    }
};

TEST(PdConversion, TheLibraryRecoversTheTrueDefocusWithTheShippedValues) {
    for (double defocus : {-90.0, -12.0, 25.0, 100.0}) {
        for (int index = 0; index < 48; ++index) {
            const int column = index % 8, row = index / 8;
            SCOPED_TRACE("defocus " + std::to_string(defocus) + " window " + std::to_string(index));
            GridInput grid(column, row);
            const double cx = 320 + 480 * column, cy = 600 + 360 * row;
            grid.input.PhaseDifference =
                std::lround(twin::phase_difference_for_defocus(defocus, cx, cy));
            grid.input.ConfidenceLevel = 2047;
            PdLibOutputData out{};
            ASSERT_EQ(PdLibGetDefocus(&grid.input, &out), 0);
            const double recovered = static_cast<double>(out.Defocus) / 16384.0;
            // The calibration's error plus half a PD unit of rounding.
            EXPECT_NEAR(recovered, defocus, 0.03 * std::fabs(defocus) + 0.1);
        }
    }
}

}  // namespace
}  // namespace zoomaf::test
