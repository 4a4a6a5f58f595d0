// A fresh twin board per test, installed behind a recorder, and the focus service back in
// its load-time state. Helpers read the shipped data files and capture the service's
// messages.
#pragma once

#include "tests/support/captured_output.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "twin/board.hpp"
#include "twin/recording_platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"
#include "zoomaf/lib_motor.h"

namespace zoomaf::test {

// The content of a file shipped in data/.
inline std::string data_file(const std::string& name) {
    std::ifstream in(std::string(ZOOMAF_DATA_DIR) + "/" + name, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    if (!in) ADD_FAILURE() << "cannot read data/" << name;
    return content.str();
}

class ServiceTest : public ::testing::Test {
protected:
    void SetUp() override {
        for (int i = 0; i < 3; ++i) sigaction(kFatalSignals[i], nullptr, &saved_[i]);
        board_ = std::make_unique<twin::Board>();
        recorder_ = std::make_unique<twin::RecordingPlatform>(*board_);
        install_platform(recorder_.get());
        reset_service();
    }

    void TearDown() override {
        // InitGlobalClearinfo installs the service's fatal-signal handler; a crash in a later
        // test must still be reported as a crash.
        for (int i = 0; i < 3; ++i) sigaction(kFatalSignals[i], &saved_[i], nullptr);
        if (gSpiDev.fd >= 0) platform().close(gSpiDev.fd);
        gSpiDev.fd = -1;
        install_platform(nullptr);
    }

    // Every variable of the service at its load-time value. The self-study memory stays
    // allocated (cleared) so that the tests do not leak it.
    static void reset_service() {
        current_focus_mode = PDAF_CENTER_MODE;
        cur_day_night_mode = 0;
        current_multiple = 1.0f;
        motor_position = -1;
        current_shockperiod = 50;
        free_focus_pointx = free_focus_pointy = free_focus_width = free_focus_height = 0;
        is_coordinates_update = is_manual_positon_update = is_center_af_winratio_update = 0;
        manual_positon_percentage = 0.0f;
        std::memset(focus_area, 0, sizeof focus_area);
        is_free_focus_opr_over = current_select_pdaf_window = laser_focus_compensation = 0;
        multiple_index = init_motor_status = 0;
        std::memset(TxtToDat, 0, sizeof TxtToDat);
        std::memset(mator_step_section, 0, sizeof mator_step_section);
        std::memset(template_mator_step_section, 0, sizeof template_mator_step_section);
        std::memset(laser_motor_calibration, 0, sizeof laser_motor_calibration);
        calibration_offset_step = pd_calibration_value = 0;
        if (selfstudy_point != nullptr) std::memset(selfstudy_point, 0, SELFSTUDY_STORE_BYTES);
        is_selfstudy_point_update = 0;
        is_deal_selfstudy = 1;
        selfstudy_info_write_lock = 0;
        std::memset(&gRunData, 0, sizeof gRunData);
        gSpiDev.fd = -1;
    }

    // The store allocated and empty, as InitGlobalClearinfo leaves it without a file.
    static void allocate_store() {
        if (selfstudy_point == nullptr) {
            selfstudy_point =
                static_cast<SelfStudyBlock*>(std::calloc(SELFSTUDY_BLOCKS, sizeof(SelfStudyBlock)));
        }
        ASSERT_NE(selfstudy_point, nullptr);
    }

    // Runs f with stdout captured into output_ and returns its result.
    template <class F>
    auto call(F&& f) {
        decltype(f()) result{};
        output_ = captured([&] { result = f(); });
        return result;
    }

    twin::Board& board() { return *board_; }
    twin::RecordingPlatform& recorder() { return *recorder_; }

    std::string output_;

private:
    static constexpr int kFatalSignals[3] = {SIGINT, SIGSEGV, SIGTERM};
    struct sigaction saved_[3] = {};
    std::unique_ptr<twin::Board> board_;
    std::unique_ptr<twin::RecordingPlatform> recorder_;
};

}  // namespace zoomaf::test
