#include "tools/scenario_report.hpp"

#include <algorithm>
#include <cmath>

#include "twin/module/optics.hpp"
#include "zoomaf/app_pdaf.h"

namespace zoomaf::scenario {
namespace {

// JSON has no infinity: a subject at infinity (the sky) has no distance.
std::string distance_json(double metres) {
    if (!std::isfinite(metres)) return "null";
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", metres);
    return text;
}

std::string json_string(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            quoted += escaped;
        } else {
            quoted += c;
        }
    }
    return quoted + "\"";
}

// The lock that holds at the end of a segment's passes [first, end): where it began.
void find_lock(const Replay& replay, const Moment& moment, size_t first, size_t end,
               Segment& segment) {
    const std::vector<PassRow>& rows = replay.rows;
    segment.locked = end > first ? rows[end - 1].locked : moment.locked_at_start;
    if (!segment.locked) return;
    size_t k = end;
    while (k > first && rows[k - 1].locked) --k;
    if (k == first && moment.locked_at_start) {
        segment.passes_to_lock = 0;
        segment.lock_s = 0.0;
        return;
    }
    segment.passes_to_lock = k - first + 1;
    segment.lock_s = rows[k].end_s - segment.start_s;
}

void count_moves(const std::vector<PassRow>& rows, size_t first, size_t end, Segment& segment) {
    int last_direction = 0;
    for (size_t i = first; i < end; ++i) {
        const int move = rows[i].focus_step - rows[i].focus_before;
        if (move == 0) continue;
        const int direction = move > 0 ? 1 : -1;
        ++segment.focus_moves;
        if (last_direction != 0 && direction != last_direction) ++segment.direction_reversals;
        last_direction = direction;
    }
}

}  // namespace

std::string light_name(double lux) {
    if (lux == twin::kDayLux) return "day";
    if (lux == twin::kNightLux) return "night";
    char text[32];
    std::snprintf(text, sizeof text, "%g", lux);
    return text;
}

std::string mode_name(int32_t mode) {
    switch (mode) {
        case PDAF_CENTER_MODE:
            return "centre";
        case PDAF_FREE_MODE:
            return "free";
        case MANUAL_FOCUS_MODE:
            return "manual";
        default:
            return std::to_string(mode);
    }
}

std::vector<Segment> segments_of(const Replay& replay, double duration_s) {
    const std::vector<PassRow>& rows = replay.rows;
    std::vector<Segment> segments;
    for (size_t m = 0; m < replay.moments.size(); ++m) {
        const Moment& moment = replay.moments[m];
        const bool last_moment = m + 1 == replay.moments.size();
        const size_t first = moment.first_row;
        const size_t end = last_moment ? rows.size() : replay.moments[m + 1].first_row;
        Segment segment;
        segment.start_s = moment.at_s;
        segment.end_s =
            last_moment ? std::min(duration_s, replay.board_time_s) : replay.moments[m + 1].at_s;
        segment.cause = moment.cause;
        segment.passes = end - first;
        // A segment without a pass of its own shows the state the pass before it left.
        const size_t shown = end > 0 ? end - 1 : 0;
        if (!rows.empty()) {
            const PassRow& row = rows[std::min(shown, rows.size() - 1)];
            segment.light = light_name(row.lux);
            segment.day_night = row.day_night != 0 ? "night" : "day";
            segment.mode = mode_name(row.mode);
            segment.multiple = row.multiple;
            segment.subject_distance_m = row.subject_distance_m;
            segment.focus_step = row.focus_step;
            segment.true_focus_step = row.true_focus_step;
            segment.error_steps = row.focus_step - row.true_focus_step;
        }
        find_lock(replay, moment, first, end, segment);
        count_moves(rows, first, end, segment);
        segments.push_back(segment);
    }
    return segments;
}

void write_summary_json(FILE* out, const RunFacts& facts, const std::vector<Segment>& segments) {
    std::fprintf(out,
                 "{\"scene\": %s, \"seed\": %llu, \"board_time_s\": %.3f, \"wall_time_s\": %.3f, "
                 "\"timing_faults\": %zu,\n \"segments\": [",
                 json_string(facts.scene).c_str(), static_cast<unsigned long long>(facts.seed),
                 facts.board_time_s, facts.wall_time_s, facts.timing_faults);
    for (size_t i = 0; i < segments.size(); ++i) {
        const Segment& s = segments[i];
        const std::string to_lock = s.passes_to_lock ? std::to_string(*s.passes_to_lock) : "null";
        char lock_text[32] = "null";
        if (s.lock_s) std::snprintf(lock_text, sizeof lock_text, "%.3f", *s.lock_s);
        std::fprintf(
            out,
            "%s\n  {\"start_s\": %.3f, \"end_s\": %.3f, \"cause\": %s, \"light\": %s, "
            "\"day_night\": %s, \"mode\": %s, \"multiple\": %.2f, \"subject_distance_m\": %s,\n"
            "   \"locked\": %s, \"lock_s\": %s, \"passes\": %zu, \"passes_to_lock\": %s,\n"
            "   \"focus_step\": %d, \"true_focus_step\": %.1f, \"error_steps\": %.1f, "
            "\"focus_moves\": %d, \"direction_reversals\": %d}",
            i == 0 ? "" : ",", s.start_s, s.end_s, json_string(s.cause).c_str(),
            json_string(s.light).c_str(), json_string(s.day_night).c_str(),
            json_string(s.mode).c_str(), s.multiple, distance_json(s.subject_distance_m).c_str(),
            s.locked ? "true" : "false", lock_text, s.passes, to_lock.c_str(), s.focus_step,
            s.true_focus_step, s.error_steps, s.focus_moves, s.direction_reversals);
    }
    std::fprintf(out, "]}\n");
}

void write_trace_csv(FILE* out, const Replay& replay) {
    std::fprintf(out,
                 "t_s,pass,multiple,zoom_step,focus_step,true_focus_step,mode,day_night,"
                 "night_state,locked,window,pd,cl,fv2,laser_dm,event\n");
    auto optional_number = [](const auto& value) {
        return value ? std::to_string(*value) : std::string();
    };
    for (const PassRow& row : replay.rows) {
        std::fprintf(out, "%.3f,%d,%.2f,%d,%d,%.1f,%s,%s,%d,%d,%s,%s,%s,%lld,%u,%s\n", row.t_s,
                     row.pass, static_cast<double>(row.multiple), row.zoom_step, row.focus_step,
                     row.true_focus_step, mode_name(row.mode).c_str(),
                     row.day_night != 0 ? "night" : "day", row.night_state, row.locked ? 1 : 0,
                     optional_number(row.window).c_str(), optional_number(row.pd).c_str(),
                     optional_number(row.cl).c_str(), static_cast<long long>(row.fv2),
                     static_cast<unsigned>(row.laser_dm), row.event.c_str());
    }
}

}  // namespace zoomaf::scenario
