// Bringing the driver up: the SPI and run-state defaults, the SPI device, the GPIO lines
// and the default registers; and the photo-interrupter reading used by runs and homing.
#include <fcntl.h>
#include <linux/spi/spidev.h>

#include <cstring>

#include <initializer_list>

#include "motor/motor_internal.hpp"
#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

namespace zoomaf::motor {

uint16_t pi_gpio(uint8_t motor) {
    return motor == MOTOR_ZOOM ? gSpiDev.pi_zoom_gpio : gSpiDev.pi_focus_gpio;
}

}  // namespace zoomaf::motor

extern "C" {

void InitAttr(uint16_t vd_ms) {
    gSpiDev.fd = -1;
    gSpiDev.speed = 6000000;
    gSpiDev.bits = 8;
    gSpiDev.delay = 0;
    gSpiDev.mode = SPI_LSB_FIRST;
    gSpiDev.cs_gpio = static_cast<uint16_t>(RK3588_GPIO("GPIO3_D0"));
    gSpiDev.vd_zoom_gpio = static_cast<uint16_t>(RK3588_GPIO("GPIO0_D2"));
    gSpiDev.vd_focus_gpio = static_cast<uint16_t>(RK3588_GPIO("GPIO0_D2"));
    gSpiDev.pi_zoom_gpio = static_cast<uint16_t>(RK3588_GPIO("GPIO0_C6"));
    gSpiDev.pi_focus_gpio = static_cast<uint16_t>(RK3588_GPIO("GPIO0_D0"));
    gSpiDev.vd_ms = vd_ms < 10 ? 10 : vd_ms;
    std::strcpy(gSpiDev.device, "/dev/spidev1.0");

    gRunData.multiple_cur = 0;
    gRunData.motor[MOTOR_ZOOM].steps_vd = 16;
    gRunData.motor[MOTOR_FOCUS].steps_vd = 8;
    for (MotorRunState& motor : gRunData.motor) {
        motor.compen_steps_forward = 2;
        motor.compen_steps_backward = 2;
    }
    gRunData.init_flag = 1;
}

int InitSpi(void) {
    zoomaf::Platform& os = zoomaf::platform();
    if (gSpiDev.fd == -1) {
        gSpiDev.fd = os.open(gSpiDev.device, O_RDWR);
        if (gSpiDev.fd < 0) {
            gSpiDev.fd = -1;
            std::printf("init spi, can't open device: %s\n", gSpiDev.device);
            return -1;
        }
    }
    // Each request reports its own failure; only the last one decides the result.
    int ret = os.ioctl(gSpiDev.fd, SPI_IOC_WR_MODE32, &gSpiDev.mode);
    if (ret == -1) std::printf("can't set spi mode");
    ret = os.ioctl(gSpiDev.fd, SPI_IOC_RD_MODE32, &gSpiDev.mode);
    if (ret == -1) std::printf("can't get spi mode");
    ret = os.ioctl(gSpiDev.fd, SPI_IOC_WR_BITS_PER_WORD, &gSpiDev.bits);
    if (ret == -1) std::printf("can't set bits per word");
    ret = os.ioctl(gSpiDev.fd, SPI_IOC_RD_BITS_PER_WORD, &gSpiDev.bits);
    if (ret == -1) std::printf("can't get bits per word");
    ret = os.ioctl(gSpiDev.fd, SPI_IOC_WR_MAX_SPEED_HZ, &gSpiDev.speed);
    if (ret == -1) std::printf("can't set max speed hz");
    ret = os.ioctl(gSpiDev.fd, SPI_IOC_RD_MAX_SPEED_HZ, &gSpiDev.speed);
    if (ret == -1) std::printf("can't get max speed hz");
    return ret == -1 ? -1 : 0;
}

// Motor id 1 (MS41928) reads the photo-interrupters active-high, 2 (MS41908) active-low;
// other ids leave the polarity as it is.
void InitGPIO(uint8_t motor_id) {
    for (uint16_t output : {gSpiDev.cs_gpio, gSpiDev.vd_zoom_gpio, gSpiDev.vd_focus_gpio}) {
        Gpio_SetGpio(output);
        Gpio_SetDirection(output, 1);
    }
    for (uint16_t input : {gSpiDev.pi_zoom_gpio, gSpiDev.pi_focus_gpio}) {
        Gpio_SetGpio(input);
        Gpio_SetDirection(input, 0);
    }
    if (motor_id == 1) {
        Gpio_SetActive(gSpiDev.pi_zoom_gpio, 0);
        MOTOR_LOG("init gpio zoom ip is low 0\n");
        Gpio_SetActive(gSpiDev.pi_focus_gpio, 0);
        MOTOR_LOG("init gpio focus ip is low 0\n");
    } else if (motor_id == 2) {
        Gpio_SetActive(gSpiDev.pi_zoom_gpio, 1);
        Gpio_SetActive(gSpiDev.pi_focus_gpio, 1);
    }
}

uint32_t InitReg(void) {
    for (int i = 0; i < REG_MOTOR_ENTRIES; ++i) {
        const uint8_t addr = reg_motor[i][0];
        const uint16_t value = static_cast<uint16_t>(reg_motor[i][1] << 8 | reg_motor[i][2]);
        Spi_WriteReg(gSpiDev.fd, gSpiDev.cs_gpio, addr, value);
        zoomaf::platform().sleep_ns(10000);  // usleep(10)
        const uint32_t read_back = Spi_ReadReg(gSpiDev.fd, gSpiDev.cs_gpio, addr + 0x40);
        if (read_back != value) {
            MOTOR_LOG(
                "Spi_RW err, (%d/%d) fd:%d, gpio:%d, %s, addr: 0x%02x, setval: 0x%04x, getval: "
                "0x%04x\n",
                i, REG_MOTOR_ENTRIES, gSpiDev.fd, gSpiDev.cs_gpio, "/dev/spidev1.0", addr + 0x40,
                value, read_back);
        }
    }
    SetReg_Intct(400, MOTOR_ZOOM);
    return SetReg_Intct(400, MOTOR_FOCUS);
}

int GetCurGPIO(uint8_t motor) {
    if (motor > MOTOR_FOCUS) return 2;
    const int level = Gpio_GetValue(zoomaf::motor::pi_gpio(motor));
    if (level == -1) {
        MOTOR_LOG("motor id: %d, read gpio error 1\n", motor);
        return 2;
    }
    return level;
}

}  // extern "C"
