#!/usr/bin/env bash
# The whole-pass benchmark: N message pairs in a temporary installation tree, a mix of
# forwarded, learned, white-listed and held-and-challenged recipients over 1,000 users, messages
# of 2 to 50 KiB, taken out of IN/ by `quellorctl pass --all --no-pause`. Beside it, on an
# identical tree, the floor: a minimal program that only copies every message once per
# recipient into LOCAL/ and deletes the pair, flushed to the disk as Quellor does before it
# deletes an input pair. For each N it prints the pass's time, the floor's time in the same run,
# their ratio, messages per second and peak memory; then the system calls per message of one
# pass under strace (at N, at most 2,000), and the growth from the smallest N to the largest.
# A run that leaves mail in IN/ or writes the error log fails.
#
#   bash bench/whole_pass.sh [N ...]       (default: 1000 10000; 100000 on request)
#   BUILD_DIR=build-x bash bench/whole_pass.sh 300
set -euo pipefail
cd "$(dirname "$0")/.."
SIZES=("$@")
[ ${#SIZES[@]} -gt 0 ] || SIZES=(1000 10000)
BUILD="${BUILD_DIR:-build}"

if [ ! -f "$BUILD/build.ninja" ]; then bash scripts/build.sh "$BUILD"; fi
cmake --build "$BUILD" --target quellorctl bench_make_spool bench_copy_floor >/dev/null
CTL="$(pwd)/$BUILD/quellorctl"
MAKE_SPOOL="$(pwd)/$BUILD/bench/bench_make_spool"
FLOOR="$(pwd)/$BUILD/bench/bench_copy_floor"

WORK="$(mktemp -d "${TMPDIR:-/tmp}/quellor-bench-XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
TODAY="$(date +%Y%m%d)"

# A fresh tree with the same N pairs every time (same seed), in a folder of its own. The trees
# of earlier runs stay until the end: on ext4 without a journal, every file created within a
# minute or more of many removals searches past the inodes just freed (while their blocks are
# cached), so removing the last run's tree here would slow down whichever run comes next. For
# the same reason, and when it may, the script empties the kernel's caches before each timed run
# and then reads the input queue once, so that both runs start with the same warm input.
TREES=0
fresh_tree() {
  TREES=$((TREES + 1))
  export QUELLOR_ROOT="$WORK/tree$TREES"
  TREE="$QUELLOR_ROOT"
  "$CTL" init "$TREE" >/dev/null
  "$MAKE_SPOOL" "$TREE" "$1" "$TODAY" 1 >/dev/null
  sync
  if [ -w /proc/sys/vm/drop_caches ]; then echo 3 >/proc/sys/vm/drop_caches 2>/dev/null || true; fi
  find "$TREE/IN" -type f -exec cat {} + >/dev/null
}

# Runs a command under /usr/bin/time -v; sets SECONDS_TAKEN and PEAK_KIB.
timed() {
  /usr/bin/time -v -o "$WORK/time.txt" "$@" >"$WORK/out.txt"
  local wall
  wall="$(sed -n 's/^\s*Elapsed (wall clock) time (h:mm:ss or m:ss): //p' "$WORK/time.txt")"
  SECONDS_TAKEN="$(awk -v t="$wall" 'BEGIN { n = split(t, p, ":"); s = 0;
    for (i = 1; i <= n; i++) s = s * 60 + p[i]; printf "%.2f", s }')"
  PEAK_KIB="$(sed -n 's/^\s*Maximum resident set size (kbytes): //p' "$WORK/time.txt")"
}

# The pass must have drained IN/ without a line in the error log.
check_drained() {
  local left errors
  left="$(find "$TREE/IN" -type f -name '*.EML' | wc -l)"
  errors=0
  [ ! -f "$TREE/LOG/system.log" ] || errors="$(wc -l <"$TREE/LOG/system.log")"
  if [ "$left" -ne 0 ] || [ "$errors" -ne 0 ]; then
    echo "FAILED: $left message(s) left in IN/, $errors error-log line(s)" >&2
    [ ! -f "$TREE/LOG/system.log" ] || head -5 "$TREE/LOG/system.log" >&2
    exit 1
  fi
}

printf '%9s %10s %10s %7s %9s %10s\n' messages "pass s" "floor s" ratio "msg/s" "peak KiB"
declare -A PASS_SECONDS
for n in "${SIZES[@]}"; do
  fresh_tree "$n"
  timed "$CTL" pass --all --no-pause
  check_drained
  q="$SECONDS_TAKEN"
  peak="$PEAK_KIB"
  PASS_SECONDS[$n]="$q"
  fresh_tree "$n"
  timed "$FLOOR" "$TREE" --fsync
  f="$SECONDS_TAKEN"
  awk -v n="$n" -v q="$q" -v f="$f" -v peak="$peak" 'BEGIN {
    printf "%9d %10.2f %10.2f %6.2fx %9.0f %10d\n", n, q, f, (f > 0 ? q / f : 0),
      (q > 0 ? n / q : 0), peak }'
done

first="${SIZES[0]}"
last="${SIZES[${#SIZES[@]}-1]}"
if [ "$first" != "$last" ]; then
  awk -v a="$first" -v b="$last" -v qa="${PASS_SECONDS[$first]}" -v qb="${PASS_SECONDS[$last]}" \
    'BEGIN { printf "time(%d) / time(%d) = %.1f for %.0f times the messages\n", b, a,
      (qa > 0 ? qb / qa : 0), b / a }'
fi

if command -v strace >/dev/null 2>&1; then
  n="$last"
  [ "$n" -le 2000 ] || n=2000
  fresh_tree "$n"
  strace -c -f -o "$WORK/strace.txt" "$CTL" pass --all --no-pause >/dev/null
  check_drained
  echo "system calls per message (strace -c -f, $n messages):"
  # Columns: % time, seconds, usecs/call, calls, [errors,] syscall.
  awk -v n="$n" '$1 ~ /^[0-9.]+$/ && $NF != "total" { calls[$NF] = $4 }
    END {
      stat = calls["newfstatat"] + calls["fstat"] + calls["stat"] + calls["lstat"] + calls["statx"]
      opens = calls["openat"] + calls["openat2"] + calls["open"]
      printf "  stat-like %.1f  opens %.1f  flushes %.1f  directory reads %.1f  reads %.1f  writes %.1f\n",
        stat / n, opens / n, (calls["fsync"] + calls["fdatasync"]) / n, calls["getdents64"] / n,
        calls["read"] / n, calls["write"] / n
      total = 0
      for (c in calls) total += calls[c]
      printf "  all %.1f\n", total / n
    }' "$WORK/strace.txt"
else
  echo "(no strace: system calls not counted)"
fi
