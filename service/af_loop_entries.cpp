// The entry points of the auto-focus loop: the console's, which runs for the life of the
// process, and the application's, with its stop handshake through onoff.
#include <cstdio>

#include "platform/platform.hpp"
#include "service/af_loop.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"

namespace zoomaf {
namespace {

constexpr uint64_t kStopPollNs = 200'000'000;
constexpr int kStopPolls = 20;

}  // namespace

void run_console_loop(ConsoleLoopControl& control) {
    AfLoopState state;
    start_af_loop(state, LoopVariant::console);
    while (!control.stop.load(std::memory_order_relaxed)) {
        run_af_pass(state);
        control.passes.fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace zoomaf

extern "C" {

int32_t AFByUsingAssistInfo(void) {
    zoomaf::ConsoleLoopControl never_stopped;
    zoomaf::run_console_loop(never_stopped);
    return 0;
}

int32_t RunAFByUsingAssistInfo(void) {
    zoomaf::AfLoopState state;
    zoomaf::start_af_loop(state, zoomaf::LoopVariant::application);
    while (zoomaf::run_af_pass(state)) {
    }
    std::printf("[%s] [%d] Auto focus close Success!\r\n", __func__, __LINE__);
    onoff = 0;
    return 0;
}

// Returns even when the loop did not acknowledge within 20 x 200 ms (it may be paused by
// a long zoom); the request stays pending and the loop leaves after its next pass.
int32_t StopAFByUsingAssistInfo(void) {
    if (onoff.exchange(1, std::memory_order_relaxed) == 1) return 1;
    for (int poll = 0; poll < zoomaf::kStopPolls; ++poll) {
        if (onoff.load(std::memory_order_relaxed) == 0) break;
        zoomaf::platform().sleep_ns(zoomaf::kStopPollNs);
    }
    return std::printf("[%s] [%d] StopAFByUsingAssistInfo  close auto pdaf\n", __func__, __LINE__);
}

}  // extern "C"
