// The laser range finder of the camera, as the focus service sees it: another process that
// measures the target's distance on its own period and publishes each measurement into
// channel 12 (uint16 in 0.1 m; 65535 when no echo came back).
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include "twin/kernel/random.hpp"
#include "twin/module/channel_publisher.hpp"

namespace zoomaf::twin {

class Kernel;

struct LaserConfig {
    uint64_t period_ns = 100'000'000;  // ten measurements a second
    uint16_t distance = 1000;          // target distance in 0.1 m
    double no_echo_rate = 0.0;         // chance that a measurement gets no echo
    uint64_t seed = 1;                 // draws of the no-echo readings
};

class Laser {
public:
    static constexpr uint16_t kNoEcho = 65535;

    // Opens channel 12 on the board and measures from one period on. Must go before the
    // board does. Throws std::invalid_argument on a no-echo rate outside 0..1, and what
    // ChannelPublisher throws.
    explicit Laser(Kernel& board, LaserConfig config = {});
    ~Laser();
    Laser(const Laser&) = delete;
    Laser& operator=(const Laser&) = delete;

    // ---- control face ----
    void set_distance(uint16_t decimetres);
    // While set, every measurement is a no-echo reading (nothing in range, fog, sky).
    void set_no_echo(bool no_echo);
    // Throws std::invalid_argument outside 0..1.
    void set_no_echo_rate(double rate);
    // Measurements published so far, and the last one.
    uint64_t readings() const;
    std::optional<uint16_t> last_reading() const;

private:
    void measure(uint64_t now_ns);

    Kernel& board_;
    ChannelPublisher channel_;
    mutable std::mutex mutex_;
    uint16_t distance_;
    bool no_echo_ = false;
    double no_echo_rate_;
    SeededRandom random_;
    uint64_t readings_ = 0;
    std::optional<uint16_t> last_reading_;
    int event_ = 0;
};

}  // namespace zoomaf::twin
