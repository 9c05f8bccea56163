# Runs in the virtual machine: every line of sessions.txt on the real kernel and on the simulated one, and compares what
# passed. Only times and descriptors may differ, and what follows from them: the status recorder takes as many samples as
# time allows, each of another moment, so that only the first ones are held beside each other, without what was measured.
. ./checks.sh
MEASURED=seconds,microseconds,gyro_raw_x,gyro_raw_y,gyro_raw_z,acc_raw_x,acc_raw_y,acc_raw_z,gyro_target_x,gyro_target_y
MEASURED=$MEASURED,acc_target_x,acc_target_y,synthetic_x,synthetic_y
SAMPLES=20

modprobe -a videodev v4l2-async
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
    first_samples "$kernel"
}

# both ROUND MODULE COMMAND...: fills its folder.
both() {
    local folder=/tmp/$2.$1 module=$2 aside=""
    shift 2
    mkdir -p "$folder/dump" "$folder/thermal"
    cd "$folder" || return
    echo "$module $*" >what
    echo 30 >thermal/cam_thermal_sensor0
    on real "$module" "$@" --real-time --allow-write --dump-folder dump --thermal-folder thermal
    on simulated "$module" "$@" --motion rest --media-graph /tmp/graph.toml
    case $1 in record) aside="--aside $MEASURED,hall_x,hall_y" ;; esac
    # shellcheck disable=SC2086 # options are words
    oisctl compare real.start simulated.start $aside >comparison 2>&1 && cmp real.status simulated.status >>comparison &&
        [ "$(cat real.status)" = 0 ]
    echo $? >status
    tail -n 3 real.out >>comparison
}

for round in $(seq "$(cat /tmp/*.lines | wc -l)"); do
    for module in $modules; do
        line=$(sed -n "${round}p" "/tmp/$module.lines")
        # shellcheck disable=SC2086 # a line is words
        [ -z "$line" ] || both "$round" "$module" $line &
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
