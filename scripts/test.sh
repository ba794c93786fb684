#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the whole test suite.
# Usage: scripts/test.sh [preset]   (dev by default; asan for the sanitizers)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"
bash scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j2
