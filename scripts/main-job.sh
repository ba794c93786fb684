#!/usr/bin/env bash
# The main job: builds the library, the tools and the example (release preset),
# prints one line per installed profile (usable by the library as tintra
# prepares it, and as it is), runs the C example, writes the test chart,
# converts it from builtin:srgb to builtin:cmyk and back with both matching
# methods, and prints a summary: image size, seconds and megapixels per
# second of each step, and the round-trip colour error (dE*ab).
# Usage: scripts/main-job.sh [OUTPUT_FOLDER]   (default: out)
set -euo pipefail
cd "$(dirname "$0")/.."
out="${1:-out}"
bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target tintra tintra-inspect example_convert tintra3_bench
tintra=./build/release/tools/tintra
echo "== $(./build/release/bench/tintra3_bench --isa) (TINTRA3_KERNELS=portable|sse2|avx2 forces a lower set)"
mkdir -p "$out"

echo "== every installed profile (one line each; tintra-inspect --full PROFILE shows what the library reads from it)"
./build/release/tools/tintra-inspect
echo

echo "== the C example (examples/convert.c): 4 pixels, sRGB to Adobe RGB through the toolbox layer"
./build/release/examples/example_convert | sed 's/^/  example: /'
echo

rows=""
size=""
now() { date +%s.%N; }
# Runs one tintra step and adds its row to the summary: wall seconds of the
# whole command, and (for conversions) the seconds and megapixels per second
# of the conversion itself as the tool measured them with --stats.
step() {
  local name=$1 method=$2
  shift 2
  local t0 t1 output
  t0=$(now)
  output=$("$tintra" "$@")
  t1=$(now)
  if [[ -z $size && $output == stats:* ]]; then
    size=$(awk '{ for (i = 2; i <= NF; i++) { split($i, kv, "="); v[kv[1]] = kv[2] } }
                END { printf "%sx%s pixels (%.2f MP)", v["width"], v["height"], v["pixels"] / 1e6 }' <<<"$output")
  fi
  rows+=$(awk -v name="$name" -v m="$method" -v t0="$t0" -v t1="$t1" '
    { for (i = 1; i <= NF; i++) { split($i, kv, "="); v[kv[1]] = kv[2] } }
    END {
      conv = ("convert_s" in v) ? sprintf("%.3f", v["convert_s"]) : "-"
      rate = ("mpix_per_s" in v) ? sprintf("%.1f", v["mpix_per_s"]) : "-"
      printf "  %-30s %6s %9.3f %10s %8s", name, m, t1 - t0, conv, rate
    }' <<<"$output")$'\n'
  last_output=$output
}

chart="$out/chart.tif"
step "write the chart" "-" chart "$chart"
errors=""
# One round trip of image $2 through builtin:cmyk and back with method $1,
# compared with its start; rows are labelled by $3, the result saved as $4.
round_trip() {
  local method=$1 image=$2 label=$3 back=$4 cmyk="${4%.tif}-cmyk.tif"
  step "$label: srgb -> cmyk" "$method" convert "$image" "$cmyk" \
       --dst builtin:cmyk --intent relative --method "$method" --stats --no-progress
  step "$label: cmyk -> srgb" "$method" convert "$cmyk" "$back" \
       --dst builtin:srgb --intent relative --method "$method" --stats --no-progress
  step "$label: compare" "$method" compare "$image" "$back"
}
for method in 0 1; do
  round_trip "$method" "$chart" "first trip" "$out/chart-back-m$method.tif"
  errors+="  method $method, chart vs round trip:        $last_output"$'\n'
  # The round-tripped image lies inside the printer's gamut: a second round
  # trip of it measures the conversions alone, without gamut clipping.
  round_trip "$method" "$out/chart-back-m$method.tif" "second trip" "$out/chart-back2-m$method.tif"
  errors+="  method $method, in-gamut image vs its trip: $last_output"$'\n'
done

echo
echo "Tintra3 main job: test chart of $size; images in $out/"
printf "  %-30s %6s %9s %10s %8s\n" "step" "method" "wall s" "convert s" "MP/s"
printf "%s" "$rows"
echo
echo "Round-trip colour error, chart -> builtin:cmyk -> builtin:srgb, relative colorimetric"
echo "(the chart's saturated colours lie outside the printer's gamut and dominate the first figure;"
echo " the second is a round trip of the already round-tripped, in-gamut image):"
printf "%s" "$errors"
echo
echo "Files written:"
for f in "$out"/chart*.tif; do printf "  %-40s %10s bytes\n" "$f" "$(stat -c %s "$f")"; done
