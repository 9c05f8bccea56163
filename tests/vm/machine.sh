# A virtual machine with Debian's own kernel, in software emulation. Sourced by run and by boot.
#
#   vm_prepare                        unpacks the kernel and makes the machine's file system, unless they are there
#   vm_take FOLDER PROGRAM...         copies programs, and the libraries that they load, into FOLDER
#   vm_boot FOLDER SECONDS [OPTION...]
#
# The machine and this one share FOLDER, which the machine sees as /vm. It runs FOLDER/script and powers off. What the
# script printed is in FOLDER/output, its exit status in FOLDER/status, and the kernel log in FOLDER/console.

VM=$REPO/build/vm

# The kernel is the one whose headers modules are built against, so that no version is written down here.
VM_HEADERS=$(dpkg-query -W -f '${Depends}' "linux-headers-$(dpkg --print-architecture)" 2>/dev/null |
    grep -o 'linux-headers-[^ ,]*')
VM_RELEASE=${VM_HEADERS#linux-headers-}
# What of the kernel's modules goes into the machine: the media core, and the way to the shared folder.
VM_MODULES="drivers/media/mc drivers/media/v4l2-core drivers/virtio fs/9p fs/fscache fs/netfs net/9p"

vm_fail() {
    echo "virtual machine: $*" >&2
    return 1
}

# Debian's package of the kernel, unpacked as far as needed into $VM/$VM_RELEASE.
vm_unpack_kernel() {
    local target=$VM/$VM_RELEASE work folder members=()
    [ -e "$target/vmlinuz" ] && return
    [ -n "$VM_RELEASE" ] || { vm_fail "linux-headers-$(dpkg --print-architecture) is not installed"; return; }
    mkdir -p "$VM"
    work=$(mktemp -d "$VM/unpack.XXXXXX")
    chmod 755 "$work" # apt-get gives up its privileges for a download
    (cd "$work" && apt-get -q download "linux-image-$VM_RELEASE" >log 2>&1) ||
        { cat "$work/log" >&2; vm_fail "no package linux-image-$VM_RELEASE; apt-get update, then bash tools/setup.sh vm"; return; }
    for folder in $VM_MODULES; do members+=("./lib/modules/$VM_RELEASE/kernel/$folder"); done
    dpkg-deb --fsys-tarfile "$work"/*.deb |
        tar x -C "$work" "./boot/vmlinuz-$VM_RELEASE" "./lib/modules/$VM_RELEASE/modules.builtin" \
            "./lib/modules/$VM_RELEASE/modules.order" "${members[@]}" || return
    busybox depmod -b "$work" "$VM_RELEASE" || return
    mv "$work/boot/vmlinuz-$VM_RELEASE" "$work/vmlinuz"
    rm -rf "$work"/*.deb "$target"
    mv "$work" "$target"
}

# The machine's file system, of which no part depends on what is run in it.
vm_make_image() {
    local image=$VM/$VM_RELEASE/image.cpio here root
    here=$REPO/tests/vm
    [ "$image" -nt "$here/init" ] && [ "$image" -nt "$here/machine.sh" ] && return
    root=$(mktemp -d "$VM/image.XXXXXX")
    mkdir -p "$root"/{bin,dev,lib,lib64,mnt,proc,sys,tmp,vm}
    cp "$(command -v busybox)" "$root/bin/busybox"
    cp "$here/init" "$root/init"
    cp -r "$VM/$VM_RELEASE/lib/modules" "$root/lib/modules"
    (cd "$root" && find . | cpio -o -H newc -R 0:0 --quiet) >"$image.new" && mv "$image.new" "$image"
    rm -rf "$root"
}

vm_prepare() {
    vm_unpack_kernel && vm_make_image
}

vm_take() {
    local folder=$1 program
    shift
    mkdir -p "$folder/bin" "$folder/lib"
    for program in "$@"; do
        cp -L "$program" "$folder/bin/" || return
        # A static program has none.
        ldd "$program" 2>/dev/null | grep -o '/[^ ]*' | xargs -r cp -Lut "$folder/lib/" || return
    done
}

# vm_boot FOLDER SECONDS [OPTION...]: OPTIONs go to the kernel's command line. Fails when the machine does not end in
# time, or before its script does.
vm_boot() {
    local folder=$1 limit=$2
    shift 2
    rm -f "$folder/status" "$folder/output" "$folder/console"
    timeout --foreground "$limit" qemu-system-x86_64 -accel tcg,thread=multi -smp 2 -m 512 -nodefaults -no-reboot \
        -display none -serial "file:$folder/console" \
        -kernel "$VM/$VM_RELEASE/vmlinuz" -initrd "$VM/$VM_RELEASE/image.cpio" \
        -append "console=ttyS0 panic=-1 mitigations=off nokaslr $*" \
        -virtfs "local,path=$folder,mount_tag=vm,security_model=none,multidevs=remap" </dev/null
    local status=$?
    [ $status -ne 124 ] || { vm_fail "not done after $limit s; see $folder/console"; return; }
    [ -e "$folder/status" ] || { vm_fail "ended before its script did; see $folder/console"; return; }
}
