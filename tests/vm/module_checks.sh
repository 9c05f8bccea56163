# Runs in the virtual machine, with busybox's shell: is the module what kernel/README.md says? One line a check; fails
# when one did.
. ./checks.sh
NODE=/dev/v4l-subdev3 # the fourth entity; others=0, so that it comes first
LENS=/sys/kernel/debug/ois_virtual/dw9786-4-0069
PARAMETERS=/sys/module/ois_virtual/parameters

# zeros N: a record of N zero bytes.
zeros() { printf "%0$((2 * $1))d" 0; }
# ask LINE...: what is answered to these, each a line.
ask() { printf '%s\n' "$@" | /tmp/request "$NODE"; }
# word N WORDS...
word() { shift "$1"; echo "$1"; }

SET_MODE=400456C2 WRITE_GAIN=C01856CE READ_GAIN=C01856D0 SET_FIX_MODE=C01856D4 GET_HALL=C01856D9
READ_STATUS=C03856DA READ_FLASH=C60856DB UNKNOWN=C00456C3
ALL="400456C2 C00456C4 C01056C5 C6A856C7 C00456C8 C01C56C9 C00256CA C00456CD C01856CE C01856D0
C01056D2 C01856D4 C00856D5 C00156D6 C00156D7 C00856D8 C01856D9 C03856DA C60856DB C00456DC"
FLASH=0003000000500000 # 768 bytes from address 0x5000

load() { insmod ois_virtual.ko others=0 "$@"; }

check_loading() {
    local wrong
    for wrong in model=aaaaaaaaaabbbbbbbbbbccccccccccdd lens=a,a lens= others=31; do
        load $wrong 2>/dev/null
        check "refuses $wrong" 22 $?
    done
    insmod ois_virtual.ko others=3 model=other_model lens='"korvas4sw 2-003e,dw9781 2-0064"'
    check "makes devices and lenses as told" \
        "nxa_camera_isp nxa_codec other_model nxa_camera_isp, dw9781-2-0064 korvas4sw-2-003e" \
        "$(echo $(cat /sys/class/../bus/media/devices/*/model)), $(echo $(ls /sys/kernel/debug/ois_virtual))"
    rmmod ois_virtual
}

check_compliance() {
    local device seen=""
    for device in /dev/media0 /dev/v4l-subdev*; do
        case $device in /dev/media*) option=-m ;; *) option=-d ;; esac
        seen="$seen $(v4l2-compliance $option $device | sed -n '$s/.*\(Failed.*\)/\1/p')"
    done
    check "v4l2-compliance ($1)" "" "$(echo "$seen" | sed 's/ *Failed: 0, Warnings: 0//g')"
}

check_flash() {
    local record
    record=$(zeros 1544)
    echo 0 >$PARAMETERS/flash_follow_pointer
    check "flash in place" "0 $FLASH" "$(ask "$READ_FLASH $record" | cut -c 1-18)"
    echo 1 >$PARAMETERS/flash_follow_pointer
    check "flash by pointer" "0 $FLASH" "$(ask "$READ_FLASH $record follow" | cut -c 1-18)"
    check "flash by a pointer to nowhere" "-14 $record" "$(ask "$READ_FLASH $record")"
    echo 0 >$PARAMETERS/flash_follow_pointer
}

check_requests() {
    local code lines=""
    for code in $ALL; do lines="$lines$code $(zeros $((0x$code >> 16 & 0x3fff)))
"; done
    check "answers all requests" "20 0" "$(printf '%s' "$lines" | /tmp/request $NODE | cut -d ' ' -f 1 | uniq -c | xargs)"
    check "and them of 32-bit programs" "20 0" \
        "$(printf '%s' "$lines" | /tmp/request -c $NODE | cut -d ' ' -f 1 | uniq -c | xargs)"
    check "no record of a 32-bit program" -14 "$(word 1 $(echo "$GET_HALL null" | /tmp/request -c $NODE))"
    check "an unknown request" "-25 00000000" "$(ask "$UNKNOWN 00000000")"
}

# hall_after LINE: what GET_HALL says, the lens having settled.
hall_after() {
    ask "$1" >/dev/null
    usleep 20000
    ask "$GET_HALL $(zeros 24)" | cut -c 35-50
}

check_behaviour() {
    local first second gain
    check "off: at the centre" 40000000d8ffffff "$(hall_after "$SET_MODE 00000000")"
    check "held: at the target" 2c01000038ffffff \
        "$(hall_after "$SET_FIX_MODE 01000000000000002c01000038ffffff0000000000000000")"
    # 64 + 1.6 * 1058.8, -40 - 1.6 * 1037.0
    check "held beyond the limit: at the limit" de0600005df9ffff \
        "$(hall_after "$SET_FIX_MODE 01000000000000000000010000000f800000000000000000")"
    ask "$SET_MODE 02000000" >/dev/null
    first=$(ask "$READ_STATUS $(zeros 56)")
    usleep 30000
    second=$(ask "$READ_STATUS $(zeros 56)")
    check "status goes on" "different" "$([ "$first" = "$second" ] && echo the same || echo different)"
    check "and moves the lens" "different" \
        "$([ "$(echo "$first" | cut -c 91-98)" = "$(echo "$second" | cut -c 91-98)" ] && echo the same || echo different)"
    gain=$(ask "$READ_GAIN $(zeros 24)" | cut -c 3-)
    check "one axis's gain is written" "0 01000000000000000000000022222222$(echo "$gain" | cut -c 33-40)44444444" \
        "$(ask "$WRITE_GAIN 010000000000000011111111222222223333333344444444" "$READ_GAIN 01$(zeros 23)" | tail -n 1)"
}

check_log() {
    local line bytes=010000000000000010000000f0ffffff0000000000000000
    echo >$LENS/log
    check "clears the log" "" "$(cat $LENS/log)"
    ask "$SET_FIX_MODE $bytes" "$SET_MODE 00000000" "$UNKNOWN 00000000" >/dev/null
    check "logs what came and went" "SET_FIX_MODE in $bytes out $bytes 0
SET_MODE in 00000000 out - 0
0x$UNKNOWN in - out - -25" "$(cut -d ' ' -f 4- $LENS/log)"
    line=$(printf "$READ_FLASH $(zeros 1544)\n%.0s" $(seq 100))
    for _ in 1 2 3 4 5; do echo "$line"; done | /tmp/request $NODE >/dev/null
    check "keeps the newest, in bounds" "1544 1" \
        "$(tail -n 1 $LENS/log | cut -d ' ' -f 6 | awk '{ printf length($0) / 2 }') $(($(wc -c <$LENS/log) < 2200000))"
}

check_knobs() {
    local before after armed
    printf 'fail SET_MODE EIO 2 1\nanswer GET_HALL 0102ff 1\nanswer 0x%s 0a0b' $UNKNOWN >$LENS/knobs
    check "fails late, and so often" "0 -5 -5 0" \
        "$(for _ in 1 2 3 4; do ask "$SET_MODE 02000000"; done | cut -d ' ' -f 1 | xargs)"
    check "sets an answer" "0 0102ff00" "$(ask "$GET_HALL $(zeros 24)" | cut -c 1-10)"
    check "answers what is not known" "0 0a0b0000" "$(ask "$UNKNOWN 00000000")"
    armed="fail SET_MODE EIO 2 1 # reached 4, struck 2
answer GET_HALL 0102ff 1 0 # reached 1, struck 1
answer 0x$UNKNOWN 0a0b 0 0 # reached 1, struck 1"
    check "says how often they struck" "$armed" "$(cat $LENS/knobs)"
    for line in "fail" "fail SET_MODE" "fail SET_MODUS EIO" "fail SET_MODE EWHAT" "delay * 10000001" "answer GET_HALL 0" \
        "answer GET_HALL 0g" "answer SET_MODE 00" "answer CHECK_STATUS 0000" "fail SET_MODE EIO -1" \
        "fail SET_MODE EIO 1 1 1" "clear all"; do
        printf 'clear\n%s\n' "$line" >$LENS/knobs 2>/dev/null && check "refuses a bad line" "an error" "none of: $line"
    done
    check "changes nothing by a bad line" "$armed" "$(cat $LENS/knobs)"
    printf 'clear\nfail OPEN EBUSY 1' >$LENS/knobs
    check "cannot be opened" "-16 0" "$(ask "" </dev/null) $(word 1 $(ask "$SET_MODE 00000000"))"
    printf 'clear\ndelay SET_MODE 300000' >$LENS/knobs
    before=$(cut -d ' ' -f 1 /proc/uptime | tr -d .)
    ask "$SET_MODE 00000000" >/dev/null
    after=$(cut -d ' ' -f 1 /proc/uptime | tr -d .)
    check "delays" 1 $((after - before >= 30))
    echo clear >$LENS/knobs
    check "clears" "" "$(cat $LENS/knobs)"
}

# Objects that module and media core have allocated. What is cached of sysfs is no matter.
objects() {
    echo 3 >/proc/sys/vm/drop_caches
    cat /sys/kernel/debug/slab/*/alloc_traces |
        awk '$1 ~ /^[0-9]+$/ { count = $1; counted = 0 }
             /\[(ois_virtual|videodev|mc)\]/ && !counted { sum += count; counted = 1 }
             END { print sum + 0 }'
}

# node_of NAME: sets node to the entity's node. Builtins alone: a process more costs more than all of a round.
node_of() {
    local file name
    for file in /sys/class/video4linux/*/name; do
        read -r name <"$file"
        node=${file%/name}
        node=/dev/${node##*/}
        [ "$name" != "$1" ] || return
    done
}

# How often a session that keeps its nodes open was told that the device has gone, in 100 rounds.
rounds_under_a_session() {
    local node before after told=0 round=0
    mkfifo /tmp/in /tmp/out
    while [ $((round += 1)) -le 100 ]; do
        node_of "dw9786 4-0069"
        /tmp/request "$node" </tmp/in >/tmp/out &
        exec 4>/tmp/in 5</tmp/out 6<"$node" 7</dev/media0
        echo "$SET_MODE 02000000" >&4
        read -r before _ <&5
        rebind
        echo "$SET_MODE 00000000" >&4
        read -r after _ <&5
        [ "$before $after" != "0 -19" ] || told=$((told + 1))
        exec 4>&- 5<&- 6<&- 7<&-
        wait
    done
    echo $told
}

# A leak of one object a round would be 100 more.
check_lifetime() {
    local before round
    rebind
    before=$(objects)
    for round in $(seq 100); do rebind; done
    check "100 rounds of unbind and bind leave nothing" 1 $(($(objects) - before < 50))
    check "100 rounds under a session that is told" 100 "$(rounds_under_a_session)"
    check "leave nothing" 1 $(($(objects) - before < 50))
    exec 5<$LENS/log
    echo ois_virtual >$BUS/unbind
    check "the log of a device that is gone" "cat: read error: Input/output error" "$(cat <&5 2>&1)"
    exec 5<&-
    echo ois_virtual >$BUS/bind
}

cp request /tmp/ # each start from the shared folder takes longer than what it does
modprobe videodev
check_loading
load
check_compliance "flash in place"
check_requests
check_behaviour
check_flash
check_log
check_knobs
check_lifetime
rmmod ois_virtual
check "leaves nothing when it goes" 0 "$(cat /sys/kernel/debug/slab/*/alloc_traces | grep -c '\[ois_virtual\]')"
load flash_follow_pointer=1
check_compliance "flash by pointer"
rmmod ois_virtual
check "the kernel has nothing to say" "" "$(dmesg | grep -E 'BUG|WARNING|Oops|Call Trace|not initialized|already present')"
exit $failed
