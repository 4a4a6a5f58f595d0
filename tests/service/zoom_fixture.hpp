// Zoom requests on the twin: the shipped lens table loaded, the laser channel attached and
// the sensor set up for the day focus. Tests bring the motors up the way start-up does
// (homing from the board's seeded positions). The truth is the twin's lens: the in-focus focus step
// for the physical zoom position and the subject distance (a unit without offset).
#pragma once

#include <cmath>
#include <optional>

#include "tests/service/service_fixture.hpp"
#include "twin/laser.hpp"
#include "twin/lens_model.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf::test {

class ZoomTest : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        LaserMenManHandle = VrelShareMan{};
        global_laser_distance = 0;
        last_laser = 100;
        last_laster_cnt = 0;
        Manual_laser_setup = MANUAL_LASER_NONE;
        frist_zoom = is_out_20_step = zy_focus_lock_step = 0;
        meter_index_min = 2;
        OldISValue = 520;
        zoom_running_flag = 0;
        board().write_file(LENS_TABLE_FILE, data_file(LENS_TABLE_FILE));
        board().write_file(IMX586_DCC_FILE, data_file(IMX586_DCC_FILE));
        quietly([] {
            ASSERT_EQ(ReadAFTXT(), READ_AFTXT_OK);
            ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0);
            InitPDSetting();
        });
    }

    void TearDown() override {
        laser_.reset();
        EXPECT_TRUE(board().faults().empty()) << "the twin recorded a hardware fault";
        EXPECT_EQ(zoom_running_flag, 0);
        ServiceTest::TearDown();
    }

    // Initialisation with homing, then the zoom to multiple with its 10 m focus step.
    void start_at(float multiple) {
        quietly([&] {
            UnInitmotor();
            VerificationSetMotordevInit(multiple);
        });
        ASSERT_EQ(init_motor_status, 0);
    }

    // A laser measuring a subject at decimetres (LASER_NO_ECHO: no echo), its first reading
    // published; the reader's jump filter starts from that distance.
    void laser_on(uint16_t decimetres) {
        if (!laser_) laser_.emplace(board());
        laser_->set_no_echo(decimetres == LASER_NO_ECHO);
        if (decimetres != LASER_NO_ECHO) laser_->set_distance(decimetres);
        last_laser = decimetres;
        board().sleep_ns(100'000'000);
    }

    // Physical focus position minus the true in-focus step of a subject at distance_m.
    int focus_error(double distance_m) {
        const double truth =
            twin::in_focus_focus_step(board().motor_position(twin::Motor::zoom), distance_m);
        return static_cast<int>(std::lround(board().motor_position(twin::Motor::focus) - truth));
    }

    static int driver_focus() { return GetCurSteps(MOTOR_FOCUS); }
    static int table_step(float multiple, int column) {
        return TxtToDat[AppSetMultipleSectionRelation(multiple)][column];
    }

    std::optional<twin::Laser> laser_;
};

}  // namespace zoomaf::test
