# Two commands for a fresh Debian 12 machine (run as root, or with sudo at hand):
#   make test   install what is missing, build Debug with ASan+UBSan, run every test
#   make run    install what is missing, build Release, make maps for the example rig

SHELL := /bin/bash
JOBS ?= $(shell nproc)
CXX_COMPILER ?= g++
C_COMPILER ?= gcc

# Debian packages the project builds, tests and runs with.
PACKAGES := cmake ninja-build g++ clang libclang-rt-14-dev pkg-config \
            libgtest-dev libgmock-dev libbenchmark-dev \
            libtinyxml2-dev android-liblog-dev \
            libcli11-dev libyaml-cpp-dev libopencv-dev python3-numpy \
            libhwy-dev pybind11-dev python3-dev python3-pytest python3-opencv

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: deps test test-clang test-android-log run bench install-check clean fuzz test-tsan install
.PHONY: deps-aarch64 test-aarch64

deps:
	@missing=$$(for p in $(PACKAGES); do dpkg-query -W -f='$${db:Status-Abbrev}\n' $$p 2>/dev/null | grep -q "^ii" || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi

build/debug/build.ninja: | deps
	cmake -S . -B build/debug -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAR_SANITIZE=ON \
	  -DCMAKE_CXX_COMPILER=$(CXX_COMPILER) -DCMAKE_C_COMPILER=$(C_COMPILER)

test: deps build/debug/build.ninja
	cmake --build build/debug -j $(JOBS)
	cd build/debug && ASAN_OPTIONS=abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

# The same suite built by clang, with the Android log backend (liblog).
test-clang: deps
	cmake -S . -B build/clang -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAR_SANITIZE=ON \
	  -DAR_ANDROID_LOG=ON -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang
	cmake --build build/clang -j $(JOBS)
	cd build/clang && ASAN_OPTIONS=abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

# The target platform: an AArch64 cross build (Debian's cross compiler and
# arm64 multiarch packages) with the Android log backend, ASan+UBSan, every
# test run under qemu-user. The command-line tool stays host-only. Leak
# checks stay with the host suites: LeakSanitizer cannot stop the world under
# qemu-user.
AARCH64_PACKAGES := g++-aarch64-linux-gnu binutils-aarch64-linux-gnu qemu-user \
                    libtinyxml2-dev:arm64 libgtest-dev:arm64 libgmock-dev:arm64 \
                    libbenchmark-dev:arm64 android-liblog-dev:arm64 libhwy-dev:arm64 \
                    libc6:arm64 libstdc++6:arm64 libasan8:arm64 libubsan1:arm64

deps-aarch64: deps
	@dpkg --print-foreign-architectures | grep -qx arm64 || $(SUDO) dpkg --add-architecture arm64
	@missing=$$(for p in $(AARCH64_PACKAGES); do dpkg -s $$p >/dev/null 2>&1 || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing; \
	fi

test-aarch64: deps-aarch64
	cmake -S . -B build/aarch64 -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAR_SANITIZE=ON \
	  -DAR_ANDROID_LOG=ON -DAR_BUILD_TOOL=OFF -DAR_BUILD_PYTHON=OFF \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchains/aarch64-linux-gnu.cmake
	cmake --build build/aarch64 -j $(JOBS)
	cd build/aarch64 && ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS)

build/release/build.ninja: | deps
	cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DAR_BUILD_TESTS=OFF

run: deps build/release/build.ninja
	cmake --build build/release -j $(JOBS) --target stereo-maps stereo_rectify_native
	build/release/tools/stereo-maps rectify --out maps
	@echo
	@echo "Maps:    $(CURDIR)/maps/left_x.npy left_y.npy right_x.npy right_y.npy (float32, height x width)"
	@echo "Camera:  $(CURDIR)/maps/rectified.xml"
	@echo "Preview: $(CURDIR)/maps/preview.png"
	@echo "Python:  PYTHONPATH=$(CURDIR)/build/release/python /usr/bin/python3 -c 'import stereo_rectify'"

bench: deps build/release/build.ninja
	cmake --build build/release -j $(JOBS)
	@for b in build/release/bench/*_bench; do [ -x "$$b" ] && "$$b"; done

# libFuzzer targets (clang, ASan+UBSan) run FUZZ_SECONDS each on scratch
# copies of the seed corpora in fuzz/corpus; fails on any crash, hang, leak or
# broken promise. Only the harnesses and what they link are built.
FUZZ_SECONDS ?= 60
build/fuzz/build.ninja: | deps
	cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-O1 -DCMAKE_C_FLAGS=-O1 \
	  -DAR_FUZZ=ON -DAR_BUILD_TESTS=OFF -DAR_BUILD_BENCH=OFF \
	  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang

fuzz: deps build/fuzz/build.ninja
	cmake --build build/fuzz -j $(JOBS) --target fuzz_all
	fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

# The whole suite under ThreadSanitizer (clang, Debug). tests/tsan.supp
# silences reports from uninstrumented third-party libraries only.
build/tsan/build.ninja: | deps
	cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAR_TSAN=ON -DAR_BUILD_BENCH=OFF \
	  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang

test-tsan: deps build/tsan/build.ninja
	cmake --build build/tsan -j $(JOBS)
	cd build/tsan && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:suppressions=$(CURDIR)/tests/tsan.supp \
	  ctest --output-on-failure -j $(JOBS)

# The library, its headers and CMake/pkg-config files, stereo-maps and the
# Python package (into the prefix's Python site directory). PREFIX defaults
# to /usr/local.
PREFIX ?= /usr/local
install: deps
	cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DAR_BUILD_TESTS=OFF \
	  -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build build/release -j $(JOBS)
	$(SUDO) cmake --install build/release

clean:
	rm -rf build maps
