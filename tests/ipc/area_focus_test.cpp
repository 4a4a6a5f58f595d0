// The area-focus thread and the host's PTZ and compensation entries: what they change in the
// service state, under the service lock, and how the thread ends.
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "channel_fixture.hpp"
#include "gmock/gmock.h"
#include "twin/channel_publisher.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

struct ServiceSnapshot {
    int32_t mode, coordinates_update, x, y;
};

ServiceSnapshot snapshot() {
    try_lock();
    const ServiceSnapshot s{current_focus_mode, is_coordinates_update, free_focus_pointx,
                            free_focus_pointy};
    unlock();
    return s;
}

class AreaFocusThread : public ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        board().set_real_time(20.0);  // a 100 ms poll takes 5 ms
        current_focus_mode = MANUAL_FOCUS_MODE;
        is_coordinates_update = 0;
        free_focus_pointx = free_focus_pointy = 0;
    }
    void TearDown() override {
        current_focus_mode = PDAF_CENTER_MODE;
        is_coordinates_update = 0;
        free_focus_pointx = free_focus_pointy = 0;
        ChannelTest::TearDown();
    }

    // Runs the thread routine until its semaphore goes away. Afterwards the same thread
    // checks that it still holds the service lock, then releases it.
    void start() {
        thread_ = std::thread([this] {
            returned_ = GetAreaFocusUpdateStatus(nullptr);
            held_lock_after_return_ = pthread_mutex_trylock(&motro_safe_lock) == EBUSY;
            unlock();
        });
    }
    void stop_by_removing_the_semaphore() {
        const int sem_id = kernel_sem_id(VREL_AREA_FOCUS_CHANNEL);
        ASSERT_GE(sem_id, 0);
        ASSERT_EQ(board().semctl(sem_id, 0, IPC_RMID, 0), 0);
        thread_.join();
    }
    template <class Pred>
    static bool wait_for(Pred pred) {
        for (int i = 0; i < 5000; ++i) {
            if (pred()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    std::thread thread_;
    void* returned_ = reinterpret_cast<void*>(1);
    bool held_lock_after_return_ = false;
};

TEST_F(AreaFocusThread, PicksUpAPointAndSwitchesManualModeToFreeMode) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    start();
    ASSERT_TRUE(wait_for([&] { return kernel_sem_id(VREL_AREA_FOCUS_CHANNEL) >= 0; }));
    twin::ChannelPublisher ui(board(), VREL_AREA_FOCUS_CHANNEL);
    auto* segment =
        static_cast<uint8_t*>(board().shmat(kernel_shm_id(VREL_AREA_FOCUS_CHANNEL), nullptr, 0));
    const uint32_t reserved = 0xDEADBEEF;
    std::memcpy(segment + VREL_RESERVED_OFFSET, &reserved, sizeof reserved);
    // Stored as it comes: the readouts guard the grid, not the reader.
    const VrelAreaFocusPoint point{4321, -7};
    ASSERT_TRUE(ui.publish(&point, sizeof point));

    ASSERT_TRUE(wait_for([] { return snapshot().coordinates_update == 1; }));
    const ServiceSnapshot s = snapshot();
    EXPECT_EQ(s.mode, PDAF_FREE_MODE) << "even from manual focus";
    EXPECT_EQ(s.x, 4321);
    EXPECT_EQ(s.y, -7);
    stop_by_removing_the_semaphore();
    fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();

    EXPECT_EQ(ipc::update_flag(segment), 0u);
    EXPECT_EQ(ipc::reserved_word(segment), 0u) << "cleared together with the flag";
    EXPECT_THAT(out, HasSubstr("memmode = 19\r\n"));
    EXPECT_THAT(out, HasSubstr("\r\n\r\nnget airstatus update,point_x:4321,point_y:-7!\r\n\r\n"));
    EXPECT_THAT(out, HasSubstr("SemaphoreP failed\r\nError:GetAreaFocusUpdateStatus "
                               "SemaphoreP failed!"));
    EXPECT_EQ(returned_, nullptr);
    EXPECT_TRUE(held_lock_after_return_) << "ends with the service lock held, as built";
}

TEST_F(AreaFocusThread, LeavesTheStateAloneWhileNothingNewArrives) {
    fflush(stdout);
    testing::internal::CaptureStdout();
    start();
    ASSERT_TRUE(wait_for([&] { return kernel_sem_id(VREL_AREA_FOCUS_CHANNEL) >= 0; }));
    const uint64_t start_ns = board().now_ns();
    ASSERT_TRUE(wait_for([&] { return board().now_ns() - start_ns > 500'000'000; }))
        << "several polls";
    stop_by_removing_the_semaphore();
    fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_THAT(out, ::testing::Not(HasSubstr("airstatus")));
    const ServiceSnapshot s = snapshot();
    EXPECT_EQ(s.mode, MANUAL_FOCUS_MODE);
    EXPECT_EQ(s.coordinates_update, 0);
}

using HostEntries = ChannelTest;

TEST_F(HostEntries, PtzStartGoesBackToCentreFocusFromScratch) {
    current_focus_mode = MANUAL_FOCUS_MODE;
    is_free_focus_opr_over = 1;
    laser_focus_compensation = 12;
    current_select_pdaf_window = 17;
    int32_t result = -1;
    const std::string out = captured([&] { result = SetPZTstart(); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(out,
              "Set Plane Or PTZ Status!!!\r\n"
              "change plane or set ptz status set laser_focus_compensation to be zero!\r\n");
    EXPECT_EQ(static_cast<int32_t>(current_focus_mode), PDAF_CENTER_MODE);
    EXPECT_EQ(static_cast<int32_t>(is_free_focus_opr_over), 0);
    EXPECT_EQ(laser_focus_compensation, -5) << "-5: none learned";
    EXPECT_EQ(current_select_pdaf_window, 0);
    ASSERT_EQ(pthread_mutex_trylock(&motro_safe_lock), 0) << "the service lock was released";
    unlock();
    laser_focus_compensation = 0;
}

TEST_F(HostEntries, SwitchCompensationStoresBothValues) {
    const std::string out = captured([] { SwitchCompensation(35, -2); });
    EXPECT_EQ(out, "Compensation maxstep is 35, times is -2");
    EXPECT_EQ(CompensationMaxStep, 35);
    EXPECT_EQ(CompensationSteps, -2);
}

}  // namespace
}  // namespace zoomaf::test
