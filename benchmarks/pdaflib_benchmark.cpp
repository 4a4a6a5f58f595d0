// One day-focus frame through the defocus library: the 48 windows of the 8 x 6 grid
// (480 x 360 each over the 4000 x 3000 image) on the system's knots, with a flat threshold
// line of 150 at every knot. Goal: under 5 us per frame.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>

#include "zoomaf/pdaflib.h"

namespace {

struct Frame {
    std::array<uint16_t, 8> x_knots{264, 760, 1256, 1752, 2248, 2744, 3240, 3736};
    std::array<uint16_t, 6> y_knots{260, 756, 1252, 1748, 2244, 2740};
    std::array<int64_t, 48> dcc{};
    std::array<int64_t, 48> offsets{};
    std::array<uint64_t, 2> gains{0, 960};
    std::array<uint64_t, 2> thresholds{150, 150};
    std::array<PdLibOKNGThrLine, 48> lines{};
    std::array<int64_t, 48> pd{};
    std::array<uint64_t, 48> cl{};
    PdLibInputData input{};

    Frame() {
        for (size_t k = 0; k < 48; ++k) {
            dcc[k] = -1930 + static_cast<int64_t>(k % 7) * 5;  // a plausible spread
            lines[k] = {2, gains.data(), thresholds.data()};
            pd[k] = static_cast<int64_t>(k * 37 % 200) - 100;
            cl[k] = 100 + k * 13 % 120;  // both sides of 150
        }
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
        input.p_ThrXKnot = x_knots.data();
        input.p_ThrYKnot = y_knots.data();
        input.ConfidenceNormaliser = 2304;
    }
};

void BM_Frame48Windows(benchmark::State& state) {
    Frame frame;
    std::array<PdLibOutputData, 48> outputs{};
    for (auto _ : state) {
        for (uint16_t row = 0; row < 6; ++row) {
            for (uint16_t column = 0; column < 8; ++column) {
                const size_t k = 8u * row + column;
                frame.input.WindowXStart = static_cast<uint16_t>(80 + 480 * column);
                frame.input.WindowYStart = static_cast<uint16_t>(420 + 360 * row);
                frame.input.WindowXEnd = static_cast<uint16_t>(560 + 480 * column);
                frame.input.WindowYEnd = static_cast<uint16_t>(780 + 360 * row);
                frame.input.PhaseDifference = frame.pd[k];
                frame.input.ConfidenceLevel = frame.cl[k];
                benchmark::DoNotOptimize(PdLibGetDefocus(&frame.input, &outputs[k]));
            }
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * 48);
}
BENCHMARK(BM_Frame48Windows)->Unit(benchmark::kMicrosecond);

}  // namespace
