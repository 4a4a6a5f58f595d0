// The board's descriptor table: virtual descriptors (from 100 up, so they never look like
// stdio or a real descriptor of the test process) to open files, each remembering the
// path it was opened by and its access mode.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "twin/kernel/device.hpp"

namespace zoomaf::twin {

class FileTable {
public:
    static constexpr int kFirstFd = 100;

    struct Entry {
        std::string path;  // normalised board path it was opened by
        int access_mode;   // O_RDONLY, O_WRONLY or O_RDWR
        std::unique_ptr<OpenFile> file;
        bool readable() const;
        bool writable() const;
    };

    // Takes the file and returns the lowest free descriptor, like the kernel.
    int insert(std::string path, int flags, std::unique_ptr<OpenFile> file);
    // The entry of fd, or nullptr for a descriptor that is not open.
    Entry* find(int fd);
    // False when fd is not open.
    bool erase(int fd);
    size_t open_count() const { return entries_.size(); }

private:
    std::map<int, Entry> entries_;
};

}  // namespace zoomaf::twin
