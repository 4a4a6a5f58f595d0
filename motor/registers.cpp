// The driver's register model as the service uses it: the default register table, the
// channel register addresses, the psum/intct writes, VD pulses and the period timing.
#include <initializer_list>

#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

uint8_t reg_addr_psum_f = 0x24;
uint8_t reg_addr_intct_f = 0x25;
uint8_t reg_addr_psum_z = 0x29;
uint8_t reg_addr_intct_z = 0x2A;
uint8_t REG_ADDR_PPW_F = 0x80;
uint8_t REG_ADDR_PPW_Z = 0x80;

// Register 0x0B is written twice on purpose: first 0x0080, last 0x0480.
uint8_t reg_motor[REG_MOTOR_ENTRIES][3] = {
    {0x0B, 0x00, 0x80}, {0x20, 0x10, 0x03}, {0x21, 0x00, 0x87}, {0x22, 0x00, 0x02},
    {0x23, 0x5A, 0x5A}, {0x24, 0x1C, 0x00}, {0x25, 0x05, 0x08}, {0x27, 0x00, 0x01},
    {0x28, 0x80, 0x80}, {0x29, 0x1C, 0x00}, {0x2A, 0x02, 0x08}, {0x0A, 0x07, 0xFF},
    {0x00, 0x01, 0xF4}, {0x01, 0x7C, 0x8A}, {0x02, 0x66, 0xF0}, {0x03, 0x00, 0x10},
    {0x04, 0x80, 0xFF}, {0x05, 0x00, 0x04}, {0x0B, 0x04, 0x80}, {0x0E, 0x03, 0x00},
};

MotorRunData gRunData;
FocusParamList gFocusParam;

namespace {

// The psum registers keep the high byte of their default (entry 6 for focus, entry 10 for
// zoom) with bit 8 replaced by the direction.
constexpr int kFocusPsumEntry = 5;
constexpr int kZoomPsumEntry = 9;

uint16_t psum_word(uint8_t psum, uint8_t dir, uint8_t motor) {
    const uint8_t high = reg_motor[motor == MOTOR_ZOOM ? kZoomPsumEntry : kFocusPsumEntry][1];
    const uint8_t with_dir = static_cast<uint8_t>((high & ~1u) | (dir == 1 ? 1u : 0u));
    return static_cast<uint16_t>(with_dir << 8 | psum);
}

}  // namespace

extern "C" {

uint32_t SetReg(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor, uint8_t which) {
    if (motor > MOTOR_FOCUS) return 0xFFFFFFFFu;
    uint8_t addr;
    uint16_t value;
    if (which != 0) {
        addr = motor == MOTOR_ZOOM ? reg_addr_psum_z : reg_addr_psum_f;
        value = psum_word(psum, dir, motor);
    } else {
        addr = motor == MOTOR_ZOOM ? reg_addr_intct_z : reg_addr_intct_f;
        value = intct;
    }
    if (Spi_Write_Reg(gSpiDev.fd, gSpiDev.cs_gpio, addr, value) != 0) return 0xFFFFFFFFu;
    return 101000;
}

uint32_t SetReg_Psum(uint8_t psum, uint8_t dir, uint8_t motor) {
    return SetReg(psum, 0, dir, motor, 1);
}

uint32_t SetReg_Intct(uint16_t intct, uint8_t motor) {
    return SetReg(0, intct, 0, motor, 0);
}

uint32_t SetRunReg(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor) {
    const uint32_t psum_result = SetReg_Psum(psum, dir, motor);
    const uint32_t intct_result = SetReg_Intct(intct, motor);
    if (psum_result == 0xFFFFFFFFu || intct_result == 0xFFFFFFFFu) return 0xFFFFFFFFu;
    return psum_result + intct_result;
}

// Kept as a hook: the run engine and homing switch the drive around every run.
int SetMotorPWM(uint8_t /*motor*/, uint8_t /*on*/) {
    return 0;
}

// One pulse on every selected VD line. Both slots are the same pin on this board, so a
// mask of 3 drives that line twice per phase.
int SetVDGpio(uint8_t motor_mask) {
    for (uint16_t level : {uint16_t{1}, uint16_t{0}}) {
        if (motor_mask & 1) Gpio_SetValue(gSpiDev.vd_zoom_gpio, level);
        if (motor_mask & 2) Gpio_SetValue(gSpiDev.vd_focus_gpio, level);
        if (level == 1) nSleep(1);
    }
    return 1;
}

int SetVDSteps(uint8_t motor, uint16_t steps) {
    if (gRunData.running == 1) return 1;
    if (motor > MOTOR_FOCUS || steps == 0) return 2;
    gRunData.motor[motor].steps_vd = steps < 56 ? steps : 56;
    return 0;
}

// The pulses of one period at a 27 MHz reference with 24 clocks per interval count, plus
// 1 ms of margin.
uint32_t GetTimes(uint8_t psum, uint16_t intct) {
    if (intct == 0) intct = 400;
    return static_cast<uint32_t>(psum * intct * 24 / 27.0 + 1000.0);
}

uint32_t GetOneLoopTimes(uint8_t psum, uint16_t intct) {
    if (intct == 0) intct = 400;
    return static_cast<uint32_t>(psum * intct * 24 / 27.0 + (psum < 8 ? 1000.0 : 500.0));
}

uint32_t SetRegAndRun(uint8_t psum, uint16_t intct, uint8_t dir, uint32_t time_us, uint8_t motor) {
    const uint64_t wait_us = time_us != 0 ? time_us : gSpiDev.vd_ms * 1000u;
    SetRunReg(psum, intct, dir, motor);
    SetVDGpio(static_cast<uint8_t>(motor < 8 ? 1u << motor : 0u));
    zoomaf::motor::sleep_ns(wait_us * 1000 + 1515000);
    return SetRunReg(0, 0, dir, motor);
}

// psum 0 is refused with a warning; the result is then 0.
uint32_t StartMotorRun(uint8_t psum, uint16_t intct, uint8_t dir, uint8_t motor) {
    if (psum < 1) {
        MOTOR_LOG("warn, psum: %d <  1, motorid: %d, dir: %d, vd_ms: %d, order: 0x%X, return\n",
                  psum, motor, dir, gSpiDev.vd_ms, gRunData.motor_order);
        return 0;
    }
    return SetRegAndRun(psum, intct, dir, GetTimes(psum, intct), motor);
}

int GetCurSteps(uint8_t motor) {
    if (motor > MOTOR_FOCUS) return 32767;
    return gRunData.motor[motor].cur_steps;
}

float GetCurMultiple(void) {
    return gRunData.multiple_cur;
}

}  // extern "C"
