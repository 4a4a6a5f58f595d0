#include "twin/kernel/faults.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "twin/kernel/clock.hpp"

namespace zoomaf::twin {

const char* op_name(FaultRule::Op op) {
    using Op = FaultRule::Op;
    switch (op) {
        case Op::open:
            return "open";
        case Op::read:
            return "read";
        case Op::write:
            return "write";
        case Op::ioctl:
            return "ioctl";
        case Op::fsync:
            return "fsync";
        case Op::fstat:
            return "fstat";
        case Op::unlink:
            return "unlink";
        case Op::fopen:
            return "fopen";
        case Op::access:
            return "access";
        case Op::rename:
            return "rename";
        case Op::sleep:
            return "sleep";
        case Op::readback:
            return "readback";
        case Op::transfer:
            return "transfer";
        case Op::shmget:
            return "shmget";
        case Op::shmat:
            return "shmat";
        case Op::semget:
            return "semget";
        case Op::semctl:
            return "semctl";
        case Op::semop:
            return "semop";
    }
    return "?";
}

std::string i2c_device_name(int bus, int addr) {
    char name[32];
    std::snprintf(name, sizeof name, "/dev/i2c-%d 0x%02X", bus, static_cast<unsigned>(addr));
    return name;
}

std::string ipc_object_name(key_t key) {
    char name[32];
    std::snprintf(name, sizeof name, "IPC key 0x%X", static_cast<unsigned>(key));
    return name;
}

const char* fault_kind_name(FaultKind kind) {
    switch (kind) {
        case FaultKind::timing:
            return "timing";
        case FaultKind::chip_not_selected:
            return "chip not selected";
        case FaultKind::frame_length:
            return "frame length";
        case FaultKind::i2c_misuse:
            return "I2C misuse";
    }
    return "?";
}

FaultInjector::FaultInjector(uint64_t seed) : random_(seed_stream(seed, 2)) {}

void FaultInjector::inject(FaultRule rule) {
    if (!(rule.rate >= 0.0 && rule.rate <= 1.0)) {
        throw std::invalid_argument("twin fault rule: rate must be within 0..1");
    }
    if (rule.reg < -1 || rule.reg > 0x3F) {
        throw std::invalid_argument("twin fault rule: register must be -1 or 0x00..0x3F");
    }
    if (rule.skip < 0 || rule.count < -1) {
        throw std::invalid_argument("twin fault rule: negative skip or count");
    }
    const int skip = rule.skip;
    const int count = rule.count;
    rules_.push_back(ActiveRule{std::move(rule), skip, count});
}

bool FaultInjector::matches(const FaultRule& rule, FaultRule::Op op, const std::string& target,
                            int reg) {
    if (rule.op != op) return false;
    switch (op) {
        case FaultRule::Op::sleep:
            return true;
        case FaultRule::Op::readback:
            return rule.reg == -1 || rule.reg == reg;
        default:
            return rule.target.empty() || rule.target == target;
    }
}

std::optional<int> FaultInjector::check(FaultRule::Op op, const std::string& target, int reg,
                                        uint64_t now_ns) {
    for (auto& active : rules_) {
        if (active.count_left == 0 || !matches(active.rule, op, target, reg)) continue;
        if (active.skip_left > 0) {
            --active.skip_left;
            continue;
        }
        // Draw only for partial rates, so adding a certain rule never shifts the stream.
        if (active.rule.rate < 1.0 && !(random_.unit() < active.rule.rate)) continue;
        if (active.count_left > 0) --active.count_left;

        std::string where = target;
        if (op == FaultRule::Op::readback) {
            char name[48];
            std::snprintf(name, sizeof name, "%s register 0x%02X", target.c_str(),
                          static_cast<unsigned>(reg));
            where = name;
        }
        char line[320];
        std::snprintf(line, sizeof line, "%llu.%09llu: injected %s fault on %s: %s",
                      static_cast<unsigned long long>(now_ns / 1000000000ull),
                      static_cast<unsigned long long>(now_ns % 1000000000ull), op_name(op),
                      where.c_str(), std::strerror(active.rule.error));
        log_.emplace_back(line);
        return active.rule.error;
    }
    return std::nullopt;
}

void FaultLog::record(FaultKind kind, std::string text) {
    faults_.push_back(RecordedFault{kind, clock_.now_ns(), std::move(text)});
}

size_t FaultLog::count(FaultKind kind) const {
    return static_cast<size_t>(std::count_if(
        faults_.begin(), faults_.end(), [kind](const RecordedFault& f) { return f.kind == kind; }));
}

}  // namespace zoomaf::twin
