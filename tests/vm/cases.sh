# Runs in the virtual machine: every line of cases/*.txt.
. ./checks.sh
LENS=/sys/kernel/debug/ois_virtual/dw9786-4-0069

# For the lines.
tool() { oisctl "$@" --kernel real; }
# spied COMMAND...: the same in front of the capture library; its trace is spy.jsonl.
spied() {
    rm -f spy.jsonl*
    oisctl spy -o spy.jsonl -- oisctl "$@" --kernel real
}
# changed: one byte of what spy.jsonl says was sent, in changed.jsonl.
changed() { sed 's/"sent":"02000000"/"sent":"03000000"/' spy.jsonl >changed.jsonl; }
knob() { echo "$*" >$LENS/knobs; }
# follow YES: whether READ_FLASH fills the buffer that its record points to.
follow() { echo "$1" >/sys/module/ois_virtual/parameters/flash_follow_pointer; }
# gone_at REQUEST COMMAND...: the device goes when the command has made the request.
gone_at() {
    (until grep -q " $1 in" $LENS/log; do sleep 0.05; done; echo ois_virtual >$BUS/unbind) &
    shift
    "$@"
}
# lenses NAME,...: there are these lenses, and no others.
lenses() { load "lens=\"$1\""; }

# load PARAMETER=VALUE...: the module anew.
load() {
    rmmod ois_virtual 2>/dev/null
    insmod "$shared/ois_virtual.ko" shake=N "$@"
}

# printed WORDS: whether `seen` has them; " ... " stands between those that need not follow each other.
printed() {
    local rest=$1
    while :; do
        grep -qF -e "${rest%% ... *}" seen || return
        case $rest in *' ... '*) rest=${rest#* ... } ;; *) return 0 ;; esac
    done
}

modprobe videodev
shared=$PWD
mkdir -p /tmp/dump
cd /tmp || exit 1
cat "$shared"/cases/*.txt >lines
while IFS='|' read -r status words line; do
    case $status in '' | '#'*) continue ;; esac
    load || exit 1
    eval "$line" >seen 2>&1 </dev/null
    ended=$?
    words=$(echo "$words" | sed 's/^ *//; s/ *$//')
    [ "$ended" = "$((status))" ] && printed "$words"
    good=$?
    echo "exit status $ended, and this, where $((status)) and '$words' were expected:" | cat - seen >why
    result $good "$(echo "$line" | sed 's/^ *//')" why
done <lines
exit $failed
