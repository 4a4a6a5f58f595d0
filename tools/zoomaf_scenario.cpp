// zoomaf-scenario: replays a scene file on the digital twin in virtual time and reports how
// focus behaved: DIR/summary.json (per moment of the scene: lock, passes to lock, error
// against the truth, hunting), DIR/trace.csv (every pass), DIR/focus.png (drawn by
// plot_trace.py) and the service's own log, DIR/service.log.
//
// Exit status: 0 done, 1 the replay could not run or was interrupted, 2 a bad command line
// or scene file (the message names the file, line and column).
#include <CLI/CLI.hpp>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "bench/sim_board.hpp"
#include "tools/scenario_replay.hpp"
#include "tools/scenario_report.hpp"

namespace {

namespace fs = std::filesystem;
using zoomaf::scenario::Segment;

volatile std::sig_atomic_t stop_requested = 0;

void request_stop(int) {
    stop_requested = 1;
}

// The runner's own messages go where standard output went before the service's log took
// it over.
FILE* report = stderr;

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// Draws DIR/focus.png with plot_trace.py; the reason when it cannot.
std::optional<std::string> draw_plot(const fs::path& dir) {
    const std::string script = zoomaf::bench::shipped_path("plot_trace.py", "tools/plot_trace.py");
    if (script.empty()) return "plot_trace.py is neither installed nor in the source tree";
    const std::string command = quoted(script) + " " + quoted(dir.string()) + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return "cannot start " + script;
    std::string output, line;
    char buffer[512];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
    const int status = pclose(pipe);
    if (status == 0) return std::nullopt;
    // The last line says why (a missing python3-matplotlib, say).
    while (!output.empty() && output.back() == '\n') output.pop_back();
    const size_t at = output.rfind('\n');
    return script + ": " + (at == std::string::npos ? output : output.substr(at + 1));
}

void print_segments(const std::vector<Segment>& segments) {
    std::fprintf(report, "  %-13s %-20s %-6s %-5s %-6s %5s %6s %6s %6s %7s %5s %5s\n", "segment",
                 "cause", "light", "d/n", "mode", "x", "locked", "lock_s", "passes", "error",
                 "moves", "revs");
    for (const Segment& s : segments) {
        char span[32], lock_s[16] = "-";
        std::snprintf(span, sizeof span, "%.1f-%.1f", s.start_s, s.end_s);
        if (s.lock_s) std::snprintf(lock_s, sizeof lock_s, "%.2f", *s.lock_s);
        std::fprintf(report, "  %-13s %-20s %-6s %-5s %-6s %5.2f %6s %6s %6zu %+7.1f %5d %5d\n",
                     span, s.cause.c_str(), s.light.c_str(), s.day_night.c_str(), s.mode.c_str(),
                     s.multiple, s.locked ? "yes" : "no", lock_s, s.passes, s.error_steps,
                     s.focus_moves, s.direction_reversals);
    }
}

FILE* open_output(const fs::path& path) {
    FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) std::fprintf(report, "zoomaf-scenario: cannot write %s\n", path.c_str());
    return file;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "zoomaf-scenario: replays a scene on the digital twin in virtual time and "
        "reports how focus behaved."};
    std::string scene_file, out_dir;
    std::optional<uint64_t> seed;
    bool quiet = false;
    app.add_option("scene", scene_file, "scene file (YAML, docs/scenes.md)")->required();
    app.add_option("--out", out_dir,
                   "directory for summary.json, trace.csv, focus.png and service.log "
                   "(default: scenario-<scene name>)");
    app.add_option("--seed", seed, "seed of the twin and the scene's noise (default: the scene's)");
    app.add_flag("--quiet", quiet, "print nothing but errors");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : 2;
    }

    std::string error;
    const std::optional<zoomaf::twin::Scene> scene =
        zoomaf::bench::load_scene(scene_file, seed, false, error);
    if (!scene) {
        std::fprintf(stderr, "zoomaf-scenario: %s\n", error.c_str());
        return 2;
    }
    const std::string files_dir = zoomaf::bench::default_files_dir();
    if (files_dir.empty()) {
        std::fprintf(stderr,
                     "zoomaf-scenario: no lens data next to the program or in the "
                     "source tree\n");
        return 1;
    }
    const fs::path dir = out_dir.empty() ? fs::path("scenario-" + scene->name) : fs::path(out_dir);
    std::error_code made;
    fs::create_directories(dir, made);
    if (made) {
        std::fprintf(stderr, "zoomaf-scenario: cannot make %s: %s\n", dir.c_str(),
                     made.message().c_str());
        return 1;
    }

    // Standard output becomes the service's log; the runner reports on the original.
    std::fflush(stdout);
    const int terminal = dup(STDOUT_FILENO);
    report = terminal >= 0 ? fdopen(terminal, "w") : nullptr;
    if (report == nullptr) report = stderr;
    if (std::freopen((dir / "service.log").c_str(), "w", stdout) == nullptr) {
        std::fprintf(stderr, "zoomaf-scenario: cannot write %s\n", (dir / "service.log").c_str());
        return 1;
    }
    std::signal(SIGINT, request_stop);
    std::signal(SIGTERM, request_stop);

    const auto wall_start = std::chrono::steady_clock::now();
    zoomaf::scenario::Replay replay;
    zoomaf::scenario::RunFacts facts{.scene = scene->name, .seed = scene->seed};
    {
        zoomaf::bench::SimOptions options{.scene = *scene, .files_dir = files_dir};
        options.player.recorded_frames = 1;
        std::unique_ptr<zoomaf::bench::SimBoard> sim;
        try {
            sim = std::make_unique<zoomaf::bench::SimBoard>(options);
        } catch (const std::exception& e) {
            std::fprintf(report, "zoomaf-scenario: cannot set up the twin: %s\n", e.what());
            return 1;
        }
        if (!zoomaf::scenario::replay_scene(*sim, *scene, stop_requested, replay, error)) {
            std::fprintf(report, "zoomaf-scenario: %s\n", error.c_str());
            return 1;
        }
        sim->print_summary();
        for (const zoomaf::twin::RecordedFault& fault : sim->board().faults())
            facts.timing_faults += fault.kind == zoomaf::twin::FaultKind::timing;
    }  // the twin goes: its shared memory, semaphores and sandbox with it
    std::fflush(stdout);
    facts.board_time_s = replay.board_time_s;
    facts.wall_time_s =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_start).count();

    const std::vector<Segment> segments = zoomaf::scenario::segments_of(replay, scene->duration_s);
    FILE* summary = open_output(dir / "summary.json");
    FILE* trace = open_output(dir / "trace.csv");
    if (summary == nullptr || trace == nullptr) return 1;
    zoomaf::scenario::write_summary_json(summary, facts, segments);
    zoomaf::scenario::write_trace_csv(trace, replay);
    std::fclose(summary);
    std::fclose(trace);
    const std::optional<std::string> plot_failure = draw_plot(dir);

    if (replay.interrupted) {
        std::fprintf(report, "zoomaf-scenario: interrupted at %.1f s of board time\n",
                     replay.board_time_s);
    }
    if (!quiet) {
        std::fprintf(report,
                     "zoomaf-scenario: %s (seed %llu): %.1f s of board time in %.2f s "
                     "(x%.0f real time), %zu passes, timing faults %zu\n",
                     facts.scene.c_str(), static_cast<unsigned long long>(facts.seed),
                     facts.board_time_s, facts.wall_time_s,
                     facts.wall_time_s > 0 ? facts.board_time_s / facts.wall_time_s : 0.0,
                     replay.rows.size(), facts.timing_faults);
        print_segments(segments);
        std::fprintf(report, "summary %s, trace %s, service log %s\n",
                     (dir / "summary.json").c_str(), (dir / "trace.csv").c_str(),
                     (dir / "service.log").c_str());
    }
    if (plot_failure) {
        std::fprintf(report, "zoomaf-scenario: focus.png not drawn: %s\n", plot_failure->c_str());
    } else if (!quiet) {
        std::fprintf(report, "picture %s\n", (dir / "focus.png").c_str());
    }
    std::fflush(report);
    return replay.interrupted ? 1 : 0;
}
