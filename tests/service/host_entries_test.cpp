// The host's entries and the area-focus thread: what they change in the service state,
// under the service lock, and how the thread ends; the choice of the readout window.
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/shm.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "channels/channel_layout.hpp"
#include "tests/support/twin_test.hpp"
#include "twin/module/channel_publisher.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

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
    for (int i = 0; i < 5000 && !pred(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return pred();
}

bool service_lock_free() {
    if (pthread_mutex_trylock(&motro_safe_lock) != 0) return false;
    unlock();
    return true;
}

class HostEntries : public TwinTest {
protected:
    uint64_t sleep_calls() {
        return with<twin::Clock>([](const twin::Clock& c) { return c.sleep_calls(); });
    }
};

TEST_F(HostEntries, TheAreaFocusThreadSwitchesEvenManualModeToFreeModeOnANewPoint) {
    board().set_real_time(20.0);  // a 100 ms poll takes 5 ms
    current_focus_mode = MANUAL_FOCUS_MODE;
    twin::ChannelPublisher ui(board(), VREL_AREA_FOCUS_CHANNEL);
    const int shm = ::shmget(board().salted_key(channels::shm_key(VREL_AREA_FOCUS_CHANNEL)), 0, 0);
    auto* segment = static_cast<uint8_t*>(board().shmat(shm, nullptr, 0));
    void* returned = &returned;  // anything but null
    bool held_lock_after_return = false;
    output_ = captured([&] {
        std::thread thread([&] {
            returned = GetAreaFocusUpdateStatus(nullptr);
            held_lock_after_return = !service_lock_free();
            unlock();
        });
        ASSERT_TRUE(wait_for([&] { return sleep_calls() >= 5; }));
        EXPECT_EQ(current_focus_mode, MANUAL_FOCUS_MODE) << "nothing new yet";

        const uint32_t reserved = 0xDEADBEEF;
        std::memcpy(segment + VREL_RESERVED_OFFSET, &reserved, sizeof reserved);
        // Stored as it comes: the readouts guard the grid, not the reader.
        const VrelAreaFocusPoint point{4321, -7};
        ASSERT_TRUE(ui.publish(&point, sizeof point));
        ASSERT_TRUE(wait_for([] { return locked(is_coordinates_update) == 1; }));
        EXPECT_EQ(current_focus_mode, PDAF_FREE_MODE);

        ASSERT_EQ(board().semctl(ui.sem_id(), 0, IPC_RMID, 0), 0);  // ends the thread
        thread.join();
    });
    EXPECT_EQ(std::pair(free_focus_pointx, free_focus_pointy), std::pair(4321, -7));
    EXPECT_EQ(channels::update_flag(segment), 0u);
    EXPECT_EQ(channels::reserved_word(segment), 0u) << "cleared together with the flag";
    EXPECT_THAT(output_,
                HasSubstr("\r\n\r\nnget airstatus update,point_x:4321,point_y:-7!\r\n\r\n"));
    EXPECT_THAT(output_, HasSubstr("SemaphoreP failed\r\nError:GetAreaFocusUpdateStatus "
                                   "SemaphoreP failed!"));
    EXPECT_EQ(returned, nullptr);
    EXPECT_TRUE(held_lock_after_return) << "a thread that lost its channel keeps the lock";
}

TEST_F(HostEntries, PtzStartGoesBackToCentreFocusFromScratch) {
    current_focus_mode = MANUAL_FOCUS_MODE;
    is_free_focus_opr_over = 1;
    laser_focus_compensation = 12;
    current_select_pdaf_window = 17;
    EXPECT_EQ(call(SetPZTstart), 0);
    EXPECT_EQ(output_,
              "Set Plane Or PTZ Status!!!\r\n"
              "change plane or set ptz status set laser_focus_compensation to be zero!\r\n");
    EXPECT_EQ(current_focus_mode, PDAF_CENTER_MODE);
    EXPECT_EQ(is_free_focus_opr_over, 0);
    EXPECT_EQ(laser_focus_compensation, -5) << "-5: none learned";
    EXPECT_EQ(current_select_pdaf_window, 0);
    EXPECT_TRUE(service_lock_free());
    call([] { SwitchCompensation(35, -2); });
    EXPECT_EQ(output_, "Compensation maxstep is 35, times is -2");
}

TEST_F(HostEntries, OnlyReadoutWindowsZeroFiveSixAndSevenAreTaken) {
    const struct {
        int index, result, selected;
        const char* text;
    } cases[] = {
        {5, 0, 5, "change window index form 0 to 5\r\n"},
        {7, 0, 7, "change window index form 5 to 7\r\n"},
        {3, -1, 7, "Error:window index:3 is out of range:0/5/6/7!\r\n"},
        {1, -1, 7, "Error:window index:1 is out of range:0/5/6/7!\r\n"},
        {8, -1, 7, "Error:window index:8 is out of range:0~6!\r\n"},
        {-1, -1, 7, "Error:window index:-1 is out of range:0~6!\r\n"},
        {0, 0, 0, "change window index form 7 to 0\r\n"},
    };
    for (const auto& c : cases) {
        const uint64_t before = board().now_ns();
        EXPECT_EQ(call([&] { return change_select_pdaf_window(c.index); }), c.result);
        EXPECT_EQ(output_, c.text);
        EXPECT_EQ(current_select_pdaf_window, c.selected);
        EXPECT_EQ(board().now_ns() - before, 1'000'000'000u) << "one second, refused or not";
    }
    EXPECT_TRUE(service_lock_free());

    // The service lock is held through the second.
    board().set_real_time(10.0);  // the second lasts 100 ms
    const uint64_t sleeps_before = sleep_calls();
    bool free_while_sleeping = true;
    quietly([&] {
        std::thread host([] { change_select_pdaf_window(6); });
        wait_for([&] { return sleep_calls() != sleeps_before; });
        free_while_sleeping = service_lock_free();
        host.join();
    });
    EXPECT_FALSE(free_while_sleeping);
    EXPECT_EQ(current_select_pdaf_window, 6);
}

}  // namespace
}  // namespace zoomaf::test
