#!/usr/bin/env bash
# Fuzzes each named target for FUZZ_SECONDS seconds, one process and one job each (the machine is
# shared), then prints executions, coverage and frames per target. New corpus entries go to
# fuzz/corpus-work/<target> (not committed); crashes, hangs and leaks to $OUT/findings/<target>.
# Every run is appended to $OUT/fuzz-history.tsv so totals over many runs can be reported.
set -uo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
OUT="${OUT:-$here/../build-fuzz}"
secs="${FUZZ_SECONDS:-60}"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
status=0
summary=()
for t in "$@"; do
    work="$here/corpus-work/$t"
    findings="$OUT/findings/$t"
    mkdir -p "$work" "$findings"
    log="$OUT/fuzz-$t.log"
    seeds=("$here/corpus/$t")
    [ -d "$here/regressions/$t" ] && seeds+=("$here/regressions/$t")
    echo "== fuzz $t for ${secs}s"
    "$OUT/fuzz_$t" "$work" "${seeds[@]}" -max_total_time="$secs" -timeout=30 -rss_limit_mb=2048 \
        -max_len=16384 -print_final_stats=1 -artifact_prefix="$findings/" >"$log" 2>&1
    rc=$?
    execs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | tail -1 | awk '{print $2}')
    last=$(grep -E '^#[0-9]+' "$log" | tail -1)
    cov=$(echo "$last" | grep -o 'cov: [0-9]*' | awk '{print $2}')
    ft=$(echo "$last" | grep -o 'ft: [0-9]*' | awk '{print $2}')
    corp=$(echo "$last" | grep -o 'corp: [0-9]*' | awk '{print $2}')
    frames=$(grep -o 'rtm-fuzz: frames=[0-9]*' "$log" | tail -1 | cut -d= -f2)
    slowest=$(grep -o 'max_frame_us=[0-9]*' "$log" | tail -1 | cut -d= -f2)
    line=$(printf '%-15s execs %10s  cov %5s  ft %6s  corpus %5s  frames %11s  slowest frame %6s us' \
        "$t" "${execs:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "${frames:-?}" "${slowest:-?}")
    if [ $rc -ne 0 ]; then
        line="$line  FINDING (exit $rc, see $log and $findings)"
        status=1
        grep -E 'ERROR|runtime error|INVARIANT|HANG|SUMMARY|Test unit written' "$log" | head -8
    fi
    summary+=("$line")
    printf '%s\t%s\t%s\t%s\t%s\t%s\t%s\t%s\n' "$(date -u +%FT%TZ)" "$t" "$secs" "${execs:-0}" "${cov:-0}" \
        "${ft:-0}" "${frames:-0}" "$rc" >>"$OUT/fuzz-history.tsv"
done
echo "== fuzz summary (${secs}s per target)"
printf '%s\n' "${summary[@]}"
exit $status
