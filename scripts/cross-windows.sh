#!/usr/bin/env bash
# Cross-builds the 32-bit Windows library (Tintra3.dll) with MinGW-w64 and
# checks that it exports exactly the names of api/exports.map and needs no
# DLL beyond the system's; runs its tests too where a 32-bit wine exists.
# Kept for callers of the old name: the work is the win32 step of
# scripts/ci-platforms.sh.
set -euo pipefail
exec bash "$(dirname "$0")/ci-platforms.sh" win32
