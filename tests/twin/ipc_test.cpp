// System V IPC through the board: salted keys, real segments and semaphores, clean-up.
#include <sys/shm.h>

#include <cstring>

#include "gtest/gtest.h"
#include "twin/board.hpp"

namespace zoomaf::twin {
namespace {

constexpr key_t kChannelKey = 0x5A0F0C12;

TEST(IpcKeys, AreSaltedPerBoardOneToOne) {
    Board a(BoardConfig{.seed = 5});
    Board b(BoardConfig{.seed = 5});
    EXPECT_EQ(a.salted_key(IPC_PRIVATE), IPC_PRIVATE);
    EXPECT_NE(a.salted_key(kChannelKey), kChannelKey);
    EXPECT_NE(a.salted_key(kChannelKey), b.salted_key(kChannelKey))
        << "boards of one seed in one process still differ";

    const key_t salt = a.salted_key(1) ^ 1;
    EXPECT_NE(a.salted_key(salt), IPC_PRIVATE) << "the key equal to the salt";
    EXPECT_NE(a.salted_key(salt), a.salted_key(1));
    EXPECT_NE(a.salted_key(salt), a.salted_key(kChannelKey));
}

TEST(IpcObjects, AreRealAndGoWithTheBoard) {
    key_t salted = 0;
    {
        Board board;
        salted = board.salted_key(kChannelKey);
        const int shm = board.shmget(kChannelKey, 4096, IPC_CREAT | 0666);
        ASSERT_GE(shm, 0) << std::strerror(errno);
        EXPECT_EQ(::shmget(salted, 0, 0), shm) << "the kernel knows it by the salted key";
        auto* memory = static_cast<char*>(board.shmat(shm, nullptr, 0));
        ASSERT_NE(memory, reinterpret_cast<char*>(-1));
        std::strcpy(memory, "laser 123");
        auto* again = static_cast<char*>(board.shmat(shm, nullptr, 0));
        EXPECT_STREQ(again, "laser 123");

        const int sem = board.semget(kChannelKey, 1, IPC_CREAT | 0666);
        ASSERT_GE(sem, 0) << std::strerror(errno);
        EXPECT_EQ(::semget(salted, 0, 0), sem);
        ASSERT_EQ(board.semctl(sem, 0, SETVAL, 1), 0);
        sembuf take{0, -1, SEM_UNDO};
        ASSERT_EQ(board.semop(sem, &take, 1), 0);
        EXPECT_EQ(board.semctl(sem, 0, GETVAL, 0), 0);
        sembuf give{0, 1, SEM_UNDO};
        ASSERT_EQ(board.semop(sem, &give, 1), 0);
        EXPECT_EQ(board.semctl(sem, 0, GETVAL, 0), 1);
    }
    errno = 0;
    EXPECT_EQ(::shmget(salted, 0, 0), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(::semget(salted, 0, 0), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(IpcObjects, TwoBoardsWithOneKeyGetTwoSegments) {
    Board a;
    Board b;
    const int first = a.shmget(kChannelKey, 64, IPC_CREAT | 0666);
    const int second = b.shmget(kChannelKey, 64, IPC_CREAT | 0666);
    ASSERT_GE(first, 0);
    ASSERT_GE(second, 0);
    EXPECT_NE(first, second);
}

}  // namespace
}  // namespace zoomaf::twin
