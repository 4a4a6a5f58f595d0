// The channel module: keys and sizes, the EEXIST path that leaves a held semaphore alone,
// the failure messages, SEM_UNDO and the assertions.
#include <gmock/gmock.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

#include "channels/channel_layout.hpp"
#include "tests/support/twin_test.hpp"
#include "zoomaf/vrel_sharememory.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using Op = twin::FaultRule::Op;

constexpr int kLaser = VREL_LASER_CHANNEL;

class Channels : public TwinTest {
protected:
    int32_t init(VrelShareMan& record, int memmode) {
        return call([&] { return VrelShareManInit(&record, memmode); });
    }
    // The kernel's id of a channel's segment on this board, or -1.
    int kernel_shm_id(int memmode) {
        return ::shmget(board().salted_key(channels::shm_key(memmode)), 0, 0);
    }
    static int semaphore_value(int sem_id) { return ::semctl(sem_id, 0, GETVAL); }
    // A failed start of a channel: its messages.
    std::string failed_init(int memmode) {
        VrelShareMan record{};
        EXPECT_EQ(init(record, memmode), -1);
        return output_;
    }
};

TEST_F(Channels, ChannelsOutsideTheTableAreRefusedEachOtherGetsItsKeysSizeAndAFreeSemaphore) {
    for (int memmode : {34, -1}) {
        VrelShareMan record;
        std::memset(&record, 0xA5, sizeof record);
        const VrelShareMan before = record;
        EXPECT_EQ(init(record, memmode), -2);
        EXPECT_EQ(output_, "memmode = " + std::to_string(memmode) +
                               "\r\nError:VrelShareManInit memmode was out of range!\r\n");
        EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0) << "not even sem_id";
    }
    const struct {
        int memmode;
        uint32_t shm_key;
        key_t sem_key;
        size_t bytes;
    } cases[] = {{kLaser, 0x1A2C, 0x1234ABD9, 14},
                 {19, 0x1A33, 0x1234ABE0, 20},
                 {30, 0x1A3E, 0x1234ABEB, 4108},
                 {2, 0x1A22, 0x1234ABCF, 491532}};
    for (const auto& e : cases) {
        SCOPED_TRACE(e.memmode);
        VrelShareMan record{};
        ASSERT_EQ(init(record, e.memmode), 0);
        EXPECT_EQ(record.shm_key, e.shm_key);
        shmid_ds info{};
        ASSERT_EQ(::shmctl(kernel_shm_id(e.memmode), IPC_STAT, &info), 0);
        EXPECT_EQ(info.shm_segsz, e.bytes);
        EXPECT_EQ(record.data_addr, record.shm_addr + 8);
        EXPECT_EQ(record.sem_id, ::semget(board().salted_key(e.sem_key), 0, 0));
        EXPECT_EQ(semaphore_value(record.sem_id), 1) << "a new channel starts free";
        char messages[160];
        std::snprintf(messages, sizeof messages,
                      "memmode = %d\r\nVrelShareMemoryInit shmid = %d\nVrelCreateSemaphore id = "
                      "%d\ncreate sem key [0x%X] succeed\n",
                      e.memmode, kernel_shm_id(e.memmode), record.sem_id,
                      static_cast<unsigned>(e.sem_key));
        EXPECT_EQ(output_, messages);
    }
}

TEST_F(Channels, SecondStartJoinsTheHeldSemaphoreWithoutResettingIt) {
    VrelShareMan first{};
    ASSERT_EQ(init(first, kLaser), 0);
    ASSERT_EQ(VrelSemaphoreP(&first), 0);  // another process holds the channel
    first.data_addr[0] = 0x5A;

    VrelShareMan again = first;  // the same record started again
    EXPECT_EQ(init(again, kLaser), 0);
    EXPECT_THAT(output_, HasSubstr(std::string("sem key [0x1234ABD9] exist, error: ") +
                                   std::strerror(EEXIST) + "\n"));
    EXPECT_EQ(again.sem_id, first.sem_id);
    EXPECT_EQ(semaphore_value(again.sem_id), 0) << "still held";
    EXPECT_EQ(again.data_addr[0], 0x5A) << "attached again to the same segment";
    ASSERT_EQ(VrelSemaphoreV(&first), 0);
    EXPECT_EQ(semaphore_value(again.sem_id), 1);
    // A record that has its semaphore makes no call for it.
    board().inject({.op = Op::semget, .count = -1});
    VrelShareMan record{};
    record.sem_id = 7;
    EXPECT_EQ(VrelCreateSemaphore(&record, kLaser), 0);
    EXPECT_EQ(record.sem_id, 7);
    EXPECT_TRUE(board().injected_faults().empty());
}

TEST_F(Channels, EveryFailureOfTheStartIsReported) {
    // A segment that exists too small: three lines, and no semaphore is made.
    ASSERT_GE(board().shmget(channels::shm_key(kLaser), 4, IPC_CREAT | 0666), 0);
    board().inject({.op = Op::semget, .count = -1});
    EXPECT_EQ(
        failed_init(kLaser),
        std::string("memmode = 12\r\n") +
            "\r\n\r\n\r\n-》-》-》-》-》VrelShareMemoryInit error errno:" + std::strerror(EINVAL) +
            "《-《-《-《-《-\r\n\r\n\r\n"
            "memmode = 12 \r\n"
            "shareman->structlen = 2 \r\n"
            "Error:VrelShareMemoryInit fail!\r\n");
    EXPECT_TRUE(board().injected_faults().empty());
    board().clear_faults();

    // Creation refused for another reason than EEXIST.
    board().inject({.op = Op::semget,
                    .target = twin::ipc_object_name(channels::sem_key(30)),
                    .error = ENOSPC});
    EXPECT_THAT(failed_init(30),
                HasSubstr(std::string("VrelCreateSemaphore id = -1\n") +
                          "\r\n\r\n\r\n!!!B-semget failed: " + std::strerror(ENOSPC) +
                          "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));
    // The set exists, but opening it fails (the second semget, after EEXIST).
    VrelShareMan existing{};
    ASSERT_EQ(init(existing, 19), 0);
    board().inject({.op = Op::semget, .error = EACCES, .skip = 1});
    EXPECT_THAT(failed_init(19),
                HasSubstr(std::string("\r\n\r\n\r\n!!!A-semget failed: ") + std::strerror(EACCES) +
                          "\r\n\r\n\r\nError:VrelCreateSemaphore fail!\r\n"));
    // Created, but the value cannot be set.
    board().inject({.op = Op::semctl, .error = EPERM});
    EXPECT_THAT(failed_init(2), HasSubstr("succeed\nError:VrelSetSemValue Failed to set semaphore"
                                          "In CreateSemaphore(), call SetSemValue failed!"
                                          "Error:VrelCreateSemaphore fail!\r\n"));
}

TEST_F(Channels, KernelGivesBackTheHoldOfAProcessThatDiedAndARemovedSetIsRefused) {
    VrelShareMan record{};
    ASSERT_EQ(init(record, kLaser), 0);
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

    // Giving back or removing a removed set fails with its message.
    ASSERT_EQ(VrelDelSemValue(record.sem_id), 0);
    EXPECT_EQ(call([&] { return VrelSemaphoreV(&record); }), -1);
    EXPECT_EQ(output_, "SemaphoreV failed");
    EXPECT_EQ(call([&] { return VrelDelSemValue(record.sem_id); }), -1);
    EXPECT_EQ(output_, "Error: VrelDelSemValue Failed to delete semaphore");
}

using ChannelAssertionDeathTest = Channels;

// A channel whose semaphore could not be made ends the process on its first use.
TEST_F(ChannelAssertionDeathTest, SemaphoreUseWithoutASemaphoreEndsTheProcess) {
    board().inject({.op = Op::semget});
    VrelShareMan failed{};
    ASSERT_EQ(init(failed, kLaser), -1);
    EXPECT_DEATH(VrelSemaphoreP(&failed),
                 "vrel_sharememory.*VrelSemaphoreP.*Assertion `-1 != shareman->sem_id' failed");
}

}  // namespace
}  // namespace zoomaf::test
