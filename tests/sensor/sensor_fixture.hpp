// A fresh twin board per test, installed behind a recorder, with the sensor-side state of
// the service at its start values. Helpers read what reached the I2C buses and capture the
// service's messages.
#pragma once

#include "tests/support/captured_output.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "twin/board.hpp"
#include "twin/recording_platform.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/imx586.h"

namespace zoomaf::test {

inline constexpr int kModuleBus = 9;
inline constexpr int kSensorIdBus = 2;
inline constexpr uint16_t kSensor = 0x1A;

// The sensor's decoding of one window's three bytes (what the readouts apply).
struct DecodedPdCl {
    int64_t pd;
    int64_t cl;
};
inline DecodedPdCl decode_pd_cl(uint8_t b0, uint8_t b1, uint8_t b2) {
    const int64_t cl = (b0 << 3) | (b1 >> 5);
    const int64_t raw = ((b1 << 6) & 0x7C0) | (b2 >> 2);
    const int64_t v = raw - 1;
    return {(v >> 4) >= 64 ? v - 2046 : v, cl};
}

class SensorTest : public ::testing::Test {
protected:
    void SetUp() override {
        board_ = std::make_unique<twin::Board>();
        recorder_ = std::make_unique<twin::RecordingPlatform>(*board_);
        install_platform(recorder_.get());
        motor_position = -1;
        current_select_pdaf_window = 0;
        std::memset(focus_area, 0, sizeof focus_area);
        std::memset(eeprom_dcc, 0, sizeof eeprom_dcc);
    }
    void TearDown() override { install_platform(nullptr); }

    // Runs f, keeps its messages in output_ and returns its result.
    template <class F>
    auto call(F&& f) {
        decltype(f()) result{};
        output_ = captured([&] { result = f(); });
        return result;
    }

    twin::Board& board() { return *board_; }
    twin::RecordingPlatform& recorder() { return *recorder_; }

    // The sensor register in effect, read through the control face.
    uint8_t sensor_reg(uint16_t addr) {
        return board().imx586([&](twin::Imx586& s) { return s.byte(addr); });
    }
    // Every byte the sensor stored from the bus, in order: (register, value).
    std::vector<std::pair<uint16_t, uint8_t>> sensor_writes() {
        std::vector<std::pair<uint16_t, uint8_t>> all;
        board().imx586([&](twin::Imx586& s) {
            for (const auto& w : s.writes()) all.emplace_back(w.addr, w.value);
        });
        return all;
    }
    void clear_sensor_writes() {
        board().imx586([](twin::Imx586& s) { s.clear_writes(); });
    }

    std::string output_;

private:
    std::unique_ptr<twin::Board> board_;
    std::unique_ptr<twin::RecordingPlatform> recorder_;
};

}  // namespace zoomaf::test
