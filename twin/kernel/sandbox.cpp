#include "twin/kernel/sandbox.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace zoomaf::twin {

namespace {

// A regular file of the sandbox: the real descriptor behind a virtual one.
class RealFile final : public OpenFile {
public:
    explicit RealFile(int fd) : fd_(fd) {}
    ~RealFile() override { ::close(fd_); }
    ssize_t read(void* buf, size_t n) override { return ::read(fd_, buf, n); }
    ssize_t write(const void* buf, size_t n) override { return ::write(fd_, buf, n); }
    int fsync() override { return ::fsync(fd_); }
    int fstat(struct stat* st) override { return ::fstat(fd_, st); }

private:
    int fd_;
};

}  // namespace

Sandbox::Sandbox(const std::string& root) {
    namespace fs = std::filesystem;
    if (root.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern =
            std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/zoomaf-twin-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::system_error(errno, std::generic_category(), "twin: mkdtemp " + pattern);
        }
        root_ = pattern;
        owned_ = true;
    } else {
        root_ = fs::absolute(root).lexically_normal().string();
        while (root_.size() > 1 && root_.back() == '/') root_.pop_back();
        fs::create_directories(root_);
    }
}

Sandbox::~Sandbox() {
    if (owned_) {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }
}

std::string Sandbox::normalise(const char* path) {
    std::vector<std::string> parts;
    std::string part;
    auto flush = [&] {
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        part.clear();
    };
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/') {
            flush();
        } else {
            part += *p;
        }
    }
    flush();
    std::string out;
    for (const auto& each : parts) out += "/" + each;
    return out.empty() ? "/" : out;
}

bool Sandbox::is_kernel_path(const std::string& virtual_path) {
    for (const char* top : {"/dev", "/sys"}) {
        const std::string prefix = top;
        if (virtual_path == prefix || virtual_path.rfind(prefix + "/", 0) == 0) return true;
    }
    return false;
}

std::string Sandbox::real_path(const std::string& virtual_path) const {
    return virtual_path == "/" ? root_ : root_ + virtual_path;
}

std::unique_ptr<OpenFile> Sandbox::open(const std::string& virtual_path, int flags) const {
    const int fd = ::open(real_path(virtual_path).c_str(), flags | O_CLOEXEC, 0666);
    if (fd < 0) return nullptr;
    return std::make_unique<RealFile>(fd);
}

}  // namespace zoomaf::twin
