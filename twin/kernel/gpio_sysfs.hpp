// The board's GPIO lines and their sysfs interface under /sys/class/gpio, with the kernel's
// semantics: writing a line number to export creates gpioN/ with direction ("in" or "out"),
// active_low and value; files of a line that is not exported do not exist; value reads the
// logical level (physical XOR active_low) and writes it on outputs only; new lines are
// inputs. The service never gives a line back, so unexport is not emulated.
//
// An output's physical level is what was written; an input's comes from the device wired
// to it (drive_input). Every change of a physical level is recorded with the board time and
// reported to the listener, which is how the driver chip sees chip select and VD.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "twin/kernel/clock.hpp"
#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

struct GpioEdge {
    uint64_t time_ns;  // board monotonic time of the change
    int level;         // new physical level, 0 or 1
};

class GpioBank {
public:
    static constexpr int kLineCount = 160;  // RK3588: 5 banks of 32 lines
    static constexpr const char* kRoot = "/sys/class/gpio";

    using Listener = std::function<void(int line, int level)>;

    // Registers export in devices; gpioN/ files come with export.
    GpioBank(DeviceTable& devices, const Clock& clock);
    GpioBank(const GpioBank&) = delete;
    GpioBank& operator=(const GpioBank&) = delete;

    void set_listener(Listener listener) { listener_ = std::move(listener); }

    // The level a device drives onto an input line (what an input reads physically).
    void drive_input(int line, int level);
    // The same before the board starts: sets the level without recording an edge.
    void preset_input(int line, int level);

    // Control face; line must be within 0..kLineCount-1.
    int physical(int line) const { return lines_.at(line).physical; }
    bool exported(int line) const { return lines_.at(line).exported; }
    bool active_low(int line) const { return lines_.at(line).active_low; }
    bool direction_out(int line) const { return lines_.at(line).out; }
    const std::vector<GpioEdge>& edges(int line) const { return lines_.at(line).edges; }

private:
    struct Line {
        bool exported = false;
        bool out = false;
        bool active_low = false;
        int out_level = 0;  // physical level latched for output
        int in_level = 0;   // physical level driven by the device on the line
        int physical = 0;
        std::vector<GpioEdge> edges;
    };

    int store_export(std::string_view written);
    void add_line_files(int line);
    std::string line_path(int line, const char* file) const;
    void update_physical(int line);

    DeviceTable& devices_;
    const Clock& clock_;
    Listener listener_;
    std::array<Line, kLineCount> lines_{};
};

}  // namespace zoomaf::twin
