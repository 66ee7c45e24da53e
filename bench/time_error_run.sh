#!/usr/bin/env bash
# Times complete time-error runs from the command line, as a user would start them.
#
# usage: bench/time_error_run.sh [recording.txt.gz]
#
# 1. 100,000 samples of synthetic time error, the complete default run (time error, the five
#    statistics over every window, 12 plots).
# 2. The same 100,000 samples as an Osprey file of three slaves: three complete runs from one
#    read, which should take about three times as long as 1.
# 3. With a recording of one phase value in seconds per line (such as a week of a caesium clock
#    against a maser, one sample a second, '#' header lines), the whole recording in the
#    time-error layout, every statistic with windows in steps of 1000 samples.
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

run() {
  local label=$1; shift
  local start end
  start=$(date +%s.%N)
  # veridaneprobe exits 1 after a completed run, which time notes before the figure.
  /usr/bin/time -f "%M" -o "$work/rss" "$tool" "$@" > "$work/log" 2>&1 || true
  end=$(date +%s.%N)
  printf '%-48s %7.2f s wall, peak %6.0f MB\n' "$label" "$(echo "$end - $start" | bc)" \
    "$(echo "$(tail -n 1 "$work/rss") / 1024" | bc)"
}

run "100k samples, complete default run" time-error --data "$work/synthetic.csv" --output "$work/out1"

run "100k lines, osprey, three complete runs" osprey --data "$work/osprey.csv" --output "$work/out3"

recording=${1:-}
if [ -n "$recording" ] && [ -f "$recording" ]; then
  gzip -dc "$recording" | awk '!/^#/ && NF { printf "%d,%d,%s\n", n, n, $1; n++ }' > "$work/recording.csv"
  lines=$(wc -l < "$work/recording.csv")
  run "recording, $lines samples, windows step 1000" time-error --data "$work/recording.csv" \
    --output "$work/out2" --window-step 1000
fi
