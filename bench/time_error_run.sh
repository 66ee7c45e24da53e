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

source bench/timed_run.sh

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
