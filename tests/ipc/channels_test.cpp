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

using ChannelInit = ChannelTest;

TEST_F(ChannelInit, RefusesChannelsOutsideTheTableAndLeavesTheRecordUntouched) {
    for (int memmode : {34, -1}) {
        VrelShareMan record;
        std::memset(&record, 0xA5, sizeof record);
        const VrelShareMan before = record;
        const Call init = call([&] { return VrelShareManInit(&record, memmode); });
        EXPECT_EQ(init.result, -2);
        EXPECT_EQ(init.out, "memmode = " + std::to_string(memmode) +
                                "\r\nError:VrelShareManInit memmode was out of range!\r\n");
        EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0) << "not even sem_id";
    }
}

TEST_F(ChannelInit, EachChannelGetsItsKeysItsSizeAndAFreeSemaphore) {
    struct Expected {
        int memmode;
        uint32_t shm_key;
        key_t sem_key;
        size_t bytes;
    };
    for (const Expected& e :
         {Expected{kLaser, 0x1A2C, 0x1234ABD9, 14}, Expected{19, 0x1A33, 0x1234ABE0, 20},
          Expected{30, 0x1A3E, 0x1234ABEB, 4108}, Expected{2, 0x1A22, 0x1234ABCF, 491532}}) {
        SCOPED_TRACE(e.memmode);
        VrelShareMan record{};
        const Call init = call([&] { return VrelShareManInit(&record, e.memmode); });
        ASSERT_EQ(init.result, 0);
        EXPECT_EQ(record.shm_key, e.shm_key);
        EXPECT_EQ(segment_bytes(e.memmode), e.bytes);
        EXPECT_EQ(record.data_addr, record.shm_addr + 8);
        EXPECT_EQ(record.sem_id, ::semget(board().salted_key(e.sem_key), 0, 0));
        EXPECT_EQ(semaphore_value(record.sem_id), 1) << "a new channel starts free";
        char messages[160];
        std::snprintf(messages, sizeof messages,
                      "memmode = %d\r\nVrelShareMemoryInit shmid = %d\nVrelCreateSemaphore id = "
                      "%d\ncreate sem key [0x%X] succeed\n",
                      e.memmode, kernel_shm_id(e.memmode), record.sem_id,
                      static_cast<unsigned>(e.sem_key));
        EXPECT_EQ(init.out, messages);
    }
}

TEST_F(ChannelInit, SecondStartJoinsTheHeldSemaphoreWithoutResettingIt) {
    VrelShareMan first{};
    ASSERT_EQ(call([&] { return VrelShareManInit(&first, kLaser); }).result, 0);
    ASSERT_EQ(VrelSemaphoreP(&first), 0);  // another process holds the channel
    first.data_addr[0] = 0x5A;

    VrelShareMan again = first;  // the same record started again
    const Call init = call([&] { return VrelShareManInit(&again, kLaser); });
    EXPECT_EQ(init.result, 0);
    EXPECT_THAT(init.out, HasSubstr(std::string("sem key [0x1234ABD9] exist, error: ") +
                                    std::strerror(EEXIST) + "\n"));
    EXPECT_EQ(again.sem_id, first.sem_id);
    EXPECT_EQ(semaphore_value(again.sem_id), 0) << "still held";
    EXPECT_EQ(again.data_addr[0], 0x5A) << "attached again to the same segment";
    ASSERT_EQ(VrelSemaphoreV(&first), 0);
    EXPECT_EQ(semaphore_value(again.sem_id), 1);
}

TEST_F(ChannelInit, SegmentThatExistsTooSmallFailsWithTheThreeLines) {
    ASSERT_GE(board().shmget(ipc::shm_key(kLaser), 4, IPC_CREAT | 0666), 0);
    VrelShareMan record{};
    const Call init = call([&] { return VrelShareManInit(&record, kLaser); });
    EXPECT_EQ(init.result, -1);
    EXPECT_EQ(init.out, std::string("memmode = 12\r\n") +
                            "\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit error errno:" +
                            std::strerror(EINVAL) +
                            "《-《-《-《-《-\r\n\r\n\r\n"
                            "memmode = 12 \r\n"
                            "shareman->structlen = 2 \r\n"
                            "Error:VrelShareMemoryInit fail!\r\n");
    EXPECT_EQ(board().semget_calls, 0) << "no semaphore is made";
}

TEST_F(ChannelInit, AttachAndSemaphoreFailuresAreReported) {
    auto failed_init = [](int memmode) {
        VrelShareMan record{};
        const Call init = call([&] { return VrelShareManInit(&record, memmode); });
        EXPECT_EQ(init.result, -1);
        return init.out;
    };
    board().fail_shmat_errno = EACCES;
    EXPECT_THAT(failed_init(19), HasSubstr("\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit "
                                           "ShareMemory-shmid error《-《-《-《-《-\r\n\r\n\r\n"
                                           "Error:VrelShareMemoryInit fail!\r\n"));
    board().fail_shmat_errno = 0;

    board().fail_semget_call = 0;  // creation refused for another reason than EEXIST
    EXPECT_THAT(failed_init(kLaser),
                HasSubstr(std::string("VrelCreateSemaphore id = -1\n") +
                          "\r\n\r\n\r\n!!!B-semget failed: " + std::strerror(ENOSPC) +
                          "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));

    VrelShareMan existing{};  // the set exists, but opening it fails
    board().fail_semget_call.reset();
    ASSERT_EQ(call([&] { return VrelShareManInit(&existing, 19); }).result, 0);
    board().fail_semget_call = board().semget_calls + 1;  // the open after EEXIST
    board().semget_errno = EACCES;
    EXPECT_THAT(failed_init(19),
                HasSubstr(std::string("\r\n\r\n\r\n!!!A-semget failed: ") + std::strerror(EACCES) +
                          "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));

    board().fail_semctl_errno = EPERM;  // created, but the value cannot be set
    EXPECT_THAT(failed_init(30), HasSubstr("succeed\nError:VrelSetSemValue Failed to set semaphore"
                                           "In CreateSemaphore(), call SetSemValue failed!"
                                           "Error:VrelCreateSemaphore fail!\r\n"));
    board().fail_semctl_errno = 0;
}

TEST_F(ChannelInit, CreateSemaphoreOnARecordWithASemaphoreMakesNoCall) {
    VrelShareMan record{};
    record.sem_id = 7;
    EXPECT_EQ(VrelCreateSemaphore(&record, kLaser), 0);
    EXPECT_EQ(board().semget_calls, 0);
    EXPECT_EQ(record.sem_id, 7);
}

using ChannelSemaphore = ChannelTest;

TEST_F(ChannelSemaphore, KernelGivesBackTheHoldOfAProcessThatDied) {
    VrelShareMan record{};
    ASSERT_EQ(call([&] { return VrelShareManInit(&record, kLaser); }).result, 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Dies inside the critical section, without giving the semaphore back.
        ::_exit(VrelSemaphoreP(&record) == 0 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(semaphore_value(record.sem_id), 1) << "SEM_UNDO";
}

TEST_F(ChannelSemaphore, GivingBackOrRemovingARemovedSetFailsWithItsMessage) {
    VrelShareMan record{};
    ASSERT_EQ(call([&] { return VrelShareManInit(&record, kLaser); }).result, 0);
    ASSERT_EQ(VrelDelSemValue(record.sem_id), 0);
    const Call v = call([&] { return VrelSemaphoreV(&record); });
    const Call del = call([&] { return VrelDelSemValue(record.sem_id); });
    EXPECT_EQ(v.out, "SemaphoreV failed");
    EXPECT_EQ(del.out, "Error: VrelDelSemValue Failed to delete semaphore");
    EXPECT_TRUE(v.result == -1 && del.result == -1);
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

    // A channel whose semaphore could not be made ends the process on its first use.
    board().fail_semget_call = 0;
    VrelShareMan failed{};
    ASSERT_EQ(call([&] { return VrelShareManInit(&failed, kLaser); }).result, -1);
    EXPECT_DEATH(VrelSemaphoreP(&failed), "-1 != shareman->sem_id");
}

}  // namespace
}  // namespace zoomaf::test
