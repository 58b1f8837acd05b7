#!/usr/bin/env bash
# The full test run: installs dependencies, builds, runs every test, then runs the unit and
# integration tests once more under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
echo "== build"
bash scripts/build.sh build
echo "== format check"
git ls-files '*.cc' '*.h' | xargs -r clang-format --dry-run --Werror
echo "== tests"
(cd build && ctest --output-on-failure -j2)
if [ -f tests/browser/run.sh ]; then
  echo "== browser test"
  bash tests/browser/run.sh build
fi
echo "== package"
bash tests/package/run.sh
echo "== tests under ASan+UBSan"
bash scripts/build.sh build-asan -DQUELLOR_SANITIZE=ON -DQUELLOR_BENCH=OFF
(cd build-asan && ASAN_OPTIONS=detect_leaks=0 ctest --output-on-failure -j2)
