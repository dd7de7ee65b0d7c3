# Thin wrapper round CMake. `make` builds build/librtmonitor.so (and the tool, build/rtmonitor);
# `make test` builds and runs the whole suite; `make demo` builds only the tool and runs its demo;
# `make install PREFIX=/some/dir` installs (cmake --install; without PREFIX, the configured prefix).
# `make demo` and `make test` first bring in what they need through scripts/prereqs: as root with
# apt-get they install missing Debian packages, otherwise they say how and skip those parts.
# RTM_NO_INSTALL=1 never installs.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=
# Labels the parallel run leaves out (the worker-service cases run after it, one at a time).
CTEST_EXCLUDE ?= serve
PREFIX ?=
PREREQS := scripts/prereqs

.PHONY: all build configure test demo install asan tsan fuzz soak clean check-prereqs station

all: build

check-prereqs:
	@command -v cmake >/dev/null 2>&1 || { echo "error: cmake is not installed; install it with: apt-get install cmake" >&2; exit 1; }
	@command -v c++ >/dev/null 2>&1 || { echo "error: no C++ compiler found; install one with: apt-get install g++" >&2; exit 1; }

# Configures when there is no build tree yet, and again whenever a listed package came or went
# since the last configure: a part installed later is then built and tested, not left out.
configure: check-prereqs
	@mkdir -p $(BUILD)
	@$(PREREQS) state > $(BUILD)/prereqs.state.new
	@if ! test -f $(BUILD)/CMakeCache.txt || ! cmp -s $(BUILD)/prereqs.state.new $(BUILD)/prereqs.state; then \
	  cmake -S . -B $(BUILD) $(CMAKE_ARGS) && mv $(BUILD)/prereqs.state.new $(BUILD)/prereqs.state; \
	else rm -f $(BUILD)/prereqs.state.new; fi

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test:
	@$(PREREQS) install test
	@$(MAKE) --no-print-directory check-prereqs
	@test -f /usr/include/gtest/gtest.h || { echo "error: GoogleTest is missing; install it with: apt-get install libgtest-dev libgmock-dev" >&2; exit 1; }
	@$(MAKE) --no-print-directory configure
	@# A build tree configured with the tests switched off: switch them on.
	@test -f $(BUILD)/tests/CTestTestfile.cmake || cmake -S . -B $(BUILD) -DRTMONITOR_TESTS=ON $(CMAKE_ARGS)
	@$(MAKE) --no-print-directory build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS) -LE '$(CTEST_EXCLUDE)'
	@# The worker-service cases kill and restart servers and workers and wait on them: they run one
	@# at a time after the rest, and a case that loses a race with the machine's load gets a second try.
	cd $(BUILD) && ctest --output-on-failure -L serve --repeat until-pass:2

# Only the tool and the library it links are built; GoogleTest is not needed.
demo:
	@$(PREREQS) install demo
	@$(MAKE) --no-print-directory configure
	cmake --build $(BUILD) -j $(JOBS) --target rtmonitor_cli
	$(BUILD)/rtmonitor demo

# The central-station page (web/): installs its npm packages from the lock file when they are
# missing or older than it, bundles the page into $(BUILD)/station and says how to open it.
station:
	@command -v npm >/dev/null 2>&1 || { echo "error: node and npm are needed; install them with: apt-get install nodejs npm" >&2; exit 1; }
	@if [ ! -d web/node_modules ] || [ web/package-lock.json -nt web/node_modules/.package-lock.json ]; then \
	  echo "npm ci (web/)"; cd web && npm ci --no-audit --no-fund; fi
	@node web/build.mjs $(BUILD)/station >/dev/null
	@echo "The station page is built: $(abspath $(BUILD))/station/index.html"
	@echo ""
	@echo "1. nats-server needs a WebSocket listener; add to its config (see docs/station.md):"
	@echo ""
	@echo "     websocket { listen: \"127.0.0.1:9222\", no_tls: true }"
	@echo ""
	@echo "2. Open in a browser (server defaults to ws://127.0.0.1:9222):"
	@echo ""
	@echo "     file://$(abspath $(BUILD))/station/index.html?server=ws://127.0.0.1:9222"
	@echo ""
	@echo "   or serve the folder: python3 -m http.server -d $(BUILD)/station 8080 --bind 127.0.0.1"

install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

# The suite again with address and undefined-behaviour sanitizers; any report stops the run. The
# browser cases are left out here: they judge timing across several processes, and the worker and
# alarms code they drive runs sanitized in the serve and alarms cases.
asan:
	@$(MAKE) --no-print-directory test BUILD=build-asan CMAKE_ARGS="-DRTMONITOR_SANITIZE=ON -DRTMONITOR_BENCH=OFF" \
	  CTEST_EXCLUDE='serve|station'

# The suite again with the thread sanitizer (build-tsan); by default only the concurrency stress
# test is built and run (TSAN_TESTS= builds and runs every test, TSAN_TESTS="<group> ..." some).
TSAN_TESTS ?= stress
tsan:
	@$(PREREQS) install core
	@$(MAKE) --no-print-directory check-prereqs
	@test -f /usr/include/gtest/gtest.h || { echo "error: GoogleTest is missing; install it with: apt-get install libgtest-dev libgmock-dev" >&2; exit 1; }
	cmake -S . -B build-tsan -DRTMONITOR_BENCH=OFF -DCMAKE_CXX_FLAGS="-fsanitize=thread -g" \
	  -DCMAKE_C_FLAGS="-fsanitize=thread -g" -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread \
	  -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread
	cmake --build build-tsan -j $(JOBS) $(if $(TSAN_TESTS),--target $(addprefix test_,$(TSAN_TESTS)))
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  ctest --output-on-failure -j $(JOBS) $(if $(TSAN_TESTS),-L '$(TSAN_TESTS)')

# libFuzzer targets (clang 14, address + undefined sanitizers), FUZZ_SECONDS each (default 60),
# one process at a time; FUZZ_TARGETS="pipeline heart" picks some. See fuzz/README.md.
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=
fuzz:
	@$(PREREQS) install fuzz
	@$(MAKE) --no-print-directory -C fuzz run FUZZ_SECONDS=$(FUZZ_SECONDS) FUZZ_TARGETS="$(FUZZ_TARGETS)"

# Long-run soak: 24 simulated hours per device with disturbances (SOAK_HOURS, SOAK_DEVICES).
SOAK_HOURS ?= 24
SOAK_DEVICES ?= 4
soak:
	@$(MAKE) --no-print-directory -C tools/soak
	build-soak/rtm_soak --hours $(SOAK_HOURS) --devices $(SOAK_DEVICES)

clean:
	rm -rf build build-asan build-tsan build-fuzz build-soak
