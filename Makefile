# Thin wrapper round CMake. `make` builds build/librtmonitor.so (and the tool, build/rtmonitor);
# `make test` builds and runs the whole suite; `make demo` runs the tool's demo.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all build test demo asan clean check-prereqs

all: build

check-prereqs:
	@command -v cmake >/dev/null 2>&1 || { echo "error: cmake is not installed; install it with: apt-get install cmake" >&2; exit 1; }
	@command -v c++ >/dev/null 2>&1 || { echo "error: no C++ compiler found; install one with: apt-get install g++" >&2; exit 1; }

$(BUILD)/CMakeCache.txt: | check-prereqs
	cmake -S . -B $(BUILD) $(CMAKE_ARGS)

build: check-prereqs $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: check-prereqs
	@test -f /usr/include/gtest/gtest.h || { echo "error: GoogleTest is missing; install it with: apt-get install libgtest-dev libgmock-dev" >&2; exit 1; }
	@$(MAKE) --no-print-directory build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

demo: build
	@if [ -x $(BUILD)/rtmonitor ]; then $(BUILD)/rtmonitor demo; \
	else echo "The rtmonitor tool is not built yet; see README.md for using the library directly."; fi

# The suite again with address and undefined-behaviour sanitizers; any report stops the run.
asan:
	@$(MAKE) --no-print-directory test BUILD=build-asan CMAKE_ARGS="-DRTMONITOR_SANITIZE=ON -DRTMONITOR_BENCH=OFF"

clean:
	rm -rf build build-asan
