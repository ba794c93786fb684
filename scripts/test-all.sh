#!/usr/bin/env bash
# Every test on every platform: the x86-64 suite (dev preset), the kernel
# tests under each instruction set, the suite again under the
# sanitizers, the fuzz corpus replay plus a short run of every fuzz target,
# then the other platforms (Linux i686, Windows x64 under wine64, the 32-bit
# DLL's export table, an MSVC-linked consumer, aarch64 under qemu) and the
# byte comparison across them. Every step prints how many tests passed.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$SECONDS
step() { echo "=== $1 ($((SECONDS - start)) s)"; }
step "x86-64 Linux, dev";  bash scripts/test.sh
step "kernels per ISA";    bash scripts/kernel-isas.sh
step "x86-64 Linux, asan"; bash scripts/test.sh asan
step "fuzzing";            FUZZ_JOBS=2 bash scripts/fuzz.sh 60
step "other platforms";    bash scripts/ci-platforms.sh
step "done"
