#!/bin/bash
# run.sh PAGE OISCTL: runs the boxes of a page as they stand there, in an empty folder, with OISCTL as `oisctl`. Fails when a
# command does; skips (77) where gnuplot, which draws the page's pictures, is missing.
set -eu
page=$(realpath "$1") tool=$(realpath "$2")
command -v gnuplot >/dev/null || { echo "no gnuplot here"; exit 77; }
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/bin" "$folder/work"
printf '#!/bin/sh\nexec "%s" "$@"\n' "$tool" >"$folder/bin/oisctl"
chmod +x "$folder/bin/oisctl"
sed -n '/^```sh$/,/^```$/{/^```/d;p}' "$page" >"$folder/script"
[ -s "$folder/script" ] || { echo "$page: no box to run"; exit 1; }
cd "$folder/work"
# The capture library stands in front of a sanitizer's, too.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}verify_asan_link_order=0
PATH=$folder/bin:$PATH bash -euo pipefail -x "$folder/script"
# A claim of a page without a picture or a file that it names would go unseen.
for file in $(grep -oE '(-o|--plot|--junit|>) [a-z-]+\.(png|html|xml|jsonl?)' "$folder/script" | sed 's/.* //' | sort -u); do
    [ -s "$file" ] || { echo "$page: $file was not written"; exit 1; }
done
