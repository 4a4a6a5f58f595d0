// The centre-mode window calls on the twin's sensor: their mode and range checks with the
// kept message texts, the group hold around the layout, the free rectangle's registers,
// and a sensor that does not answer.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/service/service_fixture.hpp"
#include "twin/imx586.hpp"

namespace zoomaf::test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kNotCentreMode =
    "\r\n\r\nError: AppSetCenterFocusWindownsRatio the current mode is no equal to "
    "PDAF_CENTER_MODE!\r\n";

class CentreWindow : public ServiceTest {
protected:
    std::vector<twin::I2cRegisterWrite> sensor_writes() {
        return board().imx586([](twin::Imx586& s) { return s.writes(); });
    }
    twin::PdWindowGeometry window0() {
        return board().imx586([](twin::Imx586& s) { return s.window(0); });
    }
    bool group_hold() {
        return board().imx586([](twin::Imx586& s) { return s.group_hold(); });
    }
};

TEST_F(CentreWindow, TheRatioNeedsCentreModeAndZeroToFour) {
    current_focus_mode = PDAF_FREE_MODE;
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsRatio(2); }), -1);
    EXPECT_EQ(output_, kNotCentreMode);
    current_focus_mode = PDAF_CENTER_MODE;
    for (int32_t bad : {5, -1}) {
        EXPECT_EQ(call([&] { return AppSetCenterFocusWindownsRatio(bad); }), -2);
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetCenterFocusWindownsRatio Percentage:" +
                               std::to_string(bad) + "  is out of range(0-4)!\r\n");
    }
    EXPECT_EQ(is_center_af_winratio_update, 0);
    EXPECT_TRUE(sensor_writes().empty()) << "an error reaches no register";
}

TEST_F(CentreWindow, TheRatioLaysOutTheCentreWindowsInsideAGroupHold) {
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsRatio(4); }), 0);
    EXPECT_EQ(is_center_af_winratio_update, 1);
    const auto writes = sensor_writes();
    ASSERT_GE(writes.size(), 2u);
    EXPECT_EQ(writes.front().addr, twin::Imx586::kGroupHold);
    EXPECT_EQ(writes.front().value, 1);
    // The layout was held back and took effect when the hold was closed.
    const auto closed = std::find_if(writes.begin() + 1, writes.end(), [](const auto& w) {
        return w.addr == twin::Imx586::kGroupHold;
    });
    ASSERT_NE(closed, writes.end());
    EXPECT_EQ(closed->value, 0);
    EXPECT_FALSE(group_hold());
    EXPECT_EQ(board().imx586([](twin::Imx586& s) { return s.held_writes(); }), 0u);
    EXPECT_EQ(board().imx586([](twin::Imx586& s) { return s.area_mode(); }),
              twin::Imx586::kAreaModeWindows);
}

TEST_F(CentreWindow, TheFreeAreaKeepsItsOddBoundsAndTexts) {
    current_focus_mode = MANUAL_FOCUS_MODE;
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(10, 10, 10, 10); }), -1);
    EXPECT_EQ(output_, kNotCentreMode) << "the ratio call's text, as it always was";

    current_focus_mode = PDAF_CENTER_MODE;
    for (auto [x, y] : {std::pair{3999, 0}, {0, 2999}, {-1, 0}, {0, -1}}) {
        EXPECT_EQ(call([&] { return AppSetCenterFocusWindownsFreearea(x, y, 10, 10); }), -2);
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetFocusCoordinates pointx:" + std::to_string(x) +
                               " and pointy:" + std::to_string(y) +
                               " is out of range(0-3999/0-2999)!\r\n");
    }
    for (auto [w, h] : {std::pair{4000, 0}, {0, 3000}}) {
        EXPECT_EQ(call([&] { return AppSetCenterFocusWindownsFreearea(0, 0, w, h); }), -2);
        EXPECT_EQ(output_, "\r\n\r\nError: AppSetFocusCoordinates width:" + std::to_string(w) +
                               " and height:" + std::to_string(h) +
                               " is out of range(0-3999/0-2999)!\r\n");
    }
    EXPECT_TRUE(sensor_writes().empty());
    EXPECT_EQ(is_center_af_winratio_update, 0);
}

TEST_F(CentreWindow, TheFreeAreaIsWindowZeroAsFourThirteenBitCoordinates) {
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(1000, 800, 400, 300); }), 0);
    const uint8_t expected[8] = {0x03, 0xE8, 0x03, 0x20, 0x05, 0x78, 0x04, 0x4C};
    EXPECT_EQ(std::memcmp(focus_area, expected, 8), 0);
    const twin::PdWindowGeometry w = window0();
    EXPECT_EQ(w.x_start, 1000);
    EXPECT_EQ(w.y_start, 800);
    EXPECT_EQ(w.x_end, 1400);
    EXPECT_EQ(w.y_end, 1100);
    EXPECT_TRUE(w.enabled);
    EXPECT_FALSE(group_hold());
    EXPECT_EQ(is_center_af_winratio_update, 1);
    // Read back inside the group hold, the registers still show what they held before.
    EXPECT_THAT(output_, StartsWith("PDAF SWITCH CHENTER AREA:\r\n"
                                    "\r\n0x38A3 value:0x0\r\n0x38AC value:0x0"
                                    "\r\nread windows addr:0x38b4,value:0x0,source write "
                                    "value:0x3"));
    EXPECT_THAT(output_, HasSubstr("\r\nread windows addr:0x38bb,value:0x0,source write "
                                   "value:0x4c\r\n"));

    // A negative size is not checked: the end wraps to 13 bits.
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(10, 3, -20, 0); }), 0);
    EXPECT_EQ(window0().x_end, 8182);
    EXPECT_EQ(window0().y_end, 3);
}

TEST_F(CentreWindow, AFreeAreaThatDoesNotReachTheSensorIsAFailure) {
    board().set_i2c_present(twin::Board::kModuleBus, twin::Imx586::kAddress, false);
    EXPECT_EQ(call([] { return AppSetCenterFocusWindownsFreearea(1000, 800, 400, 300); }), -1);
    EXPECT_THAT(output_, HasSubstr("Error: set_pdaf_centermode_freearea_attr the area did not "
                                   "reach the sensor!\r\n"));
}

}  // namespace
}  // namespace zoomaf::test
