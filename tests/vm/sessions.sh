# Runs in the virtual machine: every line of sessions.txt on the real kernel and on the simulated one, and compares what
# passed. Only times and descriptors may differ, and what follows from them: the status recorder takes as many samples as
# time allows, each of another moment, so that only the first ones are held beside each other, without what was measured.
# Of commands that ask the lens themselves, the verdicts are compared.
. ./checks.sh
MEASURED=seconds,microseconds,gyro_raw_x,gyro_raw_y,gyro_raw_z,acc_raw_x,acc_raw_y,acc_raw_z,gyro_target_x,gyro_target_y
MEASURED=$MEASURED,acc_target_x,acc_target_y,synthetic_x,synthetic_y
SAMPLES=20
VERDICTS='"(request|error|as_expected|name|verdict|open_error|usable|good)":("[^"]*"|[a-z]+)'

modprobe videodev
insmod ois_virtual.ko shake=N lens='"dw9786 4-0069,dw9781 2-0064,korvas4sw 2-003e"' || exit 1
version=$(uname -v | sed 's/.*Debian \([0-9.]*\).*/[\1]/; s/\./, /g')
sed "s/VERSION/$version/" graph.toml >/tmp/graph.toml

modules=$(sed 's/ .*//; /^#/d; /^$/d' sessions.txt | uniq)
for module in $modules; do
    # Noise would be another at each reading.
    oisctl modules "$module" --toml | sed 's/^hallNoiseCounts = .*/hallNoiseCounts = 0/' >"/tmp/$module.toml"
    grep "^$module " sessions.txt | sed 's/^[^ ]* *//' >"/tmp/$module.lines"
done

# first_samples TRACE: the trace without what its recorders did after so many samples, but close their files.
first_samples() {
    awk -v limit=$SAMPLES '{
            match($0, /"thread":[0-9]+/); thread = substr($0, RSTART, RLENGTH)
            if (/"name":"READ_STATUS"/) ++samples[thread]
            if (samples[thread] <= limit || /"name":"fclose"/) print
        }' "$1" >"$1.start"
}

# on KERNEL MODULE COMMAND...: the trace is KERNEL, what was printed KERNEL.out, and the exit status KERNEL.status.
on() {
    local kernel=$1 module=$2
    shift 2
    oisctl "$@" -m "/tmp/$module.toml" --kernel "$kernel" --json --trace="$kernel" >"$kernel.out" 2>&1
    echo $? >"$kernel.status"
}

# run_session MODULE FAULT COMMAND...: on both kernels; fails when they differ.
run_session() {
    local module=$1 fault=$2 kernel aside=""
    shift 2
    on real "$module" "$@" --allow-write --dump-folder dump --thermal-folder thermal
    on simulated "$module" "$@" --motion rest --media-graph /tmp/graph.toml ${fault:+--fault "$fault"}
    for kernel in real simulated; do first_samples $kernel; done
    case $1 in record) aside="--aside $MEASURED,hall_x,hall_y" ;; esac
    # shellcheck disable=SC2086 # options are words
    oisctl compare real.start simulated.start $aside >comparison 2>&1
}

# run_questions MODULE FAULT COMMAND...: likewise, and what they say of each request or check is compared.
run_questions() {
    local module=$1 fault=$2 kernel
    shift 2
    on real "$module" "$@"
    on simulated "$module" "$@" ${fault:+--fault "$fault"}
    for kernel in real simulated; do sed 's/.*"modules"://' $kernel.out | grep -oE "$VERDICTS" >$kernel.verdicts; done
    [ -s real.verdicts ] && diff real.verdicts simulated.verdicts >comparison 2>&1
}

# both ROUND MODULE "COMMAND | KNOB | FAULT": fills its folder.
both() {
    local folder=/tmp/$2.$1 module=$2 command knob fault knobs run=run_session status
    knobs=$(echo "/sys/kernel/debug/ois_virtual/${module%%-*}"-*/knobs)
    IFS='|' read -r command knob fault <<END
$3
END
    mkdir -p "$folder/dump" "$folder/thermal"
    cd "$folder" || return
    echo "$module $3" >what
    echo 30 >thermal/cam_thermal_sensor0
    [ -z "$knob" ] || echo "$knob" >"$knobs"
    case $command in probe* | compliance*) run=run_questions ;; esac
    # shellcheck disable=SC2086 # a command is words
    $run "$module" "$(echo $fault)" $command && cmp real.status simulated.status >>comparison
    status=$?
    if [ -z "$knob" ]; then
        [ "$(cat real.status)" = 0 ] || status=1
    else
        grep -q 'struck [1-9]' "$knobs" || { status=1; echo "the knob never struck" >>comparison; }
    fi
    echo $status >status
    tail -n 3 real.out | cut -c 1-300 >>comparison
}

for round in $(seq "$(wc -l /tmp/*.lines | sed '/ total$/d' | sort -n | awk 'END { print $1 }')"); do
    for module in $modules; do
        line=$(sed -n "${round}p" "/tmp/$module.lines")
        [ -z "$line" ] || both "$round" "$module" "$line" &
    done
    wait
    rebind
    for module in $modules; do
        folder=/tmp/$module.$round
        [ ! -e "$folder" ] || result "$(cat "$folder/status")" "$(cat "$folder/what")" "$folder/comparison"
    done
done
cp -r /tmp/*.[0-9]* .
exit $failed
