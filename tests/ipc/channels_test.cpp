// The channel module: keys and segment sizes, the EEXIST path that leaves a held semaphore
// alone, the failure messages, SEM_UNDO and the assertions.
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "channel_fixture.hpp"
#include "gmock/gmock.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

constexpr int kLaser = VREL_LASER_CHANNEL;
constexpr int kArea = VREL_AREA_FOCUS_CHANNEL;

using ChannelInit = ChannelTest;

TEST_F(ChannelInit, RefusesChannelsOutsideTheTableAndLeavesTheRecordUntouched) {
    for (int memmode : {34, -1}) {
        VrelShareMan record;
        std::memset(&record, 0xA5, sizeof record);
        VrelShareMan before = record;
        int32_t result = 0;
        const std::string out = captured([&] { result = VrelShareManInit(&record, memmode); });
        EXPECT_EQ(result, -2);
        EXPECT_EQ(out, "memmode = " + std::to_string(memmode) +
                           "\r\nError:VrelShareManInit memmode was out of range!\r\n");
        EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0) << "not even sem_id";
    }
    EXPECT_EQ(board().semget_calls, 0);
    EXPECT_EQ(kernel_shm_id(0), -1);
}

TEST_F(ChannelInit, LaserAndAreaChannelsGetTheirKeysAndSizes) {
    struct Expected {
        int memmode;
        uint32_t shm_key;
        key_t sem_key;
        size_t bytes;
    };
    for (const Expected& e :
         {Expected{kLaser, 0x1A2C, 0x1234ABD9, 14}, Expected{kArea, 0x1A33, 0x1234ABE0, 20},
          Expected{VREL_FV_CHANNEL, 0x1A3E, 0x1234ABEB, 4108},
          Expected{2, 0x1A22, 0x1234ABCF, 491532}}) {
        VrelShareMan record{};
        std::string out = captured([&] { ASSERT_EQ(VrelShareManInit(&record, e.memmode), 0); });
        EXPECT_EQ(record.shm_key, e.shm_key);
        EXPECT_EQ(segment_bytes(e.memmode), e.bytes) << "channel " << e.memmode;
        EXPECT_EQ(record.data_addr, record.shm_addr + 8);
        EXPECT_EQ(record.sem_id, ::semget(board().salted_key(e.sem_key), 0, 0));
        EXPECT_EQ(semaphore_value(record.sem_id), 1) << "a new channel starts free";

        char created[64];
        std::snprintf(created, sizeof created, "create sem key [0x%X] succeed\n",
                      static_cast<unsigned>(e.sem_key));
        EXPECT_THAT(out, HasSubstr(created));
        EXPECT_THAT(out, HasSubstr("memmode = " + std::to_string(e.memmode) + "\r\n"));
        EXPECT_THAT(out, HasSubstr("VrelShareMemoryInit shmid = " +
                                   std::to_string(kernel_shm_id(e.memmode)) + "\n"));
        EXPECT_THAT(out, HasSubstr("VrelCreateSemaphore id = " + std::to_string(record.sem_id)));
    }
}

TEST_F(ChannelInit, SecondStartJoinsTheHeldSemaphoreWithoutResettingIt) {
    VrelShareMan first{};
    captured([&] { ASSERT_EQ(VrelShareManInit(&first, kLaser), 0); });
    ASSERT_EQ(VrelSemaphoreP(&first), 0);  // another process holds the channel
    first.data_addr[0] = 0x5A;

    VrelShareMan again = first;  // the same record started again
    int32_t result = -9;
    const std::string out = captured([&] { result = VrelShareManInit(&again, kLaser); });
    EXPECT_EQ(result, 0);
    EXPECT_THAT(out, HasSubstr(std::string("sem key [0x1234ABD9] exist, error: ") +
                               std::strerror(EEXIST) + "\n"));
    EXPECT_EQ(again.sem_id, first.sem_id);
    EXPECT_EQ(semaphore_value(again.sem_id), 0) << "still held";
    EXPECT_EQ(again.data_addr[0], 0x5A) << "attached again to the same segment";
    EXPECT_NE(again.shm_addr, first.shm_addr);
    ASSERT_EQ(VrelSemaphoreV(&first), 0);
    EXPECT_EQ(semaphore_value(again.sem_id), 1);
}

TEST_F(ChannelInit, SegmentThatExistsTooSmallFailsWithTheThreeLines) {
    ASSERT_GE(board().shmget(ipc::shm_key(kLaser), 4, IPC_CREAT | 0666), 0);
    VrelShareMan record{};
    int32_t result = 0;
    const std::string out = captured([&] { result = VrelShareManInit(&record, kLaser); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out, std::string("memmode = 12\r\n") +
                       "\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit error errno:" +
                       std::strerror(EINVAL) +
                       "《-《-《-《-《-\r\n\r\n\r\n"
                       "memmode = 12 \r\n"
                       "shareman->structlen = 2 \r\n"
                       "Error:VrelShareMemoryInit fail!\r\n");
    EXPECT_EQ(record.sem_id, -1) << "no semaphore is made";
    EXPECT_EQ(board().semget_calls, 0);
}

TEST_F(ChannelInit, AttachFailureIsReported) {
    board().fail_shmat_errno = EACCES;
    VrelShareMan record{};
    int32_t result = 0;
    const std::string out = captured([&] { result = VrelShareManInit(&record, kArea); });
    EXPECT_EQ(result, -1);
    EXPECT_THAT(out, HasSubstr("\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit "
                               "ShareMemory-shmid error《-《-《-《-《-\r\n\r\n\r\n"
                               "Error:VrelShareMemoryInit fail!\r\n"));
    EXPECT_EQ(record.shm_addr, nullptr);
}

TEST_F(ChannelInit, SemaphoreFailuresAreReported) {
    {  // creation refused for another reason than EEXIST
        board().fail_semget_call = 0;
        VrelShareMan record{};
        int32_t result = 0;
        const std::string out = captured([&] { result = VrelShareManInit(&record, kLaser); });
        EXPECT_EQ(result, -1);
        EXPECT_THAT(out, HasSubstr(std::string("VrelCreateSemaphore id = -1\n") +
                                   "\r\n\r\n\r\n!!!B-semget failed: " + std::strerror(ENOSPC) +
                                   "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));
        EXPECT_EQ(record.sem_id, -1);
    }
    {  // the set exists, but opening it fails
        board().fail_semget_call.reset();
        VrelShareMan other{};
        captured([&] { ASSERT_EQ(VrelShareManInit(&other, kArea), 0); });
        board().fail_semget_call = board().semget_calls + 1;  // the open after EEXIST
        board().semget_errno = EACCES;
        VrelShareMan record{};
        int32_t result = 0;
        const std::string out = captured([&] { result = VrelShareManInit(&record, kArea); });
        EXPECT_EQ(result, -1);
        EXPECT_THAT(
            out, HasSubstr(std::string("\r\n\r\n\r\n!!!A-semget failed: ") + std::strerror(EACCES) +
                           "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));
        EXPECT_EQ(record.sem_id, -1);
    }
    {  // created, but the value cannot be set
        board().fail_semget_call.reset();
        board().fail_semctl_errno = EPERM;
        VrelShareMan record{};
        int32_t result = 0;
        const std::string out =
            captured([&] { result = VrelShareManInit(&record, VREL_FV_CHANNEL); });
        board().fail_semctl_errno = 0;
        EXPECT_EQ(result, -1);
        EXPECT_THAT(out, HasSubstr("succeed\nError:VrelSetSemValue Failed to set semaphore"
                                   "In CreateSemaphore(), call SetSemValue failed!"
                                   "Error:VrelCreateSemaphore fail!\r\n"));
    }
}

TEST_F(ChannelInit, CreateSemaphoreOnARecordWithASemaphoreMakesNoCall) {
    VrelShareMan record{};
    record.sem_id = 7;
    EXPECT_EQ(VrelCreateSemaphore(&record, kLaser), 0);
    EXPECT_EQ(board().semget_calls, 0);
    EXPECT_EQ(record.sem_id, 7);
}

using ChannelSemaphore = ChannelTest;

TEST_F(ChannelSemaphore, TakeAndGiveBackMoveTheValue) {
    VrelShareMan record{};
    captured([&] { ASSERT_EQ(VrelShareManInit(&record, kLaser), 0); });
    ASSERT_EQ(VrelSemaphoreP(&record), 0);
    EXPECT_EQ(semaphore_value(record.sem_id), 0);
    sembuf try_take{0, -1, IPC_NOWAIT};
    EXPECT_EQ(::semop(record.sem_id, &try_take, 1), -1) << "held: a second taker would wait";
    EXPECT_EQ(errno, EAGAIN);
    ASSERT_EQ(VrelSemaphoreV(&record), 0);
    EXPECT_EQ(semaphore_value(record.sem_id), 1);
}

TEST_F(ChannelSemaphore, KernelGivesBackTheHoldOfAProcessThatDied) {
    VrelShareMan record{};
    captured([&] { ASSERT_EQ(VrelShareManInit(&record, kLaser), 0); });
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Dies inside the critical section, without giving the semaphore back.
        ::_exit(VrelSemaphoreP(&record) == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(semaphore_value(record.sem_id), 1) << "SEM_UNDO";
}

TEST_F(ChannelSemaphore, OperationsOnARemovedSetFailWithTheirMessages) {
    VrelShareMan record{};
    captured([&] { ASSERT_EQ(VrelShareManInit(&record, kLaser), 0); });
    ASSERT_EQ(VrelDelSemValue(record.sem_id), 0);
    int32_t p = 0, v = 0, del = 0;
    EXPECT_EQ(captured([&] { p = VrelSemaphoreP(&record); }), "SemaphoreP failed");
    EXPECT_EQ(captured([&] { v = VrelSemaphoreV(&record); }), "SemaphoreV failed");
    EXPECT_EQ(captured([&] { del = VrelDelSemValue(record.sem_id); }),
              "Error: VrelDelSemValue Failed to delete semaphore");
    EXPECT_EQ(p, -1);
    EXPECT_EQ(v, -1);
    EXPECT_EQ(del, -1);
}

using ChannelAssertionDeathTest = ChannelTest;

TEST_F(ChannelAssertionDeathTest, SemaphoreUseWithoutASemaphoreEndsTheProcess) {
    VrelShareMan record{};
    record.sem_id = -1;
    EXPECT_DEATH(VrelSemaphoreP(&record),
                 "vrel_sharememory.*VrelSemaphoreP.*Assertion `-1 != shareman->sem_id' failed");
    EXPECT_DEATH(VrelSemaphoreV(&record),
                 "vrel_sharememory.*VrelSemaphoreV.*Assertion `-1 != shareman->sem_id' failed");
    EXPECT_DEATH(VrelSetSemValue(-1), "VrelSetSemValue.*Assertion `-1 != sem_id' failed");
    EXPECT_DEATH(VrelDelSemValue(-1), "VrelDelSemValue.*Assertion `-1 != sem_id' failed");
}

TEST_F(ChannelAssertionDeathTest, AChannelWhoseSemaphoreFailedEndsTheProcessOnFirstUse) {
    board().fail_semget_call = 0;
    VrelShareMan record{};
    captured([&] { ASSERT_EQ(VrelShareManInit(&record, kLaser), -1); });
    EXPECT_DEATH(VrelSemaphoreP(&record), "-1 != shareman->sem_id");
}

}  // namespace
}  // namespace zoomaf::test
