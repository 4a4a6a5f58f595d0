// A platform that forwards every call to another one (normally a twin board) and records
// what the service asked of the kernel: which paths it opened and the exact bytes it wrote.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/platform.hpp"

namespace zoomaf::test {

class RecordingPlatform final : public Platform {
public:
    struct Write {
        std::string path;
        std::string bytes;
    };

    explicit RecordingPlatform(Platform& inner) : inner_(inner) {}

    std::vector<std::string> opens() const {
        std::lock_guard lock(mutex_);
        return opens_;
    }
    std::vector<Write> writes() const {
        std::lock_guard lock(mutex_);
        return writes_;
    }
    std::vector<Write> writes_to(const std::string& path) const {
        std::vector<Write> matching;
        for (const Write& w : writes())
            if (w.path == path) matching.push_back(w);
        return matching;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        opens_.clear();
        writes_.clear();
    }

    int open(const char* path, int flags) override {
        const int fd = inner_.open(path, flags);
        std::lock_guard lock(mutex_);
        opens_.push_back(path);
        if (fd >= 0) paths_[fd] = path;
        return fd;
    }
    int close(int fd) override {
        {
            std::lock_guard lock(mutex_);
            paths_.erase(fd);
        }
        return inner_.close(fd);
    }
    ssize_t read(int fd, void* buf, size_t n) override { return inner_.read(fd, buf, n); }
    ssize_t write(int fd, const void* buf, size_t n) override {
        {
            std::lock_guard lock(mutex_);
            writes_.push_back({paths_[fd], std::string(static_cast<const char*>(buf), n)});
        }
        return inner_.write(fd, buf, n);
    }
    int ioctl(int fd, unsigned long request, void* arg) override {
        return inner_.ioctl(fd, request, arg);
    }
    int access(const char* path, int mode) override { return inner_.access(path, mode); }
    FILE* fopen(const char* path, const char* mode) override { return inner_.fopen(path, mode); }
    int shmget(key_t key, size_t size, int flags) override {
        return inner_.shmget(key, size, flags);
    }
    void* shmat(int id, const void* addr, int flags) override {
        return inner_.shmat(id, addr, flags);
    }
    int semget(key_t key, int nsems, int flags) override {
        return inner_.semget(key, nsems, flags);
    }
    int semctl(int id, int num, int cmd, int arg) override {
        return inner_.semctl(id, num, cmd, arg);
    }
    int semop(int id, sembuf* ops, size_t nops) override { return inner_.semop(id, ops, nops); }
    int sleep_ns(uint64_t ns) override { return inner_.sleep_ns(ns); }
    timespec monotonic() override { return inner_.monotonic(); }
    timeval wall() override { return inner_.wall(); }

private:
    Platform& inner_;
    mutable std::mutex mutex_;
    std::map<int, std::string> paths_;
    std::vector<std::string> opens_;
    std::vector<Write> writes_;
};

}  // namespace zoomaf::test
