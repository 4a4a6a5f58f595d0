#include "twin/board.hpp"

#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "twin/module_calibration.hpp"
#include "twin/random.hpp"

namespace zoomaf::twin {

namespace {

int start_position(std::optional<int> configured, int min, int max, SeededRandom& random) {
    const int drawn = static_cast<int>(random.between(min, max));  // drawn always: stable stream
    return configured.value_or(drawn);
}

template <typename T>
T fail(int error, T result) {
    errno = error;
    return result;
}

// Real-time sleeps are paced to microseconds; the default 50 us timer slack of a thread
// would eat the service's pacing budget.
void tighten_timer_slack() {
    thread_local bool tightened = false;
    if (!tightened) {
        ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
        tightened = true;
    }
}

// A real-time sleep lets the kernel wake it this long before its deadline and spins on the
// clock for the rest. Even with a 1 ns timer slack a sleeping thread wakes 20 to 170 us
// late on the development VMs (milliseconds under load), while the run engine's pacing
// budget is 2 % of an 8 ms VD period, 160 us in all. 200 us covers the usual wake-up
// latency, so the deadline is met by the spin; it costs up to 200 us of CPU per sleep.
constexpr uint64_t kSpinGuardNs = 200'000;

void sleep_until_real(uint64_t deadline_ns) {
    const uint64_t now = Clock::real_monotonic_ns();
    if (deadline_ns > now + kSpinGuardNs) {
        const uint64_t wake = deadline_ns - kSpinGuardNs;
        const timespec at{static_cast<time_t>(wake / 1000000000ull),
                          static_cast<long>(wake % 1000000000ull)};
        // With an absolute time an interrupted sleep simply sleeps again to the same time.
        while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &at, nullptr) == EINTR) {
        }
    }
    while (Clock::real_monotonic_ns() < deadline_ns) {
    }
}

}  // namespace

Board::Board(BoardConfig config)
    : config_(std::move(config)),
      clock_(config_.seed),
      sandbox_(config_.sandbox),
      injector_(config_.seed),
      ipc_(config_.seed),
      gpio_(devices_, clock_),
      zoom_(LensMotor::kZoomMin, LensMotor::kZoomMax, LensMotor::kZoomMin),
      focus_(LensMotor::kFocusMin, LensMotor::kFocusMax, LensMotor::kFocusMin),
      chip_(config_.driver, zoom_, focus_, clock_),
      eeprom_(std::make_shared<ModuleEeprom>(clock_)) {
    SeededRandom random(seed_stream(config_.seed, 4));
    zoom_.set_position(
        start_position(config_.zoom_start, LensMotor::kZoomMin, LensMotor::kZoomMax, random));
    focus_.set_position(
        start_position(config_.focus_start, LensMotor::kFocusMin, LensMotor::kFocusMax, random));

    gpio_.preset_input(kZoomPiGpio, pi_raw_level(Motor::zoom));
    gpio_.preset_input(kFocusPiGpio, pi_raw_level(Motor::focus));
    gpio_.set_listener([this](int line, int level) { on_gpio_change(line, level); });

    spi_ = std::make_shared<SpiDevice>([this](std::span<const uint8_t> tx, std::span<uint8_t> rx) {
        chip_.frame(tx, rx, gpio_.physical(kChipSelectGpio) == 1);
    });
    devices_.add(SpiDevice::kPath, spi_);
    chip_.set_readback_fault([this](int reg) {
        return injector_.check(FaultRule::Op::readback, "", reg, clock_.now_ns()).has_value();
    });

    eeprom_->set_byte(ModuleEeprom::kModuleValidAddr,
                      config_.module_valid.value_or(ModuleEeprom::kModuleValid));
    eeprom_->set_byte(ModuleEeprom::kMotorIdAddr,
                      config_.module_motor_id.value_or(ModuleEeprom::motor_id_of(config_.driver)));
    write_module_calibration(*eeprom_);
    imx586_ = std::make_shared<Imx586>(clock_);
    sensor_id_ = std::make_shared<SensorIdRegisters>(clock_);
    voice_coil_ = std::make_shared<VoiceCoilDriver>(clock_);
    add_i2c_bus(kSensorIdBus).attach(SensorIdRegisters::kAddress, sensor_id_);
    add_i2c_bus(kModuleBus).attach(ModuleEeprom::kAddress, eeprom_);
    add_i2c_bus(kModuleBus).attach(Imx586::kAddress, imx586_);
    add_i2c_bus(kModuleBus).attach(VoiceCoilDriver::kAddress, voice_coil_);
}

Board::~Board() = default;

// ---- internals (board mutex held) ----

std::optional<int> Board::injected(FaultRule::Op op, const std::string& path) {
    return injector_.check(op, path, -1, clock_.now_ns());
}

int Board::pi_raw_level(Motor m) const {
    if (const auto& stuck = pi_stuck_[static_cast<size_t>(m)]) return *stuck;
    // The edge is at position 0: the logical level is 1 on the positive side. MS41908
    // modules have the sensor inverted, which their active_low setting undoes.
    const int logical = motor(m).position() >= 0 ? 1 : 0;
    return config_.driver == DriverType::ms41908 ? 1 - logical : logical;
}

I2cBus& Board::i2c_bus(int bus) const {
    auto it = i2c_buses_.find(bus);
    if (it == i2c_buses_.end()) {
        throw std::out_of_range("twin: the board has no I2C bus " + std::to_string(bus));
    }
    return *it->second;
}

I2cBus& Board::add_i2c_bus(int bus) {
    if (bus < 0) throw std::out_of_range("twin: I2C bus numbers are not negative");
    if (auto it = i2c_buses_.find(bus); it != i2c_buses_.end()) return *it->second;
    auto created = std::make_shared<I2cBus>(bus, clock_);
    devices_.add(I2cBus::path(bus), created);  // throws when another node holds the path
    i2c_buses_.emplace(bus, created);
    return *created;
}

void Board::refresh_photo_interrupters() {
    gpio_.drive_input(kZoomPiGpio, pi_raw_level(Motor::zoom));
    gpio_.drive_input(kFocusPiGpio, pi_raw_level(Motor::focus));
}

void Board::on_gpio_change(int line, int level) {
    if (line == kVdGpio && level == 1) {
        chip_.vd_rising_edge();
        refresh_photo_interrupters();
    }
}

// ---- service face ----

int Board::open(const char* path, int flags) {
    if (path == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*path == '\0') return fail(ENOENT, -1);
    const std::string vpath = Sandbox::normalise(path);
    if (auto error = injected(FaultRule::Op::open, vpath)) return fail(*error, -1);

    std::unique_ptr<OpenFile> file;
    if (DeviceNode* node = devices_.find(vpath)) {
        file = node->open(flags);
    } else if (devices_.is_directory(vpath)) {
        return fail(EISDIR, -1);
    } else if (Sandbox::is_kernel_path(vpath)) {
        return fail(ENOENT, -1);
    } else {
        file = sandbox_.open(vpath, flags);
    }
    if (!file) return -1;  // errno set by the node or the real open
    return files_.insert(vpath, flags, std::move(file));
}

int Board::close(int fd) {
    std::lock_guard lock(mutex_);
    return files_.erase(fd) ? 0 : fail(EBADF, -1);
}

ssize_t Board::read(int fd, void* buf, size_t n) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr || !entry->readable()) return fail(EBADF, ssize_t{-1});
    if (auto error = injected(FaultRule::Op::read, entry->path)) return fail(*error, ssize_t{-1});
    return entry->file->read(buf, n);
}

ssize_t Board::write(int fd, const void* buf, size_t n) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr || !entry->writable()) return fail(EBADF, ssize_t{-1});
    if (auto error = injected(FaultRule::Op::write, entry->path)) return fail(*error, ssize_t{-1});
    return entry->file->write(buf, n);
}

int Board::ioctl(int fd, unsigned long request, void* arg) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr) return fail(EBADF, -1);
    if (auto error = injected(FaultRule::Op::ioctl, entry->path)) return fail(*error, -1);
    return entry->file->ioctl(request, arg);
}

int Board::access(const char* path, int mode) {
    if (path == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*path == '\0') return fail(ENOENT, -1);
    const std::string vpath = Sandbox::normalise(path);
    if (auto error = injected(FaultRule::Op::access, vpath)) return fail(*error, -1);
    if (devices_.find(vpath) != nullptr || devices_.is_directory(vpath)) return 0;  // root
    if (Sandbox::is_kernel_path(vpath)) return fail(ENOENT, -1);
    return ::access(sandbox_.real_path(vpath).c_str(), mode);
}

FILE* Board::fopen(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) return fail(EFAULT, static_cast<FILE*>(nullptr));
    std::lock_guard lock(mutex_);
    if (*path == '\0') return fail(ENOENT, static_cast<FILE*>(nullptr));
    const std::string vpath = Sandbox::normalise(path);
    if (auto error = injected(FaultRule::Op::fopen, vpath)) {
        return fail(*error, static_cast<FILE*>(nullptr));
    }
    if (devices_.find(vpath) != nullptr) return fail(ENXIO, static_cast<FILE*>(nullptr));
    if (Sandbox::is_kernel_path(vpath)) return fail(ENOENT, static_cast<FILE*>(nullptr));
    return ::fopen(sandbox_.real_path(vpath).c_str(), mode);
}

int Board::rename(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*from == '\0' || *to == '\0') return fail(ENOENT, -1);
    const std::string vfrom = Sandbox::normalise(from);
    const std::string vto = Sandbox::normalise(to);
    if (auto error = injected(FaultRule::Op::rename, vfrom)) return fail(*error, -1);
    if (Sandbox::is_kernel_path(vfrom) || Sandbox::is_kernel_path(vto)) return fail(EPERM, -1);
    return ::rename(sandbox_.real_path(vfrom).c_str(), sandbox_.real_path(vto).c_str());
}

int Board::fsync(int fd) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr) return fail(EBADF, -1);
    if (auto error = injected(FaultRule::Op::fsync, entry->path)) return fail(*error, -1);
    return entry->file->fsync();
}

char* Board::getcwd(char* buf, size_t size) {
    if (buf == nullptr) return fail(EINVAL, static_cast<char*>(nullptr));
    if (size < 2) return fail(ERANGE, static_cast<char*>(nullptr));
    buf[0] = '/';
    buf[1] = '\0';
    return buf;
}

int Board::shmget(key_t key, size_t size, int flags) {
    std::lock_guard lock(mutex_);
    return ipc_.shmget(key, size, flags);
}

void* Board::shmat(int id, const void* addr, int flags) {
    std::lock_guard lock(mutex_);
    return ipc_.shmat(id, addr, flags);
}

int Board::semget(key_t key, int nsems, int flags) {
    std::lock_guard lock(mutex_);
    return ipc_.semget(key, nsems, flags);
}

int Board::semctl(int id, int num, int cmd, int arg) {
    std::lock_guard lock(mutex_);
    return ipc_.semctl(id, num, cmd, arg);
}

int Board::semop(int id, sembuf* ops, size_t nops) {
    // No board lock: a semop may wait for another thread of the service.
    return ipc_.semop(id, ops, nops);
}

int Board::sleep_ns(uint64_t ns) {
    // The sleep runs from the call on: time spent waiting for the board mutex counts.
    const uint64_t start_ns = Clock::real_monotonic_ns();
    uint64_t real_ns = 0;
    bool real_time = false;
    {
        std::lock_guard lock(mutex_);
        if (auto error = injector_.check(FaultRule::Op::sleep, "", -1, clock_.now_ns())) {
            return fail(*error, -1);
        }
        real_ns = clock_.book_sleep(ns);
        real_time = clock_.real_time();
    }
    if (real_time && real_ns != 0) {
        tighten_timer_slack();
        sleep_until_real(start_ns + real_ns);
    }
    run_due_events();
    return 0;
}

timespec Board::monotonic() {
    std::lock_guard lock(mutex_);
    return clock_.monotonic();
}

timeval Board::wall() {
    std::lock_guard lock(mutex_);
    return clock_.wall();
}

// ---- control face ----

std::string Board::sandbox_path(const char* path) const {
    return sandbox_.real_path(Sandbox::normalise(path));
}

void Board::write_file(const char* path, std::string_view content) {
    const std::filesystem::path real = sandbox_path(path);
    std::error_code error;
    std::filesystem::create_directories(real.parent_path(), error);
    std::ofstream out(real, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out) throw std::runtime_error("twin: cannot write " + real.string());
}

std::optional<std::string> Board::read_file(const char* path) const {
    std::ifstream in(sandbox_path(path), std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

size_t Board::open_descriptors() const {
    std::lock_guard lock(mutex_);
    return files_.open_count();
}

void Board::add_device(const char* path, std::shared_ptr<DeviceNode> node) {
    std::lock_guard lock(mutex_);
    devices_.add(Sandbox::normalise(path), std::move(node));
}

key_t Board::salted_key(key_t key) const {
    return ipc_.salted_key(key);
}

uint64_t Board::now_ns() const {
    std::lock_guard lock(mutex_);
    return clock_.now_ns();
}

uint64_t Board::slept_ns() const {
    std::lock_guard lock(mutex_);
    return clock_.slept_ns();
}

uint64_t Board::sleep_calls() const {
    std::lock_guard lock(mutex_);
    return clock_.sleep_calls();
}

void Board::advance_ns(uint64_t ns) {
    {
        std::lock_guard lock(mutex_);
        clock_.advance(ns);
    }
    run_due_events();
}

int Board::add_periodic(uint64_t period_ns, PeriodicEvents::Callback callback) {
    std::lock_guard lock(mutex_);
    const int id = periodic_.add(clock_.now_ns() + period_ns, period_ns, std::move(callback));
    periodic_count_.store(periodic_.size(), std::memory_order_relaxed);
    return id;
}

void Board::cancel_periodic(int id) {
    std::lock_guard running(periodic_run_mutex_);
    std::lock_guard lock(mutex_);
    periodic_.remove(id);
    periodic_count_.store(periodic_.size(), std::memory_order_relaxed);
}

// One pass over the events due now. Another thread that moves the clock while a pass runs
// leaves its due events to the next sleep, so callbacks never run two at a time.
void Board::run_due_events() {
    if (periodic_count_.load(std::memory_order_relaxed) == 0) return;
    std::unique_lock running(periodic_run_mutex_, std::try_to_lock);
    if (!running.owns_lock()) return;
    uint64_t now = 0;
    std::vector<std::shared_ptr<const PeriodicEvents::Callback>> due;
    {
        std::lock_guard lock(mutex_);
        now = clock_.now_ns();
        due = periodic_.take_due(now);
    }
    for (const auto& callback : due) (*callback)(now);
}

void Board::set_real_time(double speed) {
    std::lock_guard lock(mutex_);
    clock_.set_real_time(speed);
}

void Board::set_virtual_time() {
    std::lock_guard lock(mutex_);
    clock_.set_virtual_time();
}

std::vector<GpioEdge> Board::gpio_edges(int line) const {
    std::lock_guard lock(mutex_);
    return gpio_.edges(line);
}

int Board::gpio_physical(int line) const {
    std::lock_guard lock(mutex_);
    return gpio_.physical(line);
}

bool Board::gpio_exported(int line) const {
    std::lock_guard lock(mutex_);
    return gpio_.exported(line);
}

bool Board::gpio_active_low(int line) const {
    std::lock_guard lock(mutex_);
    return gpio_.active_low(line);
}

bool Board::gpio_direction_out(int line) const {
    std::lock_guard lock(mutex_);
    return gpio_.direction_out(line);
}

uint32_t Board::spi_mode() const {
    std::lock_guard lock(mutex_);
    return spi_->mode();
}

uint8_t Board::spi_bits_per_word() const {
    std::lock_guard lock(mutex_);
    return spi_->bits_per_word();
}

uint32_t Board::spi_max_speed_hz() const {
    std::lock_guard lock(mutex_);
    return spi_->max_speed_hz();
}

uint16_t Board::chip_register(int addr) const {
    std::lock_guard lock(mutex_);
    return chip_.reg(addr);
}

void Board::set_chip_register(int addr, uint16_t value) {
    std::lock_guard lock(mutex_);
    chip_.set_reg(addr, value);
}

std::vector<RegisterWrite> Board::register_writes() const {
    std::lock_guard lock(mutex_);
    return chip_.register_writes();
}

void Board::clear_register_writes() {
    std::lock_guard lock(mutex_);
    chip_.clear_register_writes();
}

uint64_t Board::vd_pulses() const {
    std::lock_guard lock(mutex_);
    return chip_.vd_pulses();
}

uint64_t Board::timing_faults() const {
    std::lock_guard lock(mutex_);
    return chip_.timing_faults();
}

std::vector<RecordedFault> Board::faults() const {
    std::lock_guard lock(mutex_);
    std::vector<RecordedFault> all = chip_.faults();
    for (const auto& [number, bus] : i2c_buses_) {
        for (const I2cDevice* device : bus->devices()) {
            all.insert(all.end(), device->faults().begin(), device->faults().end());
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const RecordedFault& a, const RecordedFault& b) {
        return a.time_ns < b.time_ns;
    });
    return all;
}

DriverType Board::driver() const {
    return config_.driver;
}

int Board::motor_position(Motor m) const {
    std::lock_guard lock(mutex_);
    return motor(m).position();
}

void Board::set_motor_position(Motor m, int position) {
    std::lock_guard lock(mutex_);
    motor(m).set_position(position);
    refresh_photo_interrupters();
}

uint64_t Board::motor_steps_moved(Motor m) const {
    std::lock_guard lock(mutex_);
    return motor(m).steps_moved();
}

uint64_t Board::clamped_pulses(Motor m) const {
    std::lock_guard lock(mutex_);
    return motor(m).clamped_pulses();
}

void Board::set_pi_stuck(Motor m, std::optional<int> raw_level) {
    std::lock_guard lock(mutex_);
    if (raw_level) raw_level = *raw_level != 0 ? 1 : 0;
    pi_stuck_[static_cast<size_t>(m)] = raw_level;
    refresh_photo_interrupters();
}

void Board::attach_i2c_device(int bus, int addr, std::shared_ptr<I2cDevice> device) {
    std::lock_guard lock(mutex_);
    add_i2c_bus(bus).attach(addr, std::move(device));
}

void Board::set_i2c_present(int bus, int addr, bool present) {
    std::lock_guard lock(mutex_);
    i2c_bus(bus).set_present(addr, present);
}

std::vector<I2cTransferRecord> Board::i2c_transfers(int bus) const {
    std::lock_guard lock(mutex_);
    return i2c_bus(bus).transfers();
}

void Board::clear_i2c_transfers(int bus) {
    std::lock_guard lock(mutex_);
    i2c_bus(bus).clear_transfers();
}

uint8_t Board::eeprom_byte(int addr) const {
    if (addr < 0) throw std::out_of_range("twin: EEPROM addresses are not negative");
    std::lock_guard lock(mutex_);
    return eeprom_->byte(static_cast<uint32_t>(addr));
}

void Board::set_eeprom_byte(int addr, uint8_t value) {
    if (addr < 0) throw std::out_of_range("twin: EEPROM addresses are not negative");
    std::lock_guard lock(mutex_);
    eeprom_->set_byte(static_cast<uint32_t>(addr), value);
}

std::vector<I2cRegisterWrite> Board::eeprom_writes() const {
    std::lock_guard lock(mutex_);
    return eeprom_->writes();
}

void Board::inject(FaultRule rule) {
    if (!rule.path.empty()) rule.path = Sandbox::normalise(rule.path.c_str());
    std::lock_guard lock(mutex_);
    injector_.inject(std::move(rule));
}

void Board::clear_faults() {
    std::lock_guard lock(mutex_);
    injector_.clear();
}

std::vector<std::string> Board::injected_faults() const {
    std::lock_guard lock(mutex_);
    return injector_.log();
}

}  // namespace zoomaf::twin
