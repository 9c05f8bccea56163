#!/bin/bash
# Runs the benchmarks and the counts that do not depend on the machine's load. Called by ./bench-all.
#     measure.sh [--quick] [Google Benchmark's options...]
set -eu
. "$(dirname "$0")/../tools/setup.sh"
programs=$REPO/build/bench
results=$REPO/bench-results
mkdir -p "$results"

options=()
refused=2000 traced=50 recorded=4000
if [ "${1:-}" = --quick ]; then
    # Only shows that everything runs and that nothing allocates.
    options=(--benchmark_repetitions=1 --benchmark_min_time=0.005)
    refused=100 traced=10 recorded=20
    shift
fi
"$programs/bench/ois_bench" --benchmark_out="$results/benchmarks.json" --benchmark_out_format=json \
    "${options[@]}" "$@"

# instructions WAY COUNT: executed by that many requests, start and end of the process included.
instructions() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$programs/bench/ois_requests" "$1" "$2" 2>&1 |
        sed -n 's/.*Collected : //p'
}

echo
if command -v valgrind >/dev/null; then
    more=2000 fewer=1000
    for way in sub-device hub; do
        many=$(instructions "$way" $more)
        few=$(instructions "$way" $fewer)
        echo "instructions of one request, $way: $(((many - few) / (more - fewer)))"
    done | tee "$results/instructions.txt"
fi
# What looking on costs a private request: one that the kernel refuses at once, which leaves nothing but the way to it.
# refused COUNT COMMAND...: nanoseconds of one of that many, behind a command.
refused() {
    local count=$1
    shift
    env "$@" "$programs/bench/ois_refused_requests" "$count"
}
spied=$(mktemp -d)
trap 'rm -rf "$spied"' EXIT
{
    alone=$(refused "$refused")
    printf '%-48s %10s %8s %9s\n' "a private request that is refused" ns ratio above
    row() { awk -v name="$1" -v ns="$2" -v floor="$alone" \
        'BEGIN { printf "%-48s %10.1f %7.2fx %+9.1f\n", name, ns, ns / floor, ns - floor }'; }
    row "alone" "$alone"
    row "with libois_spy.so (aim: 500 ns above)" \
        "$(refused "$refused" LD_PRELOAD="$programs/tools/spy/libois_spy.so" OIS_SPY_TRACE="$spied/trace.jsonl")"
    if command -v strace >/dev/null; then
        row "under strace" "$(refused "$traced" strace -f -o "$spied/strace.txt" -e trace=ioctl)"
    fi
} | tee "$results/spy.txt"
# A long recording, beside the least that anybody who reads it takes. The best of three: noise only ever adds.
oisctl=$REPO/build/release/tools/oisctl/oisctl
"$oisctl" record --seconds "$recorded" -o "$spied" >/dev/null
recording=$(echo "$spied"/*_status.txt)
# best COMMAND...: its seconds, and its peak memory in KB.
best() {
    for _ in 1 2 3; do
        /usr/bin/time -f '%e %M' -o "$spied/time.txt" "$@" >/dev/null
        cat "$spied/time.txt"
    done | sort -n | head -1
}
{
    rows=$(($(wc -l <"$recording") - 1))
    printf '%-48s %10s %8s %9s\n' "a recording of $rows rows" s ratio MB
    floor=$(best wc "$recording")
    row() { awk -v name="$1" -v took="$2" -v floor="$floor" 'BEGIN { split(took, t, " "); split(floor, f, " ");
        printf "%-48s %10.2f %7.1fx %9.1f\n", name, t[1], t[1] / (f[1] > 0 ? f[1] : 0.01), t[2] / 1024 }'; }
    row "wc FILE" "$floor"
    row "oisctl stats FILE (aim: 2 s, 300 MB)" "$(best "$oisctl" stats "$recording")"
    row "oisctl plot FILE (aim: 5 s)" "$(best "$oisctl" plot "$recording" -o "$spied/plot.png")"
} | tee "$results/recordings.txt"
# In simulated time: what the procedure waits, whatever machine this is.
"$REPO/build/release/tools/oisctl/oisctl" firmware-update --json >"$results/firmware-update.json"
seconds=$(sed -n 's/.*"duration_s":\([0-9.]*\).*/\1/p' "$results/firmware-update.json")
[ -n "$seconds" ] || { echo "bench-all: firmware-update named no duration_s" >&2; exit 1; }
printf 'a whole firmware update, simulated: %.3f s (its stated waits: 2.152 s and the time to become idle)\n' "$seconds"
echo "raw figures: bench-results/"
