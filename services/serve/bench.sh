#!/usr/bin/env bash
# Throughput and end-to-end latency of one rtmonitor-serve worker against a private nats-server
# (loopback, file store in a scratch folder), as quoted in docs/serving.md:
#   services/serve/bench.sh [BUILD_DIR]            (default: build)
# 1. throughput: a backlog of DEVICES x MINUTES x 60 frames published at --rate max, then
#    analysed by one worker; `rtmonitor subscribe` reports results per second.
# 2. latency: LIVE_DEVICES devices at --rate real (one frame per device per second) for
#    LIVE_SECONDS; latency is from the frames stream storing a frame to its result arriving.
# Environment: DEVICES (160), MINUTES (5), LIVE_DEVICES (1600), LIVE_SECONDS (60), PARTITIONS (16).
set -euo pipefail
BUILD=${1:-build}
DEVICES=${DEVICES:-160}
MINUTES=${MINUTES:-5}
LIVE_DEVICES=${LIVE_DEVICES:-1600}
LIVE_SECONDS=${LIVE_SECONDS:-60}
PARTITIONS=${PARTITIONS:-16}
SERVER=$(command -v nats-server || echo /usr/sbin/nats-server)
[ -x "$SERVER" ] || { echo "bench.sh: nats-server is not installed (apt-get install nats-server)" >&2; exit 1; }
[ -x "$BUILD/rtmonitor-serve" ] || { echo "bench.sh: $BUILD/rtmonitor-serve is not built (needs libnats-dev)" >&2; exit 1; }

dir=$(mktemp -d /tmp/rtm_serve_bench_XXXXXX)
pids=()
cleanup() { for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true; rm -rf "$dir"; }
trap cleanup EXIT
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
url=nats://127.0.0.1:$port

# A fresh server, streams and one worker for each part, so the two loads never meet.
start_stack() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    pids=()
    rm -rf "$dir/store"
    cat > "$dir/nats.conf" <<CONF
listen: 127.0.0.1:$port
jetstream { store_dir: "$dir/store" }
mappings: { "rtm.frames.*": "rtm.part.{{partition($PARTITIONS,1)}}.{{wildcard(1)}}" }
CONF
    : > "$dir/server.log"
    "$SERVER" -c "$dir/nats.conf" > "$dir/server.log" 2>&1 & pids+=($!)
    for _ in $(seq 100); do grep -q "Server is ready" "$dir/server.log" && break; sleep 0.1; done
    "$BUILD/rtmonitor-serve" --setup --server "$url" --partitions "$PARTITIONS" > /dev/null
}
start_worker() {
    "$BUILD/rtmonitor-serve" --server "$url" --name bench --log-every 10 > "$dir/worker.log" & pids+=($!)
}

# Synthetic devices: 16 generated recordings, repeated under distinct ids by publish --copies.
"$BUILD/rtmonitor" synth --out "$dir/backlog.frames" --devices 16 --minutes "$MINUTES" --seed 1
"$BUILD/rtmonitor" synth --out "$dir/live.frames" --devices 16 --minutes $(( (LIVE_SECONDS + 59) / 60 )) --seed 2
head -c $(( 16 * LIVE_SECONDS * 1320 )) "$dir/live.frames" > "$dir/live_cut.frames"

echo "== throughput: $(( DEVICES * MINUTES * 60 )) frames of $DEVICES devices, one worker"
start_stack
"$BUILD/rtmonitor" publish "$dir/backlog.frames" --rate max --copies $(( DEVICES / 16 )) --server "$url"
"$BUILD/rtmonitor" subscribe --server "$url" --quiet --count $(( DEVICES * MINUTES * 60 )) & sub=$!
sleep 0.5
start_worker
wait "$sub"

echo "== latency: $LIVE_DEVICES devices at one frame per second for $LIVE_SECONDS s, one worker"
start_stack
start_worker
sleep 1
"$BUILD/rtmonitor" subscribe --server "$url" --quiet --count $(( LIVE_DEVICES * LIVE_SECONDS )) & sub=$!
sleep 0.5
"$BUILD/rtmonitor" publish "$dir/live_cut.frames" --rate real --copies $(( LIVE_DEVICES / 16 )) --server "$url"
wait "$sub"
grep "frames/s" "$dir/worker.log" | tail -n 3
