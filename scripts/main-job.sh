#!/usr/bin/env bash
# The main job: builds the release tools and inspects every profile of the
# Debian profile packages.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release
./build/release/tools/tintra-inspect
