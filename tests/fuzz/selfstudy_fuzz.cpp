// libFuzzer target of the self-study store's load at start (InitGlobalClearinfo): the input
// is the file "./laserclearinfo", after one byte that chooses what is at its path. Besides
// the sanitizers' checks: a regular file no larger than the store is loaded byte for byte
// with the rest unlearned, anything else loads nothing and keeps the file from being
// replaced.
#include <csignal>
#include <cstdint>
#include <cstring>

#include "service/selfstudy_internal.hpp"
#include "tests/fuzz/fuzz_platform.hpp"
#include "zoomaf/app_pdaf.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zoomaf::fuzz;
    FuzzPlatform& board = fuzz_platform();
    Input in(data, size);
    const FuzzPlatform::FileKind kind = file_kind(in.byte());
    const std::string_view image = in.rest();
    board.set_file(SELFSTUDY_FILE, image, kind);

    // The load installs the service's fatal-signal handler; the fuzzer's own must stay.
    struct sigaction saved[3];
    const int signals[3] = {SIGINT, SIGSEGV, SIGTERM};
    for (int i = 0; i < 3; ++i) sigaction(signals[i], nullptr, &saved[i]);
    require(InitGlobalClearinfo() == 0);
    for (int i = 0; i < 3; ++i) sigaction(signals[i], &saved[i], nullptr);
    std::fflush(stdout);

    const auto* store = reinterpret_cast<const char*>(selfstudy_point);
    require(store != nullptr);
    const bool loaded = kind == FuzzPlatform::FileKind::regular;
    require(zoomaf::selfstudy::store_unread.load() == !loaded);
    const size_t kept = loaded ? image.size() : 0;
    require(std::memcmp(store, image.data(), kept) == 0);
    const size_t checked = std::min<size_t>(kept + 4096, SELFSTUDY_STORE_BYTES);
    for (size_t i = kept; i < checked; ++i) require(store[i] == 0);
    return 0;
}
