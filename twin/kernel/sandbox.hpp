// The board's file system. Every path the service names that is not a device node lives
// in a sandbox directory: "/usr/hx7/calibration/x.cfg" is <sandbox>/usr/hx7/calibration/x.cfg
// and a relative path resolves against <sandbox>/, the board's working directory. Paths are
// normalised lexically first, so ".." never leaves the sandbox.
#pragma once

#include <memory>
#include <string>

#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

class Sandbox {
public:
    // An empty root makes a fresh directory (mkdtemp under $TMPDIR or /tmp) that is removed
    // with the sandbox; a given root is created if missing and left in place.
    explicit Sandbox(const std::string& root);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    const std::string& root() const { return root_; }

    // The path as the board sees it: absolute, without ".", ".." or repeated slashes.
    static std::string normalise(const char* path);
    // /dev and /sys belong to the virtual kernel; nothing there maps into the sandbox.
    static bool is_kernel_path(const std::string& virtual_path);
    // Real path of a normalised board path.
    std::string real_path(const std::string& virtual_path) const;

    // Opens the real file behind a board path (mode 0666 with O_CREAT, like the service's
    // open). Returns nullptr with errno set on failure.
    std::unique_ptr<OpenFile> open(const std::string& virtual_path, int flags) const;

private:
    std::string root_;
    bool owned_ = false;
};

}  // namespace zoomaf::twin
