// What the service printed: its messages go to stdout, letter for letter, and tests compare
// them. Shared by every subsystem's fixture.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace zoomaf::test {

// Runs f and returns what it printed on stdout.
template <class F>
std::string captured(F&& f) {
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    f();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// Runs f and drops what it printed.
template <class F>
void quietly(F&& f) {
    (void)captured(f);
}

}  // namespace zoomaf::test
