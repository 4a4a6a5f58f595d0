#include "twin/module/imx586.hpp"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace zoomaf::twin {

namespace {

uint16_t coordinate(uint8_t high, uint8_t low) {
    return static_cast<uint16_t>((high & 31) << 8 | low);
}

void check_index(int index, int count, const char* what) {
    if (index < 0 || index >= count) {
        throw std::out_of_range(std::string("twin IMX586: no ") + what + " " +
                                std::to_string(index));
    }
}

}  // namespace

Imx586::Imx586(const DeviceContext& context) : RegisterFile16("IMX586", 0x10000, context) {
    using A = Access;
    name_register(kGroupHold, "group hold", A::read_write);
    name_register(kGainHigh, "analogue gain bits 9..8", A::read_write);
    name_register(kGainLow, "analogue gain bits 7..0", A::read_write);
    name_register(kAreaMode, "PDAF area mode", A::read_write);
    for (uint16_t i = 0; i < 8; ++i) name_register(kDccRegion + i, "DCC region", A::read_write);
    for (uint16_t k = 0; k < kWindows; ++k) {
        name_register(kWindowEnable + k, "PDAF window enable", A::read_write);
        for (uint16_t i = 0; i < 8; ++i) {
            name_register(kWindowGeometry + 8 * k + i, "PDAF window geometry", A::read_write);
        }
    }
    // The PD set-up registers the calibration sets write.
    for (uint16_t addr : {0x0101, 0x0B00, 0x3606, 0x3E35, 0x3E36, 0x3D0D, 0x3D10}) {
        name_register(addr, "PD set-up", A::read_write);
    }
    name_register(kPdOutput, "PD output", A::read_write);
    for (uint16_t i = 0; i < 192; ++i) {
        name_register(kLrcLeft + i, "LRC gain left", A::read_write);
        name_register(kLrcRight + i, "LRC gain right", A::read_write);
    }
    for (uint16_t i = 0; i < kPdClBlockBytes; ++i) {
        name_register(kPdClBlock + i, "PD/CL block", A::read_only);
    }
    name_register(kPdReadHold, "PD readout hold", A::read_write);
}

PdClBytes Imx586::encode_pd_cl(int pd, int cl) {
    pd = std::clamp(pd, kPdMin, kPdMax);
    cl = std::clamp(cl, 0, kClMax);
    // The decoding the service applies: v = field - 1, PD = v - 2046 when v >= 1024, else v.
    const int field = pd >= -1 ? pd + 1 : pd + 2047;
    return PdClBytes{static_cast<uint8_t>(cl >> 3),
                     static_cast<uint8_t>((cl & 7) << 5 | field >> 6),
                     static_cast<uint8_t>((field & 0x3F) << 2), 0};
}

void Imx586::receive(std::span<const uint8_t> bytes) {
    if (!group_hold_ || bytes.size() < 2) {
        RegisterFile16::receive(bytes);
        return;
    }
    // Under group hold: keep the values back; the hold switch itself acts at once.
    uint16_t addr = static_cast<uint16_t>(bytes[0] << 8 | bytes[1]);
    for (size_t i = 2; i < bytes.size(); ++i, ++addr) {
        if (!group_hold_) {
            // Released inside this message: the rest goes through as written.
            std::vector<uint8_t> rest{static_cast<uint8_t>(addr >> 8),
                                      static_cast<uint8_t>(addr & 0xFF)};
            rest.insert(rest.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i), bytes.end());
            RegisterFile16::receive(rest);
            return;
        }
        if (addr == kGroupHold) {
            const uint8_t message[3] = {static_cast<uint8_t>(addr >> 8),
                                        static_cast<uint8_t>(addr & 0xFF), bytes[i]};
            RegisterFile16::receive(message);
        } else {
            held_.push_back(HeldWrite{addr, bytes[i]});
        }
    }
    // The pointer ends after the last byte, as for any write (an address-only message).
    const uint8_t pointer[2] = {static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr & 0xFF)};
    RegisterFile16::receive(pointer);
}

void Imx586::on_write(uint16_t addr, uint8_t value) {
    switch (addr) {
        case kGroupHold:
            if ((value & 1) != 0) {
                group_hold_ = true;
            } else if (group_hold_) {
                release_group_hold();
            }
            break;
        case kPdReadHold:
            pd_read_hold_ = (value & 1) != 0;
            publish_frame();
            break;
        case kAreaMode:
        case kPdOutput:
            publish_frame();
            break;
        default:
            if (addr >= kWindowEnable && addr < kWindowEnable + kWindows) publish_frame();
            break;
    }
}

void Imx586::release_group_hold() {
    group_hold_ = false;
    std::vector<HeldWrite> held;
    held.swap(held_);
    for (const HeldWrite& w : held) {
        const uint8_t message[3] = {static_cast<uint8_t>(w.addr >> 8),
                                    static_cast<uint8_t>(w.addr & 0xFF), w.value};
        RegisterFile16::receive(message);
    }
    // Back to the hold register: the bus moves the pointer past it when this returns.
    const uint8_t pointer[2] = {static_cast<uint8_t>(kGroupHold >> 8),
                                static_cast<uint8_t>(kGroupHold & 0xFF)};
    RegisterFile16::receive(pointer);
}

void Imx586::store_window(uint16_t first, const Measurement& m) {
    const PdClBytes bytes = encode_pd_cl(m.pd, m.cl);
    set_byte(first, bytes.b0);
    set_byte(first + 1u, bytes.b1);
    set_byte(first + 2u, bytes.b2);
    set_byte(first + 3u, bytes.b3);
}

void Imx586::publish_frame() {
    if (pd_read_hold_) return;
    for (uint16_t i = 0; i < kPdClBlockBytes; ++i) set_byte(kPdClBlock + i, 0);
    if (!pd_output()) return;
    if (area_mode() == kAreaModeWindows) {
        for (int k = 0; k < kWindows; ++k) {
            if ((byte(kWindowEnable + k) & 1) != 0) store_window(kPdClBlock + 4 * k, windows_[k]);
        }
    } else if (area_mode() == kAreaModeGrid) {
        for (int index = 0; index < kGridColumns * kGridRows; ++index) {
            const int row = index / kGridColumns;
            const int column = index % kGridColumns;
            store_window(static_cast<uint16_t>(kPdClBlock + 64 * row + 4 * column), grid_[index]);
        }
    }
}

void Imx586::set_window_pd_cl(int window, int pd, int cl) {
    check_index(window, kWindows, "PDAF window");
    windows_[window] = Measurement{pd, cl};
    publish_frame();
}

void Imx586::set_grid_pd_cl(int index, int pd, int cl) {
    check_index(index, kGridColumns * kGridRows, "PDAF grid window");
    grid_[index] = Measurement{pd, cl};
    publish_frame();
}

void Imx586::set_gain_code(int code) {
    check_index(code, 1024, "gain code");
    set_byte(kGainHigh, static_cast<uint8_t>(code >> 8));
    set_byte(kGainLow, static_cast<uint8_t>(code & 0xFF));
}

int Imx586::gain_code() const {
    return (byte(kGainHigh) & 3) << 8 | byte(kGainLow);
}

PdWindowGeometry Imx586::window(int k) const {
    check_index(k, kWindows, "PDAF window");
    const uint16_t first = static_cast<uint16_t>(kWindowGeometry + 8 * k);
    auto at = [&](int i) { return byte(first + static_cast<uint32_t>(i)); };
    return PdWindowGeometry{coordinate(at(0), at(1)), coordinate(at(2), at(3)),
                            coordinate(at(4), at(5)), coordinate(at(6), at(7)),
                            (byte(kWindowEnable + static_cast<uint32_t>(k)) & 1) != 0};
}

}  // namespace zoomaf::twin
