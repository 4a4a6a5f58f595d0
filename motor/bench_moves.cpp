// Bench helpers of the driver: the motors' driving force and a plain test move.
#include "motor/motor_internal.hpp"
#include "zoomaf/lib_motor.h"

extern "C" {

// Takes effect when Initmotor next writes the default registers: call it before.
void SetMotorDrivingForce(uint8_t percent) {
    std::printf("set Motor Driving Force Percent is %d. \n", percent);
    int duty;
    if (percent <= 200) {
        std::printf("set Motor Driving Force Percent %02f.\n", percent / 100.0);
        duty = percent * 128 / 100;
        // 200 % would be 256, which does not fit the register byte: the strongest drive it
        // can hold is 255, as above 200 %.
        if (duty > 255) duty = 255;
    } else {
        std::puts("set Motor Driving Force Percent > 2.0");
        duty = 255;
    }
    for (uint8_t* entry : reg_motor) {
        if (entry[0] == 0x28 || entry[0] == 0x23) {
            entry[1] = static_cast<uint8_t>(duty);
            entry[2] = static_cast<uint8_t>(duty);
        }
    }
    REG_ADDR_PPW_F = static_cast<uint8_t>(duty);
    REG_ADDR_PPW_Z = static_cast<uint8_t>(duty);
    std::printf("set Motor Driving Force value is %d\n", duty);
}

// Runs steps / psum single periods of one motor, reading its PI before each. Steps 0 means
// the default travel of that motor and direction.
int TestMotors(uint8_t motor, uint8_t dir_flag, uint16_t steps, uint16_t intct) {
    if (motor > MOTOR_FOCUS) return -1;
    if (steps == 0) {
        static constexpr uint16_t kDefaultSteps[2][2] = {{300, 778}, {477, 421}};
        steps = kDefaultSteps[motor][dir_flag != 0 ? 1 : 0];
    }
    const uint8_t psum = steps < 8 ? 1 : 8;
    if (intct < 10) intct = 400;
    const uint8_t dir =
        motor == MOTOR_ZOOM ? uint8_t(dir_flag == 0 ? 1 : 0) : uint8_t(dir_flag != 0 ? 1 : 0);
    SetMotorPWM(motor, 0);
    for (int period = 0; period < steps / psum; ++period) {
        if (Gpio_GetValue(zoomaf::motor::pi_gpio(motor)) == -1)
            MOTOR_LOG("motor id: %d, read gpio error\n", motor);
        StartMotorRun(psum, intct, dir, motor);
    }
    SetMotorPWM(motor, 1);
    return 0;
}

}  // extern "C"
