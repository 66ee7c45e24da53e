#!/usr/bin/env bash
# Times complete time-error runs from the command line, as a user would start them, and prints
# each run's wall and processor time, peak memory and the time of every step (from one console
# line to the next: a statistic's step is its computation, its CSV and its two plots; the last
# step, from "Analysis Done" to the end, is left out).
#
# usage: nice -n 10 bench/time_error_run.sh [recording.txt.gz]
#
# 1. 100,000 samples of synthetic time error, the complete default run (time error, the five
#    statistics over every window, 12 plots).
# 2. The same 100,000 samples as an Osprey file of three slaves: three complete runs from one
#    read, which should take about three times as long as 1.
# 3. With a recording of one phase value in seconds per line (such as a week of a caesium clock
#    against a maser, one sample a second, '#' header lines): its first 100,000 samples and the
#    whole recording in the time-error layout, each the complete default run.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=./build/veridaneprobe
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

/usr/bin/python3 - "$work/synthetic.csv" <<'PY'
import random, sys
rng = random.Random(42)
frequency = phase = 0.0
with open(sys.argv[1], 'w') as out:
    out.write('index,time,time_error\n')
    for i in range(100000):
        frequency += rng.gauss(0, 0.01)
        phase += frequency
        out.write('%d,%.3f,%.12e\n' % (i, 1000 + i / 8.0, (phase + rng.gauss(0, 5)) * 1e-9))
PY
# Osprey: timestamp ns, then (sequence, error ns) for three slaves, then four status fields.
awk -F, 'NR > 1 { e = int($3 * 1e9); printf "%d,%d,%d,%d,%d,%d,%d,0,0,0,0\n", \
  $2 * 1e9, NR, e, NR, -e, NR, e + 7 }' "$work/synthetic.csv" > "$work/osprey.csv"

# run LABEL ARGUMENTS...: one run of the tool. Its console lines are stamped as they arrive (stdbuf
# makes its standard output line-buffered) with the wall clock and the tool's processor time so
# far (from /proc), so each step shows both: on a busy machine the wall time of a step says
# little, its processor time still holds.
run() {
  local label=$1; shift
  rm -rf "$work/out" "$work/lines"
  mkfifo "$work/lines"
  # veridaneprobe exits 1 after a completed run, which time notes before its figures.
  /usr/bin/time -v -o "$work/usage" stdbuf -oL "$tool" "$@" --output "$work/out" \
    > "$work/lines" 2> "$work/err" &
  local timer=$! pid="" line ticks
  while IFS= read -r line; do
    [ -n "$pid" ] || pid=$(awk '{ print $1 }' "/proc/$timer/task/$timer/children" 2>/dev/null)
    ticks=$(awk '{ print $14 + $15 }' "/proc/$pid/stat" 2>/dev/null || echo 0)
    printf '%s %s %s\n' "$(date +%s.%N)" "$ticks" "$line"
  done < "$work/lines" > "$work/stamped"
  wait "$timer" || true
  awk -F': ' '/Elapsed \(wall clock\)/ { n = split($2, t, ":"); s = 0;
      for (i = 1; i <= n; i++) s = s * 60 + t[i]; wall = s }
    /User time/ { cpu += $2 } /System time/ { cpu += $2 }
    /Maximum resident set size/ { peak = $2 / 1024 }
    END { printf "%-60s %7.2f s wall %7.2f s processor, peak %4.0f MB\n", label, wall, cpu, peak }' \
    label="$label" "$work/usage"
  awk -v ticksPerSecond="$(getconf CLK_TCK)" '
    { stamp = $1; ticks = $2; $1 = ""; $2 = ""; sub(/^ +/, "")
      if (NR > 1) printf "    %-60s %7.2f s wall %7.2f s processor\n", step,
        stamp - previousStamp, (ticks - previousTicks) / ticksPerSecond
      step = $0 == "" ? "(start-up)" : $0; previousStamp = stamp; previousTicks = ticks }' \
    "$work/stamped"
}

run "100k samples, complete default run" time-error --data "$work/synthetic.csv"

run "100k lines, osprey, three complete runs" osprey --data "$work/osprey.csv"

recording=${1:-}
if [ -n "$recording" ] && [ -f "$recording" ]; then
  gzip -dc "$recording" | awk '!/^#/ && NF { printf "%d,%d,%s\n", n, n, $1; n++ }' > "$work/recording.csv"
  head -n 100000 "$work/recording.csv" > "$work/recording-100k.csv"
  run "recording, first 100000 samples, complete default run" time-error \
    --data "$work/recording-100k.csv"
  lines=$(wc -l < "$work/recording.csv")
  run "recording, $lines samples, complete default run" time-error --data "$work/recording.csv"
fi
