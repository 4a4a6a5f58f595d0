// The channel table, keys and segment layout of the assist channels for C++ code: the
// service's channel code (ipc/), the zoomaf-shm tool and the twin's publishers. Header-only
// and at the bottom of the layers, so that the twin uses the very same definitions as the
// service without depending on it.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "zoomaf/vrel_sharememory.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace zoomaf::channels {

inline constexpr std::array<int32_t, VREL_CHANNEL_COUNT> kChannelLengths = VREL_CHANNEL_LENGTHS;

static_assert(sizeof(VrelFocusValues) == 4096, "channel 30 carries 4096 bytes");
static_assert(sizeof(VrelAreaFocusPoint) == 8, "channel 19 carries two int32");

constexpr bool valid_memmode(int memmode) {
    return memmode >= VREL_MEMMODE_MIN && memmode <= VREL_MEMMODE_MAX;
}

// The payload length of a channel, or nothing for a number outside 0..33.
constexpr std::optional<int32_t> channel_length(int memmode) {
    if (!valid_memmode(memmode)) return std::nullopt;
    return kChannelLengths[static_cast<size_t>(memmode)];
}

constexpr key_t shm_key(int memmode) {
    return static_cast<key_t>(VREL_SHM_KEY_BASE + static_cast<uint32_t>(memmode));
}
constexpr key_t sem_key(int memmode) {
    return static_cast<key_t>(VREL_SEM_KEY_BASE + static_cast<uint32_t>(memmode));
}
constexpr size_t segment_size(int32_t structlen) {
    return static_cast<size_t>(structlen) + VREL_SEGMENT_EXTRA;
}

// The update flag of an attached segment. Accessed only while the channel's semaphore is
// held, with memcpy: the segment is plain bytes shared with other processes.
inline uint32_t update_flag(const uint8_t* segment) {
    uint32_t flag = 0;
    std::memcpy(&flag, segment + VREL_UPDATE_FLAG_OFFSET, sizeof flag);
    return flag;
}
inline void set_update_flag(uint8_t* segment, uint32_t flag) {
    std::memcpy(segment + VREL_UPDATE_FLAG_OFFSET, &flag, sizeof flag);
}
inline uint32_t reserved_word(const uint8_t* segment) {
    uint32_t word = 0;
    std::memcpy(&word, segment + VREL_RESERVED_OFFSET, sizeof word);
    return word;
}

// The kernel orders memory across a semop, but ThreadSanitizer does not know System V
// semaphores. Holders of a channel semaphore in one process (service threads, the twin's
// publishers) tell it so: taking is an acquire, giving back a release, on a sync object per
// semaphore set id. Sets that share a slot only gain ordering, never lose it.
inline void* semaphore_sync_object(int sem_id) {
    static char slots[256];
    return &slots[static_cast<unsigned>(sem_id) % sizeof slots];
}
inline void semaphore_taken([[maybe_unused]] int sem_id) {
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(semaphore_sync_object(sem_id));
#endif
}
inline void semaphore_giving([[maybe_unused]] int sem_id) {
#if defined(__SANITIZE_THREAD__)
    __tsan_release(semaphore_sync_object(sem_id));
#endif
}

}  // namespace zoomaf::channels
