#include "twin/faults.hpp"

#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace zoomaf::twin {

const char* op_name(FaultRule::Op op) {
    switch (op) {
        case FaultRule::Op::open:
            return "open";
        case FaultRule::Op::read:
            return "read";
        case FaultRule::Op::write:
            return "write";
        case FaultRule::Op::ioctl:
            return "ioctl";
        case FaultRule::Op::fopen:
            return "fopen";
        case FaultRule::Op::access:
            return "access";
        case FaultRule::Op::readback:
            return "readback";
        case FaultRule::Op::sleep:
            return "sleep";
        case FaultRule::Op::rename:
            return "rename";
        case FaultRule::Op::fsync:
            return "fsync";
    }
    return "?";
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

bool FaultInjector::matches(const FaultRule& rule, FaultRule::Op op, const std::string& path,
                            int reg) const {
    if (rule.op != op) return false;
    switch (op) {
        case FaultRule::Op::sleep:
            return true;
        case FaultRule::Op::readback:
            return rule.reg == -1 || rule.reg == reg;
        default:
            return rule.path.empty() || rule.path == path;
    }
}

std::optional<int> FaultInjector::check(FaultRule::Op op, const std::string& path, int reg,
                                        uint64_t now_ns) {
    for (auto& active : rules_) {
        if (active.count_left == 0 || !matches(active.rule, op, path, reg)) continue;
        if (active.skip_left > 0) {
            --active.skip_left;
            continue;
        }
        // Draw only for partial rates, so adding a certain rule never shifts the stream.
        if (active.rule.rate < 1.0 && !(random_.unit() < active.rule.rate)) continue;
        if (active.count_left > 0) --active.count_left;

        char line[256];
        std::string where = path;
        if (op == FaultRule::Op::readback) {
            char name[32];
            std::snprintf(name, sizeof name, "register 0x%02X", static_cast<unsigned>(reg));
            where = name;
        } else if (op == FaultRule::Op::sleep) {
            where = "sleep";
        }
        std::snprintf(line, sizeof line, "%llu.%09llu: injected %s fault on %s: %s",
                      static_cast<unsigned long long>(now_ns / 1000000000ull),
                      static_cast<unsigned long long>(now_ns % 1000000000ull), op_name(op),
                      where.c_str(), std::strerror(active.rule.error));
        log_.emplace_back(line);
        return active.rule.error;
    }
    return std::nullopt;
}

}  // namespace zoomaf::twin
