// A sysfs attribute file (/sys/class/gpio/export, gpioN/value ...): reading shows the
// attribute's text, generated when a read starts at offset 0 (each open starts there);
// every write hands the written bytes to the attribute's store handler, as sysfs does.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

class SysfsAttribute final : public DeviceNode {
public:
    // show fills the text and returns 0, or returns an errno; an empty show makes reads
    // fail with EIO (a write-only attribute). store returns 0 or an errno.
    using Show = std::function<int(std::string& text)>;
    using Store = std::function<int(std::string_view written)>;

    SysfsAttribute(Show show, Store store) : show_(std::move(show)), store_(std::move(store)) {}
    std::unique_ptr<OpenFile> open(int flags) override;

private:
    Show show_;
    Store store_;
};

// The text a sysfs store handler parses: the bytes up to the first NUL or newline.
std::string_view sysfs_token(std::string_view written);
// A whole decimal number (optionally signed) as the kernel's kstrtol takes it; false when
// the token is empty or holds anything else.
bool parse_sysfs_long(std::string_view written, long& value);

}  // namespace zoomaf::twin
