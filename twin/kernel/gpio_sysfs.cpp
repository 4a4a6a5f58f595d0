#include "twin/gpio_sysfs.hpp"

#include <cerrno>

#include "twin/sysfs_attribute.hpp"

namespace zoomaf::twin {

GpioBank::GpioBank(DeviceTable& devices, const Clock& clock) : devices_(devices), clock_(clock) {
    devices_.add(std::string(kRoot) + "/export",
                 std::make_shared<SysfsAttribute>(
                     nullptr, [this](std::string_view w) { return store_export(w); }));
    devices_.add(std::string(kRoot) + "/unexport",
                 std::make_shared<SysfsAttribute>(
                     nullptr, [this](std::string_view w) { return store_unexport(w); }));
}

std::string GpioBank::line_path(int line, const char* file) const {
    return std::string(kRoot) + "/gpio" + std::to_string(line) + "/" + file;
}

namespace {
// The line number of an export/unexport write, or -1 when it is not a valid line.
int parse_line(std::string_view written) {
    long line = -1;
    if (!parse_sysfs_long(written, line) || line < 0 || line >= GpioBank::kLineCount) return -1;
    return static_cast<int>(line);
}
}  // namespace

int GpioBank::store_export(std::string_view written) {
    const int line = parse_line(written);
    if (line < 0) return EINVAL;
    if (lines_[line].exported) return EBUSY;
    lines_[line].exported = true;
    add_line_files(line);
    return 0;
}

int GpioBank::store_unexport(std::string_view written) {
    const int line = parse_line(written);
    if (line < 0 || !lines_[line].exported) return EINVAL;
    Line& l = lines_[line];
    l.exported = false;
    l.active_low = false;  // the kernel drops the polarity flag when the line is freed
    for (const char* file : {"direction", "active_low", "value"}) {
        devices_.remove(line_path(line, file));
    }
    return 0;
}

void GpioBank::add_line_files(int line) {
    // Each handler checks the line is still exported: a file opened before an unexport
    // answers ENODEV afterwards, as the kernel's does.
    auto show_direction = [this, line](std::string& text) {
        if (!lines_[line].exported) return ENODEV;
        text = lines_[line].out ? "out\n" : "in\n";
        return 0;
    };
    auto store_direction = [this, line](std::string_view written) {
        Line& l = lines_[line];
        if (!l.exported) return ENODEV;
        const std::string_view token = sysfs_token(written);
        if (token == "in") {
            l.out = false;
        } else if (token == "out") {
            l.out = true;
        } else if (token == "high" || token == "low") {  // output with a physical level
            l.out = true;
            l.out_level = token == "high" ? 1 : 0;
        } else {
            return EINVAL;
        }
        update_physical(line);
        return 0;
    };
    auto show_active_low = [this, line](std::string& text) {
        if (!lines_[line].exported) return ENODEV;
        text = lines_[line].active_low ? "1\n" : "0\n";
        return 0;
    };
    auto store_active_low = [this, line](std::string_view written) {
        if (!lines_[line].exported) return ENODEV;
        long value = 0;
        if (!parse_sysfs_long(written, value)) return EINVAL;
        lines_[line].active_low = value != 0;
        return 0;
    };
    auto show_value = [this, line](std::string& text) {
        const Line& l = lines_[line];
        if (!l.exported) return ENODEV;
        text = (l.physical ^ (l.active_low ? 1 : 0)) != 0 ? "1\n" : "0\n";
        return 0;
    };
    auto store_value = [this, line](std::string_view written) {
        Line& l = lines_[line];
        if (!l.exported) return ENODEV;
        if (!l.out) return EPERM;
        long value = 0;
        if (!parse_sysfs_long(written, value)) return EINVAL;
        l.out_level = (value != 0 ? 1 : 0) ^ (l.active_low ? 1 : 0);
        update_physical(line);
        return 0;
    };
    devices_.add(line_path(line, "direction"),
                 std::make_shared<SysfsAttribute>(show_direction, store_direction));
    devices_.add(line_path(line, "active_low"),
                 std::make_shared<SysfsAttribute>(show_active_low, store_active_low));
    devices_.add(line_path(line, "value"),
                 std::make_shared<SysfsAttribute>(show_value, store_value));
}

void GpioBank::drive_input(int line, int level) {
    lines_.at(line).in_level = level != 0 ? 1 : 0;
    update_physical(line);
}

void GpioBank::preset_input(int line, int level) {
    Line& l = lines_.at(line);
    l.in_level = level != 0 ? 1 : 0;
    if (!l.out) l.physical = l.in_level;
}

void GpioBank::update_physical(int line) {
    Line& l = lines_[line];
    const int level = l.out ? l.out_level : l.in_level;
    if (level == l.physical) return;
    l.physical = level;
    l.edges.push_back(GpioEdge{clock_.now_ns(), level});
    if (listener_) listener_(line, level);
}

}  // namespace zoomaf::twin
