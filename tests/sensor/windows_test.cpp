// The PDAF window layouts as the sensor receives them, the PD output switch and the choice
// of the readout window under the service lock.
#include <gmock/gmock.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/sensor/sensor_fixture.hpp"

namespace zoomaf::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

using Writes = std::vector<std::pair<uint16_t, uint8_t>>;

class WindowLayouts : public SensorTest {
protected:
    twin::PdWindowGeometry window(int k) {
        return board().imx586([&](twin::Imx586& s) { return s.window(k); });
    }
    void expect_window(int k, int x0, int y0, int x1, int y1) {
        SCOPED_TRACE("window " + std::to_string(k));
        const auto w = window(k);
        EXPECT_EQ(w.x_start, x0);
        EXPECT_EQ(w.y_start, y0);
        EXPECT_EQ(w.x_end, x1);
        EXPECT_EQ(w.y_end, y1);
        EXPECT_TRUE(w.enabled);
    }
    static size_t count(const std::string& text, const std::string& part) {
        size_t n = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++n;
        return n;
    }
};

TEST_F(WindowLayouts, FreeAreaWritesModeEnableAndWindowZeroInOrder) {
    EXPECT_EQ(call([] { return set_pdaf_windows_free_area(100, 200, 666, 500); }), 0);
    const Writes expected = {{0x38A3, 2},    {0x38AC, 1},    {0x38B4, 0x00}, {0x38B5, 0x64},
                             {0x38B6, 0x00}, {0x38B7, 0xC8}, {0x38B8, 0x02}, {0x38B9, 0xFE},
                             {0x38BA, 0x02}, {0x38BB, 0xBC}};
    EXPECT_THAT(sensor_writes(), ElementsAreArray(expected));
    EXPECT_THAT(output_, ::testing::StartsWith(
                             "\r\n\r\nsleep 5s PDAF SWITCH CHENTER AREA:xstart:100,ystart:200,"
                             "width:666,height:500\r\n\r\n0x38A3 value:0x2\r\n0x38AC value:0x1"));
    EXPECT_THAT(output_,
                HasSubstr("\r\nread windows addr:0x38bb,value:0xbc,source write value:0xbc"));
    EXPECT_THAT(output_, ::testing::EndsWith("\r\n"));
    const uint8_t area[8] = {0x00, 0x64, 0x00, 0xC8, 0x02, 0xFE, 0x02, 0xBC};
    EXPECT_EQ(std::memcmp(focus_area, area, 8), 0);
    EXPECT_FALSE(window(1).enabled) << "the other enables keep their values";
}

TEST_F(WindowLayouts, FreeAreaStartIsClampedOneShortOfTheEdge) {
    call([] { return set_pdaf_windows_free_area(3500, 2600, 666, 500); });
    expect_window(0, 3332, 2498, 3998, 2998);
    EXPECT_THAT(output_, HasSubstr("AREA:xstart:3332,ystart:2498,width:666,height:500\r\n"));
    call([] { return set_pdaf_windows_free_area(-20, -1, 3999, 2999); });
    expect_window(0, 0, 0, 3999, 2999);
    // Exactly at the limit the start stays.
    call([] { return set_pdaf_windows_free_area(3333, 2499, 666, 500); });
    expect_window(0, 3333, 2499, 3999, 2999);
}

TEST_F(WindowLayouts, FreeAreaRefusesABadSizeAndWritesNothing) {
    for (auto [w, h] : {std::pair{4000, 500}, {666, 3000}, {-1, 500}, {666, -1}}) {
        SCOPED_TRACE(std::to_string(w) + " x " + std::to_string(h));
        EXPECT_EQ(call([&] { return set_pdaf_windows_free_area(100, 200, w, h); }), -1);
        EXPECT_EQ(output_, "error para error!\r\n");
    }
    EXPECT_TRUE(board().i2c_transfers(kModuleBus).empty());
}

TEST_F(WindowLayouts, CentreLayoutIsTheSameForEveryRatio) {
    call([] { return set_pdaf_windows_center_area(0); });
    const Writes first = sensor_writes();
    const std::string first_output = output_;
    ASSERT_EQ(first.size(), 9u + 64u) << "mode, eight enables, eight windows of eight bytes";
    for (int ratio = 1; ratio <= 4; ++ratio) {
        clear_sensor_writes();
        call([&] { return set_pdaf_windows_center_area(ratio); });
        EXPECT_EQ(sensor_writes(), first) << "ratio " << ratio;
        EXPECT_EQ(output_, first_output);
    }
    expect_window(0, 1500, 1000, 2166, 1500);
    expect_window(3, 1833, 1000, 2499, 1500);
    expect_window(6, 1334, 1250, 2000, 1750);
    expect_window(7, 2000, 1250, 2666, 1750);
    EXPECT_EQ(sensor_reg(0x38A3), 2);

    EXPECT_THAT(first_output,
                ::testing::StartsWith("PDAF SWITCH CHENTER AREA:\r\n\r\n0x38A3 value:0x2"));
    EXPECT_EQ(count(first_output, "\r\n0x38AC value:0x1"), 4u);
    EXPECT_EQ(count(first_output, "\r\n0x38B0 value:0x1"), 4u);
    // The set-window line comes before windows 1..7 and prints the space's size.
    EXPECT_EQ(count(first_output, "set window xstar:"), 7u);
    EXPECT_THAT(first_output,
                HasSubstr("set window xstar:1500,ystart:1250,width:4000,height:3000\r\n"));
    EXPECT_EQ(first_output.find("set window xstar:1500,ystart:1000"), std::string::npos);
    EXPECT_EQ(count(first_output, "\r\nread windows addr:"), 64u);
}

TEST_F(WindowLayouts, SixWindowsAroundAPointKeepWindowsSixAndSeven) {
    call([] { return set_pdaf_windows_center_area(2); });
    call([] { return set_pdaf_area_windows_by_center_coordinate(2000, 1500); });
    expect_window(0, 1585, 1168, 2251, 1668);
    expect_window(1, 1585, 1251, 2251, 1751);
    expect_window(2, 1585, 1334, 2251, 1834);
    expect_window(3, 1751, 1168, 2417, 1668);
    expect_window(4, 1751, 1251, 2417, 1751);
    expect_window(5, 1751, 1334, 2417, 1834);
    expect_window(6, 1334, 1250, 2000, 1750);
    expect_window(7, 2000, 1250, 2666, 1750);
    EXPECT_EQ(count(output_, "set window xstar:"), 5u);
    EXPECT_THAT(output_, HasSubstr("set window xstar:1585,ystart:1251,width:4000,height:3000\r\n"));
}

TEST_F(WindowLayouts, APointNearTheCornerWrapsTo13Bits) {
    call([] { return set_pdaf_area_windows_by_center_coordinate(100, 100); });
    // 100 - 415 = -315, written as its low 13 bits 0x1EC5; the end 351 stays.
    expect_window(0, 0x1EC5, 0x2000 - 232, 351, 268);
    expect_window(5, 0x2000 - 149, 0x2000 - 66, 517, 434);
    EXPECT_EQ(focus_area[0], 0x1F) << "the last window written: -149 is 0x1F6B";
    EXPECT_EQ(focus_area[1], 0x6B);
    // An extreme centre wraps as well instead of overflowing.
    call([] { return set_pdaf_area_windows_by_center_coordinate(INT32_MAX, INT32_MIN); });
    EXPECT_EQ(window(0).x_start, (INT32_MAX - 415) & 0x1FFF);
}

TEST_F(WindowLayouts, PdOutputSwitchWritesAndReportsTheRegister) {
    EXPECT_EQ(call([] { return switch_pd_output(1); }), 0);
    EXPECT_EQ(sensor_reg(0x3E37), 1);
    EXPECT_EQ(output_, "\r\npd output addr:0x3e37,value:0x1\r\n");
}

using WindowChoice = SensorTest;

TEST_F(WindowChoice, OnlyWindowsZeroFiveSixAndSevenAreTaken) {
    struct Case {
        int index;
        int result;
        int selected;
        const char* text;
    };
    const Case cases[] = {
        {5, 0, 5, "change window index form 0 to 5\r\n"},
        {7, 0, 7, "change window index form 5 to 7\r\n"},
        {3, -1, 7, "Error:window index:3 is out of range:0/5/6/7!\r\n"},
        {1, -1, 7, "Error:window index:1 is out of range:0/5/6/7!\r\n"},
        {8, -1, 7, "Error:window index:8 is out of range:0~6!\r\n"},
        {-1, -1, 7, "Error:window index:-1 is out of range:0~6!\r\n"},
        {0, 0, 0, "change window index form 7 to 0\r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.index);
        const uint64_t before = board().now_ns();
        EXPECT_EQ(call([&] { return change_select_pdaf_window(c.index); }), c.result);
        EXPECT_EQ(output_, c.text);
        EXPECT_EQ(current_select_pdaf_window, c.selected);
        EXPECT_EQ(board().now_ns() - before, 1'000'000'000u) << "one second, refused or not";
    }
    EXPECT_EQ(pthread_mutex_trylock(&motro_safe_lock), 0) << "the lock is released";
    pthread_mutex_unlock(&motro_safe_lock);
}

TEST_F(WindowChoice, TheServiceLockIsHeldThroughTheSecond) {
    board().set_real_time(10.0);  // the second lasts 100 ms
    const uint64_t sleeps_before = board().sleep_calls();
    int lock_while_sleeping = 0;
    captured([&] {
        std::thread host([] { change_select_pdaf_window(6); });
        const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (board().sleep_calls() == sleeps_before &&
               std::chrono::steady_clock::now() < give_up) {
            std::this_thread::yield();
        }
        lock_while_sleeping = pthread_mutex_trylock(&motro_safe_lock);
        if (lock_while_sleeping == 0) pthread_mutex_unlock(&motro_safe_lock);
        host.join();
    });
    EXPECT_EQ(lock_while_sleeping, EBUSY);
    EXPECT_EQ(current_select_pdaf_window, 6);
    ASSERT_EQ(pthread_mutex_trylock(&motro_safe_lock), 0);
    pthread_mutex_unlock(&motro_safe_lock);
}

}  // namespace
}  // namespace zoomaf::test
