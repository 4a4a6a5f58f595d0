// System V IPC of the board: the real kernel calls, with every key salted per board so
// that boards of parallel tests (and the real camera's processes) never meet, and every
// segment and semaphore set the board made removed when it goes. The board calls it under
// its mutex, except semop and semtimedop, which may block and touch no state here.
#pragma once

#include <sys/ipc.h>
#include <sys/sem.h>

#include <cstdint>
#include <map>
#include <set>

namespace zoomaf::twin {

class SysvIpc {
public:
    // The salt mixes the seed, the process id and a per-process board counter.
    explicit SysvIpc(uint64_t seed);
    ~SysvIpc();  // detaches and removes all that this board created
    SysvIpc(const SysvIpc&) = delete;
    SysvIpc& operator=(const SysvIpc&) = delete;

    // IPC_PRIVATE stays private; any other key maps one to one onto a salted key that is
    // never IPC_PRIVATE.
    key_t salted_key(key_t key) const;

    int shmget(key_t key, size_t size, int flags);
    void* shmat(int id, const void* addr, int flags);
    int semget(key_t key, int nsems, int flags);
    int semctl(int id, int num, int cmd, int arg);
    int semop(int id, sembuf* ops, size_t nops);
    int semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout);

    uint32_t salt() const { return salt_; }

    // The key (as the caller named it, unsalted) a segment or semaphore set was got by on this
    // board, or IPC_PRIVATE for an id it does not know: what the fault hook of a call on an
    // id is looked up by.
    key_t segment_key(int id) const;
    key_t semaphore_key(int id) const;

private:
    uint32_t salt_;
    std::map<int, key_t> segments_;  // created or opened here, by id
    std::set<const void*> attachments_;
    std::map<int, key_t> semaphore_sets_;
};

}  // namespace zoomaf::twin
