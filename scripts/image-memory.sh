#!/usr/bin/env bash
# Peak memory of `tintra convert` against LittleCMS's tificc on the same job:
# an 8000x6000 16-bit RGB TIFF (the tool's test chart) to 16-bit CMYK through
# the built-in printer profile. Prints both peaks, their ratio and whether it
# is within 1.3; exits non-zero when it is not.
#
#   bash scripts/image-memory.sh [WIDTHxHEIGHT]
#
# Needs the release build of tintra, /usr/bin/time and tificc (packages time
# and liblcms2-utils). Takes about half a minute and 1 GB of disk in $TMPDIR.
set -euo pipefail
cd "$(dirname "$0")/.."
size=${1:-8000x6000}
for tool in /usr/bin/time tificc; do
  command -v "$tool" >/dev/null || { echo "image-memory: $tool is missing (apt-get install time liblcms2-utils)"; exit 1; }
done
cmake --preset release >/dev/null
cmake --build --preset release --target tintra >/dev/null
tintra=./build/release/tools/tintra
work=$(mktemp -d "${TMPDIR:-/tmp}/tintra-memory-XXXXXX")
trap 'rm -rf "$work"' EXIT

"$tintra" chart "$work/in.tif" --size "$size" --bits 16
"$tintra" convert --dst builtin:cmyk --write-profile "$work/cmyk.icc"

# Maximum resident set size in kB of one command.
peak() {
  /usr/bin/time -f '%M' -o "$work/peak" "$@" >/dev/null 2>&1
  cat "$work/peak"
}
ours=$(peak "$tintra" convert "$work/in.tif" "$work/ours.tif" -o "$work/cmyk.icc" -w 16 --no-progress)
theirs=$(peak tificc -w16 -o"$work/cmyk.icc" "$work/in.tif" "$work/theirs.tif")
awk -v a="$ours" -v b="$theirs" -v size="$size" 'BEGIN {
  ratio = a / b
  printf "peak resident set, %s 16-bit RGB -> CMYK: tintra %.1f MB, tificc %.1f MB, ratio %.3f\n", size, a / 1024, b / 1024, ratio
  ok = ratio <= 1.3
  printf "%d of 1 checks passed (ratio <= 1.3)\n", ok
  exit ok ? 0 : 1
}'
