// Faults of the twin, of two kinds kept apart:
// - injected faults: rules a test sets so that a file, device, register read-back or sleep
//   fails, to drive the service's failure paths;
// - recorded faults: misuse of the hardware the board noticed (a VD pulse too early, a
//   frame without chip select, an incomplete I2C register address ...), which a test reads
//   to judge the service.
#pragma once

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "twin/random.hpp"

namespace zoomaf::twin {

struct FaultRule {
    enum class Op { open, read, write, ioctl, fopen, access, readback, sleep, rename, fsync };
    Op op = Op::open;
    std::string path{};  // exact path for file/device ops ("" = any path; rename: the source path);
                         // unused for readback/sleep
    int reg = -1;        // readback: register address 0x00..0x3F (-1 = any)
    int error = EIO;     // errno set by the failing call
    int count = 1;       // failures to deliver; -1 = unlimited
    double rate = 1.0;   // probability that a matching call fails (seeded)
    int skip = 0;        // matching calls to let through first
};

const char* op_name(FaultRule::Op op);

class FaultInjector {
public:
    explicit FaultInjector(uint64_t seed);

    // Throws std::invalid_argument on a rule that cannot apply (rate outside 0..1, a
    // register outside 0x00..0x3F, a negative skip). path must already be normalised.
    void inject(FaultRule rule);
    void clear() { rules_.clear(); }

    // Decides whether this call fails: the first rule that delivers a fault gives its errno,
    // and a line is added to the log. reg is used by readback rules only.
    std::optional<int> check(FaultRule::Op op, const std::string& path, int reg, uint64_t now_ns);

    const std::vector<std::string>& log() const { return log_; }

private:
    struct ActiveRule {
        FaultRule rule;
        int skip_left;
        int count_left;  // -1: unlimited
    };
    bool matches(const FaultRule& rule, FaultRule::Op op, const std::string& path, int reg) const;

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

}  // namespace zoomaf::twin
