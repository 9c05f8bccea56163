#!/bin/bash
# Runs the benchmarks and the counts that do not depend on the machine's load. Called by ./bench-all.
#     measure.sh [--quick] [Google Benchmark's options...]
set -eu
. "$(dirname "$0")/../tools/setup.sh"
programs=$REPO/build/bench
results=$REPO/bench-results
mkdir -p "$results"

options=()
if [ "${1:-}" = --quick ]; then
    # Only shows that everything runs and that nothing allocates.
    options=(--benchmark_repetitions=1 --benchmark_min_time=0.005)
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
# In simulated time: what the procedure waits, whatever machine this is.
"$REPO/build/release/tools/oisctl/oisctl" firmware-update --json >"$results/firmware-update.json"
seconds=$(sed -n 's/.*"duration_s":\([0-9.]*\).*/\1/p' "$results/firmware-update.json")
[ -n "$seconds" ] || { echo "bench-all: firmware-update named no duration_s" >&2; exit 1; }
printf 'a whole firmware update, simulated: %.3f s (its stated waits: 2.152 s and the time to become idle)\n' "$seconds"
echo "raw figures: bench-results/"
