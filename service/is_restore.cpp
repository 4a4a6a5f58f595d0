// The IS value sequences that go with a zoom: while zooming beyond x12 the value is raised
// toward 620, and after a zoom it is stepped down to its resting 520. The value goes to
// AppSetIsValue, an empty hook in this system: the sequences log and keep their pacing.
#include <cstdio>

#include "platform/platform.hpp"
#include "zoomaf/zoom_control.h"

int32_t OldISValue = 520;

namespace {
constexpr int32_t kHighestValue = 620;
constexpr int32_t kRestingValue = 520;
constexpr uint64_t kRaisePauseNs = 80'000'000;
constexpr uint64_t kRestorePauseNs = 120'000'000;
}  // namespace

extern "C" {

int32_t AppGetIsValue(int32_t value) {
    return value;
}

void AppSetIsValue(int32_t /*value*/) {}

int32_t ZoomRunningISRestore(float multiple) {
    const float tenfold = multiple * 10;
    std::printf("Zoom Running IS Restore, CurrentMultiple is %02f", static_cast<double>(tenfold));
    if (tenfold <= 120) return 0;
    for (int32_t k = 1; k <= 5; ++k) {
        const int32_t value = OldISValue + 20 * k;
        if (value > kHighestValue) break;
        std::printf(" Zoom Running Set IS Value is %d", value);
        AppSetIsValue(value);
        zoomaf::platform().sleep_ns(kRaisePauseNs);
    }
    return 0;
}

int32_t ISRestoreService(float multiple) {
    const float tenfold = multiple * 10;
    std::printf("Status IS Restore Service, CurrentMultiple is %02f", static_cast<double>(tenfold));
    if (tenfold <= 40) return 0;
    const int32_t start = tenfold <= 120 ? static_cast<int32_t>(tenfold - 40) + 530 : kHighestValue;
    for (int32_t k = (start - kRestingValue) / 10; k <= 10; ++k) {
        const int32_t value = kHighestValue - 10 * k;
        std::printf("Set IS Value is %d", value);
        AppSetIsValue(value);
        zoomaf::platform().sleep_ns(kRestorePauseNs);
        OldISValue = value;
    }
    return 0;
}

}  // extern "C"
