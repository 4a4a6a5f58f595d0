// zoomaf-shm: field tool for the assist channels, built on the service's own channel code.
// It publishes what the laser, the user interface or the video encoder would (a distance,
// an area-focus point, focus values) and dumps any channel, on the real System V IPC of
// the machine it runs on.
//
// Exit status: 0 done, 2 bad arguments (one line on stderr), 1 a system failure.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "channels/channel_layout.hpp"
#include "ipc/ipc_internal.hpp"
#include "ipc/key_offset_platform.hpp"
#include "zoomaf/assist_info.h"
#include "zoomaf/vrel_sharememory.h"

namespace {

constexpr int kExitSystem = 1;
constexpr int kExitUsage = 2;
// Payload bytes a dump shows in hex; the video channels hold megabytes.
constexpr size_t kDumpedBytes = 4096;
constexpr uint64_t kSemaphoreWaitNs = 2'000'000'000;
constexpr const char* kOffsetVariable = "ZOOMAF_SHM_KEY_OFFSET";

constexpr const char* kHelp =
    "usage: zoomaf-shm [--key-offset N] COMMAND\n"
    "\n"
    "Publishes into and dumps the assist channels of the focus service (System V shared\n"
    "memory, one semaphore per channel).\n"
    "\n"
    "commands:\n"
    "  laser <tenths of a metre>  publish a laser distance on channel 12 (0..65535,\n"
    "                             65535 = no echo)\n"
    "  point <x> <y>              publish an area-focus point on channel 19 (int32 each)\n"
    "  fv <fv1> <fv2>             publish focus values on channel 30 (int64 each)\n"
    "  dump <channel>             show channel 0..33: update flag, reserved words and the\n"
    "                             payload in hex (first 4096 bytes), decoded for 12, 19, 30;\n"
    "                             it does not consume the update\n"
    "  --help                     this text\n"
    "\n"
    "A channel that does not exist yet is created, as the service itself does.\n"
    "\n"
    "options:\n"
    "  --key-offset N  add N (0..4294967295, decimal or 0x hexadecimal) to every\n"
    "                  shared-memory and semaphore key, so a bench or a test uses channels\n"
    "                  of its own beside a running camera; the environment variable\n"
    "                  ZOOMAF_SHM_KEY_OFFSET does the same (the option wins). Default 0:\n"
    "                  the real channels.\n"
    "\n"
    "exit status: 0 done, 2 bad arguments, 1 system failure.\n";

int usage_error(const std::string& message) {
    std::fprintf(stderr, "zoomaf-shm: %s (see zoomaf-shm --help)\n", message.c_str());
    return kExitUsage;
}

// A whole decimal integer within [min, max], or nothing.
std::optional<int64_t> parse_integer(const char* text, int64_t min, int64_t max, int base = 10) {
    if (text == nullptr || *text == '\0' || std::isspace(static_cast<unsigned char>(*text))) {
        return std::nullopt;
    }
    errno = 0;
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, base);
    if (errno != 0 || *end != '\0' || end == text) return std::nullopt;
    if (value < min || value > max) return std::nullopt;
    return value;
}

// The channel, opened as the service opens it. Messages of the channel code go to stdout.
std::optional<VrelShareMan> open_channel(int memmode) {
    VrelShareMan channel{};
    if (VrelShareManInit(&channel, memmode) != 0) {
        std::fprintf(stderr, "zoomaf-shm: channel %d cannot be opened\n", memmode);
        return std::nullopt;
    }
    return channel;
}

// The channel's semaphore, waited for a while: a semaphore that another process holds for
// longer is reported rather than waited for without end.
bool take_semaphore(VrelShareMan& channel, int memmode) {
    switch (zoomaf::ipc::semaphore_take_within(channel, kSemaphoreWaitNs)) {
        case zoomaf::ipc::Take::taken:
            return true;
        case zoomaf::ipc::Take::timed_out:
            std::fprintf(stderr, "zoomaf-shm: channel %d: the semaphore stayed taken for %llu s\n",
                         memmode, static_cast<unsigned long long>(kSemaphoreWaitNs / 1000000000u));
            return false;
        case zoomaf::ipc::Take::failed:
            break;
    }
    std::fprintf(stderr, "\nzoomaf-shm: channel %d: semaphore not taken\n", memmode);
    return false;
}

// Puts a payload and raises the update flag, under the channel's semaphore.
int publish(int memmode, const void* payload, size_t size) {
    auto channel = open_channel(memmode);
    if (!channel) return kExitSystem;
    if (!take_semaphore(*channel, memmode)) return kExitSystem;
    std::memcpy(channel->data_addr, payload, size);
    zoomaf::channels::set_update_flag(channel->shm_addr, 1);
    if (VrelSemaphoreV(&*channel) != 0) {
        std::fprintf(stderr, "\nzoomaf-shm: channel %d: semaphore not given back\n", memmode);
        return kExitSystem;
    }
    std::printf("published on channel %d\n", memmode);
    return 0;
}

void print_hex(const std::vector<uint8_t>& bytes, size_t length) {
    for (size_t row = 0; row < bytes.size(); row += 16) {
        std::printf("%08zx:", row);
        for (size_t i = row; i < std::min(bytes.size(), row + 16); ++i) {
            std::printf(" %02x", bytes[i]);
        }
        std::printf("\n");
    }
    if (length > bytes.size()) {
        std::printf("... %zu more bytes not shown\n", length - bytes.size());
    }
}

void print_decoded(int memmode, const std::vector<uint8_t>& payload) {
    if (memmode == VREL_LASER_CHANNEL) {
        uint16_t distance = 0;
        std::memcpy(&distance, payload.data(), sizeof distance);
        if (distance == LASER_NO_ECHO) {
            std::printf("laser distance: %u (no echo)\n", distance);
        } else {
            std::printf("laser distance: %u (%u.%u m)\n", distance, distance / 10u, distance % 10u);
        }
    } else if (memmode == VREL_AREA_FOCUS_CHANNEL) {
        VrelAreaFocusPoint point{};
        std::memcpy(&point, payload.data(), sizeof point);
        std::printf("area focus point: x %d, y %d\n", point.point_x, point.point_y);
    } else if (memmode == VREL_FV_CHANNEL) {
        int64_t fv[2] = {0, 0};
        std::memcpy(fv, payload.data(), sizeof fv);
        std::printf("focus values: fv1 %" PRId64 ", fv2 %" PRId64 "\n", fv[0], fv[1]);
    }
}

// Copies the segment under the semaphore and shows it; the update flag stays as it is.
int dump(int memmode, uint32_t key_offset) {
    auto channel = open_channel(memmode);
    if (!channel) return kExitSystem;
    const size_t length = static_cast<size_t>(channel->structlen);
    std::vector<uint8_t> payload(std::min(length, kDumpedBytes));
    uint32_t tail = 0;
    if (!take_semaphore(*channel, memmode)) return kExitSystem;
    const uint32_t flag = zoomaf::channels::update_flag(channel->shm_addr);
    const uint32_t reserved = zoomaf::channels::reserved_word(channel->shm_addr);
    std::memcpy(payload.data(), channel->data_addr, payload.size());
    std::memcpy(&tail, channel->data_addr + length, sizeof tail);
    if (VrelSemaphoreV(&*channel) != 0) {
        std::fprintf(stderr, "\nzoomaf-shm: channel %d: semaphore not given back\n", memmode);
        return kExitSystem;
    }
    const unsigned shm_key = static_cast<unsigned>(zoomaf::channels::shm_key(memmode));
    const unsigned sem_key = static_cast<unsigned>(zoomaf::channels::sem_key(memmode));
    std::printf("channel %d: shm key 0x%X, sem key 0x%X, payload %zu bytes\n", memmode, shm_key,
                sem_key, length);
    if (key_offset != 0) {
        std::printf("key offset %u: kernel keys 0x%X and 0x%X\n", key_offset, shm_key + key_offset,
                    sem_key + key_offset);
    }
    std::printf("update_flag: %u\n", flag);
    std::printf("reserved: 0x%08X, tail 0x%08X\n", reserved, tail);
    std::printf("payload:\n");
    print_hex(payload, length);
    print_decoded(memmode, payload);
    return 0;
}

// The key offset: decimal, or hexadecimal with 0x; a leading 0 is still decimal (never
// octal), so "010" is ten.
std::optional<int64_t> parse_key_offset(const std::string& text) {
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        if (!std::isxdigit(static_cast<unsigned char>(text[2]))) return std::nullopt;
        return parse_integer(text.c_str(), 0, UINT32_MAX, 16);
    }
    return parse_integer(text.c_str(), 0, UINT32_MAX);
}

int publish_laser(const std::string& text) {
    const auto distance = parse_integer(text.c_str(), 0, 65535);
    if (!distance) {
        return usage_error("bad laser distance '" + text + "': a whole number 0..65535 (0.1 m)");
    }
    const uint16_t value = static_cast<uint16_t>(*distance);
    return publish(VREL_LASER_CHANNEL, &value, sizeof value);
}

int publish_point(const std::string& x_text, const std::string& y_text) {
    const auto x = parse_integer(x_text.c_str(), INT32_MIN, INT32_MAX);
    const auto y = parse_integer(y_text.c_str(), INT32_MIN, INT32_MAX);
    if (!x || !y) {
        return usage_error("bad point '" + x_text + " " + y_text + "': two whole numbers (int32)");
    }
    const VrelAreaFocusPoint point{static_cast<int32_t>(*x), static_cast<int32_t>(*y)};
    return publish(VREL_AREA_FOCUS_CHANNEL, &point, sizeof point);
}

int publish_focus_values(const std::string& fv1_text, const std::string& fv2_text) {
    const int64_t lo = std::numeric_limits<int64_t>::min();
    const int64_t hi = std::numeric_limits<int64_t>::max();
    const auto fv1 = parse_integer(fv1_text.c_str(), lo, hi);
    const auto fv2 = parse_integer(fv2_text.c_str(), lo, hi);
    if (!fv1 || !fv2) {
        return usage_error("bad focus values '" + fv1_text + " " + fv2_text +
                           "': two whole numbers (int64)");
    }
    const int64_t values[2] = {*fv1, *fv2};
    return publish(VREL_FV_CHANNEL, values, sizeof values);
}

int dump_channel(const std::string& text, uint32_t key_offset) {
    const auto memmode = parse_integer(text.c_str(), VREL_MEMMODE_MIN, VREL_MEMMODE_MAX);
    if (!memmode) return usage_error("unknown channel '" + text + "': 0..33");
    return dump(static_cast<int>(*memmode), key_offset);
}

// The first line of a command-line parser's message.
std::string first_line(const std::string& message) {
    return message.substr(0, message.find('\n'));
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Publishes into and dumps the assist channels of the focus service.",
                 "zoomaf-shm");
    app.set_help_flag("--help");
    // What is left after the options and the commands is an unknown command.
    app.allow_extras();
    std::optional<std::string> offset_option;
    app.add_option("--key-offset", offset_option);
    // Operands are taken as text and checked here, so every bad one gets the same kind of
    // message (and a negative number is an operand, not an option).
    std::string first, second;
    CLI::App* laser = app.add_subcommand("laser");
    laser->add_option("distance", first)->required();
    CLI::App* point = app.add_subcommand("point");
    point->add_option("x", first)->required();
    point->add_option("y", second)->required();
    CLI::App* fv = app.add_subcommand("fv");
    fv->add_option("fv1", first)->required();
    fv->add_option("fv2", second)->required();
    CLI::App* dump_command = app.add_subcommand("dump");
    dump_command->add_option("channel", first)->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::fputs(kHelp, stdout);
        return 0;
    } catch (const CLI::ParseError& error) {
        return usage_error(first_line(error.what()));
    }

    const std::vector<std::string> extras = app.remaining(true);
    if (app.get_subcommands().empty()) {
        return usage_error(extras.empty() ? "no command" : "unknown command '" + extras[0] + "'");
    }
    if (!extras.empty()) {
        return usage_error(app.get_subcommands()[0]->get_name() + ": unexpected '" + extras[0] +
                           "'");
    }

    std::optional<std::string> offset_text = offset_option;
    std::string offset_source = "--key-offset";
    if (!offset_text) {
        if (const char* from_environment = std::getenv(kOffsetVariable)) {
            offset_text = from_environment;
            offset_source = kOffsetVariable;
        }
    }
    uint32_t offset = 0;
    if (offset_text) {
        const auto parsed = parse_key_offset(*offset_text);
        if (!parsed) {
            return usage_error("bad key offset '" + *offset_text + "' from " + offset_source +
                               ": 0..4294967295, decimal or 0x hexadecimal");
        }
        offset = static_cast<uint32_t>(*parsed);
    }

    static zoomaf::ipc::KeyOffsetPlatform kernel(offset);
    zoomaf::install_platform(&kernel);
    int status = kExitUsage;
    if (laser->parsed()) {
        status = publish_laser(first);
    } else if (point->parsed()) {
        status = publish_point(first, second);
    } else if (fv->parsed()) {
        status = publish_focus_values(first, second);
    } else if (dump_command->parsed()) {
        status = dump_channel(first, offset);
    }
    std::fflush(stdout);
    zoomaf::install_platform(nullptr);
    return status;
}
