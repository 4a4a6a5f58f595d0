// The laser reader: the update-flag protocol, the range clamps by day and by night, the jump
// filter and the fixed-distance override.
#include "channel_fixture.hpp"
#include "gmock/gmock.h"
#include "twin/channel_publisher.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;

#define GREEN "\033[31;42m"
#define END "\033[0m"

class LaserReader : public ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        global_laser_distance = 0;
        last_laser = 100;
        last_laster_cnt = 0;
        Manual_laser_setup = MANUAL_LASER_NONE;
        cur_day_night_mode = 0;
        init_out_ = captured([] { EXPECT_EQ(LaserShareMemeoryInit(), 0); });
        laser_ = std::make_unique<twin::ChannelPublisher>(board(), VREL_LASER_CHANNEL);
    }
    void TearDown() override {
        laser_.reset();
        LaserMenManHandle = VrelShareMan{};
        Manual_laser_setup = MANUAL_LASER_NONE;
        cur_day_night_mode = 0;
        ChannelTest::TearDown();
    }

    // The laser measures raw; the service reads. Returns the distance, keeps the messages.
    uint16_t measure_and_read(uint16_t raw) {
        EXPECT_TRUE(laser_->publish(&raw, sizeof raw));
        return read();
    }
    uint16_t read() {
        uint16_t distance = 0;
        out_ = captured([&] { distance = GetCurrentLaserDistance(); });
        return distance;
    }
    const std::string& out() const { return out_; }
    uint32_t update_flag() const { return ipc::update_flag(laser_->segment()); }

    std::unique_ptr<twin::ChannelPublisher> laser_;
    std::string init_out_;
    std::string out_;
};

TEST_F(LaserReader, StartUpOpensChannelTwelveAndPrintsTheVersions) {
    EXPECT_GE(LaserMenManHandle.sem_id, 0);
    EXPECT_EQ(LaserMenManHandle.shm_key, 0x1A2Cu);
    EXPECT_THAT(init_out_, ::testing::StartsWith("memmode = 12\r\n"));
    EXPECT_THAT(init_out_,
                ::testing::EndsWith("motor software main is 1, sup is 8.\r\n"
                                    "dcc is 416, pdaf software main is 2, sup is 4.\r\n"));
}

TEST_F(LaserReader, TakesANewMeasurementOnceAndThenKeepsTheLastDistance) {
    EXPECT_EQ(measure_and_read(500), 500);
    EXPECT_EQ(out(), GREEN
              "get laser distance：500\r\n"
              "获取的雷达变动在范围内，更新值:500" END "\r\n");
    EXPECT_EQ(update_flag(), 0u) << "consumed";

    EXPECT_EQ(read(), 500);
    EXPECT_EQ(out(), GREEN "共享内存雷达没更新，返回上次的值:500!" END "\r\n");
    EXPECT_EQ(last_laster_cnt, 0);
}

TEST_F(LaserReader, ClampsTheRangeByDayAndByNight) {
    struct Case {
        uint16_t raw;
        int night;
        int32_t last;  // filter state before, chosen so the filter takes the reading
        uint16_t expected;
        const char* message;
    };
    const Case cases[] = {
        {65535, 0, 100, 65535, "warning:laser 65535!\r\n"},
        {16001, 0, 100, 15990, "warning:modify laser 15990 to 15990!\r\n"},
        {16000, 0, 100, 16000, "get laser distance：16000\r\n获取"},
        {1, 0, 40, 40, "modify distance from 1 to 40\r\n"},
        {40, 1, 40, 40, "modify distance from 40 to 40\r\n"},
        {41, 0, 41, 41, "get laser distance：41\r\n获取"},
        {0, 0, 100, 2000, "modify distance from 0 to 350\r\n"},
        {0, 1, 0, 0, "get laser distance：0\r\n获取"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "raw " << c.raw << (c.night ? " at night" : " by day"));
        cur_day_night_mode = c.night;
        last_laser = c.last;
        EXPECT_EQ(measure_and_read(c.raw), c.expected);
        EXPECT_THAT(out(), HasSubstr(c.message));
        EXPECT_EQ(last_laser, c.expected);
    }
}

TEST_F(LaserReader, RefusesThreeDropsOfMoreThanAFifthAndTakesTheFourth) {
    last_laser = 1000;
    global_laser_distance = 1000;
    for (int count = 1; count <= 3; ++count) {
        EXPECT_EQ(measure_and_read(799), 1000);
        EXPECT_EQ(last_laster_cnt, count);
        EXPECT_THAT(out(),
                    HasSubstr("原雷达距离:1000超出获取距离:799太多,所以这次保持，原有的计数更新:" +
                              std::to_string(count) + END "\r\n"));
    }
    EXPECT_EQ(measure_and_read(799), 799);
    EXPECT_EQ(last_laster_cnt, 0);
    EXPECT_EQ(last_laser, 799);
    EXPECT_THAT(out(), HasSubstr("原雷达距离:799超出获取距离:799太多,但已经连续三次了，"
                                 "所以更新雷达为位置::799" END "\r\n"));
}

TEST_F(LaserReader, TakesDropsUpToAFifthAndAnyRiseAtOnce) {
    last_laser = 1000;
    EXPECT_EQ(measure_and_read(800), 800) << "exactly a fifth is not more than a fifth";
    last_laser = 1000;
    EXPECT_EQ(measure_and_read(801), 801);
    EXPECT_EQ(measure_and_read(5000), 5000) << "a rise, however large";
    EXPECT_EQ(measure_and_read(65535), 65535) << "no echo is a rise too";
    EXPECT_EQ(last_laster_cnt, 0);
}

TEST_F(LaserReader, AnAcceptedReadingResetsTheRefusalCount) {
    last_laser = 1000;
    EXPECT_EQ(measure_and_read(700), 1000) << "refused: the last accepted distance is used";
    EXPECT_EQ(measure_and_read(700), 1000);
    EXPECT_EQ(last_laster_cnt, 2);
    EXPECT_EQ(measure_and_read(900), 900);
    EXPECT_EQ(last_laster_cnt, 0);
    EXPECT_EQ(measure_and_read(700), 900);
    EXPECT_EQ(last_laster_cnt, 1);
}

TEST_F(LaserReader, FirstReadingBelowEightMetresIsRefusedThreeTimes) {
    global_laser_distance = 100;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(measure_and_read(79), 100);
    EXPECT_EQ(measure_and_read(79), 79);
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

TEST_F(LaserReader, SemaphoreFailureReturnsTheLastDistanceAndKeepsTheFilterState) {
    global_laser_distance = 321;
    last_laser = 321;
    last_laster_cnt = 2;
    Manual_laser_setup = 50;
    uint16_t raw = 1000;
    ASSERT_TRUE(laser_->publish(&raw, sizeof raw));
    ASSERT_EQ(board().semctl(LaserMenManHandle.sem_id, 0, IPC_RMID, 0), 0);
    EXPECT_EQ(read(), 321) << "no override on this path";
    EXPECT_EQ(out(), "SemaphoreP failed\r\nError:GetCurrentLaserDistance SemaphoreP failed!");
    EXPECT_EQ(last_laser, 321);
    EXPECT_EQ(last_laster_cnt, 2);
    EXPECT_EQ(update_flag(), 1u);
}

TEST_F(LaserReader, BeforeTheChannelIsOpenedNoSemaphoreIsTouched) {
    LaserMenManHandle = VrelShareMan{};
    global_laser_distance = 77;
    EXPECT_EQ(read(), 77);
    EXPECT_EQ(out(), "\r\nError:GetCurrentLaserDistance SemaphoreP failed!");
}

}  // namespace
}  // namespace zoomaf::test
