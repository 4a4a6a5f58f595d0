#include "twin/kernel/sysfs_attribute.hpp"

#include <cerrno>
#include <charconv>
#include <cstring>

namespace zoomaf::twin {

namespace {

class SysfsAttributeFile final : public OpenFile {
public:
    SysfsAttributeFile(SysfsAttribute::Show show, SysfsAttribute::Store store)
        : show_(std::move(show)), store_(std::move(store)) {}

    ssize_t read(void* buf, size_t n) override {
        if (!show_) return fail(EIO);
        if (offset_ == 0) {
            text_.clear();
            if (const int error = show_(text_); error != 0) return fail(error);
        }
        const size_t count = offset_ < text_.size() ? std::min(n, text_.size() - offset_) : 0;
        std::memcpy(buf, text_.data() + offset_, count);
        offset_ += count;
        return static_cast<ssize_t>(count);
    }

    ssize_t write(const void* buf, size_t n) override {
        if (n == 0) return 0;
        if (!store_) return fail(EIO);
        if (const int error = store_({static_cast<const char*>(buf), n}); error != 0) {
            return fail(error);
        }
        return static_cast<ssize_t>(n);
    }

private:
    static ssize_t fail(int error) {
        errno = error;
        return -1;
    }

    SysfsAttribute::Show show_;
    SysfsAttribute::Store store_;
    std::string text_;
    size_t offset_ = 0;
};

}  // namespace

std::unique_ptr<OpenFile> SysfsAttribute::open(int /*flags*/) {
    return std::make_unique<SysfsAttributeFile>(show_, store_);
}

std::string_view sysfs_token(std::string_view written) {
    const size_t end = written.find_first_of(std::string_view("\0\n", 2));
    return written.substr(0, end);
}

bool parse_sysfs_long(std::string_view written, long& value) {
    std::string_view token = sysfs_token(written);
    if (!token.empty() && token.front() == '+') token.remove_prefix(1);
    if (token.empty()) return false;
    const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    return error == std::errc() && end == token.data() + token.size();
}

}  // namespace zoomaf::twin
