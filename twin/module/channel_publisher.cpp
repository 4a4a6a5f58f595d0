#include "twin/module/channel_publisher.hpp"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "channels/channel_layout.hpp"
#include "twin/kernel/kernel.hpp"

namespace zoomaf::twin {

namespace {

std::runtime_error board_refused(const char* what, int memmode) {
    return std::runtime_error(std::string("twin: channel ") + std::to_string(memmode) + ": " +
                              what + ": " + std::strerror(errno));
}

bool semaphore_op(Kernel& board, int sem_id, short delta) {
    sembuf op{};
    op.sem_op = delta;
    op.sem_flg = SEM_UNDO;
    return board.semop(sem_id, &op, 1) == 0;
}

}  // namespace

ChannelPublisher::ChannelPublisher(Kernel& board, int memmode) : board_(board), memmode_(memmode) {
    const auto length = channels::channel_length(memmode);
    if (!length) throw std::invalid_argument("twin: no assist channel " + std::to_string(memmode));
    length_ = *length;

    const int shmid = board_.shmget(channels::shm_key(memmode), channels::segment_size(length_),
                                    IPC_CREAT | 0666);
    if (shmid < 0) throw board_refused("shmget", memmode);
    void* attached = board_.shmat(shmid, nullptr, 0);
    if (attached == reinterpret_cast<void*>(-1)) throw board_refused("shmat", memmode);
    segment_ = static_cast<uint8_t*>(attached);

    sem_id_ = board_.semget(channels::sem_key(memmode), 1, IPC_CREAT | IPC_EXCL | 0666);
    if (sem_id_ >= 0) {
        if (board_.semctl(sem_id_, 0, SETVAL, 1) != 0) throw board_refused("SETVAL", memmode);
    } else if (errno == EEXIST) {
        sem_id_ = board_.semget(channels::sem_key(memmode), 1, IPC_CREAT | 0666);
        if (sem_id_ < 0) throw board_refused("semget", memmode);
    } else {
        throw board_refused("semget", memmode);
    }
}

bool ChannelPublisher::publish(const void* payload, size_t size) {
    if (!semaphore_op(board_, sem_id_, -1)) return false;
    channels::semaphore_taken(sem_id_);
    std::memcpy(segment_ + VREL_PAYLOAD_OFFSET, payload,
                std::min(size, static_cast<size_t>(length_)));
    channels::set_update_flag(segment_, 1);
    channels::semaphore_giving(sem_id_);
    semaphore_op(board_, sem_id_, 1);
    return true;
}

}  // namespace zoomaf::twin
