#include "twin/module/voice_coil.hpp"

namespace zoomaf::twin {

void VoiceCoilDriver::receive(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;  // an address-only probe
    pointer_ = bytes[0];
    for (const uint8_t value : bytes.subspan(1)) {
        if (pointer_ < kRegisters) {
            registers_[pointer_] = value;
            writes_.push_back(Write{now_ns(), pointer_, value});
        } else {
            record_misuse("write to register %u, which the driver does not have", pointer_);
        }
        ++pointer_;
    }
}

void VoiceCoilDriver::transmit(std::span<uint8_t> bytes) {
    for (uint8_t& out : bytes) {
        if (pointer_ < kRegisters) {
            out = registers_[pointer_];
        } else {
            record_misuse("read of register %u, which the driver does not have", pointer_);
            out = 0;
        }
        ++pointer_;
    }
}

}  // namespace zoomaf::twin
