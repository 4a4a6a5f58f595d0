// System V IPC through the board: salted keys, real segments and semaphores, clean-up,
// and a semop that blocks in the kernel without holding the board.
#include <sys/shm.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "board_io.hpp"
#include "gtest/gtest.h"

namespace zoomaf::twin {
namespace {

constexpr key_t kChannelKey = 0x5A0F0C12;

TEST(IpcKeys, AreSaltedPerBoardOneToOne) {
    Board a(BoardConfig{.seed = 5}), b(BoardConfig{.seed = 5});
    EXPECT_EQ(a.salted_key(IPC_PRIVATE), IPC_PRIVATE);
    EXPECT_NE(a.salted_key(kChannelKey), kChannelKey);
    EXPECT_NE(a.salted_key(kChannelKey), b.salted_key(kChannelKey))
        << "boards of one seed in one process still differ";
    const key_t salt = a.salted_key(1) ^ 1;  // the key that would salt to IPC_PRIVATE
    for (key_t other : {IPC_PRIVATE, a.salted_key(1), a.salted_key(kChannelKey)})
        EXPECT_NE(a.salted_key(salt), other);
}

TEST(IpcObjects, AreRealSeparatePerBoardAndGoWithTheBoard) {
    key_t salted = 0;
    {
        Board board, other;
        salted = board.salted_key(kChannelKey);
        const int shm = board.shmget(kChannelKey, 4096, IPC_CREAT | 0666);
        ASSERT_GE(shm, 0) << std::strerror(errno);
        EXPECT_EQ(::shmget(salted, 0, 0), shm) << "the kernel knows it by the salted key";
        const int others = other.shmget(kChannelKey, 64, IPC_CREAT | 0666);
        EXPECT_TRUE(others >= 0 && others != shm) << "another board, another segment";
        auto* memory = static_cast<char*>(board.shmat(shm, nullptr, 0));
        ASSERT_NE(memory, reinterpret_cast<char*>(-1));
        std::strcpy(memory, "laser 123");
        EXPECT_STREQ(static_cast<char*>(board.shmat(shm, nullptr, 0)), "laser 123");

        const int sem = board.semget(kChannelKey, 1, IPC_CREAT | 0666);
        ASSERT_GE(sem, 0) << std::strerror(errno);
        EXPECT_EQ(::semget(salted, 0, 0), sem);
    }
    EXPECT_ERRNO(::shmget(salted, 0, 0), ENOENT) << "removed with the board";
    EXPECT_ERRNO(::semget(salted, 0, 0), ENOENT);
}

TEST(IpcObjects, ABlockedSemopDoesNotHoldTheBoard) {
    Board board;
    const int sem = board.semget(kChannelKey, 1, IPC_CREAT | 0666);
    ASSERT_EQ(board.semctl(sem, 0, SETVAL, 0), 0);
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        sembuf take{0, -1, SEM_UNDO};
        EXPECT_EQ(board.semop(sem, &take, 1), 0);
        taken = true;
    });
    // While the waiter blocks in the kernel, the board keeps serving calls.
    for (int i = 0; i < 50 && !taken; ++i) board.sleep_ns(1000);
    EXPECT_FALSE(taken.load());
    sembuf give{0, 1, 0};
    ASSERT_EQ(board.semop(sem, &give, 1), 0);
    waiter.join();
    EXPECT_TRUE(taken.load());
}

}  // namespace
}  // namespace zoomaf::twin
