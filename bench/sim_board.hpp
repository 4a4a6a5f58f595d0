// The bench's digital twin (--sim): a board with the camera's files seeded into its
// sandbox, installed as the platform, running in real time (or scaled), with the laser
// measuring and the video encoder publishing focus values of a still subject. At exit it
// reports where the lens ended against the twin's truth.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "twin/module/board.hpp"
#include "twin/module/encoder.hpp"
#include "twin/module/laser.hpp"

namespace zoomaf::bench {

struct SimOptions {
    std::string files_dir;  // where the board's files come from
    double speed = 1.0;
    uint64_t seed = 1;
    bool ms41908 = false;
};

// Without a scene the subject is a textured target at 12 m, by day, with the laser on it.
inline constexpr double kDefaultSubjectM = 12.0;

class SimBoard {
public:
    // Throws std::runtime_error when the board cannot be set up.
    explicit SimBoard(const SimOptions& options);
    ~SimBoard();
    SimBoard(const SimBoard&) = delete;
    SimBoard& operator=(const SimBoard&) = delete;

    // Two lines: the subject, the physical positions, the true in-focus step, the focus
    // error and the faults the emulated hardware recorded.
    void print_summary() const;

private:
    twin::Board board_;
    std::unique_ptr<twin::Laser> laser_;
    std::unique_ptr<twin::Encoder> encoder_;
};

// The data directory shipped with the program: share/zoomaf next to the installed binary,
// else the source tree's data/. Empty when neither holds the lens table.
std::string default_files_dir();

}  // namespace zoomaf::bench
