// The driver's GPIO lines through sysfs: RK3588 pin names, export, direction, polarity and
// value. Files are opened and closed on every access; no descriptor is cached.
#include <fcntl.h>

#include <cstdio>
#include <cstring>

#include "motor/motor_internal.hpp"
#include "platform/platform.hpp"
#include "zoomaf/lib_motor.h"

namespace {

constexpr const char* kGpioExport = "/sys/class/gpio/export";

// Opens, writes exactly n bytes, closes. Returns false (after the caller's message) when the
// file could not be opened; reports a short or failed write with write_error.
bool write_gpio_file(const char* path, int flags, const void* data, size_t n,
                     const char* open_error, void (*write_error)(uint32_t), uint32_t gpio) {
    zoomaf::Platform& os = zoomaf::platform();
    const int fd = os.open(path, flags);
    if (fd < 0) {
        if (open_error != nullptr) std::puts(open_error);
        return false;
    }
    if (os.write(fd, data, n) < 0) write_error(gpio);
    os.close(fd);
    return true;
}

}  // namespace

extern "C" {

int RK3588_GPIO(const char* name) {
    if (name == nullptr || std::strcmp(name, "GPIO") == 0) {
        std::puts("it`s not gpio!!\r");
        return -1;
    }
    // Positional: "GPIO" bank '_' group pin; nothing else is examined. A name shorter than
    // that reads as a zero character where it ends (a group error), never past its end.
    const size_t length = strnlen(name, 8);
    const auto at = [&](size_t i) { return i < length ? name[i] : '\0'; };
    const int bank = at(4) - '0';
    int group;
    switch (at(6)) {
        case 'A':
            group = 0;
            break;
        case 'B':
            group = 1;
            break;
        case 'C':
            group = 2;
            break;
        case 'D':
            group = 3;
            break;
        default:
            std::puts("GPIO GROUP ERROR!!\r");
            return -1;
    }
    const int pin = at(7) - '0';
    const int number = (bank * 4 + group) * 8 + pin;
    std::printf("\n %s gpio pin is %d ", name, number);
    return number;
}

void Gpio_SetGpio(uint32_t gpio) {
    char port[8] = {0};
    std::snprintf(port, sizeof port, "%u", gpio);
    if (static_cast<uint8_t>(Gpio_GetValue(gpio)) != 255) return;  // already exported
    zoomaf::Platform& os = zoomaf::platform();
    const int fd = os.open(kGpioExport, O_WRONLY);
    if (fd < 0) {
        std::puts("export open filed");
        return;
    }
    MOTOR_LOG("port: %s\n", port);
    // Exactly 3 bytes: a two-digit number goes out with its terminating zero.
    if (os.write(fd, port, 3) < 0) std::printf("Failed to gpio(%d) write port!\n", int(gpio));
    os.close(fd);
}

void Gpio_SetDirection(uint32_t gpio, uint8_t direction) {
    char path[64];
    std::snprintf(path, sizeof path, "/sys/class/gpio/gpio%u/direction", gpio);
    const char* text = direction == 1 ? "out" : "in";  // "in" goes out with its zero byte
    write_gpio_file(
        path, O_WRONLY, text, 3, "direction open filed",
        [](uint32_t g) { std::printf("Failed to gpio(%d) write direction!\n", int(g)); }, gpio);
}

void Gpio_SetActive(uint32_t gpio, uint8_t active_low) {
    char path[64];
    std::snprintf(path, sizeof path, "/sys/class/gpio/gpio%u/active_low", gpio);
    const char text[3] = {active_low == 1 ? '1' : '0', 0, 0};
    write_gpio_file(
        path, O_WRONLY, text, 3, "active_low open filed",
        [](uint32_t g) { std::printf("Failed to gpio(%d) write active_low!\n", int(g)); }, gpio);
}

void Gpio_SetValue(uint32_t gpio, uint16_t value) {
    char path[64];
    std::snprintf(path, sizeof path, "/sys/class/gpio/gpio%u/value", gpio);
    const char level = value == 1 ? '1' : '0';
    if (!write_gpio_file(
            path, O_RDWR, &level, 1, nullptr, [](uint32_t) { std::puts("Failed to write value!"); },
            gpio)) {
        // The text says "reading" for a write; it is the system's message.
        MOTOR_LOG("SetGPIO, Failed to open gpio: %d, value for reading!\n", int(gpio));
    }
}

int GetGpioValue(uint32_t gpio) {
    char path[64];
    std::snprintf(path, sizeof path, "/sys/class/gpio/gpio%u/value", gpio);
    zoomaf::Platform& os = zoomaf::platform();
    const int fd = os.open(path, O_RDONLY);
    if (fd < 0) {
        MOTOR_LOG("GetGPIO, Failed to open gpio(%d) value for reading!\n", int(gpio));
        return -1;
    }
    char level = 0;
    if (os.read(fd, &level, 1) != 1) {
        std::printf("Failed to read gpio(%d) value!\n", int(gpio));
        os.close(fd);
        return -1;
    }
    os.close(fd);
    return level - '0';
}

// Two reads, the second one counts; a failed read waits 15 µs more.
int Gpio_GetValue(uint32_t gpio) {
    int8_t value = -1;
    for (int attempt = 0; attempt < 2; ++attempt) {
        value = static_cast<int8_t>(GetGpioValue(gpio));
        if (value == -1) nSleep(15000);
        nSleep(3000);
    }
    return value;
}

}  // extern "C"
