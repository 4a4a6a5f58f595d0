// The real kernel with every System V key moved by a fixed offset, for the zoomaf-shm tool
// and its tests: a bench or a test run can use channels of its own beside a running camera
// (or another test run) without meeting its segments and semaphores. Offset 0 is the real
// channels.
#pragma once

#include <cerrno>
#include <cstdint>

#include "platform/platform.hpp"

namespace zoomaf::ipc {

class KeyOffsetPlatform : public LinuxPlatform {
public:
    explicit KeyOffsetPlatform(uint32_t offset) : offset_(offset) {}

    uint32_t offset() const { return offset_; }
    // The key the kernel sees; IPC_PRIVATE is never moved.
    key_t moved(key_t key) const {
        if (key == IPC_PRIVATE) return key;
        return static_cast<key_t>(static_cast<uint32_t>(key) + offset_);
    }

    // A key moved onto IPC_PRIVATE would make a private object nobody else finds: refused.
    int shmget(key_t key, size_t size, int flags) override {
        if (key != IPC_PRIVATE && moved(key) == IPC_PRIVATE) return refuse();
        return LinuxPlatform::shmget(moved(key), size, flags);
    }
    int semget(key_t key, int nsems, int flags) override {
        if (key != IPC_PRIVATE && moved(key) == IPC_PRIVATE) return refuse();
        return LinuxPlatform::semget(moved(key), nsems, flags);
    }

private:
    static int refuse() {
        errno = EINVAL;
        return -1;
    }
    uint32_t offset_;
};

}  // namespace zoomaf::ipc
