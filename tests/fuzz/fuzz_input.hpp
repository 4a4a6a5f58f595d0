// The fuzz input read front to back (zeros once it runs out), and the check of a promise
// that traps when broken, shared by every fuzz target.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zoomaf::fuzz {

class Input {
public:
    Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
    // A little-endian value of the next bytes.
    uint64_t bits(int bytes) {
        uint64_t value = 0;
        for (int i = 0; i < bytes; ++i) value |= uint64_t{byte()} << (8 * i);
        return value;
    }
    uint16_t u16() { return static_cast<uint16_t>(bits(2)); }
    uint32_t u32() { return static_cast<uint32_t>(bits(4)); }
    uint64_t u64() { return bits(8); }
    int64_t i64() { return static_cast<int64_t>(bits(8)); }
    // One of n choices.
    unsigned pick(unsigned n) { return byte() % n; }
    // The rest of the input.
    std::string_view rest() {
        const std::string_view all(reinterpret_cast<const char*>(data_) + pos_, size_ - pos_);
        pos_ = size_;
        return all;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

[[noreturn]] inline void broken_promise() {
    __builtin_trap();
}
inline void require(bool promise) {
    if (!promise) broken_promise();
}

}  // namespace zoomaf::fuzz
