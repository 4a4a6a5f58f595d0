// The area-focus thread and the host's PTZ and compensation entries: what they change in the
// service state, under the service lock, and how the thread ends.
#include <pthread.h>

#include <chrono>
#include <thread>

#include "channel_fixture.hpp"
#include "gmock/gmock.h"
#include "twin/channel_publisher.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

// A plain global of the service read under the service lock, as the thread writes it.
int32_t locked(const int32_t& global) {
    try_lock();
    const int32_t value = global;
    unlock();
    return value;
}

template <class Pred>
bool wait_for(Pred pred) {
    for (int i = 0; i < 5000 && !pred(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return pred();
}

using AreaFocusThread = ChannelTest;

TEST_F(AreaFocusThread, WaitsForAPointThenSwitchesManualModeToFreeModeOnIt) {
    board().set_real_time(20.0);  // a 100 ms poll takes 5 ms
    current_focus_mode = MANUAL_FOCUS_MODE;
    twin::ChannelPublisher ui(board(), VREL_AREA_FOCUS_CHANNEL);
    auto* segment =
        static_cast<uint8_t*>(board().shmat(kernel_shm_id(VREL_AREA_FOCUS_CHANNEL), nullptr, 0));
    fflush(stdout);
    testing::internal::CaptureStdout();
    void* returned = &returned;  // anything but null
    bool held_lock_after_return = false;
    std::thread thread([&] {
        returned = GetAreaFocusUpdateStatus(nullptr);
        held_lock_after_return = pthread_mutex_trylock(&motro_safe_lock) == EBUSY;
        unlock();
    });
    ASSERT_TRUE(wait_for([&] { return board().sleep_calls() >= 5; }));
    EXPECT_EQ(static_cast<int32_t>(current_focus_mode), MANUAL_FOCUS_MODE) << "nothing new yet";

    const uint32_t reserved = 0xDEADBEEF;
    std::memcpy(segment + VREL_RESERVED_OFFSET, &reserved, sizeof reserved);
    // Stored as it comes: the readouts guard the grid, not the reader.
    const VrelAreaFocusPoint point{4321, -7};
    ASSERT_TRUE(ui.publish(&point, sizeof point));
    ASSERT_TRUE(wait_for([] { return locked(is_coordinates_update) == 1; }));
    EXPECT_EQ(static_cast<int32_t>(current_focus_mode), PDAF_FREE_MODE) << "even from manual";

    ASSERT_EQ(board().semctl(ui.sem_id(), 0, IPC_RMID, 0), 0);  // ends the thread
    thread.join();
    fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(free_focus_pointx, 4321);
    EXPECT_EQ(free_focus_pointy, -7);
    EXPECT_EQ(ipc::update_flag(segment), 0u);
    EXPECT_EQ(ipc::reserved_word(segment), 0u) << "cleared together with the flag";
    EXPECT_THAT(out, HasSubstr("\r\n\r\nnget airstatus update,point_x:4321,point_y:-7!\r\n\r\n"));
    EXPECT_THAT(out, HasSubstr("SemaphoreP failed\r\nError:GetAreaFocusUpdateStatus "
                               "SemaphoreP failed!"));
    EXPECT_EQ(returned, nullptr);
    EXPECT_TRUE(held_lock_after_return) << "ends with the service lock held, as built";
}

using HostEntries = ChannelTest;

TEST_F(HostEntries, PtzStartGoesBackToCentreFocusFromScratch) {
    current_focus_mode = MANUAL_FOCUS_MODE;
    is_free_focus_opr_over = 1;
    laser_focus_compensation = 12;
    current_select_pdaf_window = 17;
    const Call start = call(SetPZTstart);
    EXPECT_EQ(start.result, 0);
    EXPECT_EQ(start.out,
              "Set Plane Or PTZ Status!!!\r\n"
              "change plane or set ptz status set laser_focus_compensation to be zero!\r\n");
    EXPECT_EQ(static_cast<int32_t>(current_focus_mode), PDAF_CENTER_MODE);
    EXPECT_EQ(static_cast<int32_t>(is_free_focus_opr_over), 0);
    EXPECT_EQ(laser_focus_compensation, -5) << "-5: none learned";
    EXPECT_EQ(current_select_pdaf_window, 0);
    ASSERT_EQ(pthread_mutex_trylock(&motro_safe_lock), 0) << "the service lock was released";
    unlock();
}

TEST_F(HostEntries, SwitchCompensationReportsBothValues) {
    EXPECT_EQ(captured([] { SwitchCompensation(35, -2); }),
              "Compensation maxstep is 35, times is -2");
}

}  // namespace
}  // namespace zoomaf::test
