// libFuzzer target of the twin's scene file reader: the input is the text of a scene file.
// Besides the sanitizers' checks: the reader gives a scene or one message naming the place
// ("scene:<line>:<column>: ..."), never both nor neither, and a scene it reads is written
// back as a file that reads as the same scene.
#include <cstdint>
#include <string_view>

#include "tests/fuzz/fuzz_input.hpp"
#include "twin/module/scene_file.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zoomaf::twin;
    using zoomaf::fuzz::require;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const SceneFileResult read = parse_scene(text);
    require(read.scene.has_value() == read.error.empty());
    if (!read.scene) {
        require(read.error.rfind("scene:", 0) == 0);
        return 0;
    }
    const SceneFileResult again = parse_scene(write_scene(*read.scene));
    require(again.scene.has_value() && *again.scene == *read.scene);
    return 0;
}
