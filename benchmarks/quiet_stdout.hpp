// Sends the service's messages to /dev/null while a benchmark runs: printing them is part
// of the cost measured, showing them is not.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace zoomaf::bench {

class QuietStdout {
public:
    QuietStdout() {
        std::fflush(stdout);
        saved_ = ::dup(STDOUT_FILENO);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::close(null);
    }
    ~QuietStdout() {
        std::fflush(stdout);
        ::dup2(saved_, STDOUT_FILENO);
        ::close(saved_);
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int saved_;
};

}  // namespace zoomaf::bench
