# Runs in the virtual machine: every line of cases/*.txt.
. ./checks.sh
LENS=/sys/kernel/debug/ois_virtual/dw9786-4-0069

# For the lines.
tool() { oisctl "$@" --kernel real --real-time; }
knob() { echo "$*" >$LENS/knobs; }
# gone_after SECONDS COMMAND...: the device goes while the command runs.
gone_after() {
    (sleep "$1" && echo ois_virtual >$BUS/unbind) &
    shift
    "$@"
}

modprobe -a videodev v4l2-async
insmod ois_virtual.ko shake=N || exit 1
shared=$PWD
mkdir -p /tmp/dump
cd /tmp || exit 1
cat "$shared"/cases/*.txt >lines
while IFS='|' read -r status words line; do
    case $status in '' | '#'*) continue ;; esac
    rebind
    eval "$line" >seen 2>&1 </dev/null
    ended=$?
    words=$(echo "$words" | sed 's/^ *//; s/ *$//')
    [ "$ended" = "$((status))" ] && grep -qF -e "$words" seen
    good=$?
    echo "exit status $ended, and this, where $((status)) and '$words' were expected:" | cat - seen >why
    result $good "$(echo "$line" | sed 's/^ *//')" why
done <lines
exit $failed
