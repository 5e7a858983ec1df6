# Cross build for 64-bit Arm Linux with Debian's cross compiler and the arm64
# multiarch packages (libtinyxml2-dev:arm64, libgtest-dev:arm64, ...), which
# install beside the host's own under /usr/lib/aarch64-linux-gnu.
#
#   cmake -S . -B build/aarch64 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
#
# ctest then runs every test program through qemu-user (Debian's qemu-user).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(_ar_triple aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${_ar_triple}-gcc)
set(CMAKE_CXX_COMPILER ${_ar_triple}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${_ar_triple})

# Multiarch keeps the target's libraries under the host's own root, so the
# search root stays "/" and only the architecture directory tells them apart.
# Host programs (code generators, pkg-config) are still found on the host.
set(CMAKE_FIND_ROOT_PATH /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

# pkg-config must read the target's .pc files, never the host's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${_ar_triple}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# qemu-user runs the test programs with the arm64 multiarch runtime (libc6,
# libstdc++6, libasan8, libubsan1 :arm64), whose loader sits where the
# programs expect it, so no sysroot prefix is given: qemu 7.2's "-L" prefix
# lookup hangs a forked child, which death tests need. QEMU_CPU in the
# environment picks the emulated processor ("max", the default, has SVE;
# "cortex-a72" has NEON only).
find_program(AR_QEMU_AARCH64 qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR ${AR_QEMU_AARCH64})

# g++ notes every std::pair passed by value that its AArch64 calling
# convention changed in GCC 10.1; everything here is built by one compiler,
# so the note says nothing about this build.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
