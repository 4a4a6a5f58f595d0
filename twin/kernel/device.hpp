// Device nodes of the virtual kernel. A node is an object behind a path (/dev/spidev1.0,
// /sys/class/gpio/gpio26/value ...); opening it gives an OpenFile that serves read, write
// and ioctl for that one open file, the way a kernel driver's file operations do. Nodes
// are registered in a DeviceTable by path, so a new device is one more registration.
//
// Every call into a node or an open file happens under the board mutex. Failures return
// -1 (or nullptr) with errno set, as the kernel call would.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "twin/kernel/clock.hpp"
#include "twin/kernel/faults.hpp"

namespace zoomaf::twin {

// The wire time of the bus transfers made in one call into the kernel. The devices add to
// it while they carry the transfer; the kernel lets that much board time pass when the call
// is done, so a transfer costs on the board clock what it costs on a board.
struct BusTime {
    uint64_t pending_ns = 0;
};

// What an emulated device may use of the kernel: the clock, the log of the faults the
// hardware records, the fault hook and the bus time. Devices are called under the kernel
// mutex and never call the kernel themselves.
struct DeviceContext {
    const Clock& clock;
    FaultLog& recorded;
    FaultInjector& injected;
    BusTime& bus_time;

    // The bus is busy for ns more of the current call (its wire time).
    void occupy_bus(uint64_t ns) const { bus_time.pending_ns += ns; }

    // The fault hook of an object: the errno of an injected fault for this call, or nothing
    // to let the call through to the model.
    std::optional<int> fault(FaultRule::Op op, const std::string& target, int reg = -1) const {
        return injected.check(op, target, reg, clock.now_ns());
    }
};

class OpenFile {
public:
    virtual ~OpenFile() = default;
    virtual ssize_t read(void* buf, size_t n) = 0;
    virtual ssize_t write(const void* buf, size_t n) = 0;
    // Default: the request is not one this file knows (ENOTTY), as for a plain file.
    virtual int ioctl(unsigned long request, void* arg);
    // Default: nothing to flush on a device node that cannot be synced (EINVAL), as for a
    // character device.
    virtual int fsync();
    // Default: a character device (spidev, i2c-dev, a GPIO attribute) of size 0.
    virtual int fstat(struct stat* st);
};

class DeviceNode {
public:
    virtual ~DeviceNode() = default;
    // flags are open(2)'s; the descriptor table already enforces the access mode.
    virtual std::unique_ptr<OpenFile> open(int flags) = 0;
};

class DeviceTable {
public:
    // Adds a node at an absolute, normalised path. Throws std::logic_error if the path is
    // taken: two devices at one path is a wiring mistake of the board.
    void add(const std::string& path, std::shared_ptr<DeviceNode> node);
    // The node at path, or nullptr.
    DeviceNode* find(const std::string& path) const;
    // True when path is a directory that holds a node somewhere below it.
    bool is_directory(const std::string& path) const;

private:
    std::map<std::string, std::shared_ptr<DeviceNode>> nodes_;
};

}  // namespace zoomaf::twin
