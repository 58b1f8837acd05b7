#!/usr/bin/env bash
# Builds the fuzz targets with clang, libFuzzer, ASan and UBSan into build-fuzz/ and runs each one
# for SECONDS (default 300) over its seed corpus in fuzz/corpus/<target>/. New inputs that widen
# coverage are kept in build-fuzz/corpus/<target>/; a crash stops the run with its input saved
# as build-fuzz/crash-<target>-*.
#   bash fuzz/run.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-300}"
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(subject_decoder quoted_printable base64 text address lists readini email_date message
    header_reading pass window_page)
fi
dir=build-fuzz
echo "== fuzz: building into $dir"
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DQUELLOR_FUZZ=ON -DQUELLOR_BENCH=OFF >/dev/null
cmake --build "$dir" -j"$(nproc)" --target quellor_fuzzers
export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
for t in "${targets[@]}"; do
  echo "== fuzz $t (${seconds}s)"
  mkdir -p "$dir/corpus/$t"
  "$dir/fuzz/fuzz_$t" -max_len=1048576 -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$dir/crash-$t-" "$dir/corpus/$t" "fuzz/corpus/$t" \
    2>"$dir/fuzz-$t.log" || { tail -n 60 "$dir/fuzz-$t.log"; echo "fuzz $t: FAILED"; exit 1; }
  grep -E "^stat::(number_of_executed_units|new_units_added|peak_rss_mb)" "$dir/fuzz-$t.log" |
    tr '\n' ' '
  echo
done
