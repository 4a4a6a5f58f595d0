#include "twin/kernel/gpio_sysfs.hpp"

#include <cerrno>

#include "twin/kernel/sysfs_attribute.hpp"

namespace zoomaf::twin {

GpioBank::GpioBank(DeviceTable& devices, const Clock& clock) : devices_(devices), clock_(clock) {
    devices_.add(std::string(kRoot) + "/export",
                 std::make_shared<SysfsAttribute>(
                     nullptr, [this](std::string_view w) { return store_export(w); }));
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

void GpioBank::add_line_files(int line) {
    Line& l = lines_[line];
    auto show_direction = [&l](std::string& text) {
        text = l.out ? "out\n" : "in\n";
        return 0;
    };
    auto store_direction = [this, &l, line](std::string_view written) {
        const std::string_view token = sysfs_token(written);
        if (token != "in" && token != "out") return EINVAL;
        l.out = token == "out";
        update_physical(line);
        return 0;
    };
    auto show_active_low = [&l](std::string& text) {
        text = l.active_low ? "1\n" : "0\n";
        return 0;
    };
    auto store_active_low = [&l](std::string_view written) {
        long value = 0;
        if (!parse_sysfs_long(written, value)) return EINVAL;
        l.active_low = value != 0;
        return 0;
    };
    auto show_value = [&l](std::string& text) {
        text = (l.physical ^ (l.active_low ? 1 : 0)) != 0 ? "1\n" : "0\n";
        return 0;
    };
    auto store_value = [this, &l, line](std::string_view written) {
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
