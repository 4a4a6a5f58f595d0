// A fresh twin board per test, installed as the platform, with helpers to look at the
// kernel objects behind a channel and to capture the service's messages. The board's salted
// keys keep parallel test runs apart; its destructor removes what the test created.
#pragma once

#include "tests/support/captured_output.hpp"

#include <gtest/gtest.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <optional>
#include <string>

#include "ipc/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "twin/board.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

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
        if (fail_semget_call == semget_calls++) return fail(semget_errno);
        return Board::semget(key, nsems, flags);
    }
    int semctl(int id, int num, int cmd, int arg) override {
        if (fail_semctl_errno != 0) return fail(fail_semctl_errno);
        return Board::semctl(id, num, cmd, arg);
    }
    void* shmat(int id, const void* addr, int flags) override {
        if (fail_shmat_errno != 0) return reinterpret_cast<void*>(fail(fail_shmat_errno));
        return Board::shmat(id, addr, flags);
    }

private:
    static int fail(int error) {
        errno = error;
        return -1;
    }
};

class ChannelTest : public ::testing::Test {
protected:
    void SetUp() override {
        reset_service_state();
        install_platform(&board_);
    }
    void TearDown() override {
        install_platform(nullptr);
        reset_service_state();
    }

    // The process-wide state the readers use, as the service starts with it.
    static void reset_service_state() {
        LaserMenManHandle = VrelShareMan{};
        ipc::fv_channel() = VrelShareMan{};
        global_laser_distance = 0;
        last_laser = 100;
        Manual_laser_setup = MANUAL_LASER_NONE;
        current_focus_mode = PDAF_CENTER_MODE;
        last_laster_cnt = cur_day_night_mode = laser_focus_compensation = 0;
        is_coordinates_update = free_focus_pointx = free_focus_pointy = 0;
    }

    FaultyIpcBoard& board() { return board_; }

    // The kernel's id of a channel's segment on this board, or -1.
    int kernel_shm_id(int memmode) {
        return ::shmget(board_.salted_key(ipc::shm_key(memmode)), 0, 0);
    }
    size_t segment_bytes(int memmode) {
        shmid_ds info{};
        return ::shmctl(kernel_shm_id(memmode), IPC_STAT, &info) == 0 ? info.shm_segsz : 0;
    }
    static int semaphore_value(int sem_id) { return ::semctl(sem_id, 0, GETVAL); }

    // The result of f and what it printed.
    struct Call {
        int64_t result;
        std::string out;
    };
    template <class F>
    static Call call(F&& f) {
        int64_t result = 0;
        std::string out = captured([&] { result = f(); });
        return {result, out};
    }

private:
    FaultyIpcBoard board_;
};

}  // namespace zoomaf::test
