#!/bin/sh
# Installs a build into a fresh temporary prefix and builds and runs every example against it,
# as a user would: pkg-config for the C hosts, find_package for the CMake project.
# usage: check_installed.sh BUILD_DIR WORK_DIR CMAKE CC CXX
# RTM_EXAMPLE_FLAGS, when set, is added to every compile and link (e.g. sanitizer flags).
set -eu
if [ $# -ne 5 ]; then
    echo "usage: $0 BUILD_DIR WORK_DIR CMAKE CC CXX" >&2
    exit 2
fi
build=$1 work=$2 cmake=$3 cc=$4 cxx=$5
extra=${RTM_EXAMPLE_FLAGS:-}
examples=$(cd "$(dirname "$0")" && pwd)
prefix=$work/prefix

fail() {
    echo "examples: $*" >&2
    exit 1
}

rm -rf "$work"
mkdir -p "$work"
echo "== cmake --install into $prefix"
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 ||
    { cat "$work/install.log" >&2; fail "install failed; build every target first (make, or make test)"; }
lib=$(find "$prefix" -name librtmonitor.so -print | head -n 1)
[ -n "$lib" ] || fail "librtmonitor.so was not installed"
libdir=$(dirname "$lib")
[ -f "$libdir/pkgconfig/rtmonitor.pc" ] || fail "rtmonitor.pc was not installed under $libdir/pkgconfig"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
version=$(pkg-config --modversion rtmonitor)
[ "$("$prefix/bin/rtmonitor" --version)" = "rtmonitor $version" ] ||
    fail "rtmonitor --version does not print 'rtmonitor $version'"
if command -v readelf >/dev/null 2>&1; then
    readelf -d "$lib" | grep -q "SONAME.*\[librtmonitor\.so\.${version%%.*}\]" || fail "no versioned soname in $lib"
fi
cflags=$(pkg-config --cflags rtmonitor)
libs=$(pkg-config --libs rtmonitor)

# The README's first C block is host.c from its first #include on; keep the two the same.
readme=$examples/../README.md
if [ -f "$readme" ]; then
    awk '/^```c$/ && !seen { on = 1; seen = 1; next } /^```$/ { on = 0 } on' "$readme" >"$work/readme_host.c"
    sed -n '/^#include <math.h>/,$p' "$examples/host.c" | cmp -s - "$work/readme_host.c" ||
        fail "the host example in README.md differs from examples/host.c; copy it over"
fi

echo "== host.c (pkg-config, LD_LIBRARY_PATH)"
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror $extra "$examples/host.c" $cflags $libs -lm -o "$work/host"
LD_LIBRARY_PATH=$libdir "$work/host" 30 >"$work/host.csv"
tail -n 1 "$work/host.csv" | awk -F, '{ exit !($2 >= 70 && $2 <= 74 && $4 == 15) }' ||
    fail "host: expected about 72 beats and 15 breaths per minute at the end, got: $(tail -n 1 "$work/host.csv")"

echo "== replay_rates.c (pkg-config, rpath) on a frame file from rtmonitor synth"
"$prefix/bin/rtmonitor" synth --out "$work/one.frames" --minutes 1 >/dev/null
# shellcheck disable=SC2086
"$cc" -std=c99 -Wall -Wextra -Werror $extra "$examples/replay_rates.c" $cflags $libs -Wl,-rpath,"$libdir" \
    -o "$work/replay_rates"
"$work/replay_rates" "$work/one.frames" >"$work/replay.csv"
[ "$(wc -l <"$work/replay.csv")" -eq 61 ] || fail "replay_rates: expected a header and 60 rows"
awk -F, 'NR > 30 && $3 > 0 { n++ } END { exit n < 25 }' "$work/replay.csv" ||
    fail "replay_rates: no heart rate in the second half minute"

echo "== cmake_consumer (find_package)"
"$cmake" -S "$examples/cmake_consumer" -B "$work/cmake_consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$extra" >"$work/cmake_consumer.log" 2>&1 ||
    { cat "$work/cmake_consumer.log" >&2; fail "cmake_consumer: configure failed"; }
"$cmake" --build "$work/cmake_consumer" >>"$work/cmake_consumer.log" 2>&1 ||
    { cat "$work/cmake_consumer.log" >&2; fail "cmake_consumer: build failed"; }
"$work/cmake_consumer/consumer"

if [ -f "$examples/threaded_handles.cpp" ]; then
    echo "== threaded_handles.cpp (pkg-config, rpath)"
    # shellcheck disable=SC2086
    "$cxx" -std=c++17 -O2 -Wall -Wextra -pthread $extra "$examples/threaded_handles.cpp" $cflags $libs \
        -Wl,-rpath,"$libdir" -o "$work/threaded_handles"
    "$work/threaded_handles" "$work/one.frames" --threads 2 --copies 3 >"$work/threaded_handles.log" ||
        { cat "$work/threaded_handles.log" >&2; fail "threaded_handles failed"; }
fi
echo "examples: all built and ran against $prefix"
