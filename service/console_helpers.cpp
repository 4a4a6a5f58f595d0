// Small console helpers: the line flush after a menu read, the free-mode point typed at the
// console and the interval printer.
#include <atomic>
#include <cstdio>

#include "platform/platform.hpp"
#include "service/console.hpp"
#include "zoomaf/af_loop.h"
#include "zoomaf/app_pdaf.h"

namespace zoomaf {
namespace {

constexpr uint64_t kRefusalPauseNs = 2'000'000'000;
constexpr int32_t kPictureWidth = 3840;
constexpr int32_t kPictureHeight = 2160;

}  // namespace

// The lock is held for the prompts and reads too, so the loop waits while the operator
// types. A point that cannot be read stays -1 and is refused like one out of range.
int32_t tvk_set_area_mode(FILE* in) {
    try_lock();
    int x = -1;
    int y = -1;
    std::puts("please input x coordinate\r");
    if (std::fscanf(in, "%d", &x) != 1) x = -1;
    std::puts("please input y coordinate\r");
    if (std::fscanf(in, "%d", &y) != 1) y = -1;
    if (x >= 0 && x <= kPictureWidth && y >= 0 && y <= kPictureHeight) {
        current_focus_mode = PDAF_FREE_MODE;  // without AppSetMode's checks
        is_free_focus_opr_over = 0;
        is_coordinates_update = 1;
        free_focus_pointx = x;
        free_focus_pointy = y;
        unlock();
        return 0;
    }
    std::printf(
        "\r\n\r\nError: TvkTestSetAreamode pointx:%d and pointy:%d is out of "
        "range(0-3840/0-2160)!\r\n",
        x, y);
    platform().sleep_ns(kRefusalPauseNs);
    unlock();
    return -2;
}

}  // namespace zoomaf

extern "C" {

void safe_flush(FILE* stream) {
    if (stream == nullptr) return;
    for (int c = std::fgetc(stream); c != '\n' && c != EOF; c = std::fgetc(stream)) {
    }
}

int32_t TvkTestSetAreamode(void) {
    return zoomaf::tvk_set_area_mode(stdin);
}

int32_t time_interval_test(void) {
    static std::atomic<long> previous_ms{0};
    const timeval now = zoomaf::platform().wall();
    const long now_ms =
        static_cast<long>(now.tv_sec) * 1000 + static_cast<long>(now.tv_usec) / 1000;
    std::printf("~timeinterval:%ldms\r\n", now_ms - previous_ms.exchange(now_ms));
    return 0;
}

}  // extern "C"
