# yaml-cpp for the aarch64 cross build: the host's headers (libyaml-cpp-dev) with the arm64
# shared library (libyaml-cpp0.7:arm64). Defines what Debian's own package file defines:
# the target yaml-cpp (also as yaml-cpp::yaml-cpp), YAML_CPP_INCLUDE_DIR, YAML_CPP_LIBRARIES.
find_library(ZOOMAF_YAML_CPP_ARM64 NAMES libyaml-cpp.so.0.7 PATHS /usr/lib/aarch64-linux-gnu NO_DEFAULT_PATH)
find_path(YAML_CPP_INCLUDE_DIR yaml-cpp/yaml.h PATHS /usr/include NO_DEFAULT_PATH)
if(NOT ZOOMAF_YAML_CPP_ARM64 OR NOT YAML_CPP_INCLUDE_DIR)
    set(yaml-cpp_FOUND FALSE)
    set(yaml-cpp_NOT_FOUND_MESSAGE "needs libyaml-cpp-dev and libyaml-cpp0.7:arm64 (scripts/setup --aarch64)")
    return()
endif()
if(NOT TARGET yaml-cpp)
    add_library(yaml-cpp SHARED IMPORTED)
    set_target_properties(yaml-cpp PROPERTIES IMPORTED_LOCATION ${ZOOMAF_YAML_CPP_ARM64}
                                              INTERFACE_INCLUDE_DIRECTORIES ${YAML_CPP_INCLUDE_DIR})
    add_library(yaml-cpp::yaml-cpp ALIAS yaml-cpp)
endif()
set(YAML_CPP_LIBRARIES yaml-cpp)
