// Scene files: YAML (yaml-cpp), in the format docs/scenes.md describes. A bad file gets one
// message that names the place (line and column) and the fault, and no scene.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "twin/module/scene.hpp"

namespace zoomaf::twin {

struct SceneFileResult {
    std::optional<Scene> scene;
    std::string error;  // "<source>:<line>:<column>: <fault>" when there is no scene
};

// Reads a scene from the text of a scene file; source names it in the message.
SceneFileResult parse_scene(std::string_view text, std::string_view source = "scene");

// Reads a scene file; a scene without a name takes the file's name without its extension.
SceneFileResult load_scene_file(const std::string& path);

// The scene as a scene file that reads back as the same scene.
std::string write_scene(const Scene& scene);

}  // namespace zoomaf::twin
