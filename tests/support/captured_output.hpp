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

// How many times part occurs in text.
inline size_t occurrences(const std::string& text, const std::string& part) {
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
    return n;
}

// Runs f and drops what it printed.
template <class F>
void quietly(F&& f) {
    (void)captured(f);
}

}  // namespace zoomaf::test
