#include "platform/platform.hpp"

#include <atomic>

namespace zoomaf {

namespace {
std::atomic<Platform*> installed{nullptr};
}

Platform& platform() {
    Platform* p = installed.load(std::memory_order_acquire);
    if (p != nullptr) return *p;
    static LinuxPlatform linux_platform;
    return linux_platform;
}

void install_platform(Platform* p) {
    installed.store(p, std::memory_order_release);
}

}  // namespace zoomaf
