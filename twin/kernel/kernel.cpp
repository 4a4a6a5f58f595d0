#include "twin/kernel/kernel.hpp"

#include <sys/prctl.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace zoomaf::twin {

namespace {

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

Kernel::Kernel(KernelConfig config)
    : clock_(config.seed),
      recorded_(clock_),
      injector_(config.seed),
      context_{clock_, recorded_, injector_, bus_time_},
      sandbox_(config.sandbox),
      ipc_(config.seed),
      gpio_(devices_, clock_),
      spi_(std::make_shared<SpiDevice>(context_)) {
    devices_.add(SpiDevice::kPath, spi_);
    add_face(clock_);
    add_face(gpio_);
    add_face(*spi_);
}

Kernel::~Kernel() = default;

// ---- internals (kernel mutex held) ----

std::optional<int> Kernel::injected(FaultRule::Op op, const std::string& target) {
    return context_.fault(op, target);
}

void Kernel::attach_i2c_device(int bus, int addr, std::shared_ptr<I2cDevice> device) {
    if (bus < 0) throw std::out_of_range("twin: I2C bus numbers are not negative");
    auto it = i2c_buses_.find(bus);
    if (it == i2c_buses_.end()) {
        auto created = std::make_shared<I2cBus>(bus, context_);
        devices_.add(I2cBus::path(bus), created);  // throws when another node holds the path
        add_face(*created, bus);
        it = i2c_buses_.emplace(bus, created).first;
    }
    it->second->attach(addr, std::move(device));
}

// ---- service face ----

int Kernel::open(const char* path, int flags) {
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

int Kernel::close(int fd) {
    std::lock_guard lock(mutex_);
    return files_.erase(fd) ? 0 : fail(EBADF, -1);
}

ssize_t Kernel::read(int fd, void* buf, size_t n) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr || !entry->readable()) return fail(EBADF, ssize_t{-1});
    if (auto error = injected(FaultRule::Op::read, entry->path)) return fail(*error, ssize_t{-1});
    return entry->file->read(buf, n);
}

ssize_t Kernel::write(int fd, const void* buf, size_t n) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr || !entry->writable()) return fail(EBADF, ssize_t{-1});
    if (auto error = injected(FaultRule::Op::write, entry->path)) return fail(*error, ssize_t{-1});
    return entry->file->write(buf, n);
}

int Kernel::ioctl(int fd, unsigned long request, void* arg) {
    // The transfer runs from the call on, like a sleep: time spent waiting for the kernel
    // mutex counts towards its wire time.
    const uint64_t start_ns = Clock::real_monotonic_ns();
    int result = 0;
    uint64_t bus_ns = 0, real_ns = 0;
    {
        std::lock_guard lock(mutex_);
        FileTable::Entry* entry = files_.find(fd);
        if (entry == nullptr) return fail(EBADF, -1);
        if (auto error = injected(FaultRule::Op::ioctl, entry->path)) return fail(*error, -1);
        bus_time_.pending_ns = 0;
        result = entry->file->ioctl(request, arg);
        bus_ns = std::exchange(bus_time_.pending_ns, 0);
        if (bus_ns != 0) real_ns = clock_.pass_bus_time(bus_ns);
    }
    if (bus_ns == 0) return result;
    const int error = errno;  // the events may touch errno; the caller reads the ioctl's
    if (real_ns != 0) {
        tighten_timer_slack();
        sleep_until_real(start_ns + real_ns);
    }
    run_due_events();
    errno = error;
    return result;
}

int Kernel::access(const char* path, int mode) {
    if (path == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*path == '\0') return fail(ENOENT, -1);
    const std::string vpath = Sandbox::normalise(path);
    if (auto error = injected(FaultRule::Op::access, vpath)) return fail(*error, -1);
    if (devices_.find(vpath) != nullptr || devices_.is_directory(vpath)) return 0;  // root
    if (Sandbox::is_kernel_path(vpath)) return fail(ENOENT, -1);
    return ::access(sandbox_.real_path(vpath).c_str(), mode);
}

FILE* Kernel::fopen(const char* path, const char* mode) {
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

int Kernel::rename(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*from == '\0' || *to == '\0') return fail(ENOENT, -1);
    const std::string vfrom = Sandbox::normalise(from);
    const std::string vto = Sandbox::normalise(to);
    if (auto error = injected(FaultRule::Op::rename, vfrom)) return fail(*error, -1);
    if (Sandbox::is_kernel_path(vfrom) || Sandbox::is_kernel_path(vto)) return fail(EPERM, -1);
    return ::rename(sandbox_.real_path(vfrom).c_str(), sandbox_.real_path(vto).c_str());
}

int Kernel::fsync(int fd) {
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr) return fail(EBADF, -1);
    if (auto error = injected(FaultRule::Op::fsync, entry->path)) return fail(*error, -1);
    return entry->file->fsync();
}

int Kernel::fstat(int fd, struct stat* st) {
    if (st == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    FileTable::Entry* entry = files_.find(fd);
    if (entry == nullptr) return fail(EBADF, -1);
    if (auto error = injected(FaultRule::Op::fstat, entry->path)) return fail(*error, -1);
    return entry->file->fstat(st);
}

int Kernel::unlink(const char* path) {
    if (path == nullptr) return fail(EFAULT, -1);
    std::lock_guard lock(mutex_);
    if (*path == '\0') return fail(ENOENT, -1);
    const std::string vpath = Sandbox::normalise(path);
    if (auto error = injected(FaultRule::Op::unlink, vpath)) return fail(*error, -1);
    if (Sandbox::is_kernel_path(vpath)) return fail(EPERM, -1);
    return ::unlink(sandbox_.real_path(vpath).c_str());
}

char* Kernel::getcwd(char* buf, size_t size) {
    if (buf == nullptr) return fail(EINVAL, static_cast<char*>(nullptr));
    if (size < 2) return fail(ERANGE, static_cast<char*>(nullptr));
    buf[0] = '/';
    buf[1] = '\0';
    return buf;
}

int Kernel::shmget(key_t key, size_t size, int flags) {
    std::lock_guard lock(mutex_);
    if (auto error = injected(FaultRule::Op::shmget, ipc_object_name(key))) return fail(*error, -1);
    return ipc_.shmget(key, size, flags);
}

void* Kernel::shmat(int id, const void* addr, int flags) {
    std::lock_guard lock(mutex_);
    if (auto error = injected(FaultRule::Op::shmat, ipc_object_name(ipc_.segment_key(id)))) {
        return fail(*error, reinterpret_cast<void*>(-1));
    }
    return ipc_.shmat(id, addr, flags);
}

int Kernel::semget(key_t key, int nsems, int flags) {
    std::lock_guard lock(mutex_);
    if (auto error = injected(FaultRule::Op::semget, ipc_object_name(key))) return fail(*error, -1);
    return ipc_.semget(key, nsems, flags);
}

int Kernel::semctl(int id, int num, int cmd, int arg) {
    std::lock_guard lock(mutex_);
    if (auto error = injected(FaultRule::Op::semctl, ipc_object_name(ipc_.semaphore_key(id)))) {
        return fail(*error, -1);
    }
    return ipc_.semctl(id, num, cmd, arg);
}

int Kernel::semop(int id, sembuf* ops, size_t nops) {
    {
        std::lock_guard lock(mutex_);
        if (auto error = injected(FaultRule::Op::semop, ipc_object_name(ipc_.semaphore_key(id)))) {
            return fail(*error, -1);
        }
    }
    // Without the kernel mutex: a semop may wait for another thread of the service.
    return ipc_.semop(id, ops, nops);
}

int Kernel::semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) {
    {
        std::lock_guard lock(mutex_);
        if (auto error = injected(FaultRule::Op::semop, ipc_object_name(ipc_.semaphore_key(id)))) {
            return fail(*error, -1);
        }
    }
    return ipc_.semtimedop(id, ops, nops, timeout);
}

int Kernel::sleep_ns(uint64_t ns) {
    // The sleep runs from the call on: time spent waiting for the kernel mutex counts.
    const uint64_t start_ns = Clock::real_monotonic_ns();
    uint64_t real_ns = 0;
    bool real_time = false;
    {
        std::lock_guard lock(mutex_);
        if (auto error = injected(FaultRule::Op::sleep, "the clock")) return fail(*error, -1);
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

timespec Kernel::monotonic() {
    std::lock_guard lock(mutex_);
    return clock_.monotonic();
}

timeval Kernel::wall() {
    std::lock_guard lock(mutex_);
    return clock_.wall();
}

// ---- control face ----

std::string Kernel::sandbox_path(const char* path) const {
    return sandbox_.real_path(Sandbox::normalise(path));
}

void Kernel::write_file(const char* path, std::string_view content) {
    const std::filesystem::path real = sandbox_path(path);
    std::error_code error;
    std::filesystem::create_directories(real.parent_path(), error);
    std::ofstream out(real, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out) throw std::runtime_error("twin: cannot write " + real.string());
}

std::optional<std::string> Kernel::read_file(const char* path) const {
    std::ifstream in(sandbox_path(path), std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

size_t Kernel::open_descriptors() const {
    std::lock_guard lock(mutex_);
    return files_.open_count();
}

key_t Kernel::salted_key(key_t key) const {
    return ipc_.salted_key(key);
}

uint64_t Kernel::now_ns() const {
    std::lock_guard lock(mutex_);
    return clock_.now_ns();
}

void Kernel::advance_ns(uint64_t ns) {
    {
        std::lock_guard lock(mutex_);
        clock_.advance(ns);
    }
    run_due_events();
}

void Kernel::set_real_time(double speed) {
    std::lock_guard lock(mutex_);
    clock_.set_real_time(speed);
}

void Kernel::set_virtual_time() {
    std::lock_guard lock(mutex_);
    clock_.set_virtual_time();
}

int Kernel::add_periodic(uint64_t period_ns, PeriodicEvents::Callback callback) {
    std::lock_guard lock(mutex_);
    const int id = periodic_.add(clock_.now_ns() + period_ns, period_ns, std::move(callback));
    periodic_count_.store(periodic_.size(), std::memory_order_relaxed);
    return id;
}

void Kernel::cancel_periodic(int id) {
    std::lock_guard running(periodic_run_mutex_);
    std::lock_guard lock(mutex_);
    periodic_.remove(id);
    periodic_count_.store(periodic_.size(), std::memory_order_relaxed);
}

// One pass over the events due now. Another thread that moves the clock while a pass runs
// leaves its due events to the next sleep, so callbacks never run two at a time.
void Kernel::run_due_events() {
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

void Kernel::inject(FaultRule rule) {
    using Op = FaultRule::Op;
    const bool by_path = rule.op <= Op::rename;  // the ops on files and device nodes
    if (by_path && !rule.target.empty()) rule.target = Sandbox::normalise(rule.target.c_str());
    std::lock_guard lock(mutex_);
    injector_.inject(std::move(rule));
}

void Kernel::clear_faults() {
    std::lock_guard lock(mutex_);
    injector_.clear();
}

std::vector<std::string> Kernel::injected_faults() const {
    std::lock_guard lock(mutex_);
    return injector_.log();
}

std::vector<RecordedFault> Kernel::faults() const {
    std::lock_guard lock(mutex_);
    return recorded_.all();
}

}  // namespace zoomaf::twin
