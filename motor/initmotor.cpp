// Initmotor: identifies the module's driver type from the module memory, brings up SPI,
// GPIO and the default registers, and optionally homes both motors. UnInitmotor releases
// everything.
#include <cstring>

#include "motor/motor_internal.hpp"
#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

MotorDriverVersion msVersion;
ModuleVersion moVersion;
uint8_t lastdirection[2];
uint32_t curteps;

// The helpers below report as part of Initmotor.
#define INIT_LOG(fmt, ...) std::printf("[%s] [%d] " fmt, "Initmotor", __LINE__, ##__VA_ARGS__)

namespace {

// The module memory: I2C bus 9, device 0x50.
constexpr int kModuleBus = 9;
constexpr uint8_t kModuleMemory = 0x50;
constexpr uint16_t kModuleValidAddr = 0x0000;
constexpr uint16_t kModuleMotorIdAddr = 0x0001;

void use_ms41928_channels() {
    reg_addr_psum_f = 0x24;
    reg_addr_intct_f = 0x25;
    reg_addr_psum_z = 0x29;
    reg_addr_intct_z = 0x2A;
}

void use_ms41908_channels() {
    reg_addr_psum_f = 0x29;
    reg_addr_intct_f = 0x2A;
    reg_addr_psum_z = 0x24;
    reg_addr_intct_z = 0x25;
}

uint8_t read_module_motor_id() {
    uint8_t id = 0;
    read_imx586_eeprom_reg(kModuleBus, kModuleMemory, kModuleMotorIdAddr, &id);
    INIT_LOG("module motor id addr is 0x%04x read data is 0x%02x.\n", kModuleMotorIdAddr, id);
    return id;
}

// Chooses the channel layout from the module memory. Returns the motor id that sets the
// photo-interrupter polarity, and sets `status` bit 1 when the module is not recognised.
uint8_t identify_driver(uint32_t& status) {
    use_ms41928_channels();  // the built-in default, also when the module is not recognised
    uint8_t valid = 0;
    read_imx586_eeprom_reg(kModuleBus, kModuleMemory, kModuleValidAddr, &valid);
    INIT_LOG("module infomation valid addr is 0x%04x, read data is 0x%02x.\n", kModuleValidAddr,
             valid);
    zoomaf::platform().sleep_ns(10000000);

    if (valid == 1) {
        const uint8_t id = read_module_motor_id();
        if (id == 1) {
            use_ms41928_channels();
            moVersion.motor_id = MOTOR_ID_MS41928;
            std::printf("\r\n\r\n\r\n[%s] [%d] motor is ms41928!motor_id is %d\r\n\r\n\r\n",
                        "Initmotor", __LINE__, MOTOR_ID_MS41928);
            return MOTOR_ID_MS41928;
        }
        if (id == 2 || id == 3 || id == 16) {
            use_ms41908_channels();
            moVersion.motor_id = MOTOR_ID_MS41908;
            std::printf(
                "\r\n\r\n\r\nmotor is ms41908!motor_id is %d, readdata eeprom is %d. \r\n\r\n\r\n",
                MOTOR_ID_MS41908, id);
            return MOTOR_ID_MS41908;
        }
        for (int i = 0; i < 3; ++i)
            INIT_LOG("eeprom Invalid is 1, Module ID fail, user MS41928 config!\n");
    } else if (valid == 2 || valid == 3 || valid == 16) {
        const uint8_t id = read_module_motor_id();
        if (id == 2) {
            use_ms41908_channels();
            moVersion.motor_id = MOTOR_ID_MS41908;
            std::printf("\r\n\r\n\r\nmotor is ms41908!motor_id is %d\r\n\r\n\r\n",
                        MOTOR_ID_MS41908);
            return MOTOR_ID_MS41908;
        }
        for (int i = 0; i < 3; ++i)
            INIT_LOG("eeprom Invalid is 2, Module ID fail, user MS41928 config!\n");
    } else {
        for (int i = 0; i < 3; ++i) INIT_LOG("eeprom is Invalid, user MS41928 config!\n");
        status |= INITMOTOR_MODULE_INVALID;
        moVersion.motor_id = 0;
        return MOTOR_ID_MS41928;
    }
    // A valid byte with an unknown motor id: the registers keep the MS41928 layout, only the
    // photo-interrupter polarity follows motor id 2.
    status |= INITMOTOR_MODULE_INVALID;
    moVersion.motor_id = 0;
    return MOTOR_ID_MS41908;
}

}  // namespace

extern "C" {

uint32_t Initmotor(uint16_t vd_ms, uint8_t home) {
    msVersion = {3576, REG_MOTOR_ENTRIES, 11};
    uint32_t status = 0;
    MOTOR_LOG("start init motorn get motor version\n");
    const uint8_t motor_id = identify_driver(status);

    MOTOR_LOG("start InitMOTOR, ZOOM Duty cycle is %02f; FOCUS Duty cycle is %02f.\r\n",
              REG_ADDR_PPW_Z / 128.0, REG_ADDR_PPW_F / 128.0);
    InitAttr(vd_ms);
    if (InitSpi() == -1) status |= INITMOTOR_SPI_FAILED;
    InitGPIO(motor_id);
    LoadParamList();
    InitReg();
    if (home != 0) {
        switch (InitPI(255)) {
            case -1:
                status |= INITMOTOR_ZOOM_HOMING_FAILED;
                break;
            case -2:
                status |= INITMOTOR_FOCUS_HOMING_FAILED;
                break;
            case -3:
                status |= INITMOTOR_BOTH_HOMING_FAILED;
                break;
            default:
                break;
        }
    }
    const ModuleVersion version = GetVersion();
    MOTOR_LOG("PCB version is %d, code version is %d.%d\n", int(version.pcb_version),
              int(version.code_major), int(version.code_minor));
    MOTOR_LOG("InitMOTOR, end\n");
    return status;
}

void UnInitmotor(void) {
    if (gSpiDev.fd != -1) {
        zoomaf::platform().close(gSpiDev.fd);
        gSpiDev.fd = -1;
    }
    // Afterwards every record is zero: the descriptor field then holds 0, not -1.
    std::memset(&gSpiDev, 0, sizeof gSpiDev);
    std::memset(&gRunData, 0, sizeof gRunData);
    std::memset(&gFocusParam, 0, sizeof gFocusParam);
    curteps = 0;
    std::memset(lastdirection, 0, sizeof lastdirection);
}

ModuleVersion GetVersion(void) {
    moVersion.pcb_version = msVersion.pcb_version;
    moVersion.code_major = 1;
    moVersion.code_minor = 8;
    return moVersion;
}

}  // extern "C"
