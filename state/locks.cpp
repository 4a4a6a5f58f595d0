// The locks of the focus service: the service lock, the laser lock and the two byte spin
// counters of the PTZ and self-study writers.
#include "state/locks.hpp"

#include "platform/platform.hpp"
#include "zoomaf/service_state.h"

pthread_mutex_t motro_safe_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t laser_safe_lock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int8_t> ptz_lock{0};
std::atomic<int8_t> selfstudy_info_write_lock{0};
int8_t motor_lock = 0;
int8_t laser_lock = 0;

namespace {

constexpr uint64_t kSelfStudyPauseNs = 20000000;

// While the counter is above 0, sleep and look again, for at most max_wait_ns: false when
// it gave up.
bool wait_free(const std::atomic<int8_t>& counter, uint64_t pause_ns, uint64_t max_wait_ns) {
    for (uint64_t waited = 0; counter.load(std::memory_order_relaxed) > 0; waited += pause_ns) {
        if (waited >= max_wait_ns) return false;
        zoomaf::platform().sleep_ns(pause_ns);
    }
    return true;
}

// Wait until the counter is free, then add 1. The look and the add are two steps on
// purpose: the counters order cooperative writers, they do not exclude them.
int spin_take(std::atomic<int8_t>& counter, uint64_t pause_ns) {
    wait_free(counter, pause_ns, UINT64_MAX);
    const int8_t taken = static_cast<int8_t>(counter.load(std::memory_order_relaxed) + 1);
    counter.store(taken, std::memory_order_relaxed);
    return taken;
}

int spin_release(std::atomic<int8_t>& counter) {
    const int8_t left = static_cast<int8_t>(counter.load(std::memory_order_relaxed) - 1);
    counter.store(left, std::memory_order_relaxed);
    return left;
}

}  // namespace

namespace zoomaf {

bool selfstudy_write_try_lock_for(uint64_t max_wait_ns) {
    if (!wait_free(selfstudy_info_write_lock, kSelfStudyPauseNs, max_wait_ns)) return false;
    selfstudy_write_try_lock();
    return true;
}

}  // namespace zoomaf

extern "C" {

// Always 0, whatever the mutex said.
int try_lock(void) {
    pthread_mutex_lock(&motro_safe_lock);
    return 0;
}

int unlock(void) {
    pthread_mutex_unlock(&motro_safe_lock);
    return 0;
}

int laser_try_lock(void) {
    return pthread_mutex_lock(&laser_safe_lock);
}
int laser_unlock(void) {
    return pthread_mutex_unlock(&laser_safe_lock);
}

int ptz_try_lock(void) {
    return spin_take(ptz_lock, 5000000);
}
int ptz_unlock(void) {
    return spin_release(ptz_lock);
}
int selfstudy_write_try_lock(void) {
    return spin_take(selfstudy_info_write_lock, kSelfStudyPauseNs);
}
int selfstudy_write_unlock(void) {
    return spin_release(selfstudy_info_write_lock);
}

}  // extern "C"
