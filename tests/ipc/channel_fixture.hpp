// A fresh twin board per test, installed as the platform, with helpers to look at the
// kernel objects behind a channel and to capture the service's messages. The board's salted
// keys keep parallel test runs apart; its destructor removes what the test created.
#pragma once

#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include "ipc/channel_layout.hpp"
#include "twin/board.hpp"
#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::test {

// A board whose System V calls can be made to fail, to reach the failure paths.
class FaultyIpcBoard : public twin::Board {
public:
    std::optional<int> fail_semget_call;  // 0-based index of the semget to fail ...
    int semget_errno = ENOSPC;            // ... with this errno
    int fail_semctl_errno = 0;            // every semctl fails with it (0: none)
    int fail_shmat_errno = 0;             // every shmat fails with it (0: none)
    int semget_calls = 0;

    int semget(key_t key, int nsems, int flags) override {
        const int call = semget_calls++;
        if (fail_semget_call && *fail_semget_call == call) {
            errno = semget_errno;
            return -1;
        }
        return Board::semget(key, nsems, flags);
    }
    int semctl(int id, int num, int cmd, int arg) override {
        if (fail_semctl_errno != 0) {
            errno = fail_semctl_errno;
            return -1;
        }
        return Board::semctl(id, num, cmd, arg);
    }
    void* shmat(int id, const void* addr, int flags) override {
        if (fail_shmat_errno != 0) {
            errno = fail_shmat_errno;
            return reinterpret_cast<void*>(-1);
        }
        return Board::shmat(id, addr, flags);
    }
};

class ChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        board_ = std::make_unique<FaultyIpcBoard>();
        install_platform(board_.get());
    }
    void TearDown() override { install_platform(nullptr); }

    FaultyIpcBoard& board() { return *board_; }

    // The kernel's ids of a channel's objects on this board, or -1.
    int kernel_shm_id(int memmode) {
        return ::shmget(board().salted_key(ipc::shm_key(memmode)), 0, 0);
    }
    int kernel_sem_id(int memmode) {
        return ::semget(board().salted_key(ipc::sem_key(memmode)), 0, 0);
    }
    size_t segment_bytes(int memmode) {
        shmid_ds info{};
        if (::shmctl(kernel_shm_id(memmode), IPC_STAT, &info) != 0) return 0;
        return info.shm_segsz;
    }
    int semaphore_value(int sem_id) { return ::semctl(sem_id, 0, GETVAL); }

    template <class F>
    static std::string captured(F&& f) {
        fflush(stdout);
        testing::internal::CaptureStdout();
        f();
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

private:
    std::unique_ptr<FaultyIpcBoard> board_;
};

}  // namespace zoomaf::test
