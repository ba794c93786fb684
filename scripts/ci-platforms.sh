#!/usr/bin/env bash
# Builds and runs the test suite on the platforms beyond x86-64 Linux (which
# scripts/test.sh covers):
#   linux-i686    32-bit x86 Linux without SSE2, run natively through the i686 loader
#   win64         64-bit Tintra3.dll and the test programs, run under wine64
#   win32         32-bit Tintra3.dll, export table checked; run under wine if a
#                 32-bit wine is installed
#   msvc          Tintra3.lib made from Tintra3.def, a C program built the MSVC
#                 way (clang + lld-link) linked against it, run under wine64
#   aarch64       64-bit ARM Linux, run under qemu-aarch64
#   bytes         one conversion per method on every platform above: sha256 of each
# Usage: scripts/ci-platforms.sh [STEP...]   (all steps by default)
# Each run prints "<platform>: N tests passed of N run (P programs)"; a step
# whose test count is zero fails, so a runner that silently runs nothing
# (wine64 given a 32-bit program prints nothing and exits 0) cannot pass.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
source scripts/cross-common.sh

steps=("$@")
[[ ${#steps[@]} -gt 0 ]] || steps=(linux-i686 win64 win32 msvc aarch64 bytes)

# Exhaustive kernel sweeps shrink under emulation; the full sweeps run natively.
export TINTRA3_TEST_SWEEP=${TINTRA3_TEST_SWEEP:-reduced}

for step in "${steps[@]}"; do
  start=$SECONDS
  case "$step" in
    linux-i686)
      cross_build linux-i686
      run_suite "Linux i686 (no SSE2)" build/linux-i686 i686_run
      ;;
    win64)
      cross_build win64
      check_dll build/win64/bin/Tintra3.dll x86_64-w64-mingw32
      wine_setup
      run_suite "Windows x64 (wine64)" build/win64 wine_run64
      # The folder check on a double-byte system code page, which wine takes
      # from the locale; the host needs that locale to name the files.
      mkdir -p build/locale
      [[ -d build/locale/ja_JP.UTF-8 ]] || localedef -i ja_JP -f UTF-8 build/locale/ja_JP.UTF-8
      run_one "Windows x64 (wine64, code page 932)" build/win64/cp932-logs wine_run64_cp932 \
        "$root/build/win64/bin/api_toplevel_test.exe" --gtest_filter='TopLevel.DoubleByte*:TopLevel.ProfileChecks'
      ;;
    win32)
      if wine32_available; then
        cross_build win32
        check_dll build/win32/bin/Tintra3.dll i686-w64-mingw32
        wine_setup
        run_suite "Windows x86 (wine)" build/win32 wine_run32
      else
        cross_build win32 tintra3
        check_dll build/win32/bin/Tintra3.dll i686-w64-mingw32
        echo "Windows x86: DLL built and export table checked; not run (no 32-bit wine on this machine)"
      fi
      ;;
    msvc)
      bash scripts/cross-msvc.sh
      ;;
    aarch64)
      cross_build aarch64
      run_suite "Linux aarch64 (qemu)" build/aarch64 qemu_run
      ;;
    bytes)
      bash scripts/ci-bytes.sh
      ;;
    *)
      echo "unknown step: $step" >&2
      exit 2
      ;;
  esac
  echo "step $step: $((SECONDS - start)) s"
done
