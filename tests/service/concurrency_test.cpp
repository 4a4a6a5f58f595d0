// Control calls against a thread that holds the service lock, as the auto-focus loop does
// for a whole pass: setters wait for the pass, the mode tests answer at once, and nothing
// races (the ThreadSanitizer build runs these too).
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "tests/service/service_fixture.hpp"

namespace zoomaf::test {
namespace {

using namespace std::chrono_literals;

class ServiceLock : public ServiceTest {
protected:
    // Runs f on another thread and tells whether it returned within the wait.
    template <class F>
    static bool returns_within(std::future<F>& result, std::chrono::milliseconds wait) {
        return result.wait_for(wait) == std::future_status::ready;
    }
};

TEST_F(ServiceLock, SettersWaitForThePassThatHoldsTheLock) {
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    try_lock();  // the loop's pass
    current_shockperiod = 75;
    auto mode = std::async(std::launch::async, [] { return AppSetMode(PDAF_FREE_MODE); });
    auto period = std::async(std::launch::async, [] { return AppSetShockPeriod(200); });
    EXPECT_FALSE(returns_within(mode, 50ms));
    EXPECT_FALSE(returns_within(period, 1ms));
    EXPECT_EQ(current_shockperiod, 75) << "nothing written while the pass runs";
    unlock();
    ASSERT_TRUE(returns_within(mode, 10s));
    ASSERT_TRUE(returns_within(period, 10s));
    EXPECT_EQ(mode.get(), 0);
    // The period call tested the mode before the lock: centre mode, so it went on.
    EXPECT_EQ(period.get(), 0);
    EXPECT_EQ(current_shockperiod, 200);
    EXPECT_EQ(current_focus_mode, PDAF_FREE_MODE);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Opr Success:Set Focus Mode from 0 to 1\r\n");
}

TEST_F(ServiceLock, ModeAndRangeErrorsAnswerWithoutWaiting) {
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    try_lock();
    auto wrong_mode = std::async(std::launch::async, [] { return AppSetFocusCoordinates(1, 1); });
    auto same_mode = std::async(std::launch::async, [] { return AppSetMode(PDAF_CENTER_MODE); });
    auto bad_range = std::async(std::launch::async, [] {
        mator_step_section[0][0] = 10;  // min above max
        return AppGetFocusPercentagePosition();
    });
    const bool answered = returns_within(wrong_mode, 10s) && returns_within(same_mode, 10s) &&
                          returns_within(bad_range, 10s);
    unlock();
    std::fflush(stdout);
    (void)testing::internal::GetCapturedStdout();
    ASSERT_TRUE(answered);
    EXPECT_EQ(wrong_mode.get(), -1);
    EXPECT_EQ(same_mode.get(), -1);
    EXPECT_EQ(bad_range.get(), -1);
}

// A loop-like thread takes the lock for each pass and reads and writes the shared state
// while the application's thread keeps calling the control API.
TEST_F(ServiceLock, ControlCallsRaceALoopThreadWithoutADataRace) {
    mator_step_section[0][0] = -100;
    mator_step_section[0][1] = 100;
    std::atomic<bool> stop{false};
    std::atomic<int> passes{0};
    const std::string output = captured([&] {
        std::thread loop([&] {
            int32_t last_mode = -1;
            while (!stop.load()) {
                try_lock();
                if (current_focus_mode != last_mode) {
                    last_mode = current_focus_mode;
                    is_free_focus_opr_over = 0;
                    laser_focus_compensation = -5;
                }
                if (is_coordinates_update == 1) is_coordinates_update = 0;
                if (is_manual_positon_update == 1) is_manual_positon_update = 0;
                gRunData.motor[MOTOR_FOCUS].cur_steps = static_cast<int16_t>(passes.load() % 50);
                laser_focus_compensation = passes.load() % 7;
                unlock();
                passes.fetch_add(1);
                std::this_thread::yield();
            }
        });
        // At least 200 rounds, and on until the loop has made 50 passes among them.
        for (int i = 0; i < 200 || passes.load() < 50; ++i) {
            AppSetMode(i % 3);
            AppSetFocusCoordinates(i, i);
            AppSetFocusPercentagePosition(0.5f);
            AppSetShockPeriod(50 + i);
            AppGetFocusPercentagePosition();
            GetLaserCompensationValue();
            set_day_or_night_focus_mode(i & 1);
            AppGetFocusMode();
            GetFocusStart();
        }
        stop = true;
        loop.join();
    });
    EXPECT_GE(passes.load(), 50);
    EXPECT_THAT(output, ::testing::HasSubstr("Opr Success:Set Focus Mode from"));
}

}  // namespace
}  // namespace zoomaf::test
