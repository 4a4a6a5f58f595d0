# Cross build for the RK3588 board (aarch64) with Debian's cross compiler
# (g++-aarch64-linux-gnu) and the target's libraries from Debian's arm64 packages
# (multiarch, /usr/lib/aarch64-linux-gnu): scripts/setup --aarch64 installs both.
#   cmake -S . -B build-aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
# Target binaries run on this machine under qemu-user: ctest starts every test through the
# emulator below, so the suite runs unchanged.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Debian's cross compiler searches the multiarch directories itself, so the host's prefixes
# stay searchable: find_* looks in lib/aarch64-linux-gnu, never in the host's
# lib/x86_64-linux-gnu. Programs (python3, the cross binutils) are the host's.
find_program(ZOOMAF_QEMU_AARCH64 qemu-aarch64 REQUIRED)
# The target's loader, libc and libstdc++ are those of Debian's arm64 packages
# (/lib/ld-linux-aarch64.so.1, /usr/lib/aarch64-linux-gnu), not the cross toolchain's
# older copies: under those (qemu -L /usr/aarch64-linux-gnu) a program hangs in its first
# pthread_create.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZOOMAF_QEMU_AARCH64})

# Debian's libyaml-cpp-dev cannot be installed for two architectures at once: the cross
# build takes the host's headers (the same for every architecture) and the arm64 library
# of libyaml-cpp0.7:arm64, through the package file in this directory.
set(yaml-cpp_DIR ${CMAKE_CURRENT_LIST_DIR}/aarch64-linux-gnu CACHE PATH "yaml-cpp for the target")
