#!/usr/bin/env bash
# The whole-pass benchmark: N message pairs (default 10,000) in a temporary installation tree,
# a mix of forwarded, learned, white-listed and held-and-challenged recipients over 1,000 users,
# messages of 2 to 50 KiB, taken out of IN/ by `quellorctl pass --all --no-pause`.
# Beside it, on an identical tree, the floor: a minimal program that only copies every message
# once per recipient into LOCAL/ and deletes the pair (plain, and flushed to the disk as
# Quellor does before it deletes an input pair). Prints messages per second, peak memory and
# the ratios.
#
#   bash bench/whole_pass.sh [N] [BUILD_DIR]      (BUILD_DIR defaults to build/)
set -euo pipefail
cd "$(dirname "$0")/.."
N="${1:-10000}"
BUILD="${2:-build}"

if [ ! -f "$BUILD/build.ninja" ]; then bash scripts/build.sh "$BUILD"; fi
cmake --build "$BUILD" --target quellorctl bench_make_spool bench_copy_floor >/dev/null
CTL="$(pwd)/$BUILD/quellorctl"
MAKE_SPOOL="$(pwd)/$BUILD/bench/bench_make_spool"
FLOOR="$(pwd)/$BUILD/bench/bench_copy_floor"

WORK="$(mktemp -d "${TMPDIR:-/tmp}/quellor-bench-XXXXXX")"
trap 'rm -rf "$WORK"' EXIT
TODAY="$(date +%Y%m%d)"

# A fresh tree with the same N pairs every time (same seed).
fresh_tree() {
  rm -rf "$WORK/tree"
  "$CTL" init "$WORK/tree" >/dev/null
  "$MAKE_SPOOL" "$WORK/tree" "$N" "$TODAY" 1
  sync
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
rate() { awk -v n="$N" -v s="$1" 'BEGIN { printf "%.0f", (s > 0 ? n / s : 0) }'; }
count() { find "$WORK/tree/$1" -type f -name "$2" | wc -l; }

echo "== whole pass: $N pairs"
fresh_tree
export QUELLOR_ROOT="$WORK/tree"
timed "$CTL" pass --all --no-pause
Q_SECONDS="$SECONDS_TAKEN"
Q_PEAK="$PEAK_KIB"
echo "left in IN/: $(count IN '*.EML'); LOCAL/: $(count LOCAL '*.EML') messages;" \
  "WAIT/: $(count WAIT '*.EML') held; OUT/: $(count OUT '*.EML') requests;" \
  "error log lines: $(cat "$WORK/tree/LOG/system.log" 2>/dev/null | wc -l)"
grep -E '^(FORWARD|LEARN|QUELLOR)=' "$WORK/out.txt" | tr -d '\r' | paste -sd' '
printf 'quellorctl pass --all --no-pause: %8.2f s  %7s msg/s  peak RSS %6d KiB\n' \
  "$Q_SECONDS" "$(rate "$Q_SECONDS")" "$Q_PEAK"

fresh_tree >/dev/null
timed "$FLOOR" "$WORK/tree"
F_SECONDS="$SECONDS_TAKEN"
printf 'floor (copy, delete):             %8.2f s  %7s msg/s  peak RSS %6d KiB\n' \
  "$F_SECONDS" "$(rate "$F_SECONDS")" "$PEAK_KIB"

fresh_tree >/dev/null
timed "$FLOOR" "$WORK/tree" --fsync
S_SECONDS="$SECONDS_TAKEN"
printf 'floor (copy, fsync, delete):      %8.2f s  %7s msg/s  peak RSS %6d KiB\n' \
  "$S_SECONDS" "$(rate "$S_SECONDS")" "$PEAK_KIB"

awk -v q="$Q_SECONDS" -v f="$F_SECONDS" -v s="$S_SECONDS" 'BEGIN {
  printf "ratio quellor / floor: %.1f x;  quellor / floor with fsync: %.1f x\n",
    (f > 0 ? q / f : 0), (s > 0 ? q / s : 0) }'
