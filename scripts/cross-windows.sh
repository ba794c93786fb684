#!/usr/bin/env bash
# Cross-builds the 32-bit Windows library (Tintra3.dll) with MinGW-w64 and
# checks that it exports exactly the names of api/exports.map and needs no
# DLL beyond the system's.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! command -v i686-w64-mingw32-g++ >/dev/null; then
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq g++-mingw-w64-i686 >/dev/null
fi
cmake -S . -B build/win32 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DCMAKE_BUILD_TYPE=Release \
  -DTINTRA3_BUILD_TESTS=OFF -DTINTRA3_BUILD_TOOLS=OFF -DTINTRA3_BUILD_BENCH=OFF \
  "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror" >/dev/null
cmake --build build/win32 -j2 --target tintra3
dll=build/win32/Tintra3.dll
exported=$(i686-w64-mingw32-objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
           awk '/\[ *[0-9]+\]/ {print $3}' | sort)
expected=$(tr -s ' ;\n' '\n' < api/exports.map | grep -E '^[A-Za-z_][A-Za-z0-9_]*$' | grep -vE '^(global|local)$' | sort)
if [[ "$exported" != "$expected" ]]; then
  echo "Tintra3.dll exports differ from api/exports.map:"
  diff <(echo "$expected") <(echo "$exported") || true
  exit 1
fi
imports=$(i686-w64-mingw32-objdump -p "$dll" | awk '/DLL Name:/ {print $3}' | sort | tr '\n' ' ')
if [[ "$imports" != "KERNEL32.dll msvcrt.dll " ]]; then
  echo "Tintra3.dll needs more than the system DLLs: $imports"
  exit 1
fi
echo "Tintra3.dll: $(echo "$exported" | wc -l) exports, imports $imports"
