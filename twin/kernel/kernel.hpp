// The virtual kernel of the digital twin, behind the platform seam.
//
// Service face (the Platform methods): descriptors, files mapped into a sandbox, device
// nodes (sysfs GPIO, /dev/spidev1.0, the I2C buses /dev/i2c-N), System V IPC with salted
// keys, and a virtual clock. The camera module (twin/module/board.hpp) wires its devices onto
// it; the kernel alone is a board with nothing on its buses.
//
// Control face: the files, the clock, the faults, and one locked accessor for the control
// face of every device and kernel part a test, the bench or the scenario runner looks at:
//
//     int level = board.with<GpioBank>([](GpioBank& gpio) { return gpio.physical(120); });
//     board.with<I2cBus>(9, [](I2cBus& bus) { bus.clear_transfers(); });
//
// All state sits behind one kernel mutex, so the service may call the kernel from any of
// its threads. Only a blocking semop (timed or not), a real-time sleep and the periodic events run
// outside it.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeindex>
#include <utility>
#include <vector>

#include "platform/platform.hpp"
#include "twin/kernel/clock.hpp"
#include "twin/kernel/device.hpp"
#include "twin/kernel/faults.hpp"
#include "twin/kernel/file_table.hpp"
#include "twin/kernel/gpio_sysfs.hpp"
#include "twin/kernel/i2c_bus.hpp"
#include "twin/kernel/ipc.hpp"
#include "twin/kernel/periodic_events.hpp"
#include "twin/kernel/sandbox.hpp"
#include "twin/kernel/spidev.hpp"

namespace zoomaf::twin {

struct KernelConfig {
    uint64_t seed = 1;      // everything random is drawn from this seed
    std::string sandbox{};  // empty: a fresh mkdtemp dir, removed with the kernel
};

class Kernel : public zoomaf::Platform {
public:
    explicit Kernel(KernelConfig config = {});
    ~Kernel() override;
    Kernel(const Kernel&) = delete;
    Kernel& operator=(const Kernel&) = delete;

    // ---- service face ----
    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buf, size_t n) override;
    ssize_t write(int fd, const void* buf, size_t n) override;
    // A bus transfer (I2C_RDWR, SPI_IOC_MESSAGE) takes its wire time on the board clock:
    // virtual mode advances the clock, real-time mode waits it out from the call on; the
    // periodic events that fall due meanwhile run as after a sleep.
    int ioctl(int fd, unsigned long request, void* arg) override;
    int access(const char* path, int mode) override;
    // A real FILE* on the sandbox file; device nodes cannot be opened this way (ENXIO).
    FILE* fopen(const char* path, const char* mode) override;
    // Both paths map into the sandbox; nothing under /dev or /sys can be renamed (EPERM).
    int rename(const char* from, const char* to) override;
    // Flushes the real sandbox file behind the descriptor; EINVAL on a device node.
    int fsync(int fd) override;
    // The real sandbox file's status; a device node is a character device.
    int fstat(int fd, struct stat* st) override;
    // Removes a sandbox file (a link itself); nothing under /dev or /sys (EPERM).
    int unlink(const char* path) override;
    // The board's working directory: "/", the sandbox root.
    char* getcwd(char* buf, size_t size) override;
    int shmget(key_t key, size_t size, int flags) override;
    void* shmat(int id, const void* addr, int flags) override;
    int semget(key_t key, int nsems, int flags) override;
    int semctl(int id, int num, int cmd, int arg) override;
    int semop(int id, sembuf* ops, size_t nops) override;
    // The real semtimedop: its timeout is real time, also on a board in virtual time (a
    // semaphore held by another process is held in real time).
    int semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) override;
    // Virtual mode: advances the clock by ns. Real-time mode: sleeps ns / speed from the
    // call on, to within a few microseconds (see kSpinGuardNs). A sleep fault returns -1
    // with the rule's errno, sleeps nothing and is not counted.
    int sleep_ns(uint64_t ns) override;
    timespec monotonic() override;
    timeval wall() override;

    // ---- control face: device and kernel parts ----
    // Runs f on the control face of type Face (instance: the bus number of an I2cBus, the
    // motor of a lens motor ...) under the kernel mutex and returns what f returns. The
    // kernel's faces are Clock, GpioBank, SpiDevice and I2cBus; the camera module adds its
    // devices. f must not call the board. Throws std::logic_error for a face the board lacks.
    template <class Face, class F>
    decltype(auto) with(F&& f) {
        return with<Face>(0, std::forward<F>(f));
    }
    template <class Face, class Instance, class F>
    decltype(auto) with(Instance instance, F&& f) {
        std::lock_guard lock(mutex_);
        return std::forward<F>(f)(face<Face>(static_cast<int>(instance)));
    }
    template <class Face, class F>
    decltype(auto) with(F&& f) const {
        return with<Face>(0, std::forward<F>(f));
    }
    template <class Face, class Instance, class F>
    decltype(auto) with(Instance instance, F&& f) const {
        std::lock_guard lock(mutex_);
        return std::forward<F>(f)(static_cast<const Face&>(face<Face>(static_cast<int>(instance))));
    }

    // ---- control face: files ----
    // Real path behind a board path (absolute, or relative to the board's working dir).
    std::string sandbox_path(const char* path) const;
    // Writes a sandbox file, creating its directories. Throws std::runtime_error on failure.
    void write_file(const char* path, std::string_view content);
    // The content of a sandbox file, or nullopt when it cannot be read.
    std::optional<std::string> read_file(const char* path) const;
    size_t open_descriptors() const;

    // ---- control face: IPC ----
    key_t salted_key(key_t key) const;

    // ---- control face: clock (Clock's face for the sleep counters) ----
    uint64_t now_ns() const;  // the virtual CLOCK_MONOTONIC in ns (starts at 1000 s)
    void advance_ns(uint64_t ns);
    // Throws std::invalid_argument when speed is not positive.
    void set_real_time(double speed);
    void set_virtual_time();
    // Calls callback(now) every period_ns (> 0) of board time, first one period from now:
    // in the thread whose sleep (or advance_ns) moved the clock past the due time, after the
    // kernel mutex is released, one thread at a time. Returns the id for cancel_periodic.
    // Throws std::invalid_argument on a period of 0.
    int add_periodic(uint64_t period_ns, PeriodicEvents::Callback callback);
    // Waits for a running callback to finish, then forgets the event. Not from a callback.
    void cancel_periodic(int id);

    // ---- control face: I2C ----
    // Builds a Device(device context, args...) and wires it to a bus at a 7-bit address,
    // creating /dev/i2c-<bus> when needed. Throws std::logic_error when the address is
    // taken, std::invalid_argument when it is reserved (outside 0x08..0x77), std::out_of_range
    // for a negative bus. The bus calls the device under the kernel mutex: read its state
    // while no thread of the service runs.
    template <typename Device, typename... Args>
    std::shared_ptr<Device> make_i2c_device(int bus, int addr, Args&&... args) {
        auto device = std::make_shared<Device>(context_, std::forward<Args>(args)...);
        std::lock_guard lock(mutex_);
        attach_i2c_device(bus, addr, device);
        return device;
    }

    // ---- control face: faults ----
    // Injected: throws std::invalid_argument on a rule that cannot apply.
    void inject(FaultRule rule);
    void clear_faults();
    std::vector<std::string> injected_faults() const;  // one line per delivered fault
    // Recorded: all the hardware noticed, in time order.
    std::vector<RecordedFault> faults() const;

protected:
    // For the camera module, while it wires itself in its constructor (no lock needed then).
    const DeviceContext& context() const { return context_; }
    GpioBank& gpio() { return gpio_; }
    SpiDevice& spi() { return *spi_; }
    void attach_i2c_device(int bus, int addr, std::shared_ptr<I2cDevice> device);
    template <class Face>
    void add_face(Face& face, int instance = 0) {
        if (!faces_.emplace(std::pair{std::type_index(typeid(Face)), instance}, &face).second) {
            throw std::logic_error("twin: two control faces of one type and instance");
        }
    }

private:
    template <class Face>
    Face& face(int instance) const {
        const auto it = faces_.find(std::pair{std::type_index(typeid(Face)), instance});
        if (it == faces_.end()) {
            throw std::logic_error(std::string("twin: the board has no control face ") +
                                   typeid(Face).name() + " #" + std::to_string(instance));
        }
        return *static_cast<Face*>(it->second);
    }
    std::optional<int> injected(FaultRule::Op op, const std::string& target);
    void run_due_events();  // kernel mutex not held

    mutable std::mutex mutex_;
    Clock clock_;
    FaultLog recorded_;
    FaultInjector injector_;
    BusTime bus_time_;
    const DeviceContext context_;
    PeriodicEvents periodic_;
    std::atomic<size_t> periodic_count_{0};  // lets sleeps skip the events when there are none
    std::mutex periodic_run_mutex_;          // held while due callbacks run
    Sandbox sandbox_;
    SysvIpc ipc_;
    DeviceTable devices_;
    GpioBank gpio_;
    std::shared_ptr<SpiDevice> spi_;
    std::map<int, std::shared_ptr<I2cBus>> i2c_buses_;
    std::map<std::pair<std::type_index, int>, void*> faces_;
    FileTable files_;  // last: open files go before the nodes they refer to
};

}  // namespace zoomaf::twin
