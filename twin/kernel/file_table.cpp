#include "twin/kernel/file_table.hpp"

#include <fcntl.h>

namespace zoomaf::twin {

bool FileTable::Entry::readable() const {
    return access_mode != O_WRONLY;
}
bool FileTable::Entry::writable() const {
    return access_mode != O_RDONLY;
}

int FileTable::insert(std::string path, int flags, std::unique_ptr<OpenFile> file) {
    int fd = kFirstFd;
    for (const auto& [used, entry] : entries_) {
        if (used != fd) break;
        ++fd;
    }
    entries_.emplace(fd, Entry{std::move(path), flags & O_ACCMODE, std::move(file)});
    return fd;
}

FileTable::Entry* FileTable::find(int fd) {
    auto it = entries_.find(fd);
    return it == entries_.end() ? nullptr : &it->second;
}

bool FileTable::erase(int fd) {
    return entries_.erase(fd) == 1;
}

}  // namespace zoomaf::twin
