#!/usr/bin/env python3
"""Checks that the layers flow one way: every directory includes and links only itself and
the layers it builds on.

    bench, tools -> service -> motor, sensor, ipc, pdaflib -> state -> platform
    (tools also on bench's start-up and twin set-up, zoomaf_bench)
    the twin beside: its kernel on platform, its camera module on the kernel and the
    header-only channel layout (channels/)

Includes are checked for every C/C++ file of a directory ("dir/..." and the public headers
"zoomaf/*.h", each of which belongs to a layer), links for every target_link_libraries of
the directory's CMakeLists.txt. Prints each violation and exits 1 when there is one.
--with-violation adds a made-up sensor file that includes the service, to show the check
fails on it (the suite runs that too, expecting failure).
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]

LIBRARY = ["platform", "channels", "state", "pdaflib", "motor", "sensor", "ipc", "service"]
# What each layer may use besides itself.
ALLOWED = {
    "platform": [],
    "channels": [],
    "state": ["platform"],
    "pdaflib": [],
    "motor": ["state", "platform"],
    "sensor": ["state", "platform", "pdaflib"],
    "ipc": ["state", "platform", "channels"],
    "service": ["motor", "sensor", "ipc", "pdaflib", "state", "platform", "channels"],
    "twin/kernel": ["platform"],
    "twin/module": ["twin/kernel", "platform", "channels"],
}
ALLOWED["bench"] = LIBRARY + ["twin/kernel", "twin/module"]
# The scenario runner starts the service and the twin as the bench does (zoomaf_bench).
ALLOWED["tools"] = ALLOWED["bench"] + ["bench"]

# The layer of each public header; a header not named here belongs to the service.
HEADER_LAYER = {
    "export.h": None,  # the export marker, usable everywhere
    "service_state.h": "state",
    "lib_motor.h": "motor",
    "imx586.h": "sensor",
    "pdaflib.h": "pdaflib",
    "vrel_sharememory.h": "channels",
    "assist_info.h": "ipc",
}

# CMake targets by layer.
TARGET_LAYER = {f"zoomaf_{d}": d for d in LIBRARY}
TARGET_LAYER.update({"zoomaf_twin_kernel": "twin/kernel", "zoomaf_twin": "twin/module",
                     "zoomaf_bench": "bench"})

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)
LINK = re.compile(r"target_link_libraries\(\s*(\S+)([^)]*)\)", re.S)
SOURCES = {".c", ".cpp", ".h", ".hpp"}


def layer_of_path(relative):
    """The layer a repository path (or an include path) belongs to, or None."""
    parts = pathlib.PurePosixPath(relative).parts
    if not parts:
        return None
    if parts[0] == "twin" and len(parts) > 1 and parts[1] in ("kernel", "module"):
        return f"twin/{parts[1]}"
    if parts[0] == "zoomaf" and len(parts) == 2:
        return HEADER_LAYER.get(parts[1], "service")
    if parts[0] in ALLOWED or parts[0] in ("twin", "tests", "benchmarks"):
        return parts[0]
    return None


def may_use(user, used):
    return used is None or used == user or used in ALLOWED.get(user, [])


def source_files(layer):
    base = ROOT / layer
    return [p for p in sorted(base.rglob("*")) if p.suffix in SOURCES] if base.is_dir() else []


def check_includes(files_by_layer):
    problems = []
    for layer, files in files_by_layer.items():
        for path, text in files:
            for included in INCLUDE.findall(text):
                used = layer_of_path(included)
                if not may_use(layer, used):
                    problems.append(f"{path}: {layer} includes {included} ({used})")
    return problems


def check_links(layer):
    cmake = ROOT / layer / "CMakeLists.txt"
    if not cmake.exists():
        return []
    problems = []
    for target, rest in LINK.findall(cmake.read_text()):
        for word in rest.split():
            used = TARGET_LAYER.get(word)
            if word.startswith("zoomaf") and used is None and word not in ("zoomaf",):
                problems.append(f"{cmake}: {target} links {word}, a target of no known layer")
            elif not may_use(layer, used):
                problems.append(f"{cmake}: {target} ({layer}) links {word} ({used})")
    return problems


def main():
    layers = [l for l in ALLOWED if (ROOT / l).is_dir()]
    files_by_layer = {
        l: [(p.relative_to(ROOT), p.read_text(errors="replace")) for p in source_files(l)]
        for l in layers
    }
    # The public headers are checked as members of their own layers.
    for header in sorted((ROOT / "include" / "zoomaf").glob("*.h")):
        layer = HEADER_LAYER.get(header.name, "service")
        if layer is not None:
            files_by_layer.setdefault(layer, []).append(
                (header.relative_to(ROOT), header.read_text()))
    if "--with-violation" in sys.argv:
        files_by_layer["sensor"].append(("sensor/made_up.cpp", '#include "service/x.hpp"\n'))

    problems = check_includes(files_by_layer)
    for layer in layers:
        problems += check_links(layer)
    # A layer the check cannot see would pass unnoticed.
    for layer in LIBRARY + ["twin/kernel", "twin/module"]:
        if not files_by_layer.get(layer):
            problems.append(f"{layer}: no sources found; is the layer table out of date?")

    for p in problems:
        print(p)
    checked = sum(len(f) for f in files_by_layer.values())
    print(f"layering: {checked} files in {len(layers)} layers, {len(problems)} violation(s)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
