#!/usr/bin/env bash
# Links a C program the MSVC way against the 64-bit Tintra3.dll: compiled by
# clang-cl for x86_64-pc-windows-msvc, linked by lld-link with Tintra3.lib
# (made by llvm-dlltool from api/Tintra3.def when the DLL is built) and an
# msvcrt.lib made the same way, then run under wine64. Needs build/win64
# (scripts/ci-platforms.sh win64). The Microsoft C runtime headers are not
# available here, so the program (scripts/msvc-consumer.c) declares the few
# msvcrt.dll functions it calls.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
source scripts/cross-common.sh
if ! { command -v clang-cl-14 && command -v lld-link-14 && command -v llvm-dlltool-14; } >/dev/null; then
  apt-get update -qq || true
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends clang-14 lld-14 llvm-14 >/dev/null
fi
lib=build/win64/bin/Tintra3.lib
[[ -f $lib ]] || { echo "msvc: $lib missing; build win64 first"; exit 1; }
out=build/msvc
mkdir -p "$out"
clang_cl=$(command -v clang-cl || command -v clang-cl-14)
lld_link=$(command -v lld-link || command -v lld-link-14)
dlltool=$(command -v llvm-dlltool || command -v llvm-dlltool-14)
printf 'LIBRARY msvcrt.dll\nEXPORTS\n    printf\n    memset\n    memcmp\n    strcpy\n    strlen\n    exit\n' >"$out/msvcrt.def"
"$dlltool" -m i386:x86-64 -d "$out/msvcrt.def" -l "$out/msvcrt.lib"
# /GS- and /Zl: no security-cookie helpers, no default C runtime library.
"$clang_cl" --target=x86_64-pc-windows-msvc /nologo /c /O2 /W4 /WX /GS- /Zl /clang:-ffreestanding -Iapi \
  scripts/msvc-consumer.c "/Fo$out/msvc-consumer.obj"
"$lld_link" /nologo /subsystem:console /entry:mainCRTStartup /nodefaultlib "/out:$out/msvc-consumer.exe" \
  "$out/msvc-consumer.obj" "$lib" "$out/msvcrt.lib"
cp build/win64/bin/Tintra3.dll "$out/"
wine_setup
run_one "Windows x64 MSVC-linked C program (wine64)" "$out/logs" wine_run64 "$root/$out/msvc-consumer.exe"
cat "$out/logs/msvc-consumer.exe.log"
