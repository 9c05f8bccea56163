#!/bin/bash
# check.sh [BUILD]: installs the release build, or BUILD, into a fresh folder and uses it from outside: the tool, a CMake
# project, and a compiler call by pkg-config. Then the same of its Debian package.
set -eu
repo=$(cd "$(dirname "$0")/../.." && pwd)
build=$(realpath "${1:-$repo/build/release}")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >"$work/install.log"
"$prefix/bin/oisctl" session --module korvas4sw-hub >/dev/null
echo "the installed oisctl runs"
for file in man/man1/oisctl.1 bash-completion/completions/oisctl zsh/vendor-completions/_oisctl \
    fish/vendor_completions.d/oisctl.fish; do
    grep -q samples "$prefix/share/$file"
done

# Constructors and destructors have several symbols of one name.
exported=$(nm -DC --defined-only "$prefix"/lib*/libois_drv.so "$prefix"/lib/*/libois_drv.so 2>/dev/null |
    sed -n 's/^[0-9a-f]* . //p' | sort -u)
listed=$(sed -n 's/^ *"\(.*\)";$/\1/p' "$repo/aaa/peripheraldriver/ois/ois_drv.map" | sort -u)
[ "$exported" = "$listed" ] || { diff <(echo "$exported") <(echo "$listed"); exit 1; }
echo "libois_drv.so exports what ois_drv.map lists, $(echo "$listed" | wc -l) names"

# The capture library stands in front of all that a program may call of the driver.
calls=$(echo "$listed" | grep '^OISDrv::[A-Za-z]' | grep -v '^OISDrv::OISDrv(')
spied=$(nm -DC --defined-only "$(find "$prefix" -name libois_spy.so)" | sed -n 's/^[0-9a-f]* T //p' | grep '^OISDrv::' | sort -u)
[ "$spied" = "$calls" ] || { diff <(echo "$spied") <(echo "$calls"); exit 1; }
"$prefix/bin/oisctl" spy -o "$work/spy.jsonl" -- "$prefix/bin/oisctl" session -q >/dev/null 2>&1
"$prefix/bin/oisctl" replay "$work/spy.jsonl" >/dev/null
echo "libois_spy.so captures a session of the installed oisctl that replays"

# The example that stands in the phone's first page.
sed -n '/^\/\/   #include <cstdio>/,/^\/\/   }$/s/^\/\/ \{0,3\}//p' "$prefix/include/ois_drv/phone/phone.h" >"$work/example.cpp"
cmake -S "$repo/tests/install" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
    -DEXAMPLE="$work/example.cpp" >"$work/cmake.log"
ninja -C "$work/build" >"$work/ninja.log" || { cat "$work/ninja.log"; exit 1; }
"$work/build/consumer" >"$work/example.log"
grep -q "SET_MODE(0x400456C2) mode=3 -> -1 EIO" "$work/example.log"
echo "a CMake project uses the package: the example in phone.h"

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
# shellcheck disable=SC2046 # the flags are words
g++ -std=c++20 "$work/example.cpp" -o "$work/consumer" \
    $(pkg-config --cflags --libs ois_phone) -Wl,-rpath,"$prefix/lib"
"$work/consumer" >/dev/null
find "$prefix/include/ois_drv/phone" -name '*.h' -printf '#include "%P"\n' >"$work/headers.cpp"
# shellcheck disable=SC2046 # the flags are words
g++ -std=c++20 -fsyntax-only "$work/headers.cpp" $(pkg-config --cflags ois_phone)
echo "pkg-config's flags suffice, and every installed header of the phone compiles"

# The package alone: it needs nothing beyond what every C++ program does, and runs from where it was unpacked.
(cd "$work" && cpack -G DEB --config "$build/CPackConfig.cmake" >cpack.log) || { cat "$work/cpack.log"; exit 1; }
package=$(echo "$work"/*.deb)
needs=$(dpkg-deb -f "$package" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//' | sort | xargs)
[ "$needs" = "libc6 libgcc-s1 libstdc++6" ] || { echo "the package depends on $needs"; exit 1; }
dpkg-deb -x "$package" "$work/unpacked"
version=$(dpkg-deb -f "$package" Version)
[ "$(env -i "$work/unpacked/usr/bin/oisctl" --version)" = "oisctl $version" ]
env -i "$work/unpacked/usr/bin/oisctl" session -q >/dev/null
for file in man/man1/oisctl.1 bash-completion/completions/oisctl zsh/vendor-completions/_oisctl; do
    [ -s "$work/unpacked/usr/share/$file" ] || { echo "the package lacks $file"; exit 1; }
done
echo "$(basename "$package") unpacks and runs"
