// The digital twin of the camera board: a virtual kernel behind the platform seam.
//
// Service face (the Platform methods): descriptors, files mapped into a sandbox, device
// nodes (/dev/spidev1.0 with the lens motor driver chip behind it, sysfs GPIO, the I2C
// buses /dev/i2c-2 and /dev/i2c-9 with the module EEPROM), System V IPC with salted keys,
// and a virtual clock. Control face (everything else): what tests,
// the bench and the scenario runner use to set the physical state, inject faults and
// observe what the service commanded.
//
// All state sits behind one board mutex, so the service may call the board from any of
// its threads. Only a blocking semop and a real-time sleep run outside it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/platform.hpp"
#include "twin/clock.hpp"
#include "twin/device.hpp"
#include "twin/faults.hpp"
#include "twin/file_table.hpp"
#include "twin/gpio_sysfs.hpp"
#include "twin/i2c_bus.hpp"
#include "twin/i2c_device.hpp"
#include "twin/imx586.hpp"
#include "twin/ipc.hpp"
#include "twin/lens_motor.hpp"
#include "twin/module_eeprom.hpp"
#include "twin/ms41908.hpp"
#include "twin/periodic_events.hpp"
#include "twin/sandbox.hpp"
#include "twin/sensor_id.hpp"
#include "twin/spidev.hpp"
#include "twin/voice_coil.hpp"

namespace zoomaf::twin {

struct BoardConfig {
    uint64_t seed = 1;  // everything random is drawn from this seed
    DriverType driver = DriverType::ms41928;
    // Members without a default initializer would make -Wextra warn on designated
    // initializers that leave them out.
    std::string sandbox{};  // empty: a fresh mkdtemp dir, removed with the board
    std::optional<int> zoom_start{}, focus_start{};  // physical start positions; default seeded
    // The module EEPROM's identification bytes (0x0000 valid, 0x0001 motor id); by default
    // those of a sound module with this driver: valid 1, motor id 1 (MS41928) or 2 (MS41908).
    std::optional<uint8_t> module_valid{}, module_motor_id{};
};

class Board : public zoomaf::Platform {
public:
    // GPIO lines of the module: driver chip select (GPIO3_D0), VD (GPIO0_D2) and the
    // photo-interrupters of zoom (GPIO0_C6) and focus (GPIO0_D0).
    static constexpr int kChipSelectGpio = 120;
    static constexpr int kVdGpio = 26;
    static constexpr int kZoomPiGpio = 22;
    static constexpr int kFocusPiGpio = 24;
    // I2C: the sensor's identification registers sit on bus 2; the sensor, the lens
    // voice-coil driver and the module EEPROM on bus 9.
    static constexpr int kSensorIdBus = 2;
    static constexpr int kModuleBus = 9;

    explicit Board(BoardConfig config = {});
    ~Board() override;
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // ---- service face ----
    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buf, size_t n) override;
    ssize_t write(int fd, const void* buf, size_t n) override;
    int ioctl(int fd, unsigned long request, void* arg) override;
    int access(const char* path, int mode) override;
    // A real FILE* on the sandbox file; device nodes cannot be opened this way (ENXIO).
    FILE* fopen(const char* path, const char* mode) override;
    // Both paths map into the sandbox; nothing under /dev or /sys can be renamed (EPERM).
    int rename(const char* from, const char* to) override;
    // Flushes the real sandbox file behind the descriptor; EINVAL on a device node.
    int fsync(int fd) override;
    // The board's working directory: "/", the sandbox root.
    char* getcwd(char* buf, size_t size) override;
    int shmget(key_t key, size_t size, int flags) override;
    void* shmat(int id, const void* addr, int flags) override;
    int semget(key_t key, int nsems, int flags) override;
    int semctl(int id, int num, int cmd, int arg) override;
    int semop(int id, sembuf* ops, size_t nops) override;
    // Virtual mode: advances the clock by ns. Real-time mode: sleeps ns / speed from the
    // call on, to within a few microseconds (see kSpinGuardNs). A sleep fault returns -1
    // with the rule's errno, sleeps nothing and is not counted.
    int sleep_ns(uint64_t ns) override;
    timespec monotonic() override;
    timeval wall() override;

    // ---- control face: files and devices ----
    // Real path behind a board path (absolute, or relative to the board's working dir).
    std::string sandbox_path(const char* path) const;
    // Writes a sandbox file, creating its directories. Throws std::runtime_error on failure.
    void write_file(const char* path, std::string_view content);
    // The content of a sandbox file, or nullopt when it cannot be read.
    std::optional<std::string> read_file(const char* path) const;
    size_t open_descriptors() const;
    // Registers another device node (I2C buses, ...). Its calls run under the board mutex.
    void add_device(const char* path, std::shared_ptr<DeviceNode> node);

    // ---- control face: IPC ----
    key_t salted_key(key_t key) const;

    // ---- control face: clock ----
    uint64_t now_ns() const;  // the virtual CLOCK_MONOTONIC in ns (starts at 1000 s)
    uint64_t slept_ns() const;
    uint64_t sleep_calls() const;
    void advance_ns(uint64_t ns);
    // Throws std::invalid_argument when speed is not positive.
    void set_real_time(double speed);
    void set_virtual_time();
    // Calls callback(now) every period_ns (> 0) of board time, first one period from now:
    // in the thread whose sleep (or advance_ns) moved the clock past the due time, after the
    // board mutex is released, one thread at a time. Returns the id for cancel_periodic.
    // Throws std::invalid_argument on a period of 0.
    int add_periodic(uint64_t period_ns, PeriodicEvents::Callback callback);
    // Waits for a running callback to finish, then forgets the event. Not from a callback.
    void cancel_periodic(int id);

    // ---- control face: GPIO (line 0..159; throws std::out_of_range otherwise) ----
    std::vector<GpioEdge> gpio_edges(int line) const;
    int gpio_physical(int line) const;
    bool gpio_exported(int line) const;
    bool gpio_active_low(int line) const;
    bool gpio_direction_out(int line) const;

    // ---- control face: SPI controller ----
    uint32_t spi_mode() const;
    uint8_t spi_bits_per_word() const;
    uint32_t spi_max_speed_hz() const;

    // ---- control face: driver chip (addr 0x00..0x3F; throws std::out_of_range) ----
    uint16_t chip_register(int addr) const;
    void set_chip_register(int addr, uint16_t value);
    std::vector<RegisterWrite> register_writes() const;
    void clear_register_writes();
    uint64_t vd_pulses() const;
    uint64_t timing_faults() const;
    // All the hardware noticed, by time: the driver chip's faults (timing and others) and
    // the misuse the I2C devices recorded.
    std::vector<RecordedFault> faults() const;

    // ---- control face: motors and photo-interrupters ----
    DriverType driver() const;
    int motor_position(Motor motor) const;
    // Throws std::out_of_range beyond the end stops.
    void set_motor_position(Motor motor, int position);
    uint64_t motor_steps_moved(Motor motor) const;
    uint64_t clamped_pulses(Motor motor) const;
    // Holds a photo-interrupter's raw line at a level; std::nullopt releases it.
    void set_pi_stuck(Motor motor, std::optional<int> raw_level);

    // ---- control face: I2C buses (bus >= 0; an unknown bus throws std::out_of_range) ----
    // Builds a Device(board clock, args...) and wires it to a bus at a 7-bit address,
    // creating /dev/i2c-<bus> when needed. Throws std::logic_error when the address is
    // taken, std::invalid_argument when it is reserved (outside 0x08..0x77). The bus calls
    // the device under the board mutex: read its state while no thread of the service runs.
    template <typename Device, typename... Args>
    std::shared_ptr<Device> make_i2c_device(int bus, int addr, Args&&... args) {
        auto device = std::make_shared<Device>(clock_, std::forward<Args>(args)...);
        attach_i2c_device(bus, addr, device);
        return device;
    }
    // An absent device NAKs its address (ENXIO) and keeps its state until it is back.
    // Throws std::out_of_range when no device is at bus/addr.
    void set_i2c_present(int bus, int addr, bool present);
    // Every transfer that reached the bus (failed ones included), in order.
    std::vector<I2cTransferRecord> i2c_transfers(int bus) const;
    void clear_i2c_transfers(int bus);

    // ---- control face: module EEPROM (addr 0x0000..0x1FFF; throws std::out_of_range) ----
    uint8_t eeprom_byte(int addr) const;
    void set_eeprom_byte(int addr, uint8_t value);
    std::vector<I2cRegisterWrite> eeprom_writes() const;

    // ---- control face: the camera module's sensor side ----
    // The IMX586 (bus 9), its identification registers (bus 2) and the lens voice-coil
    // driver (bus 9): f gets the device's own control face and runs under the board mutex,
    // so it must not call the board. Returns what f returns.
    template <typename F>
    decltype(auto) imx586(F&& f) {
        std::lock_guard lock(mutex_);
        return f(*imx586_);
    }
    template <typename F>
    decltype(auto) sensor_id(F&& f) {
        std::lock_guard lock(mutex_);
        return f(*sensor_id_);
    }
    template <typename F>
    decltype(auto) voice_coil(F&& f) {
        std::lock_guard lock(mutex_);
        return f(*voice_coil_);
    }

    // ---- control face: injected faults ----
    // Throws std::invalid_argument on a rule that cannot apply.
    void inject(FaultRule rule);
    void clear_faults();
    std::vector<std::string> injected_faults() const;  // one line per delivered fault

private:
    std::optional<int> injected(FaultRule::Op op, const std::string& path);
    LensMotor& motor(Motor m) { return m == Motor::zoom ? zoom_ : focus_; }
    const LensMotor& motor(Motor m) const { return m == Motor::zoom ? zoom_ : focus_; }
    int pi_raw_level(Motor m) const;
    void on_gpio_change(int line, int level);
    void refresh_photo_interrupters();
    I2cBus& i2c_bus(int bus) const;
    I2cBus& add_i2c_bus(int bus);
    void attach_i2c_device(int bus, int addr, std::shared_ptr<I2cDevice> device);
    void run_due_events();  // board mutex not held

    mutable std::mutex mutex_;
    const BoardConfig config_;
    Clock clock_;
    PeriodicEvents periodic_;
    std::atomic<size_t> periodic_count_{0};  // lets sleeps skip the events when there are none
    std::mutex periodic_run_mutex_;          // held while due callbacks run
    Sandbox sandbox_;
    FaultInjector injector_;
    SysvIpc ipc_;
    DeviceTable devices_;
    GpioBank gpio_;
    LensMotor zoom_;
    LensMotor focus_;
    DriverChip chip_;
    std::shared_ptr<SpiDevice> spi_;
    std::array<std::optional<int>, 2> pi_stuck_{};
    std::map<int, std::shared_ptr<I2cBus>> i2c_buses_;
    std::shared_ptr<ModuleEeprom> eeprom_;
    std::shared_ptr<Imx586> imx586_;
    std::shared_ptr<SensorIdRegisters> sensor_id_;
    std::shared_ptr<VoiceCoilDriver> voice_coil_;
    FileTable files_;  // last: open files go before the devices they refer to
};

}  // namespace zoomaf::twin
