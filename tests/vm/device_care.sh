# Runs in the virtual machine, with busybox's shell: what does the tool do to a controller that outlives it? One line a
# check; fails when one did.
. ./checks.sh
LENS=/sys/kernel/debug/ois_virtual/dw9786-4-0069
WRITES='WRITE_GAIN|SET_GYRO_OFFSET|UPDATE_FIRMWARE'

# tool COMMAND...: on the lens; its report in `report`, its exit status the tool's.
tool() {
    oisctl "$@" -m dw9786 --kernel real --dump-folder dump --json >report 2>errors
}
# value KEY: what stands in the report, up to the next comma or bracket.
value() { sed -n "s/.*\"$1\":\\(\\[[^]]*\\]\\|[^,}]*\\).*/\\1/p" report; }
# asked REQUESTS: how many of them the controller took.
asked() { grep -cE " ($1) in" $LENS/log; }
# last: the words of the last mode and of the last fix mode that the controller took.
last() {
    mode=$(grep ' SET_MODE in' $LENS/log | tail -n 1 | sed 's/.* in \([0-9a-f]*\).*/\1/')
    held=$(grep ' SET_FIX_MODE in' $LENS/log | tail -n 1 | sed 's/.* in \(........\).*/\1/')
    echo "$mode ${held:-none}"
}
afresh() { echo >$LENS/log; echo clear >$LENS/knobs; }

check_writes() {
    afresh
    tool session --hold 0.1
    check "the tour of a real controller succeeds" "0 true" "$? $(value good)"
    check "it leaves out what writes, and says so" \
        '["gyro-offset","write-gain-x","write-gain-y"] 0' "$(value left_out) $(asked "$WRITES")"
    check "it compares gains" '"axis":"x","before":6200,"after":6200' \
        "$(grep -o '"axis":"x","before":[0-9]*,"after":[0-9]*' report)"
    check "it says that opening writes" true "$(value customisation_written)"
    for command in "op gyro-offset" "op write-gain-x 1.1" calibrate firmware-update; do
        afresh
        tool $command
        check "$command is refused" "2 0" "$? $(wc -l <$LENS/log)"
        tool $command --allow-write
        check "$command runs when allowed" "0 1" "$? $(asked "$WRITES")"
    done
    rebind
}

check_rest() {
    for command in "mode 2" "op on" "record --seconds 0.3 -o out" detect-defect \
        "session --scenario fix-mode --set targetx=100"; do
        afresh
        tool $command
        check "$command leaves the lens at rest" "0 00000000" "$? $(last | cut -d' ' -f1)"
    done
    check "fix mode is ended" "00000000 00000000" "$(last)"
    afresh
    timeout -s INT 2 oisctl session -m dw9786 --kernel real --modes 2 --hold 60 >report 2>&1
    check "a signal leaves the lens at rest" "00000000" "$(last | cut -d' ' -f1)"
}

check_loss() {
    for command in "record --seconds 60 -o out" "session --modes 0,2,3 --hold 1" "session --scenario video-zoom"; do
        rm -rf out
        afresh
        tool $command &
        until [ "$(asked SET_MODE)" -gt 0 ]; do sleep 0.1; done
        echo ois_virtual >$BUS/unbind
        wait $!
        check "$command ends once when the device goes" "1 1" "$? $(value failures)"
        check "and says when" yes "$(value device_lost_s | grep -q '^[0-9]' && echo yes)"
        echo ois_virtual >$BUS/bind
    done
}

check_dumps() {
    tool dump flash -o out
    check "dump flash" 0 $?
    rm -rf out
    echo "fail READ_FLASH EIO" >$LENS/knobs
    tool dump flash -o out
    check "no dump of before counts" "1 null" "$? $(value file)"
    afresh
    oisctl dump flash -m dw9786 --kernel real >report 2>errors
    check "a dump folder that is missing is said first" "2 0" "$? $(wc -l <$LENS/log)"
}

modprobe videodev
insmod ois_virtual.ko shake=N || exit 1
cd /tmp || exit 1
check_writes
check_rest
check_loss
check_dumps
exit $failed
