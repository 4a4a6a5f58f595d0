// The assist channels: a System V segment and a one-semaphore set per channel number, both
// found by keys derived from the number. Nothing here ever detaches or removes a channel:
// segments and semaphores outlive the service and are found again, contents and semaphore
// value included, at the next start.
#include "zoomaf/vrel_sharememory.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "platform/platform.hpp"

namespace {

// The module's assertions stay in every build (they are not the NDEBUG kind): a service
// whose channel has no semaphore is not meant to run on. Same line as a failed assert().
[[noreturn]] void assertion_failed(const char* expression, int line, const char* function) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", "vrel_sharememory.cpp", line,
                 function, expression);
    std::abort();
}

#define VREL_ASSERT(expression) \
    ((expression) ? void(0) : assertion_failed(#expression, __LINE__, __func__))

// Permission bits of every channel object: read and write for everybody.
constexpr int kPermissions = 0666;

void* const kShmatFailed = reinterpret_cast<void*>(-1);

// One operation on semaphore 0 of the set: take (-1) or give back (+1). SEM_UNDO lets the
// kernel give back the hold of a process that dies inside its critical section.
int semaphore_op(int sem_id, short delta) {
    sembuf op{};
    op.sem_num = 0;
    op.sem_op = delta;
    op.sem_flg = SEM_UNDO;
    return zoomaf::platform().semop(sem_id, &op, 1);
}

}  // namespace

namespace zoomaf::ipc {

Take semaphore_take_within(VrelShareMan& channel, uint64_t wait_ns) {
    VREL_ASSERT(-1 != channel.sem_id);
    sembuf op{};
    op.sem_num = 0;
    op.sem_op = -1;
    op.sem_flg = SEM_UNDO;
    const timespec timeout{static_cast<time_t>(wait_ns / 1000000000u),
                           static_cast<long>(wait_ns % 1000000000u)};
    // A wait cut short by a signal counts as one that ran out: no new data this time.
    const int result = platform().semtimedop(channel.sem_id, &op, 1, &timeout);
    if (result == -1 && (errno == EAGAIN || errno == EINTR)) return Take::timed_out;
    if (result == -1) {
        std::printf("SemaphoreP failed");
        return Take::failed;
    }
    channels::semaphore_taken(channel.sem_id);
    return Take::taken;
}

void say_semaphore_held(const char* reader, const VrelShareMan& channel, uint64_t wait_ns) {
    std::printf(
        "\r\nError:%s the semaphore of the channel with key 0x%X stayed taken for %llu ms, no "
        "new data this time!\r\n",
        reader, channel.shm_key, static_cast<unsigned long long>(wait_ns / 1000000u));
}

}  // namespace zoomaf::ipc

extern "C" {

int32_t VrelShareManInit(VrelShareMan* shareman, int32_t memmode) {
    std::printf("memmode = %d\r\n", memmode);
    const auto structlen = zoomaf::channels::channel_length(memmode);
    if (!structlen) {
        std::puts("Error:VrelShareManInit memmode was out of range!\r");
        return -2;
    }
    if (shareman == nullptr) {
        std::puts("Error:VrelShareManInit shareman is NULL!\r");
        return -1;
    }
    shareman->sem_id = -1;
    shareman->structlen = *structlen;
    if (VrelShareMemoryInit(shareman, memmode) != 0) {
        std::puts("Error:VrelShareMemoryInit fail!\r");
        return -1;
    }
    if (VrelCreateSemaphore(shareman, memmode) != 0) {
        std::puts("Error:VrelCreateSemaphore fail!\r");
        return -1;
    }
    return 0;
}

int32_t VrelShareMemoryInit(VrelShareMan* shareman, int32_t memmode) {
    if (shareman == nullptr) return -1;
    const key_t key = zoomaf::channels::shm_key(memmode);
    shareman->shm_key = static_cast<uint32_t>(key);
    // No IPC_EXCL: whichever of the reader and the writer starts first creates the segment,
    // the other attaches to it. A negative structlen becomes a huge size the kernel refuses.
    const int shmid = zoomaf::platform().shmget(
        key, zoomaf::channels::segment_size(shareman->structlen), IPC_CREAT | kPermissions);
    if (shmid < 0) {
        const int error = errno;
        std::printf(
            "\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit error "
            "errno:%s《-《-《-《-《-\r\n\r\n\r\n",
            std::strerror(error));
        std::printf("memmode = %d \r\n", memmode);
        std::printf("shareman->structlen = %d \r\n", shareman->structlen);
        return -1;
    }
    std::printf("VrelShareMemoryInit shmid = %d\n", shmid);
    void* attached = zoomaf::platform().shmat(shmid, nullptr, 0);
    if (attached == kShmatFailed) {
        std::puts(
            "\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit ShareMemory-shmid error《-《-《-《-《-"
            "\r\n\r\n\r");
        return -1;
    }
    shareman->shm_addr = static_cast<uint8_t*>(attached);
    shareman->data_addr = shareman->shm_addr + VREL_PAYLOAD_OFFSET;
    return 0;
}

int32_t VrelCreateSemaphore(VrelShareMan* shareman, int32_t memmode) {
    if (shareman == nullptr) return -1;
    if (shareman->sem_id != -1) return 0;
    const key_t key = zoomaf::channels::sem_key(memmode);
    const unsigned key_bits = static_cast<unsigned>(key);
    shareman->sem_id = zoomaf::platform().semget(key, 1, IPC_CREAT | IPC_EXCL | kPermissions);
    const int error = errno;
    std::printf("VrelCreateSemaphore id = %d\n", shareman->sem_id);
    if (shareman->sem_id >= 0) {
        std::printf("create sem key [0x%X] succeed\n", key_bits);
        const int32_t set = VrelSetSemValue(shareman->sem_id);
        if (set < 0) {
            std::printf("In CreateSemaphore(), call SetSemValue failed!");
            return set;
        }
        return 0;
    }
    if (error == EEXIST) {
        // Joined late: the value is left as it is, so a semaphore that another process
        // holds is never reset.
        std::printf("sem key [0x%X] exist, error: %s\n", key_bits, std::strerror(error));
        shareman->sem_id = zoomaf::platform().semget(key, 1, IPC_CREAT | kPermissions);
        if (shareman->sem_id < 0) {
            std::printf("\r\n\r\n\r\n!!!A-semget failed: %s\r\n\r\n\r\n", std::strerror(errno));
            return -1;
        }
        return 0;
    }
    std::printf("\r\n\r\n\r\n!!!B-semget failed: %s\r\n\r\n\r\n", std::strerror(error));
    return -1;
}

// A new channel starts free: value 1.
int32_t VrelSetSemValue(int32_t sem_id) {
    VREL_ASSERT(-1 != sem_id);
    if (zoomaf::platform().semctl(sem_id, 0, SETVAL, 1) == -1) {
        std::printf("Error:VrelSetSemValue Failed to set semaphore");
        return -1;
    }
    return 0;
}

int32_t VrelDelSemValue(int32_t sem_id) {
    VREL_ASSERT(-1 != sem_id);
    if (zoomaf::platform().semctl(sem_id, 0, IPC_RMID, 0) == -1) {
        std::printf("Error: VrelDelSemValue Failed to delete semaphore");
        return -1;
    }
    return 0;
}

int32_t VrelSemaphoreP(VrelShareMan* shareman) {
    VREL_ASSERT(nullptr != shareman);
    VREL_ASSERT(-1 != shareman->sem_id);
    if (semaphore_op(shareman->sem_id, -1) == -1) {
        std::printf("SemaphoreP failed");
        return -1;
    }
    zoomaf::channels::semaphore_taken(shareman->sem_id);
    return 0;
}

int32_t VrelSemaphoreV(VrelShareMan* shareman) {
    VREL_ASSERT(nullptr != shareman);
    VREL_ASSERT(-1 != shareman->sem_id);
    zoomaf::channels::semaphore_giving(shareman->sem_id);
    if (semaphore_op(shareman->sem_id, 1) == -1) {
        std::printf("SemaphoreV failed");
        return -1;
    }
    return 0;
}

}  // extern "C"
