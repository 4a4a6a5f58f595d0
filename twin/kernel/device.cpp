#include "twin/kernel/device.hpp"

#include <cerrno>
#include <stdexcept>

namespace zoomaf::twin {

int OpenFile::ioctl(unsigned long /*request*/, void* /*arg*/) {
    errno = ENOTTY;
    return -1;
}

int OpenFile::fsync() {
    errno = EINVAL;
    return -1;
}

int OpenFile::fstat(struct stat* st) {
    *st = {};
    st->st_mode = S_IFCHR | 0666;
    st->st_nlink = 1;
    return 0;
}

void DeviceTable::add(const std::string& path, std::shared_ptr<DeviceNode> node) {
    if (!nodes_.emplace(path, std::move(node)).second) {
        throw std::logic_error("twin: two device nodes at " + path);
    }
}

DeviceNode* DeviceTable::find(const std::string& path) const {
    auto it = nodes_.find(path);
    return it == nodes_.end() ? nullptr : it->second.get();
}

bool DeviceTable::is_directory(const std::string& path) const {
    const std::string prefix = path == "/" ? path : path + "/";
    auto it = nodes_.lower_bound(prefix);
    return it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace zoomaf::twin
