// The auto-focus loop and the console on the twin: the zoom fixture's service (lens table,
// laser channel, sensor set up, motors homed and zoomed to x3.5), a loop state driven pass
// by pass in virtual time, and the video encoder publishing the focus values of a still
// subject in front of the twin's lens.
#pragma once

#include <cstring>
#include <optional>

#include "ipc/ipc_internal.hpp"
#include "service/af_loop.hpp"
#include "tests/service/zoom_fixture.hpp"
#include "twin/encoder.hpp"
#include "twin/still_subject.hpp"
#include "zoomaf/night_focus.h"

namespace zoomaf::test {

class AfLoopTest : public ZoomTest {
protected:
    static constexpr double kSubjectM = 12.0;

    void SetUp() override {
        ZoomTest::SetUp();
        ipc::fv_channel() = VrelShareMan{};  // opened again on this board
        std::memset(&night_focus_man, 0, sizeof night_focus_man);
        defauult_probe_dir = -1;
        pdafcnt_over_multiple_change = 0;
        onoff = 0;
        start_at(3.5f);
    }

    void TearDown() override {
        encoder_.reset();
        ZoomTest::TearDown();
    }

    void start(LoopVariant variant) {
        quietly([&] { start_af_loop(state_, variant); });
    }

    // One pass with its messages in output_ and only its own requests in the recorder.
    bool pass() {
        recorder().clear();
        bool go_on = false;
        output_ = captured([&] { go_on = run_af_pass(state_); });
        return go_on;
    }

    // The encoder publishing every frame the focus values of a still subject at distance_m.
    void encoder_on(double distance_m) {
        if (!encoder_) encoder_.emplace(board());
        encoder_->set_source(twin::still_subject_source(board(), distance_m));
    }

    // How many sleeps of exactly ns the last pass asked for.
    int sleeps_of(uint64_t ns) {
        int n = 0;
        for (uint64_t slept : recorder().sleeps())
            if (slept == ns) ++n;
        return n;
    }

    AfLoopState state_;
    std::optional<twin::Encoder> encoder_;
};

}  // namespace zoomaf::test
