#!/usr/bin/env bash
# Throughput, CPU per frame and end-to-end latency of rtmonitor-serve against private nats-servers
# (loopback, file store in a scratch folder), as quoted in docs/serving.md:
#   services/serve/bench.sh [BUILD_DIR]            (default: build)
# 1. backlog: DEVICES x MINUTES x 60 frames published at --rate max, then drained by 1 worker and
#    by 2 workers: frames/s, and CPU per frame (user + system) of the workers and of the server
#    over the drain, beside what `rtmonitor replay` spends per frame on the same frames.
# 2. live: LIVE_DEVICES (each count in the list) at one frame per device per second for
#    LIVE_SECONDS; latency from the frames stream storing a frame to the subscriber receiving
#    its result, median and p99, one worker.
# 3. the same two on a three-server cluster (streams and buckets on all three), unless CLUSTER=0.
# Environment: DEVICES (160), MINUTES (5), LIVE_DEVICES ("1000 10000"), LIVE_SECONDS (60),
# PARTITIONS (16), SNAPSHOT_EVERY (10), CLUSTER (1).
set -euo pipefail
BUILD=${1:-build}
DEVICES=${DEVICES:-160}
MINUTES=${MINUTES:-5}
LIVE_DEVICES=${LIVE_DEVICES:-1000 10000}
LIVE_SECONDS=${LIVE_SECONDS:-60}
PARTITIONS=${PARTITIONS:-16}
SNAPSHOT_EVERY=${SNAPSHOT_EVERY:-10}
CLUSTER=${CLUSTER:-1}
SERVER=$(command -v nats-server || echo /usr/sbin/nats-server)
[ -x "$SERVER" ] || { echo "bench.sh: nats-server is not installed (apt-get install nats-server)" >&2; exit 1; }
[ -x "$BUILD/rtmonitor-serve" ] || { echo "bench.sh: $BUILD/rtmonitor-serve is not built (needs libnats-dev)" >&2; exit 1; }

dir=$(mktemp -d /tmp/rtm_serve_bench_XXXXXX)
pids=()
servers=()
cleanup() {
    for p in "${pids[@]}" "${servers[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    rm -rf "$dir"
}
trap cleanup EXIT
freeport() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
ticks=$(getconf CLK_TCK)
# CPU seconds (user + system) a process has used so far.
cpu() { awk -v t="$ticks" '{ split($0, a, ") "); split(a[2], f, " "); printf "%.3f\n", (f[12] + f[13]) / t }' "/proc/$1/stat"; }
# Summed over processes still running (a worker that stopped early counts nothing).
sum_cpu() { local s=0 c; for p in "$@"; do c=$(cpu "$p" 2> /dev/null) && s=$(echo "$s + $c" | bc -l); done; echo "$s"; }
us_per_frame() { echo "scale=1; $1 * 1000000 / $2" | bc -l; }

stop_all() {
    for p in "${pids[@]}" "${servers[@]}"; do kill "$p" 2>/dev/null || true; done
    wait 2>/dev/null || true
    pids=()
    servers=()
}
# A fresh server (SIZE=1) or three-server cluster (SIZE=3), streams and buckets on all of them.
start_stack() {
    local size=$1
    stop_all
    rm -rf "$dir"/store* "$dir"/nats*.conf
    local mapping="mappings: { \"rtm.frames.*\": \"rtm.part.{{partition($PARTITIONS,1)}}.{{wildcard(1)}}\" }"
    local ports=() routes=() rports=()
    for i in $(seq "$size"); do ports+=("$(freeport)"); rports+=("$(freeport)"); done
    for i in $(seq "$size"); do routes+=("nats-route://127.0.0.1:${rports[$((i - 1))]}"); done
    urls=""
    for i in $(seq "$size"); do
        local conf="$dir/nats$i.conf"
        {
            echo "server_name: n$i"
            echo "listen: 127.0.0.1:${ports[$((i - 1))]}"
            echo "jetstream { store_dir: \"$dir/store$i\" }"
            echo "$mapping"
            if [ "$size" -gt 1 ]; then
                echo "cluster { name: bench, listen: 127.0.0.1:${rports[$((i - 1))]}, routes: [$(IFS=,; echo "${routes[*]}")] }"
            fi
        } > "$conf"
        "$SERVER" -c "$conf" > "$dir/server$i.log" 2>&1 & servers+=($!)
        urls="${urls:+$urls,}nats://127.0.0.1:${ports[$((i - 1))]}"
    done
    for i in $(seq "$size"); do
        for _ in $(seq 100); do grep -q "Server is ready" "$dir/server$i.log" && break; sleep 0.1; done
    done
    for _ in $(seq 60); do
        "$BUILD/rtmonitor-serve" --setup --server "$urls" --partitions "$PARTITIONS" $([ "$size" -gt 1 ] && echo --replicas "$size") > /dev/null 2>&1 && return
        sleep 0.5
    done
    echo "bench.sh: setup failed on $urls" >&2
    exit 1
}
start_worker() {
    "$BUILD/rtmonitor-serve" --server "$urls" --name "$1" --log-every 10 --snapshot-every "$SNAPSHOT_EVERY" \
        > "$dir/$1.log" 2>&1 & pids+=($!)
}

# Synthetic devices: 16 generated recordings, repeated under distinct ids by publish --copies.
"$BUILD/rtmonitor" synth --out "$dir/backlog.frames" --devices 16 --minutes "$MINUTES" --seed 1 2> /dev/null
"$BUILD/rtmonitor" synth --out "$dir/live.frames" --devices 16 --minutes $(( (LIVE_SECONDS + 59) / 60 )) --seed 2 2> /dev/null
head -c $(( 16 * LIVE_SECONDS * 1320 )) "$dir/live.frames" > "$dir/live_cut.frames"
backlog=$(( DEVICES * MINUTES * 60 ))

# What the analysis alone costs per frame: the same frames through `rtmonitor replay`.
/usr/bin/time -f "%U %S" -o "$dir/replay.time" "$BUILD/rtmonitor" replay "$dir/backlog.frames" --out /dev/null 2> /dev/null
replay_cpu=$(awk '{ print $1 + $2 }' "$dir/replay.time")
replay_us=$(us_per_frame "$replay_cpu" $(( 16 * MINUTES * 60 )))
echo "analysis alone (rtmonitor replay, same frames): $replay_us us of CPU per frame"

backlog_run() {
    local size=$1 workers=$2
    start_stack "$size"
    "$BUILD/rtmonitor" publish "$dir/backlog.frames" --rate max --copies $(( DEVICES / 16 )) --server "$urls" 2> /dev/null
    "$BUILD/rtmonitor" subscribe --server "$urls" --quiet --count "$backlog" 2> "$dir/sub.log" & local sub=$!
    sleep 0.5
    local before_server
    before_server=$(sum_cpu "${servers[@]}")
    for w in $(seq "$workers"); do start_worker "w$w"; done
    wait "$sub"
    local worker_cpu server_cpu rate main_cpu=0 p
    worker_cpu=$(sum_cpu "${pids[@]}")
    # Each worker's own thread (analysis, publishing), apart from the NATS client's threads.
    for p in "${pids[@]}"; do main_cpu=$(echo "$main_cpu + $(cpu "$p/task/$p" 2> /dev/null || echo 0)" | bc -l); done
    server_cpu=$(echo "$(sum_cpu "${servers[@]}") - $before_server" | bc -l)
    rate=$(sed -n 's/.* \([0-9]*\) results\/s.*/\1/p' "$dir/sub.log")
    echo "backlog of $backlog frames ($DEVICES devices), $size server(s), $workers worker(s): $rate frames/s;" \
        "CPU per frame: workers $(us_per_frame "$worker_cpu" "$backlog") us" \
        "($(echo "scale=2; $worker_cpu / $replay_cpu / ($DEVICES / 16)" | bc -l) x the analysis;" \
        "own thread $(us_per_frame "$main_cpu" "$backlog") us, client threads" \
        "$(us_per_frame "$(echo "$worker_cpu - $main_cpu" | bc -l)" "$backlog") us)," \
        "server(s) $(us_per_frame "$server_cpu" "$backlog") us"
}

live_run() {
    local size=$1 devices=$2
    start_stack "$size"
    start_worker w1
    sleep 1
    local total=$(( devices * LIVE_SECONDS ))
    "$BUILD/rtmonitor" subscribe --server "$urls" --quiet --count "$total" 2> "$dir/sub.log" & local sub=$!
    sleep 0.5
    "$BUILD/rtmonitor" publish "$dir/live_cut.frames" --rate real --copies $(( devices / 16 )) --server "$urls" 2> /dev/null
    # Results still missing a while after the last frame are reported, not waited for.
    for _ in $(seq 100); do kill -0 "$sub" 2> /dev/null || break; sleep 0.1; done
    kill -INT "$sub" 2> /dev/null || true
    wait "$sub" || true
    echo "live, $devices devices at 1 frame/s for $LIVE_SECONDS s, $size server(s), one worker:" \
        "$(sed -n 's/.*rtmonitor subscribe: \(.*\)/\1/p' "$dir/sub.log")"
}

sizes=1
[ "$CLUSTER" = 1 ] && sizes="1 3"
for size in $sizes; do
    backlog_run "$size" 1
    backlog_run "$size" 2
    for d in $LIVE_DEVICES; do live_run "$size" "$d"; done
done
