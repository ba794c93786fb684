#!/usr/bin/env bash
# Converts one fixed input per matching method (scripts/ci-bytes.c: the 8-bit
# RGB cube, sRGB to the Ghostscript CMYK printer profile) on every platform
# whose library has been built, and prints the sha256 of each output. The
# cross libraries come from scripts/ci-platforms.sh; the x86-64 Linux one is
# built here. Fails when two platforms disagree.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
source scripts/cross-common.sh
src=/usr/share/color/icc/sRGB.icc
dst=/usr/share/color/icc/ghostscript/default_cmyk.icc
out=$root/build/bytes
rm -rf "$out"
mkdir -p "$out"

# x86-64 Linux: the library alone, optimised.
cmake -S . -B build/bytes-native -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
  -DTINTRA3_BUILD_TESTS=OFF -DTINTRA3_BUILD_TOOLS=OFF -DTINTRA3_BUILD_BENCH=OFF >/dev/null
cmake --build build/bytes-native -j2 --target tintra3 >/dev/null

# name | compiler | library folder | runner
platforms=(
  "linux-x86_64|gcc|build/bytes-native|"
  "linux-i686|i686-linux-gnu-gcc|build/linux-i686/bin|i686_run"
  "windows-x64|x86_64-w64-mingw32-gcc-posix|build/win64|wine_run64"
  "windows-x86|i686-w64-mingw32-gcc-posix|build/win32|wine_run32"
  "linux-aarch64|aarch64-linux-gnu-gcc|build/aarch64/bin|qemu_run"
)
for entry in "${platforms[@]}"; do
  IFS='|' read -r name cc libdir runner <<<"$entry"
  dir=$out/$name
  mkdir -p "$dir"
  case $name in
    windows-*)
      [[ -f $libdir/Tintra3.dll.a ]] || { echo "$name: not built, skipped"; continue; }
      if [[ $name == windows-x86 ]] && ! wine32_available; then
        echo "$name: no 32-bit wine here, skipped"
        continue
      fi
      "$cc" -O2 -Iapi scripts/ci-bytes.c "$libdir/Tintra3.dll.a" -o "$dir/ci-bytes.exe"
      cp "$libdir/bin/Tintra3.dll" "$dir/"
      wine_setup
      program=$dir/ci-bytes.exe
      ;;
    *)
      ls "$libdir"/libtintra3.so >/dev/null 2>&1 || { echo "$name: not built, skipped"; continue; }
      "$cc" -O2 -Iapi scripts/ci-bytes.c -L"$libdir" -ltintra3 -Wl,-rpath,"$root/$libdir" -o "$dir/ci-bytes"
      program=$dir/ci-bytes
      ;;
  esac
  (cd "$dir" && ${runner:-} "$program" "$src" "$dst" >/dev/null)
  for m in 0 1; do
    echo "method $m $(sha256sum "$dir/method$m.bin" | cut -d' ' -f1) $name"
  done
done | tee "$out/sums.txt"
distinct=$(awk '/^method/ {print $2, $3}' "$out/sums.txt" | sort -u | wc -l)
platforms_run=$(awk '/^method/ {print $4}' "$out/sums.txt" | sort -u | wc -l)
if [[ $distinct -ne 2 ]]; then
  echo "bytes: the platforms disagree"
  exit 1
fi
echo "bytes: methods 0 and 1 identical on $platforms_run platforms"
