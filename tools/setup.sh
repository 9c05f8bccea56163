# Installs what a purpose needs and builds presets. Sourced by ./run, ./test, ./bench-all and the CI script; also a
# command of its own: `bash tools/setup.sh PURPOSE...` only installs.

REPO=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Debian package, and the command or file that shows it is there already.
declare -A NEEDS=(
    [build]="g++:g++ cmake:cmake ninja-build:ninja libcli11-dev:/usr/include/CLI/CLI.hpp
             libtomlplusplus-dev:/usr/include/toml++/toml.h nlohmann-json3-dev:/usr/include/nlohmann/json.hpp
             libeigen3-dev:/usr/include/eigen3/unsupported/Eigen/FFT libfmt-dev:/usr/include/fmt/format-inl.h
             libutfcpp-dev:/usr/include/utf8.h"
    [plot]="gnuplot-nox:gnuplot fonts-dejavu-core:/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf"
    [report]="libjs-dygraphs:/usr/share/javascript/dygraphs/dygraph.min.js"
    [browser]="chromium:chromium python3:python3"
    [test]="libgtest-dev:/usr/include/gtest/gtest.h"
    [bench]="libbenchmark-dev:/usr/include/benchmark/benchmark.h valgrind:valgrind time:/usr/bin/time"
    [check]="clang-format:clang-format clang-tidy:clang-tidy python3:python3 pkg-config:pkg-config"
    [cross]="clang:clang++ g++-aarch64-linux-gnu:aarch64-linux-gnu-g++ qemu-user:qemu-aarch64
             googletest:/usr/src/googletest/CMakeLists.txt"
    [coverage]="gcovr:gcovr"
    [fuzz]="clang:clang++ libclang-rt-dev:/usr/lib/llvm-14/lib/clang/14.0.6/include/fuzzer llvm:llvm-symbolizer"
    [speed]="ccache:ccache"
    [vm]="qemu-system-x86:qemu-system-x86_64 busybox-static:/usr/share/doc/busybox-static cpio:cpio
          linux-headers-amd64:/usr/share/doc/linux-headers-amd64 v4l-utils:v4l2-compliance make:make gcc:gcc"
    [mutants]="python3:python3 ccache:ccache mold:mold"
)

fail() {
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# apt_get ARGS...: quiet; what it said is in $apt_log.
apt_get() {
    local sudo=()
    [ "$(id -u)" = 0 ] || sudo=(sudo)
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -y -o DPkg::Lock::Timeout=300 "$@" \
        </dev/null >"$apt_log" 2>&1
}

# present WHAT: whether that file or command is here.
present() {
    case $1 in
        /*) [ -e "$1" ] ;;
        *) command -v "$1" >/dev/null ;;
    esac
}

# need PURPOSE...: makes sure that what the purposes need is on this machine.
need() {
    local purpose item missing=() apt_log
    for purpose in "$@"; do
        [ -n "${NEEDS[$purpose]:-}" ] || fail "unknown purpose '$purpose'; there are: ${!NEEDS[*]}"
        for item in ${NEEDS[$purpose]}; do
            present "${item#*:}" || missing+=("${item%%:*}")
        done
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    command -v apt-get >/dev/null || fail "missing here: ${missing[*]} (Debian's names); no apt-get to install them with"
    [ "$(id -u)" = 0 ] || command -v sudo >/dev/null || fail "missing here: ${missing[*]}; install them as root, or install sudo"
    echo "Installing ${missing[*]} ..." >&2
    apt_log=$(mktemp)
    compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null || apt_get update || true
    if ! apt_get install --no-install-recommends "${missing[@]}"; then
        # The package lists may be older than the archive.
        if ! { apt_get update && apt_get install --no-install-recommends "${missing[@]}"; }; then
            tail -n 5 "$apt_log" >&2
            rm -f "$apt_log"
            fail "apt-get could not install ${missing[*]}"
        fi
    fi
    rm -f "$apt_log"
}

# build PRESET TARGET...: configures the preset when it is new and brings its targets up to date. On a terminal ninja
# shows how far it is; elsewhere one line says that something is built. Writes to standard error only.
build() {
    local preset=$1 folder=$REPO/build/$1 log
    shift
    command -v ccache >/dev/null && export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
    # What ccache must overlook to store what uses a precompiled header.
    export CCACHE_SLOPPINESS=${CCACHE_SLOPPINESS:-pch_defines,time_macros}
    # What is not in the cache is compiled at once, instead of preprocessed first.
    export CCACHE_DEPEND=${CCACHE_DEPEND-1}
    mkdir -p "$folder"
    log=$folder/setup.log
    if [ ! -e "$folder/build.ninja" ]; then
        (cd "$REPO" && cmake --preset "$preset") >"$log" 2>&1 || {
            cat "$log" >&2
            fail "cannot configure the preset '$preset'"
        }
    fi
    if [ -t 2 ]; then
        ninja -C "$folder" -n "$@" | grep -q 'no work to do' || ninja -C "$folder" -j "$(nproc)" "$@" >&2 ||
            fail "the build of '$preset' failed"
        return
    fi
    ninja -C "$folder" -j "$(nproc)" "$@" 2>&1 | tee "$log" |
        awk -v preset="$preset" '!said && /\] (Building|Linking)/ { said = 1; print "Building " preset " ..." }' >&2
    [ "${PIPESTATUS[0]}" = 0 ] || {
        grep -v '^\[[0-9]*/[0-9]*\] \(Building\|Linking\)' "$log" >&2
        fail "the build of '$preset' failed"
    }
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    set -eu
    need "$@"
fi
