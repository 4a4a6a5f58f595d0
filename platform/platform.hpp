// The seam between the service and the kernel. Every device, file, IPC, sleep and clock
// call of the service goes through platform(): on the board it is LinuxPlatform (one libc
// call per method), on the digital twin it is a simulated board.
#pragma once

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace zoomaf {

class Platform {
public:
    virtual ~Platform() = default;
    // device nodes and files (spidev, i2c-dev, sysfs GPIO, calibration files)
    virtual int open(const char* path, int flags) = 0;
    virtual int close(int fd) = 0;
    virtual ssize_t read(int fd, void* buf, size_t n) = 0;
    virtual ssize_t write(int fd, const void* buf, size_t n) = 0;
    virtual int ioctl(int fd, unsigned long request, void* arg) = 0;
    virtual int access(const char* path, int mode) = 0;
    virtual FILE* fopen(const char* path, const char* mode) = 0;
    // Replacing a file whole: write a new one beside it, flush it to disk, rename it over.
    virtual int rename(const char* from, const char* to) = 0;
    virtual int fsync(int fd) = 0;
    // What a descriptor refers to: data files are read only when they are regular files.
    virtual int fstat(int fd, struct stat* st) = 0;
    // Removes a leftover temporary file (a link itself, never what it points to).
    virtual int unlink(const char* path) = 0;
    // The working directory relative paths resolve against (for messages).
    virtual char* getcwd(char* buf, size_t size) = 0;
    // System V IPC
    virtual int shmget(key_t key, size_t size, int flags) = 0;
    virtual void* shmat(int id, const void* addr, int flags) = 0;
    virtual int semget(key_t key, int nsems, int flags) = 0;
    virtual int semctl(int id, int num, int cmd, int arg) = 0;
    virtual int semop(int id, sembuf* ops, size_t nops) = 0;
    // semop that gives up after timeout (EAGAIN): a reader never waits for ever on a
    // semaphore that another process holds.
    virtual int semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) = 0;
    // time
    // Every nanosleep/usleep/sleep of the service; returns nanosleep's result (0 or -1)
    // so that the callers that report a failed sleep can do so.
    virtual int sleep_ns(uint64_t ns) = 0;
    virtual timespec monotonic() = 0;  // clock_gettime(CLOCK_MONOTONIC)
    virtual timeval wall() = 0;        // gettimeofday
};

// The real kernel.
class LinuxPlatform : public Platform {
public:
    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buf, size_t n) override;
    ssize_t write(int fd, const void* buf, size_t n) override;
    int ioctl(int fd, unsigned long request, void* arg) override;
    int access(const char* path, int mode) override;
    FILE* fopen(const char* path, const char* mode) override;
    int rename(const char* from, const char* to) override;
    int fsync(int fd) override;
    int fstat(int fd, struct stat* st) override;
    int unlink(const char* path) override;
    char* getcwd(char* buf, size_t size) override;
    int shmget(key_t key, size_t size, int flags) override;
    void* shmat(int id, const void* addr, int flags) override;
    int semget(key_t key, int nsems, int flags) override;
    int semctl(int id, int num, int cmd, int arg) override;
    int semop(int id, sembuf* ops, size_t nops) override;
    int semtimedop(int id, sembuf* ops, size_t nops, const timespec* timeout) override;
    int sleep_ns(uint64_t ns) override;
    timespec monotonic() override;
    timeval wall() override;
};

// The platform in force: LinuxPlatform unless another one is installed.
Platform& platform();
// Installs p (nullptr restores LinuxPlatform). Tests, the bench's --sim and the scenario
// runner install a twin board before the service starts and remove it after it stopped.
void install_platform(Platform* p);

}  // namespace zoomaf
