#!/usr/bin/env bash
# Configures and builds Quellor into build/ (or into the folder given as $1 with extra CMake flags),
# with warnings as errors.
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
shift || true
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUELLOR_WERROR=ON "$@" >/dev/null
cmake --build "$dir" -j"$(nproc)"
