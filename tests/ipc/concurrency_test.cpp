// Readers and writers of the channels at the same time: another process publishing while the
// service reads, and the service's threads with the twin's laser in real time. Run under
// ThreadSanitizer.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "channel_fixture.hpp"
#include "twin/channel_publisher.hpp"
#include "twin/laser.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

class ChannelsInParallel : public ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        LaserMenManHandle = VrelShareMan{};
        global_laser_distance = 0;
        last_laser = 100;
        last_laster_cnt = 0;
        cur_day_night_mode = 0;
        captured([] { ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0); });
    }
    void TearDown() override {
        LaserMenManHandle = VrelShareMan{};
        ChannelTest::TearDown();
    }
};

TEST_F(ChannelsInParallel, AnotherProcessPublishesWhileTheServiceReads) {
    constexpr int kFirst = 1000, kCount = 400;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // The laser process: rising distances, so the filter takes every one it sees.
        // It leaves without destructors: the channel belongs to the parent's board.
        twin::ChannelPublisher laser(board(), VREL_LASER_CHANNEL);
        for (int i = 0; i < kCount; ++i) {
            const uint16_t d = static_cast<uint16_t>(kFirst + i);
            if (!laser.publish(&d, sizeof d)) ::_exit(1);
            ::usleep(200);
        }
        ::_exit(0);
    }
    std::vector<uint16_t> seen;
    fflush(stdout);
    testing::internal::CaptureStdout();
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) seen.push_back(GetCurrentLaserDistance());
    seen.push_back(GetCurrentLaserDistance());  // whatever came last
    fflush(stdout);
    testing::internal::GetCapturedStdout();

    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(seen.back(), kFirst + kCount - 1) << "the last measurement was taken";
    for (size_t i = 1; i < seen.size(); ++i) {
        ASSERT_GE(seen[i], seen[i - 1]) << "never a torn or stale value";
        if (seen[i] != 0) {
            ASSERT_GE(seen[i], kFirst);
        }
    }
    EXPECT_EQ(last_laster_cnt, 0);
    EXPECT_EQ(semaphore_value(LaserMenManHandle.sem_id), 1);
}

TEST_F(ChannelsInParallel, ServiceThreadsAndTheTwinLaserShareTheChannel) {
    twin::Laser laser(board(), twin::LaserConfig{.period_ns = 20'000'000, .distance = 1500});
    board().set_real_time(20.0);
    std::atomic<bool> done{false};
    fflush(stdout);
    testing::internal::CaptureStdout();
    // The focus loop: reads the distance under the service lock, then sleeps its period.
    std::thread loop([&] {
        while (!done) {
            try_lock();
            GetCurrentLaserDistance();
            unlock();
            platform().sleep_ns(10'000'000);
        }
    });
    // The host: moves the PTZ and changes the distance of the target.
    std::thread host([&] {
        for (int i = 0; i < 50; ++i) {
            SetPZTstart();
            laser.set_distance(static_cast<uint16_t>(1500 + i));
            platform().sleep_ns(5'000'000);
        }
    });
    host.join();
    const uint64_t readings = laser.readings();
    while (laser.readings() < readings + 2) platform().sleep_ns(10'000'000);
    done = true;
    loop.join();
    fflush(stdout);
    testing::internal::GetCapturedStdout();

    try_lock();
    const uint16_t distance = GetCurrentLaserDistance();
    unlock();
    EXPECT_EQ(distance, 1549) << "the loop followed the laser";
    EXPECT_EQ(static_cast<int32_t>(current_focus_mode), PDAF_CENTER_MODE);
    laser_focus_compensation = 0;
}

}  // namespace
}  // namespace zoomaf::test
