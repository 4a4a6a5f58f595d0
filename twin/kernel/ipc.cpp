#include "twin/kernel/ipc.hpp"

#include <sys/shm.h>
#include <unistd.h>

#include <atomic>

#include "twin/kernel/random.hpp"

namespace zoomaf::twin {

namespace {
std::atomic<uint64_t> boards_made{0};

// The argument of semctl for the commands that take one.
union SemArg {
    int val;
    semid_ds* buf;
    unsigned short* array;
};
}  // namespace

SysvIpc::SysvIpc(uint64_t seed) {
    const uint64_t board = boards_made.fetch_add(1, std::memory_order_relaxed);
    SeededRandom random(seed_stream(seed, 3) ^ (uint64_t{static_cast<uint32_t>(::getpid())} << 32) ^
                        (board * 0x9E3779B97F4A7C15ull));
    do {
        salt_ = static_cast<uint32_t>(random.next());
    } while (salt_ == 0);
}

SysvIpc::~SysvIpc() {
    for (const void* addr : attachments_) ::shmdt(addr);
    for (const auto& [id, key] : segments_) ::shmctl(id, IPC_RMID, nullptr);
    for (const auto& [id, key] : semaphore_sets_) ::semctl(id, 0, IPC_RMID);
}

key_t SysvIpc::salted_key(key_t key) const {
    if (key == IPC_PRIVATE) return key;
    const key_t salted = static_cast<key_t>(static_cast<uint32_t>(key) ^ salt_);
    // key == salt would give IPC_PRIVATE; it takes the image of IPC_PRIVATE instead, which
    // is free since IPC_PRIVATE is never salted.
    return salted == IPC_PRIVATE ? static_cast<key_t>(salt_) : salted;
}

int SysvIpc::shmget(key_t key, size_t size, int flags) {
    const int id = ::shmget(salted_key(key), size, flags);
    if (id >= 0) segments_.emplace(id, key);
    return id;
}

void* SysvIpc::shmat(int id, const void* addr, int flags) {
    void* attached = ::shmat(id, addr, flags);
    if (attached != reinterpret_cast<void*>(-1)) attachments_.insert(attached);
    return attached;
}

int SysvIpc::semget(key_t key, int nsems, int flags) {
    const int id = ::semget(salted_key(key), nsems, flags);
    if (id >= 0) semaphore_sets_.emplace(id, key);
    return id;
}

int SysvIpc::semctl(int id, int num, int cmd, int arg) {
    SemArg sem_arg{};
    sem_arg.val = arg;
    const int result = ::semctl(id, num, cmd, sem_arg);
    if (result == 0 && cmd == IPC_RMID) {
        // Removed by the caller: the id may be reused by another process's set, so it
        // must not be removed again at destruction.
        semaphore_sets_.erase(id);
    }
    return result;
}

int SysvIpc::semop(int id, sembuf* ops, size_t nops) {
    return ::semop(id, ops, nops);
}

int SysvIpc::semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) {
    return ::semtimedop(id, ops, nops, timeout);
}

key_t SysvIpc::segment_key(int id) const {
    const auto it = segments_.find(id);
    return it == segments_.end() ? IPC_PRIVATE : it->second;
}

key_t SysvIpc::semaphore_key(int id) const {
    const auto it = semaphore_sets_.find(id);
    return it == semaphore_sets_.end() ? IPC_PRIVATE : it->second;
}

}  // namespace zoomaf::twin
