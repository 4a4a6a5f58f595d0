#include "tests/support/twin_test.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "ipc/ipc_internal.hpp"
#include "service/selfstudy_internal.hpp"
#include "zoomaf/app_pdaf.h"
#include "zoomaf/assist_info.h"
#include "zoomaf/imx586.h"
#include "zoomaf/lib_motor.h"
#include "zoomaf/night_focus.h"
#include "zoomaf/pdaf_focus.h"
#include "zoomaf/zoom_control.h"

namespace zoomaf::test {

namespace {

constexpr int kFatalSignals[3] = {SIGINT, SIGSEGV, SIGTERM};

// The load-time value of every global, taken before main (the globals are constant
// initialised, so they hold their load-time values then) and put back by restore().
class LoadTimeGlobals {
public:
    LoadTimeGlobals() {
        keep(current_focus_mode, cur_day_night_mode, current_multiple, motor_position,
             current_shockperiod, is_coordinates_update, free_focus_pointx, free_focus_pointy,
             free_focus_width, free_focus_height, is_manual_positon_update,
             manual_positon_percentage, is_center_af_winratio_update, is_free_focus_opr_over,
             current_select_pdaf_window, laser_focus_compensation, pdafcnt_over_multiple_change,
             defauult_probe_dir, multiple_index, current_multiple_index, zoom_running_flag, onoff,
             init_motor_status, focus_area, pd_calibration_value, ptz_lock,
             selfstudy_info_write_lock, motor_lock, laser_lock);
        keep(TxtToDat, mator_step_section, template_mator_step_section, laser_motor_calibration,
             calibration_offset_step, is_selfstudy_point_update, is_deal_selfstudy,
             selfstudy::store_unread);
        keep(eeprom_dcc);
        keep(LaserMenManHandle, PtzMenManHandle, global_laser_distance, last_laser, last_laster_cnt,
             Manual_laser_setup, CompensationMaxStep, CompensationSteps, ipc::fv_channel());
        keep(gSpiDev, reg_addr_psum_f, reg_addr_intct_f, reg_addr_psum_z, reg_addr_intct_z,
             REG_ADDR_PPW_F, REG_ADDR_PPW_Z, reg_motor, gRunData, gFocusParam, old_error_step,
             run_times, msVersion, moVersion, lastdirection, curteps);
        keep(pdaf_indata, p_DefocusOKNGThrLine, offsetData, go_cl_info, go_pd_info,
             go_offset_distance, Manual_cl_pd, zycl, zypd, zy_current_select_win, ignorecnt,
             freeignorecnt, try_direction, try_counter, probe_number, fail_counter_level_50,
             fail_counter_level_150, shock_manager, free_focus_probe_counter, temp_max_fd_cl_value,
             temp_max_fd_cl_motor_step);
        keep(m0_motor, m0_pd, m0_cl, m0_windeos, m1_motor, m1_pd, m1_cl, m1_windeos, lock_value,
             true_cnt, need_laser_cnt, zy_shock_cnt, zy_judge_shock_cnt,
             current_lowlevel_limit_counter, low_ten_pd_motor, zy_focus_lock_step, laser_1600m_cnt,
             laser_4m_cnt);
        keep(night_focus_man, frist_zoom, is_out_20_step, meter_index_min, OldISValue);
    }

    void restore() const {
        for (const auto& put_back : restores_) put_back();
        if (selfstudy_point != nullptr) std::memset(selfstudy_point, 0, SELFSTUDY_STORE_BYTES);
    }

private:
    template <class T>
    struct is_atomic : std::false_type {};
    template <class T>
    struct is_atomic<std::atomic<T>> : std::true_type {};

    template <class... Globals>
    void keep(Globals&... globals) {
        (keep_one(globals), ...);
    }
    template <class T>
    void keep_one(T& global) {
        if constexpr (is_atomic<T>::value) {
            const auto value = global.load();
            restores_.emplace_back([&global, value] { global.store(value); });
        } else {
            static_assert(std::is_trivially_copyable_v<T>);
            std::vector<char> bytes(sizeof(T));
            std::memcpy(bytes.data(), &global, sizeof(T));
            restores_.emplace_back([&global, bytes] {
                std::memcpy(static_cast<void*>(&global), bytes.data(), sizeof(T));
            });
        }
    }

    std::vector<std::function<void()>> restores_;
};

const LoadTimeGlobals& load_time_globals() {
    static const LoadTimeGlobals globals;
    return globals;
}
// Taken at load, before any test runs.
[[maybe_unused]] const LoadTimeGlobals& taken_at_load = load_time_globals();

// Every global of the service back at its load-time value; the self-study memory stays
// allocated, cleared, so that tests do not leak it.
void reset_service_globals() {
    load_time_globals().restore();
}

}  // namespace

std::string data_file(const std::string& name) {
    std::ifstream in(std::string(ZOOMAF_DATA_DIR) + "/" + name, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    if (!in) ADD_FAILURE() << "cannot read data/" << name;
    return content.str();
}

bool service_lock_free() {
    if (pthread_mutex_trylock(&motro_safe_lock) != 0) return false;
    unlock();
    return true;
}

void TwinTest::SetUp() {
    for (int i = 0; i < 3; ++i) sigaction(kFatalSignals[i], nullptr, &saved_handlers_[i]);
    reset_service_globals();
    board_ = std::make_unique<twin::Board>(board_config());
    recorder_ = std::make_unique<twin::RecordingPlatform>(*board_);
    install_platform(recorder_.get());
}

void TwinTest::TearDown() {
    laser_.reset();
    // The motor driver keeps the SPI device open for the life of the process.
    if (gSpiDev.fd >= 0) board_->close(gSpiDev.fd);
    check_recorded_faults();
    EXPECT_EQ(board_->open_descriptors(), 0u) << "descriptors left open on the board";
    EXPECT_TRUE(service_lock_free()) << "the service lock is left taken";
    EXPECT_EQ(selfstudy_info_write_lock, 0) << "the self-study write lock is left taken";
    check_positions();
    install_platform(nullptr);
    reset_service_globals();
    // InitGlobalClearinfo installs the service's fatal-signal handler; a crash in a later
    // test must still be reported as a crash.
    for (int i = 0; i < 3; ++i) sigaction(kFatalSignals[i], &saved_handlers_[i], nullptr);
}

void TwinTest::check_recorded_faults() {
    std::set<twin::FaultKind> seen;
    for (const twin::RecordedFault& fault : board_->faults()) {
        seen.insert(fault.kind);
        EXPECT_TRUE(expected_faults_.count(fault.kind) != 0)
            << "the hardware recorded " << twin::fault_kind_name(fault.kind) << " at "
            << fault.time_ns << " ns: " << fault.text
            << " (a test that provokes it declares expect_fault)";
    }
    for (twin::FaultKind kind : expected_faults_) {
        EXPECT_TRUE(seen.count(kind) != 0)
            << "expected fault not recorded: " << twin::fault_kind_name(kind);
    }
}

void TwinTest::check_positions() {
    if (gRunData.running != 0 || position_error_ < 0) return;
    for (twin::Motor motor : {twin::Motor::zoom, twin::Motor::focus}) {
        const auto [position, moved] = with<twin::LensMotor>(motor, [](const twin::LensMotor& m) {
            return std::pair(m.position(), m.steps_moved() + m.clamped_pulses() > 0);
        });
        if (!moved) continue;
        const int driver = gRunData.motor[static_cast<int>(motor)].cur_steps;
        EXPECT_LE(std::abs(position - driver), position_error_)
            << (motor == twin::Motor::zoom ? "zoom" : "focus") << ": the driver says " << driver
            << ", the motor stands at " << position
            << " (a test that provokes it declares expect_position_error)";
    }
}

void TwinTest::bring_up_driver(uint8_t motor_id) {
    quietly([&] {
        InitAttr(10);
        ASSERT_EQ(InitSpi(), 0);
        InitGPIO(motor_id);
        InitReg();
    });
    with<twin::DriverChip>([](twin::DriverChip& chip) { chip.clear_register_writes(); });
    recorder().clear();
}

void TwinTest::place(const char* path, Placed what, const std::string& text) {
    const std::string real = board().sandbox_path(path);
    std::filesystem::remove_all(real);
    std::filesystem::create_directories(std::filesystem::path(real).parent_path());
    switch (what) {
        case Placed::text:
            board().write_file(path, text);
            return;
        case Placed::directory:
            ASSERT_EQ(::mkdir(real.c_str(), 0755), 0);
            return;
        case Placed::fifo:
            ASSERT_EQ(::mkfifo(real.c_str(), 0644), 0);
            return;
        case Placed::link_to_dev_zero:
            ASSERT_EQ(::symlink("/dev/zero", real.c_str()), 0);
            return;
    }
}

int TwinTest::motor_at(twin::Motor motor) {
    return with<twin::LensMotor>(motor, [](const twin::LensMotor& m) { return m.position(); });
}

void TwinTest::place_motor(twin::Motor motor, int position) {
    with<twin::LensMotor>(motor, [&](twin::LensMotor& m) { m.set_position(position); });
}

uint16_t TwinTest::chip_reg(int addr) {
    return with<twin::DriverChip>([&](const twin::DriverChip& chip) { return chip.reg(addr); });
}

uint64_t TwinTest::vd_pulses() {
    return with<twin::DriverChip>([](const twin::DriverChip& chip) { return chip.vd_pulses(); });
}

uint8_t TwinTest::sensor_reg(uint16_t addr) {
    return with<twin::Imx586>([&](const twin::Imx586& sensor) { return sensor.byte(addr); });
}

std::vector<std::pair<uint16_t, uint8_t>> TwinTest::sensor_writes() {
    std::vector<std::pair<uint16_t, uint8_t>> all;
    with<twin::Imx586>([&](const twin::Imx586& sensor) {
        for (const auto& w : sensor.writes()) all.emplace_back(w.addr, w.value);
    });
    return all;
}

std::vector<twin::I2cTransferRecord> TwinTest::i2c_transfers(int bus) {
    return with<twin::I2cBus>(bus, [](const twin::I2cBus& b) { return b.transfers(); });
}

uint64_t TwinTest::slept_ns() {
    return with<twin::Clock>([](const twin::Clock& clock) { return clock.slept_ns(); });
}

void TwinTest::start_focus_service() {
    for (const char* name : {LENS_TABLE_FILE, IMX586_DCC_FILE})
        board().write_file(name, data_file(name));
    quietly([] {
        ASSERT_EQ(ReadAFTXT(), READ_AFTXT_OK);
        ASSERT_EQ(VrelShareManInit(&LaserMenManHandle, VREL_LASER_CHANNEL), 0);
        InitPDSetting();
    });
}

void TwinTest::start_motors(float multiple) {
    quietly([&] {
        UnInitmotor();
        VerificationSetMotordevInit(multiple);
    });
    ASSERT_EQ(init_motor_status, 0);
    if (position_error_ >= 0 && position_error_ < 2) position_error_ = 2;
}

twin::Laser& TwinTest::laser_on(uint16_t decimetres) {
    if (!laser_) laser_.emplace(board());
    laser_->set_no_echo(decimetres == LASER_NO_ECHO);
    if (decimetres != LASER_NO_ECHO) laser_->set_distance(decimetres);
    last_laser = decimetres;
    board().sleep_ns(100'000'000);
    return *laser_;
}

}  // namespace zoomaf::test
