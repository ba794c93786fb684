#!/usr/bin/env bash
# Runs the kernel and dispatch tests once per kernel instruction set this
# machine supports (TINTRA3_KERNELS=portable|sse2|avx2), on the dev preset.
# The instruction-set comparison tests run in the normal suite already;
# this makes every other kernel test reach each set through the registry.
# Usage: scripts/kernel-isas.sh [PRESET]   (default: dev)
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-dev}"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target kernels_kernels_test kernels_dispatch_test kernels_registry_test kernels_layout_rebuild_test \
  api_tone_curves_test api_selector_test >/dev/null
isas="portable"
case "$(uname -m)" in
  x86_64|i?86)
    isas="$isas sse2"
    grep -qw avx2 /proc/cpuinfo && grep -qw bmi2 /proc/cpuinfo && grep -qw fma /proc/cpuinfo && isas="$isas avx2"
    ;;
esac
for isa in $isas; do
  echo "== kernel tests with TINTRA3_KERNELS=$isa"
  TINTRA3_KERNELS=$isa ctest --preset "$preset" -j2 -R '^(Kernels|Dispatch|Registry|KernelLayoutRebuild|ToneCurves|Selector)' \
    | grep -E "tests passed|tests failed|Failed|\*\*\*"
done
