// The readers of the assist channels: the laser reader (update flag, range clamps, jump
// filter, override, a held semaphore) and the focus-value reader on channel 30, fed by the
// twin's video encoder.
#include <sys/sem.h>

#include <cstring>
#include <optional>

#include "channels/channel_layout.hpp"
#include "gmock/gmock.h"
#include "service/area_focus_updates.hpp"
#include "tests/support/twin_test.hpp"
#include "twin/module/channel_publisher.hpp"
#include "twin/module/encoder.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

#define GREEN "\033[31;42m"
#define END "\033[0m"

class LaserReader : public TwinTest {
protected:
    void SetUp() override {
        TwinTest::SetUp();
        quietly([] { EXPECT_EQ(LaserShareMemeoryInit(), 0); });
        laser_.emplace(board(), VREL_LASER_CHANNEL);
    }

    // The laser measures raw; the service reads. Returns the distance, keeps the messages.
    uint16_t measure_and_read(uint16_t raw) {
        EXPECT_TRUE(laser_->publish(&raw, sizeof raw));
        return read();
    }
    uint16_t read() { return call(GetCurrentLaserDistance); }

    std::optional<twin::ChannelPublisher> laser_;
};

TEST_F(LaserReader, StartsOnChannelTwelveAndTakesEachMeasurementOnce) {
    EXPECT_EQ(measure_and_read(500), 500);
    EXPECT_EQ(output_,
              GREEN "get laser distance：500\r\n获取的雷达变动在范围内，更新值:500" END "\r\n");
    EXPECT_EQ(channels::update_flag(laser_->segment()), 0u) << "consumed";
    EXPECT_EQ(read(), 500);
    EXPECT_EQ(output_, GREEN "共享内存雷达没更新，返回上次的值:500!" END "\r\n");
}

// The range clamps by day and by night, then the jump filter: three drops of more than a
// fifth are refused, the fourth taken; rises are taken at once.
TEST_F(LaserReader, ClampsTheRangeAndFiltersJumps) {
    const struct {
        int night;
        int32_t last;  // the last accepted distance to start from (-1: go on)
        uint16_t raw, distance;
        int32_t refused;  // the count after the reading
        const char* message = "";
    } readings[] = {
        {0, 100, 65535, 65535, 0, "warning:laser 65535!\r\n"},
        {0, 100, 16001, 15990, 0, "warning:modify laser 15990 to 15990!\r\n"},
        {0, 100, 16000, 16000, 0, "get laser distance：16000\r\n获取"},
        {0, 40, 1, 40, 0, "modify distance from 1 to 40\r\n"},
        {1, 40, 40, 40, 0, "modify distance from 40 to 40\r\n"},
        {0, 41, 41, 41, 0, "get laser distance：41\r\n获取"},
        {0, 100, 0, 2000, 0, "modify distance from 0 to 350\r\n"},
        {1, 0, 0, 0, 0, "get laser distance：0\r\n获取"},
        {0, 1000, 799, 1000, 1,
         "原雷达距离:1000超出获取距离:799太多,所以这次保持，原有的计数更新:1" END},
        {0, -1, 799, 1000, 2},
        {0, -1, 799, 1000, 3},
        {0, -1, 799, 799, 0,
         "原雷达距离:799超出获取距离:799太多,但已经连续三次了，所以更新雷达为位置::799" END},
        {0, 1000, 800, 800, 0},  // a drop of exactly a fifth is taken
        {0, 1000, 801, 801, 0},  // a smaller drop, then rises however large
        {0, -1, 5000, 5000, 0},
        {0, 1000, 700, 1000, 1},  // an accepted reading resets the count
        {0, -1, 700, 1000, 2},
        {0, -1, 900, 900, 0},
        {0, -1, 700, 900, 1},
    };
    for (const auto& r : readings) {
        SCOPED_TRACE(testing::Message() << "raw " << r.raw << " after " << last_laser);
        cur_day_night_mode = r.night;
        if (r.last >= 0) {
            last_laser = r.last;
            last_laster_cnt = 0;
        }
        EXPECT_EQ(measure_and_read(r.raw), r.distance);
        EXPECT_EQ(last_laser, r.distance);
        EXPECT_EQ(last_laster_cnt, r.refused);
        EXPECT_THAT(output_, HasSubstr(r.message));
    }
}

TEST_F(LaserReader, OverrideReplacesTheDistanceWhileTheFilterFollowsTheLaser) {
    Manual_laser_setup = 50;
    EXPECT_EQ(measure_and_read(1234), 500);
    EXPECT_EQ(last_laser, 1234);
    EXPECT_EQ(read(), 500) << "also when nothing new came";
    Manual_laser_setup = 7000;
    EXPECT_EQ(measure_and_read(1300), 4464) << "70000 kept to 16 bits";
    EXPECT_EQ(last_laser, 1300);
}

TEST_F(LaserReader, WithoutItsSemaphoreReturnsTheLastDistanceAndKeepsTheFilterState) {
    global_laser_distance = 321;
    last_laser = 321;
    last_laster_cnt = 2;
    Manual_laser_setup = 50;
    uint16_t raw = 1000;
    ASSERT_TRUE(laser_->publish(&raw, sizeof raw));
    ASSERT_EQ(board().semctl(LaserMenManHandle.sem_id, 0, IPC_RMID, 0), 0);
    EXPECT_EQ(read(), 321) << "no override on this path";
    EXPECT_EQ(output_, "SemaphoreP failed\r\nError:GetCurrentLaserDistance SemaphoreP failed!");
    EXPECT_EQ(last_laser, 321);
    EXPECT_EQ(last_laster_cnt, 2);
    EXPECT_EQ(channels::update_flag(laser_->segment()), 1u);

    LaserMenManHandle = VrelShareMan{};  // before start-up: no semaphore is touched
    EXPECT_EQ(read(), 321);
    EXPECT_EQ(output_, "\r\nError:GetCurrentLaserDistance SemaphoreP failed!");
}

// Another holder takes the semaphores of the laser, area-focus and focus-value channels and
// keeps them: each reader waits a bounded time, says so and goes on without new data (the
// laser with the last distance); once they are given back the readers read again.
TEST_F(LaserReader, ReadersGoOnWhileAnotherHolderKeepsTheChannelSemaphores) {
    twin::ChannelPublisher area(board(), VREL_AREA_FOCUS_CHANNEL);
    twin::ChannelPublisher encoder(board(), VREL_FV_CHANNEL);
    VrelShareMan area_channel{};
    quietly([&] { VrelShareManInit(&area_channel, VREL_AREA_FOCUS_CHANNEL); });
    uint16_t raw = 777;
    ASSERT_TRUE(laser_->publish(&raw, sizeof raw));
    const int held[] = {laser_->sem_id(), area.sem_id(), encoder.sem_id()};
    for (int sem_id : held) {
        sembuf take{0, -1, 0};
        ASSERT_EQ(::semop(sem_id, &take, 1), 0);
    }
    global_laser_distance = 321;
    current_focus_mode = MANUAL_FOCUS_MODE;
    VrelFocusValues record{};
    EXPECT_EQ(read(), 321);
    EXPECT_THAT(output_,
                HasSubstr("Error:GetCurrentLaserDistance the semaphore of the channel with "
                          "key 0x1A2C stayed taken for 200 ms, no new data this time!"));
    EXPECT_EQ(call([&] { return fv_publish_consume_encodered_data(&record); }), 1);
    EXPECT_THAT(output_, HasSubstr("fv_publish_consume_encodered_data the semaphore"));
    EXPECT_TRUE(call([&] { return area_focus_pass(area_channel); }));
    EXPECT_THAT(output_, HasSubstr("GetAreaFocusUpdateStatus the semaphore"));
    EXPECT_EQ(current_focus_mode, MANUAL_FOCUS_MODE);
    EXPECT_EQ(last_laser, 100) << "the filter state is kept";
    for (int sem_id : held) {
        sembuf give{0, 1, 0};
        ASSERT_EQ(::semop(sem_id, &give, 1), 0);
    }
    EXPECT_EQ(read(), 777);
}

using FocusValueReader = TwinTest;

TEST_F(FocusValueReader, TakesEachFrameOnceFillsOnlyTheTwoValuesAndRetriesAFailedOpen) {
    auto consume = [&](VrelFocusValues& record) {
        return call([&] { return fv_publish_consume_encodered_data(&record); });
    };
    twin::Encoder encoder(board());
    encoder.set_focus_values(123456789012LL, -42);
    VrelFocusValues record{};
    std::memset(record.reserved, 0x77, sizeof record.reserved);
    record.fv2 = 9;
    board().inject({.op = twin::FaultRule::Op::shmat, .error = ENOMEM});
    EXPECT_NE(consume(record), 0) << "the channel cannot be opened";
    EXPECT_EQ(record.fv2, 9);
    EXPECT_NE(consume(record), 0) << "opened now, but no frame encoded yet";
    board().advance_ns(33'333'333);  // a frame
    ASSERT_EQ(consume(record), 0);
    EXPECT_EQ(record.fv1, 123456789012LL);
    EXPECT_EQ(record.fv2, -42);
    EXPECT_EQ(record.reserved[0], 0x77) << "callers may keep just the two values";
    record.fv1 = 5;
    EXPECT_NE(consume(record), 0) << "the same frame is not taken twice";
    EXPECT_EQ(record.fv1, 5) << "and the record is left as it was";
    EXPECT_EQ(fv_publish_consume_encodered_data(nullptr), -1);
}

}  // namespace
}  // namespace zoomaf::test
