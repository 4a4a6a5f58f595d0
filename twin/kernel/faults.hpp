// Faults of the twin, of two kinds kept apart:
// - injected faults: rules a test sets so that calls on one object of the board fail, to
//   drive the service's failure paths. Every object (a file or device node by its path, an
//   emulated device by its name, an IPC object by its key, the clock) asks the board's one
//   FaultInjector before a call reaches its model: a rule that fires makes the call fail
//   with the rule's errno, otherwise the call falls through to the model, as the fault hook
//   of a Zephyr device emulator does.
// - recorded faults: misuse of the hardware the board noticed (a VD pulse too early, a
//   frame without chip select, an incomplete I2C register address ...), kept in the board's
//   FaultLog for a test to judge the service by.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "twin/kernel/random.hpp"

namespace zoomaf::twin {

class Clock;

struct FaultRule {
    enum class Op {
        open,
        read,
        write,
        ioctl,
        fsync,
        fstat,  // descriptors and device nodes, by path
        fopen,
        access,
        unlink,
        rename,    // files, by path (rename: the source)
        sleep,     // the clock
        readback,  // the driver chip's register read-back
        transfer,  // an I2C device: the address is not acknowledged
        shmget,
        shmat,
        semget,
        semctl,
        semop,  // IPC objects, by key
    };
    Op op = Op::open;
    // The object: a board path (relative paths resolve against "/"), i2c_device_name() for
    // transfer, ipc_object_name() for the IPC calls; "" is every object. Not used for sleep
    // and readback.
    std::string target{};
    int reg = -1;       // readback: register address 0x00..0x3F (-1 = any)
    int error = EIO;    // errno set by the failing call (transfer: ENXIO is a NAK)
    int count = 1;      // failures to deliver; -1 = unlimited
    double rate = 1.0;  // probability that a matching call fails (seeded)
    int skip = 0;       // matching calls to let through first
};

const char* op_name(FaultRule::Op op);

// The object names of transfer and IPC rules.
std::string i2c_device_name(int bus, int addr);  // "/dev/i2c-9 0x50"
std::string ipc_object_name(key_t key);          // "IPC key 0x1234ABD9", the key unsalted

class FaultInjector {
public:
    explicit FaultInjector(uint64_t seed);

    // Throws std::invalid_argument on a rule that cannot apply (rate outside 0..1, a
    // register outside 0x00..0x3F, a negative skip). target must already be normalised.
    void inject(FaultRule rule);
    void clear() { rules_.clear(); }

    // The fault hook every object calls before its model: the errno of the first rule that
    // delivers a fault to this call (and a line in the log), or nothing.
    std::optional<int> check(FaultRule::Op op, const std::string& target, int reg, uint64_t now_ns);

    const std::vector<std::string>& log() const { return log_; }

private:
    struct ActiveRule {
        FaultRule rule;
        int skip_left;
        int count_left;  // -1: unlimited
    };
    static bool matches(const FaultRule& rule, FaultRule::Op op, const std::string& target,
                        int reg);

    std::vector<ActiveRule> rules_;
    SeededRandom random_;
    std::vector<std::string> log_;
};

enum class FaultKind {
    timing,             // VD pulse or channel register write while pulses still run
    chip_not_selected,  // SPI frame while chip select was low
    frame_length,       // SPI frame that is not 3 bytes long
    i2c_misuse,         // I2C access a device takes but that shows a bug (see i2c_device.hpp)
};

const char* fault_kind_name(FaultKind kind);

struct RecordedFault {
    FaultKind kind;
    uint64_t time_ns;  // board monotonic time
    std::string text;
};

// Everything the board's hardware noticed, in time order.
class FaultLog {
public:
    explicit FaultLog(const Clock& clock) : clock_(clock) {}
    void record(FaultKind kind, std::string text);
    const std::vector<RecordedFault>& all() const { return faults_; }
    size_t count(FaultKind kind) const;

private:
    const Clock& clock_;
    std::vector<RecordedFault> faults_;
};

}  // namespace zoomaf::twin
