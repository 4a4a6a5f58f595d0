// The confidence level against the OK/NG threshold and the flag derived from it.
#include <gtest/gtest.h>

#include <cstdint>

#include "pdaflib/pdaf_internal.h"
#include "system_record.hpp"
#include "zoomaf/pdaflib.h"

namespace {

using zoomaf::test::SystemRecord;

struct Verdict {
    uint64_t level;
    int8_t flag;
};

Verdict verdict_for_cl(SystemRecord& record, uint64_t cl) {
    record.input.ConfidenceLevel = cl;
    const SystemRecord::Result result = record.run();
    EXPECT_EQ(result.code, 0);
    return {result.output.DefocusConfidenceLevel, result.output.DefocusConfidence};
}

TEST(Confidence, FlatThresholdOf150PassesFromCl150) {
    SystemRecord record;
    record.input.PhaseDifference = 5;
    // 150 x 1024 x 2304 / 2304 / 150 = 1024: OK.
    EXPECT_EQ(verdict_for_cl(record, 150).level, 1024u);
    EXPECT_EQ(verdict_for_cl(record, 150).flag, 0);
    // 149 x 1024 / 150 = 1017.17: NG.
    EXPECT_EQ(verdict_for_cl(record, 149).level, 1017u);
    EXPECT_EQ(verdict_for_cl(record, 149).flag, -80);
    EXPECT_EQ(verdict_for_cl(record, 0).level, 0u);
    EXPECT_EQ(verdict_for_cl(record, 0).flag, -80);
    EXPECT_EQ(verdict_for_cl(record, 2047).level, 13974u);  // 2047 x 1024 / 150 = 13974.2
}

TEST(Confidence, EveryWindowOfTheGridFollowsTheSameThreshold) {
    // The flat line is the same at every knot, so wherever the window is, 150 passes.
    SystemRecord record;
    for (uint16_t row = 0; row < 6; ++row) {
        for (uint16_t column = 0; column < 8; ++column) {
            record.input.WindowXStart = static_cast<uint16_t>(80 + 480 * column);
            record.input.WindowYStart = static_cast<uint16_t>(420 + 360 * row);
            record.input.WindowXEnd = static_cast<uint16_t>(560 + 480 * column);
            record.input.WindowYEnd = static_cast<uint16_t>(780 + 360 * row);
            EXPECT_EQ(verdict_for_cl(record, 150).flag, 0);
            EXPECT_EQ(verdict_for_cl(record, 149).flag, -80);
        }
    }
}

TEST(Confidence, NormaliserScalesTheCl) {
    SystemRecord record;
    record.input.ConfidenceNormaliser = 1152;  // CL x 2: 75 x 2048 / 150 = 1024
    EXPECT_EQ(verdict_for_cl(record, 75).level, 1024u);
    EXPECT_EQ(verdict_for_cl(record, 75).flag, 0);
    EXPECT_EQ(verdict_for_cl(record, 74).level, 1010u);  // 74 x 2048 / 150 = 1010.3
    record.input.ConfidenceNormaliser = 576;             // CL x 4
    EXPECT_EQ(verdict_for_cl(record, 38).level, 1037u);  // 38 x 4096 / 150 = 1037.7
    EXPECT_EQ(verdict_for_cl(record, 37).flag, -80);     // 1010.3
}

TEST(Confidence, ThresholdFollowsTheSensorGain) {
    SystemRecord record;
    for (size_t k = 0; k < 48; ++k) record.set_threshold(k, 100, 300);
    record.input.SensorGain = 480;  // halfway: threshold 200
    EXPECT_EQ(verdict_for_cl(record, 200).level, 1024u);
    EXPECT_EQ(verdict_for_cl(record, 199).level, 1018u);  // 199 x 1024 / 200 = 1018.9
    record.input.SensorGain = 5000;                       // past the last gain: 300
    EXPECT_EQ(verdict_for_cl(record, 300).level, 1024u);
    record.input.SensorGain = 0;  // 100
    EXPECT_EQ(verdict_for_cl(record, 100).level, 1024u);
}

TEST(Confidence, ThresholdIsInterpolatedAtTheWindowCentre) {
    // Knot k's threshold is 100 + 10 k. At (512, 508) in cell (0, 0): 105 on row 0,
    // 185 on row 1, 105 + 80 x 248 / 496 = 145 between.
    SystemRecord record;
    for (size_t k = 0; k < 48; ++k) record.set_threshold(k, 100 + 10 * k, 100 + 10 * k);
    record.centre_at(512, 508);
    EXPECT_EQ(verdict_for_cl(record, 145).level, 1024u);
    EXPECT_EQ(verdict_for_cl(record, 144).level, 1016u);  // 144 x 1024 / 145 = 1016.9
    // Right of and below the grid: knot 47 alone, 570.
    record.centre_at(3895, 2895);
    EXPECT_EQ(verdict_for_cl(record, 570).level, 1024u);
}

TEST(Confidence, OneByOneThresholdGridUsesLineZeroEverywhere) {
    SystemRecord record;
    record.input.ThrXKnotNum = 1;
    record.input.ThrYKnotNum = 1;
    record.set_threshold(0, 200, 200);
    record.set_threshold(47, 10, 10);
    record.centre_at(3895, 2895);  // where an 8 x 6 grid would use knot 47
    EXPECT_EQ(verdict_for_cl(record, 100).level, 512u);
    EXPECT_EQ(verdict_for_cl(record, 100).flag, -80);
}

TEST(Confidence, ThresholdOfZeroPassesAnyCl) {
    SystemRecord record;
    for (size_t k = 0; k < 48; ++k) record.set_threshold(k, 0, 0);
    EXPECT_EQ(verdict_for_cl(record, 0).level, 1024u);
    EXPECT_EQ(verdict_for_cl(record, 0).flag, 0);
    EXPECT_EQ(verdict_for_cl(record, 2047).level, 1024u);
}

TEST(Confidence, ARefusedThresholdLineCountsAsZero) {
    SystemRecord record;
    record.lines[7].PointNum = 1;  // only line 0 is checked on input
    record.centre_at(3895, 50);    // knot 7 alone
    EXPECT_EQ(verdict_for_cl(record, 0).level, 1024u);
    record.centre_at(50, 50);  // knot 0: still 150
    EXPECT_EQ(verdict_for_cl(record, 0).flag, -80);

    // A gain beyond 0x7FFFFFFF is refused by every line.
    SystemRecord high_gain;
    high_gain.input.SensorGain = 0x80000000;
    EXPECT_EQ(verdict_for_cl(high_gain, 1).level, 1024u);
    high_gain.input.SensorGain = 0x7FFFFFFF;
    EXPECT_EQ(verdict_for_cl(high_gain, 1).level, 6u);  // 1024 / 150 = 6.8
}

TEST(Confidence, LevelIsClampedBelow32BitMaximum) {
    SystemRecord record;
    record.set_threshold(0, 1, 1);
    record.centre_at(50, 50);
    // 4194303 x 1024 / 1 = 4294966272: below the bound, kept.
    EXPECT_EQ(verdict_for_cl(record, 4194303).level, 4294966272u);
    // 2^40 x 1024 is far above: 4294967294, not 2^32 - 1.
    EXPECT_EQ(verdict_for_cl(record, uint64_t{1} << 40).level, 4294967294u);
    EXPECT_EQ(verdict_for_cl(record, UINT64_MAX).level, 4294967294u);

    EXPECT_EQ(limit_defocus_confidence_level(4294967293.9), 4294967293u);
    EXPECT_EQ(limit_defocus_confidence_level(4294967294.0), 4294967294u);
    EXPECT_EQ(limit_defocus_confidence_level(0.99), 0u);
    EXPECT_EQ(limit_defocus_confidence_level(-5.0), 0u);
}

TEST(Confidence, WithoutThresholdGridNoVerdictButADefocus) {
    SystemRecord record;
    record.use_ramp();
    record.input.ThrXKnotNum = 0;
    record.input.ThrYKnotNum = 0;
    record.input.ConfidenceLevel = 2000;
    record.centre_at(50, 50);
    const SystemRecord::Result result = record.run();
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output.DefocusConfidence, -2);
    EXPECT_EQ(result.output.DefocusConfidenceLevel, 0u);
    EXPECT_EQ(result.output.Defocus, 1000);
    EXPECT_EQ(result.output.PhaseDifference, 1);

    // No grid outranks a PD of -1024.
    record.input.PhaseDifference = -1024;
    EXPECT_EQ(record.run().output.DefocusConfidence, -2);
}

TEST(Confidence, ZeroNormaliserCountsAs2304) {
    // The input check never lets 0 through; the level step on its own still treats it as 2304.
    SystemRecord record;
    record.input.ConfidenceNormaliser = 0;
    record.input.ConfidenceLevel = 150;
    PdLibOutputData output{};
    job_calc_defocus_confidence_level(&record.input, &output);
    EXPECT_EQ(output.DefocusConfidenceLevel, 1024u);
}

}  // namespace
