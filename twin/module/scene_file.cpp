#include "twin/module/scene_file.hpp"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>
#include <stdexcept>

namespace zoomaf::twin {

namespace {

constexpr double kLaserMaxM = 6553.4;  // 65534 in 0.1 m; 65535 is the no-echo reading

// A fault of the file at a node's place.
struct SceneFault {
    YAML::Mark mark;
    std::string what;
};

[[noreturn]] void fault(const YAML::Node& node, std::string what) {
    throw SceneFault{node.Mark(), std::move(what)};
}

std::string text_of(const YAML::Node& node, const std::string& key) {
    if (!node.IsScalar()) fault(node, key + " must be text");
    return node.Scalar();
}

// The keys of a mapping, each checked against the allowed ones and given once.
std::map<std::string, YAML::Node> mapping(const YAML::Node& node, const std::string& what,
                                          std::initializer_list<const char*> allowed) {
    if (!node.IsMap()) fault(node, what + " must be a mapping");
    std::map<std::string, YAML::Node> keys;
    for (const auto& entry : node) {
        const std::string key = text_of(entry.first, "a key");
        const bool known = std::any_of(allowed.begin(), allowed.end(),
                                       [&](const char* name) { return key == name; });
        if (!known) fault(entry.first, "unknown key '" + key + "' in " + what);
        if (!keys.emplace(key, entry.second).second) {
            fault(entry.first, "key '" + key + "' given twice in " + what);
        }
    }
    return keys;
}

const YAML::Node* find(const std::map<std::string, YAML::Node>& keys, const char* key) {
    const auto it = keys.find(key);
    return it == keys.end() ? nullptr : &it->second;
}

double number(const YAML::Node& node, const std::string& key) {
    double value = 0.0;
    if (!node.IsScalar() || !YAML::convert<double>::decode(node, value) || std::isnan(value)) {
        fault(node, key + " must be a number");
    }
    return value;
}

double finite_number(const YAML::Node& node, const std::string& key) {
    const double value = number(node, key);
    if (!std::isfinite(value)) fault(node, key + " must be a finite number");
    return value;
}

double in_range(const YAML::Node& node, const std::string& key, double low, double high) {
    const double value = number(node, key);
    if (!(value >= low && value <= high)) {
        std::ostringstream message;
        message << key << " must lie in " << low << " .. " << high;
        fault(node, message.str());
    }
    return value;
}

double subject_distance(const YAML::Node& node) {
    const double value = number(node, "distance_m");
    if (!(value > 0.0)) fault(node, "distance_m must be positive (.inf for infinity)");
    return value;
}

template <class Int>
Int integer(const YAML::Node& node, const std::string& key) {
    Int value{};
    if (!node.IsScalar() || !YAML::convert<Int>::decode(node, value)) {
        fault(node, key + " must be a whole number" +
                        (std::is_unsigned_v<Int> ? std::string(" (0 or more)") : ""));
    }
    return value;
}

AreaPoint point(const YAML::Node& node, const std::string& key) {
    if (!node.IsSequence() || node.size() != 2) fault(node, key + " must be [x, y]");
    return AreaPoint{integer<int32_t>(node[0], key + " x"), integer<int32_t>(node[1], key + " y")};
}

SubjectChange subject_change(const std::map<std::string, YAML::Node>& keys) {
    SubjectChange change;
    if (const auto* node = find(keys, "distance_m")) change.distance_m = subject_distance(*node);
    if (const auto* node = find(keys, "texture")) change.texture = in_range(*node, "texture", 0, 1);
    return change;
}

std::vector<WindowsChange> windows_changes(const YAML::Node& node) {
    if (!node.IsSequence()) fault(node, "windows must be a list of window mappings");
    std::vector<WindowsChange> changes;
    for (const YAML::Node& entry : node) {
        const auto keys = mapping(entry, "a window", {"index", "distance_m", "texture"});
        const YAML::Node* index = find(keys, "index");
        if (index == nullptr) fault(entry, "a window needs its index");
        WindowsChange change;
        std::vector<YAML::Node> indices;
        if (index->IsSequence()) {
            for (const YAML::Node& i : *index) indices.push_back(i);
        } else {
            indices.push_back(*index);
        }
        if (indices.empty()) fault(*index, "index must name a window");
        for (const YAML::Node& i : indices) {
            const int value = integer<int>(i, "index");
            if (value < 0 || value >= kSceneWindows) {
                fault(i, "window index " + std::to_string(value) + " is outside 0 .. 47");
            }
            change.indices.push_back(value);
        }
        change.subject = subject_change(keys);
        changes.push_back(std::move(change));
    }
    return changes;
}

double light(const YAML::Node& node) {
    if (node.IsScalar() && node.Scalar() == "day") return kDayLux;
    if (node.IsScalar() && node.Scalar() == "night") return kNightLux;
    double lux = 0.0;
    if (!node.IsScalar() || !YAML::convert<double>::decode(node, lux) || !(lux >= 0.0) ||
        !std::isfinite(lux)) {
        fault(node, "light must be day, night or a lux figure (0 or more)");
    }
    return lux;
}

// A laser change; the laser must have a distance once it is on.
LaserChange laser_change(const YAML::Node& node, const SceneState& before) {
    LaserChange change;
    if (node.IsScalar() && node.Scalar() == "none") {
        change.off = true;
        return change;
    }
    if (!node.IsMap()) fault(node, "laser must be none or a mapping");
    const auto keys = mapping(node, "laser", {"distance_m", "no_echo"});
    if (const auto* d = find(keys, "distance_m")) {
        change.distance_m = in_range(*d, "laser distance_m", 0, kLaserMaxM);
    }
    if (const auto* rate = find(keys, "no_echo"))
        change.no_echo_rate = in_range(*rate, "no_echo", 0, 1);
    if (!before.laser && !change.distance_m) fault(node, "a laser that is off needs distance_m");
    return change;
}

// The twin's keys of the top level or of an event, applied to state as they are read so
// that a change is judged against the scene it changes.
SceneChange scene_change(const std::map<std::string, YAML::Node>& keys, SceneState& state) {
    SceneChange change;
    if (const auto* node = find(keys, "subject")) {
        change.subject = subject_change(mapping(*node, "subject", {"distance_m", "texture"}));
    }
    if (const auto* node = find(keys, "windows")) change.windows = windows_changes(*node);
    if (const auto* node = find(keys, "light")) change.lux = light(*node);
    if (const auto* node = find(keys, "laser")) change.laser = laser_change(*node, state);
    if (const auto* node = find(keys, "area_point")) change.area_point = point(*node, "area_point");
    change.apply_to(state);
    return change;
}

AppCalls app_calls(const std::map<std::string, YAML::Node>& keys) {
    AppCalls app;
    if (const auto* node = find(keys, "zoom")) {
        app.zoom = static_cast<float>(finite_number(*node, "zoom"));
    }
    if (const auto* node = find(keys, "day_night")) {
        const std::string value = text_of(*node, "day_night");
        if (value != "day" && value != "night") fault(*node, "day_night must be day or night");
        app.day_night = value == "day" ? DayNight::day : DayNight::night;
    }
    if (const auto* node = find(keys, "mode")) {
        const std::string value = text_of(*node, "mode");
        if (value == "centre") {
            app.mode = FocusMode::centre;
        } else if (value == "free") {
            app.mode = FocusMode::free;
        } else if (value == "manual") {
            app.mode = FocusMode::manual;
        } else {
            fault(*node, "mode must be centre, free or manual");
        }
    }
    if (const auto* node = find(keys, "point")) app.point = point(*node, "point");
    if (const auto* node = find(keys, "manual")) {
        app.manual = static_cast<float>(finite_number(*node, "manual"));
    }
    if (const auto* node = find(keys, "refocus")) {
        bool value = false;
        if (!node->IsScalar() || !YAML::convert<bool>::decode(*node, value)) {
            fault(*node, "refocus must be true or false");
        }
        app.refocus = value;
    }
    return app;
}

std::vector<SceneEvent> events(const YAML::Node& node, SceneState state, double duration_s) {
    if (!node.IsSequence()) fault(node, "events must be a list of event mappings");
    std::vector<SceneEvent> list;
    for (const YAML::Node& entry : node) {
        const auto keys =
            mapping(entry, "an event",
                    {"at", "zoom", "subject", "windows", "laser", "light", "day_night", "mode",
                     "point", "area_point", "manual", "refocus"});
        const YAML::Node* at = find(keys, "at");
        if (at == nullptr) fault(entry, "an event needs its time: at");
        if (keys.size() == 1) fault(entry, "an event does nothing besides at");
        SceneEvent event;
        event.at_s = finite_number(*at, "at");
        if (event.at_s < 0.0) fault(*at, "at must be 0 or more");
        if (!list.empty() && event.at_s < list.back().at_s) {
            std::ostringstream message;
            message << "events out of order: at " << event.at_s << " comes after at "
                    << list.back().at_s;
            fault(*at, message.str());
        }
        if (event.at_s > duration_s) {
            std::ostringstream message;
            message << "at " << event.at_s << " is after the end of the scene (duration_s "
                    << duration_s << ")";
            fault(*at, message.str());
        }
        event.scene = scene_change(keys, state);
        event.app = app_calls(keys);
        list.push_back(std::move(event));
    }
    return list;
}

Scene scene_of(const YAML::Node& root) {
    const auto keys = mapping(root, "the scene",
                              {"name", "seed", "module", "lens_offset_steps", "start_multiple",
                               "light", "subject", "windows", "laser", "events", "duration_s"});
    Scene scene;
    if (const auto* node = find(keys, "name")) {
        // The name labels results, tables and output folders: printable ASCII without
        // slashes, so that it reads back and shows the same everywhere.
        scene.name = text_of(*node, "name");
        const bool plain = std::all_of(scene.name.begin(), scene.name.end(), [](char c) {
            return c > ' ' && c < 0x7f && c != '/' && c != '\\';
        });
        if (scene.name.empty() || !plain) {
            fault(*node, "name must be printable ASCII without spaces or slashes");
        }
    }
    if (const auto* node = find(keys, "seed")) scene.seed = integer<uint64_t>(*node, "seed");
    if (const auto* node = find(keys, "module")) {
        const std::string value = text_of(*node, "module");
        if (value != "ms41928" && value != "ms41908")
            fault(*node, "module must be ms41928 or ms41908");
        scene.module = value == "ms41928" ? DriverType::ms41928 : DriverType::ms41908;
    }
    if (const auto* node = find(keys, "lens_offset_steps")) {
        scene.lens_offset_steps = finite_number(*node, "lens_offset_steps");
    }
    if (const auto* node = find(keys, "start_multiple")) {
        const double multiple = finite_number(*node, "start_multiple");
        if (multiple <= 0.0) fault(*node, "start_multiple must be positive");
        scene.start_multiple = static_cast<float>(multiple);
    }
    if (const auto* node = find(keys, "duration_s")) {
        scene.duration_s = finite_number(*node, "duration_s");
        if (scene.duration_s <= 0.0) fault(*node, "duration_s must be positive");
    }
    scene_change(keys, scene.start);
    if (const auto* node = find(keys, "events")) {
        scene.events = events(*node, scene.start, scene.duration_s);
    }
    return scene;
}

std::string place(std::string_view source, const YAML::Mark& mark) {
    // A node made up by yaml-cpp (a missing one) has no place: point at the start.
    const int line = mark.is_null() ? 1 : mark.line + 1;
    const int column = mark.is_null() ? 1 : mark.column + 1;
    return std::string(source) + ":" + std::to_string(line) + ":" + std::to_string(column) + ": ";
}

// ---- writing ----

void write_subject_keys(YAML::Emitter& out, const SubjectChange& change) {
    if (change.distance_m) out << YAML::Key << "distance_m" << YAML::Value << *change.distance_m;
    if (change.texture) out << YAML::Key << "texture" << YAML::Value << *change.texture;
}

void write_windows(YAML::Emitter& out, const std::vector<WindowsChange>& windows) {
    out << YAML::Key << "windows" << YAML::Value << YAML::BeginSeq;
    for (const WindowsChange& change : windows) {
        out << YAML::Flow << YAML::BeginMap << YAML::Key << "index" << YAML::Value << YAML::Flow
            << change.indices;
        write_subject_keys(out, change.subject);
        out << YAML::EndMap;
    }
    out << YAML::EndSeq;
}

void write_light(YAML::Emitter& out, double lux) {
    out << YAML::Key << "light" << YAML::Value;
    if (lux == kDayLux) {
        out << "day";
    } else if (lux == kNightLux) {
        out << "night";
    } else {
        out << lux;
    }
}

void write_laser(YAML::Emitter& out, const LaserChange& laser) {
    out << YAML::Key << "laser" << YAML::Value;
    if (laser.off) {
        out << "none";
        return;
    }
    out << YAML::Flow << YAML::BeginMap;
    if (laser.distance_m) out << YAML::Key << "distance_m" << YAML::Value << *laser.distance_m;
    if (laser.no_echo_rate) out << YAML::Key << "no_echo" << YAML::Value << *laser.no_echo_rate;
    out << YAML::EndMap;
}

void write_point(YAML::Emitter& out, const char* key, const AreaPoint& p) {
    out << YAML::Key << key << YAML::Value << YAML::Flow << YAML::BeginSeq << p.x << p.y
        << YAML::EndSeq;
}

// The start state as the subject most windows show and the windows that differ.
void write_start(YAML::Emitter& out, const SceneState& state) {
    std::vector<std::pair<Subject, std::vector<int>>> groups;
    for (int i = 0; i < kSceneWindows; ++i) {
        auto group = std::find_if(groups.begin(), groups.end(),
                                  [&](const auto& g) { return g.first == state.windows[i]; });
        if (group == groups.end()) group = groups.insert(groups.end(), {state.windows[i], {}});
        group->second.push_back(i);
    }
    const auto most = std::max_element(
        groups.begin(), groups.end(),
        [](const auto& a, const auto& b) { return a.second.size() < b.second.size(); });
    auto full = [](const Subject& s) { return SubjectChange{s.distance_m, s.texture}; };
    out << YAML::Key << "subject" << YAML::Value << YAML::Flow << YAML::BeginMap;
    write_subject_keys(out, full(most->first));
    out << YAML::EndMap;
    std::vector<WindowsChange> others;
    for (const auto& group : groups) {
        if (&group != &*most) others.push_back(WindowsChange{group.second, full(group.first)});
    }
    if (!others.empty()) write_windows(out, others);
}

void write_event(YAML::Emitter& out, const SceneEvent& event) {
    out << YAML::BeginMap << YAML::Key << "at" << YAML::Value << event.at_s;
    const SceneChange& s = event.scene;
    const AppCalls& app = event.app;
    if (app.zoom) out << YAML::Key << "zoom" << YAML::Value << *app.zoom;
    if (s.subject) {
        out << YAML::Key << "subject" << YAML::Value << YAML::Flow << YAML::BeginMap;
        write_subject_keys(out, *s.subject);
        out << YAML::EndMap;
    }
    if (!s.windows.empty()) write_windows(out, s.windows);
    if (s.lux) write_light(out, *s.lux);
    if (s.laser) write_laser(out, *s.laser);
    if (s.area_point) write_point(out, "area_point", *s.area_point);
    if (app.day_night) {
        out << YAML::Key << "day_night" << YAML::Value
            << (*app.day_night == DayNight::day ? "day" : "night");
    }
    if (app.mode) {
        static const char* const names[] = {"centre", "free", "manual"};
        out << YAML::Key << "mode" << YAML::Value << names[static_cast<int>(*app.mode)];
    }
    if (app.point) write_point(out, "point", *app.point);
    if (app.manual) out << YAML::Key << "manual" << YAML::Value << *app.manual;
    if (app.refocus) out << YAML::Key << "refocus" << YAML::Value << true;
    out << YAML::EndMap;
}

}  // namespace

SceneFileResult parse_scene(std::string_view text, std::string_view source) {
    try {
        const YAML::Node root = YAML::Load(std::string(text));
        return SceneFileResult{scene_of(root), {}};
    } catch (const SceneFault& f) {
        return SceneFileResult{std::nullopt, place(source, f.mark) + f.what};
    } catch (const YAML::Exception& e) {
        return SceneFileResult{std::nullopt, place(source, e.mark) + e.msg};
    }
}

SceneFileResult load_scene_file(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    if (!in) return SceneFileResult{std::nullopt, path + ": cannot read the scene file"};
    SceneFileResult result = parse_scene(text.str(), path);
    if (result.scene && result.scene->name.empty()) {
        result.scene->name = std::filesystem::path(path).stem().string();
    }
    return result;
}

std::string write_scene(const Scene& scene) {
    YAML::Emitter out;
    out.SetDoublePrecision(17);
    out.SetFloatPrecision(9);
    out << YAML::BeginMap;
    // A scene without a name (read from text, not a file) is written without one.
    if (!scene.name.empty()) out << YAML::Key << "name" << YAML::Value << scene.name;
    out << YAML::Key << "seed" << YAML::Value << scene.seed;
    out << YAML::Key << "module" << YAML::Value
        << (scene.module == DriverType::ms41928 ? "ms41928" : "ms41908");
    out << YAML::Key << "lens_offset_steps" << YAML::Value << scene.lens_offset_steps;
    out << YAML::Key << "start_multiple" << YAML::Value << scene.start_multiple;
    write_light(out, scene.start.lux);
    write_start(out, scene.start);
    if (scene.start.laser) {
        write_laser(out, LaserChange{false, scene.start.laser->distance_m,
                                     scene.start.laser->no_echo_rate});
    } else {
        write_laser(out, LaserChange{.off = true});
    }
    if (!scene.events.empty()) {
        out << YAML::Key << "events" << YAML::Value << YAML::BeginSeq;
        for (const SceneEvent& event : scene.events) write_event(out, event);
        out << YAML::EndSeq;
    }
    out << YAML::Key << "duration_s" << YAML::Value << scene.duration_s;
    out << YAML::EndMap;
    return std::string(out.c_str()) + "\n";
}

}  // namespace zoomaf::twin
