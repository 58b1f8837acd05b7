#!/usr/bin/env bash
# The full test run: installs dependencies, builds, runs every test and the browser test, checks
# that a Release build with clang 14 has no warnings either, runs the unit and integration tests
# once more under AddressSanitizer and UndefinedBehaviorSanitizer, and runs each fuzz target briefly.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
echo "== build"
bash scripts/build.sh build
echo "== format check"
git ls-files '*.cc' '*.h' | xargs -r clang-format --dry-run --Werror
echo "== tests"
(cd build && ctest --output-on-failure -j2)
echo "== whole-pass benchmark, small (drains the queue without an error; times not checked)"
bash bench/whole_pass.sh 300
echo "== browser test"
bash tests/browser/run.sh build
echo "== Release build with clang 14, warnings as errors"
bash scripts/build.sh build-clang -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=clang++-14
echo "== package"
bash tests/package/run.sh
echo "== tests under ASan+UBSan"
bash scripts/build.sh build-asan -DQUELLOR_SANITIZE=ON -DQUELLOR_BENCH=OFF
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure -j2)
echo "== fuzz"
bash fuzz/run.sh 20
