// The bench console: motors up at x3.5, the auto-focus loop on a thread of its own, and a
// numbered menu on standard input until the end of input.
#include "service/console.hpp"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>

#include "platform/platform.hpp"
#include "service/af_loop.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/night_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf {
namespace {

constexpr uint64_t kMillisecond = 1'000'000;
constexpr uint64_t kLoopStartPauseNs = 3000 * kMillisecond;
constexpr uint64_t kEndPollNs = 100 * kMillisecond;
constexpr int kEndPolls = 100;  // 10 s for the focus in hand at the end of input
constexpr uint64_t kEndPassesSeen = 2;
constexpr float kStartMultiple = 3.5f;
constexpr float kMultipleMin = 3.5f;
constexpr float kMultipleMax = 11.0f;

enum class Read { ok, end_of_input };

// One value in format, the rest of the line dropped. An entry that is not a number leaves
// the value as the caller set it.
Read read_value(FILE* in, const char* format, void* value) {
    if (std::fscanf(in, format, value) == EOF) return Read::end_of_input;
    safe_flush(in);
    return Read::ok;
}

void show_menu() {
    std::puts("\r\nplease select the focus mode:\r");
    // The IR-cut entry is served as 6.
    std::puts(
        "2->set to focus 1-time\r\n3->Change Multiple-A\r\n5->set day or night mode\r\n5->set "
        "ircut:1day 2night\r");
}

Read change_multiple(FILE* in) {
    std::puts("\r\nplease input the multiple\r");
    float multiple = 0.0f;
    if (read_value(in, "%f", &multiple) == Read::end_of_input) return Read::end_of_input;
    const float start = Get_Time();
    if (multiple >= kMultipleMin && multiple <= kMultipleMax) {
        AppSetMultipleByPdTrend(multiple);
    } else {
        std::puts("errror:the input multiple was out of range:3.55~11.0\r");
    }
    const float end = Get_Time();
    std::printf("\r\n run time is %f s\r\n", static_cast<double>(end - start));
    return Read::ok;
}

Read set_day_night(FILE* in) {
    std::puts("\r\nplease input the day or night mode:0-day 1-night\r");
    int value = 0;
    if (read_value(in, "%d", &value) == Read::end_of_input) return Read::end_of_input;
    if (value != 0 && value != 1) {
        std::printf("warning:parameter:%d is out of range\r\n", value);
        return Read::ok;
    }
    std::printf("set day_night_mode value:%d\r\n", value);
    set_day_or_night_focus_mode(value);
    return Read::ok;
}

// The IR-cut filter is not driven by this service: the value is only checked and echoed.
Read set_ir_cut(FILE* in) {
    std::puts("\r\nplease input the day or night mode:1-day 2-night\r");
    int value = 0;
    if (read_value(in, "%d", &value) == Read::end_of_input) return Read::end_of_input;
    if (value == 1 || value == 2) {
        std::printf("SetIrCutValue:%d\r\n", value);
    } else {
        std::printf("warning:parameter:%d is out of range\r\n", value);
    }
    return Read::ok;
}

void* console_loop_thread(void* control) {
    run_console_loop(*static_cast<ConsoleLoopControl*>(control));
    return nullptr;
}

// Whether the loop still has work from the last requests: a night search not yet at its
// sharpest point, a day focus not yet over, a manual position not yet applied.
bool focus_in_hand() {
    try_lock();
    const int32_t mode = current_focus_mode.load(std::memory_order_relaxed);
    bool in_hand = false;
    if (mode == MANUAL_FOCUS_MODE) {
        in_hand = is_manual_positon_update == 1;
    } else if (cur_day_night_mode != 0) {
        in_hand = mode == PDAF_CENTER_MODE && night_focus_man.state != NIGHT_STATE_DONE;
    } else {
        in_hand = is_free_focus_opr_over.load(std::memory_order_relaxed) == 0;
    }
    unlock();
    return in_hand;
}

// A script piped into the bench ends long before the lens has followed it: the loop gets
// the time to finish what it was last asked (10 s of board time at most), having seen
// every request made before the end.
void finish_focus_in_hand(const ConsoleLoopControl& control) {
    const uint64_t passes_at_end = control.passes.load(std::memory_order_relaxed);
    std::puts("\r\nInterfaceTest: end of input, finishing the focus in hand\r");
    for (int poll = 0; poll < kEndPolls; ++poll) {
        platform().sleep_ns(kEndPollNs);
        const bool seen =
            control.passes.load(std::memory_order_relaxed) >= passes_at_end + kEndPassesSeen;
        if (seen && !focus_in_hand()) return;
    }
    std::printf("InterfaceTest: the focus is still in hand after %d s, stopping it\r\n",
                static_cast<int>(kEndPolls * kEndPollNs / (1000 * kMillisecond)));
}

// The loop leaves between two passes and is joined, the store is saved if it changed, and
// the process ends with status 0.
[[noreturn]] void end_console(pthread_t* loop_thread, ConsoleLoopControl& control) {
    if (loop_thread != nullptr) {
        finish_focus_in_hand(control);
        control.stop.store(true, std::memory_order_relaxed);
        pthread_join(*loop_thread, nullptr);
    }
    selfstudy_write_try_lock();
    ExitSaveSelfStudyInfo();
    selfstudy_write_unlock();
    std::puts("InterfaceTest: auto focus stopped, exit\r");
    std::exit(0);
}

}  // namespace

void focus_once_more() {
    try_lock();
    is_free_focus_opr_over = 0;
    night_focus_man.state = NIGHT_STATE_UNINITIALISED;
    unlock();
}

void console_menu(FILE* in) {
    for (;;) {
        show_menu();
        // Reset before each read, so that an entry that is not a number shows the menu again.
        int choice = 0;
        if (read_value(in, "%d", &choice) == Read::end_of_input) return;
        Read read = Read::ok;
        switch (choice) {
            case 2:
                focus_once_more();
                break;
            case 3:
                read = change_multiple(in);
                break;
            case 5:
                read = set_day_night(in);
                break;
            case 6:
                read = set_ir_cut(in);
                break;
            default:
                break;
        }
        if (read == Read::end_of_input) return;
    }
}

}  // namespace zoomaf

extern "C" {

// The thread runs AFByUsingAssistInfo's loop, which the console alone can stop, at the end
// of its input.
void InterfaceTest(void) {
    std::puts("enter InterfaceTest!\r");
    VerificationSetMotordevInit(zoomaf::kStartMultiple);
    std::puts("Init Success over!\r\n\r");
    static zoomaf::ConsoleLoopControl control;
    pthread_t thread{};
    const bool started =
        pthread_create(&thread, nullptr, zoomaf::console_loop_thread, &control) == 0;
    if (!started) std::puts("Error:InterfaceTest can't start the auto focus thread!\r");
    zoomaf::platform().sleep_ns(zoomaf::kLoopStartPauseNs);
    std::puts("thread TestAutoFocusByPDAF start over!\r");
    zoomaf::console_menu(stdin);
    zoomaf::end_console(started ? &thread : nullptr, control);
}

}  // extern "C"
