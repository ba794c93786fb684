# Shared by the cross-platform scripts (sourced, not run): installing the
# cross tools, building googletest and the project for a target, running the
# test programs through the target's runner and counting what passed.
# Targets: linux-i686, win64, win32, aarch64; everything goes to build/<target>.

declare -A T3_TOOLCHAIN=(
  [linux-i686]=cmake/linux-i686.cmake
  [win64]=cmake/mingw-x86_64.cmake
  [win32]=cmake/mingw-i686.cmake
  [aarch64]=cmake/linux-aarch64.cmake
)
declare -A T3_PACKAGES=(
  [linux-i686]="g++-i686-linux-gnu"
  [win64]="g++-mingw-w64-x86-64-posix wine64"
  [win32]="g++-mingw-w64-i686-posix"
  [aarch64]="g++-aarch64-linux-gnu qemu-user"
)
declare -A T3_COMPILER=(
  [linux-i686]=i686-linux-gnu-g++
  [win64]=x86_64-w64-mingw32-g++-posix
  [win32]=i686-w64-mingw32-g++-posix
  [aarch64]=aarch64-linux-gnu-g++
)

t3_wine64=/usr/lib/wine/wine64
t3_wine32=/usr/lib/wine/wine
export WINEPREFIX=${TINTRA3_WINEPREFIX:-$HOME/.wine-tintra3}
export WINEDEBUG=-all

install_for() {
  local target=$1 missing=()
  command -v "${T3_COMPILER[$target]}" >/dev/null || missing+=(${T3_PACKAGES[$target]})
  [[ -f /usr/src/googletest/CMakeLists.txt ]] || missing+=(googletest)
  [[ $target != win64 || -x $t3_wine64 ]] || missing+=(wine64)
  [[ $target != win64 || -f /usr/share/i18n/locales/ja_JP ]] || missing+=(locales)
  [[ $target != aarch64 ]] || command -v qemu-aarch64 >/dev/null || missing+=(qemu-user)
  command -v ccache >/dev/null || missing+=(ccache)
  if [[ ${#missing[@]} -gt 0 ]]; then
    apt-get update -qq || true
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  fi
}

# googletest from the sources Debian installs, built once per target.
build_gtest() {
  local target=$1 prefix=$root/build/$1/gtest-install
  [[ -f $prefix/lib/cmake/GTest/GTestConfig.cmake ]] && return 0
  cmake -S /usr/src/googletest -B "build/$target/gtest-build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/${T3_TOOLCHAIN[$target]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DBUILD_GMOCK=OFF -DINSTALL_GTEST=ON \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
  cmake --build "build/$target/gtest-build" -j2 >/dev/null
  cmake --install "build/$target/gtest-build" >/dev/null
}

# The library, its tests and the C example for one target (release flags,
# warnings as errors). The LittleCMS peer tests and the image tools are left
# out: their libraries do not exist for the target here.
cross_build() {
  local target=$1
  install_for "$target"
  build_gtest "$target"
  # Warnings through the environment, so that the toolchain's own flags
  # (CMAKE_<LANG>_FLAGS_INIT) are kept.
  CFLAGS="-Wall -Wextra -Werror" CXXFLAGS="-Wall -Wextra -Werror" cmake -S . -B "build/$target" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/${T3_TOOLCHAIN[$target]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache \
    -DTINTRA3_BUILD_TOOLS=OFF -DTINTRA3_BUILD_BENCH=OFF \
    -DGTest_DIR="$root/build/$target/gtest-install/lib/cmake/GTest" \
    -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$root/build/$target/bin" \
    -DCMAKE_LIBRARY_OUTPUT_DIRECTORY="$root/build/$target/bin" >/dev/null
  shift
  # Further arguments name the targets to build (default: all).
  cmake --build "build/$target" -j2 ${1:+--target "$@"}
}

# A DLL exports exactly the 33 names of api/exports.map, undecorated, and
# imports only system DLLs.
check_dll() {
  local dll=$1 prefix=$2 exported expected imports
  exported=$("$prefix-objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
             awk '/\[ *[0-9]+\]/ {print $3}' | sort)
  expected=$(tr -s ' ;\n' '\n' < api/exports.map | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' |
             grep -vE '^(global|local)$' | sort)
  if [[ "$exported" != "$expected" ]]; then
    echo "$dll: exports differ from api/exports.map:"
    diff <(echo "$expected") <(echo "$exported") || true
    return 1
  fi
  imports=$("$prefix-objdump" -p "$dll" | awk '/DLL Name:/ {print $3}' | sort | tr '\n' ' ')
  if [[ "$imports" != "KERNEL32.dll msvcrt.dll " ]]; then
    echo "$dll needs more than the system DLLs: $imports"
    return 1
  fi
  echo "$dll: $(echo "$exported" | wc -l) exports, imports $imports"
}

wine_setup() {
  [[ -d $WINEPREFIX ]] || "$t3_wine64" wineboot -i >/dev/null 2>&1 || true
  # One server for the whole run instead of one per program.
  wineserver -p 120 >/dev/null 2>&1 || true
}

wine32_available() { [[ -x $t3_wine32 ]]; }

# Runners: PROGRAM ARGS... Each refuses a program of the wrong machine type,
# so that a mismatch fails loudly instead of exiting 0 with no output.
pe_machine() { LC_ALL=C objdump -f "$1" 2>/dev/null | awk '/file format/ {print $NF}'; }
wine_run64() {
  [[ $(pe_machine "$1") == pei-x86-64 ]] || { echo "not a 64-bit Windows program: $1"; return 1; }
  "$t3_wine64" "$@"
}
wine_run64_cp932() { LOCPATH=$root/build/locale LC_ALL=ja_JP.UTF-8 wine_run64 "$@" 2> >(grep -v "setlocale" >&2); }
wine_run32() {
  [[ $(pe_machine "$1") == pei-i386 ]] || { echo "not a 32-bit Windows program: $1"; return 1; }
  "$t3_wine32" "$@"
}
i686_run() { /usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path /usr/i686-linux-gnu/lib "$@"; }
qemu_run() { qemu-aarch64 -L /usr/aarch64-linux-gnu "$@"; }

# Runs every test program ctest knows in BUILD through RUNNER, two at a time,
# and prints the number of tests run and passed (scripts/ci-count-tests.py).
run_suite() {
  local name=$1 build=$2 runner=$3 logs=$2/suite-logs
  rm -rf "$logs"
  mkdir -p "$logs"
  local programs
  programs=$(ctest --test-dir "$build" --show-only=json-v1 | python3 -c '
import json, sys, os
seen = []
for t in json.load(sys.stdin)["tests"]:
    exe = [c for c in t["command"] if os.path.isfile(c) and c.startswith(sys.argv[1])]
    if exe and exe[-1] not in seen:
        seen.append(exe[-1])
print("\n".join(seen))' "$root/$build/bin/")
  [[ -n $programs ]] || { echo "$name: no test programs found"; return 1; }
  export -f "$runner" pe_machine
  export t3_wine64 t3_wine32
  # Each program's output goes to its own log; its exit status to a .rc file.
  echo "$programs" | xargs -P 2 -I{} bash -c '
    p="$1"; log="$2/$(basename "$p").log"
    (cd "$(dirname "$p")" && '"$runner"' "$p") >"$log" 2>&1; echo $? >"$log.rc"' _ {} "$logs"
  python3 scripts/ci-count-tests.py "$name" "$logs"
}

# One program with arguments through RUNNER, counted the same way:
# run_one NAME LOGDIR RUNNER PROGRAM ARGS...
run_one() {
  local name=$1 logs=$2 runner=$3 program=$4
  shift 4
  rm -rf "$logs"
  mkdir -p "$logs"
  local log=$logs/$(basename "$program").log
  set +e
  (cd "$(dirname "$program")" && "$runner" "$program" "$@") >"$log" 2>&1
  echo $? >"$log.rc"
  set -e
  python3 scripts/ci-count-tests.py "$name" "$logs"
}
