#!/usr/bin/env bash
# scripts/prereqs against a stand-in dpkg-query and apt-get, so that missing packages, installing
# as root and the non-root route can be tried without touching the machine's packages.
# Usage: prereqs_test.sh PATH/TO/scripts/prereqs
set -uo pipefail
script=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
# A copy in a tree of its own, so the checkout's web/ (node_modules or not) plays no part until
# the station's case builds one.
mkdir -p "$work/base/scripts"
cp "$script" "$work/base/scripts/prereqs"
script=$work/base/scripts/prereqs
failures=0

fail() {
    echo "FAIL: $*"
    echo "--- output was:"
    cat "$work/out"
    echo "---"
    failures=$((failures + 1))
}
expect_line() { grep -qxF -- "$1" "$work/out" || fail "$2: no line '$1'"; }
expect_match() { grep -qE -- "$1" "$work/out" || fail "$2: nothing matches '$1'"; }
expect_no_match() { ! grep -qE -- "$1" "$work/out" || fail "$2: unexpected '$1'"; }

# dpkg-query reports every package it is asked about as installed, except those in $work/absent;
# apt-get logs its calls and "installs" by taking packages off that list.
mkdir "$work/bin"
cat >"$work/bin/dpkg-query" <<'EOF'
#!/usr/bin/env bash
shift 2  # -W -f=FORMAT
absent=" $(tr '\n' ' ' <"$FAKE_DIR/absent") "
for p in "$@"; do
    if [[ $absent == *" $p "* ]]; then echo "$p un"; else echo "$p ii"; fi
done
EOF
cat >"$work/bin/apt-get" <<'EOF'
#!/usr/bin/env bash
echo "$*" >>"$FAKE_DIR/apt.log"
if [ "$1" = install ]; then
    for p in "$@"; do grep -vxF -- "$p" "$FAKE_DIR/absent" >"$FAKE_DIR/absent.new"; mv "$FAKE_DIR/absent.new" "$FAKE_DIR/absent"; done
fi
EOF
chmod 755 "$work/bin/dpkg-query" "$work/bin/apt-get"

wrap=()
run() {  # run [VAR=value ...] -- ARGS: the script with the stand-ins first on PATH; status in $status
    local envs=()
    while [ "$1" != -- ]; do envs+=("$1"); shift; done
    shift
    env PATH="$work/bin:$PATH" FAKE_DIR="$work" RTM_APT_GET="$work/bin/apt-get" "${envs[@]}" \
        "${wrap[@]}" "$script" "$@" >"$work/out" 2>&1
    status=$?
}
absent() { printf '%s\n' "$@" >"$work/absent"; : >"$work/apt.log"; }

# A complete machine: nothing to say, nothing installed.
absent
run -- check all
[ $status = 0 ] && [ ! -s "$work/out" ] || fail "complete machine: check all should be silent with status 0"
run -- install test
[ ! -s "$work/out" ] && [ ! -s "$work/apt.log" ] || fail "complete machine: install should do nothing"

# Every dependency is listed once, in one part.
run -- packages all
dups=$(sed 's/#.*//' "$work/out" | tr ' ' '\n' | grep -v -e '^$' -e '^apt-get$' -e '^install$' | sort | uniq -d)
[ -z "$dups" ] || fail "packages listed twice: $dups"

# check names what is missing per part and fails.
absent libedf-dev nats-server libnats-dev
run -- check test
[ $status = 1 ] || fail "check with missing packages should exit 1 (got $status)"
expect_line "prereqs: formats: missing libedf-dev" "check"
expect_line "prereqs: service: missing nats-server libnats-dev" "check"
expect_no_match "python|core|build" "check"

# As root: one line saying what and why, apt-get update once, then the missing packages only.
if [ "$(id -u)" = 0 ]; then
    run -- install test
    expect_match "^prereqs: installing libedf-dev for formats \(.*EDF.*\); nats-server libnats-dev for service \(.*\)$" \
        "install as root"
    [ "$(grep -c '^update' "$work/apt.log")" = 1 ] || fail "install as root: apt-get update should run once"
    grep -qx -- "install -y -qq libedf-dev nats-server libnats-dev" "$work/apt.log" ||
        fail "install as root: apt-get install should get exactly the missing packages ($(cat "$work/apt.log"))"
    expect_no_match "skipped" "install as root, packages installed"
    [ "$(wc -l <"$work/out")" = 1 ] || fail "install as root: one line expected"

    # The package taken for missing by the override stays missing after apt-get: its part is skipped.
    absent
    run RTM_PREREQS_MISSING=libsamplerate0-dev -- install formats
    expect_line "prereqs: skipped: formats (the tool's EDF/BDF reading and rate conversion, and their tests): libsamplerate0-dev not installed" \
        "install that leaves a package out"
fi

# RTM_NO_INSTALL, and a real non-root user: the exact command, one skipped line per part, no apt-get.
absent libedf-dev nats-server libnats-dev
for how in opt-out non-root; do
    if [ $how = opt-out ]; then
        run RTM_NO_INSTALL=1 -- install test
    elif [ "$(id -u)" = 0 ] && command -v setpriv >/dev/null; then
        chmod 666 "$work/absent" "$work/apt.log"
        wrap=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
        run -- install test
        wrap=()
    elif [ "$(id -u)" != 0 ]; then
        run -- install test
    else
        continue
    fi
    [ $status = 0 ] || fail "$how: install should not fail (status $status)"
    expect_line "prereqs: to install them, run as root: apt-get update && apt-get install -y libedf-dev nats-server libnats-dev" "$how"
    expect_match "^prereqs: skipped: formats \(.*\): libedf-dev not installed$" "$how"
    expect_match "^prereqs: skipped: service \(.*\): nats-server libnats-dev not installed$" "$how"
    [ "$(grep -c 'skipped:' "$work/out")" = 2 ] || fail "$how: one skipped line per part expected"
    [ ! -s "$work/apt.log" ] || fail "$how: apt-get must not run"
done

# The state the Makefile compares before configuring again changes with what is installed.
absent
run -- state
cp "$work/out" "$work/state.before"
absent libsamplerate0-dev
run -- state
cmp -s "$work/out" "$work/state.before" && fail "state should change when a package goes missing"

# The station's npm packages: npm ci in web/ when node_modules does not match the lock file, once.
mkdir -p "$work/repo/scripts" "$work/repo/web"
cp "$script" "$work/repo/scripts/prereqs"
printf '%s\n' '#!/usr/bin/env bash' 'echo "npm $* in $PWD" >>"$FAKE_DIR/npm.log"' \
    'mkdir -p node_modules && cp package-lock.json node_modules/.package-lock.json' >"$work/bin/npm"
chmod 755 "$work/bin/npm"
echo '{}' >"$work/repo/web/package.json"
absent
script_real=$script
script=$work/repo/scripts/prereqs
run -- install test
expect_line "prereqs: web/ has no package-lock.json: the station's npm packages are not installed (cd web && npm install)" \
    "station without a lock file"
echo '{}' >"$work/repo/web/package-lock.json"
run -- install test
expect_match "^prereqs: installing the station's npm packages: npm ci in web/" "station"
grep -q "^npm ci .* in $work/repo/web\$" "$work/npm.log" || fail "station: npm ci should run in web/"
run -- install test
[ ! -s "$work/out" ] && [ "$(wc -l <"$work/npm.log")" = 1 ] || fail "station: npm ci should not run again"
script=$script_real

# Usage errors.
run -- install nonsense
[ $status = 2 ] || fail "an unknown part should exit 2 (got $status)"
run -- frobnicate build
[ $status = 2 ] || fail "an unknown mode should exit 2 (got $status)"

if [ $failures -gt 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "scripts/prereqs: all checks passed"
