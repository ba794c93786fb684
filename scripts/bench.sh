#!/usr/bin/env bash
# Builds the release preset and compares the library with LittleCMS 2 on
# every benchmark case (about a minute; pass --quick for a short run).
# TINTRA3_KERNELS=portable|sse2|avx2 measures a lower instruction set.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release --target tintra3_bench >/dev/null
exec ./build/release/bench/tintra3_bench "$@"
