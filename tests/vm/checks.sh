# What scripts in the virtual machine share. Sourced from the shared folder.
BUS=/sys/bus/platform/drivers/ois_virtual
failed=0

# result STATUS NAME [FILE]: a line about a check; FILE says why it failed.
result() {
    if [ "$1" = 0 ]; then
        echo "ok      $2"
    else
        echo "FAILED  $2"
        [ $# -lt 3 ] || sed 's/^/  /' "$3"
        failed=1
    fi
}

# check NAME EXPECTED SEEN
check() {
    if [ "$2" = "$3" ]; then
        echo "ok      $1"
    else
        printf 'FAILED  %s\n  expected %.300s\n  seen     %.300s\n' "$1" "$2" "$3"
        failed=1
    fi
}

rebind() { for verb in unbind bind; do echo ois_virtual >$BUS/$verb 2>/dev/null; done; }
