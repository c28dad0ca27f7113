#!/usr/bin/env bash
# Installs what is missing, builds Orvanta, and records a ten-second demo with
# sound into the file given (demo.mp4 by default).
set -euo pipefail
out=$(realpath -m "${1:-demo.mp4}")
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DORVANTA_TESTS=OFF >/dev/null
cmake --build build-release -j "$(nproc)" >/dev/null
exec build-release/bin/orvanta demo "$out"
