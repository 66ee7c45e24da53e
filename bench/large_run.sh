#!/usr/bin/env bash
# Times complete default time-error runs on long series, where the exact sums' limits used to
# be (2^22 values): per size the wall and processor time, the peak memory and every step.
#
# usage: nice -n 10 bench/large_run.sh [--all]
#
# The series is synthetic 1 PPS phase shaped like a caesium clock against a maser (white phase
# noise of 0.19 ns, white frequency noise, a slow random-walk frequency wander), written in the
# time-error layout. Sizes: 1,000,000, 4,194,303, 4,200,000; with --all also 10,000,000 and
# 31,536,000 (a year), which take minutes and several GB of disk for the CSV.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=./build/veridaneprobe
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
source bench/timed_run.sh

sizes=(1000000 4194303 4200000)
[ "${1:-}" = "--all" ] && sizes+=(10000000 31536000)
for size in "${sizes[@]}"; do
  /usr/bin/python3 - "$work/series.csv" "$size" <<'PY'
import sys
import numpy as np
count = int(sys.argv[2])
rng = np.random.default_rng(20140131)
with open(sys.argv[1], 'w') as out:
    wander = carry = 0.0
    for first in range(0, count, 1_000_000):
        n = min(1_000_000, count - first)
        frequency = wander + np.cumsum(rng.normal(0, 2e-6, n))  # ns per s, random walk
        wander = frequency[-1]
        steps = frequency + rng.normal(0, 0.05, n)               # white FM
        phase = carry + np.cumsum(steps)
        carry = phase[-1]
        noisy = phase + rng.normal(0, 0.19, n)                   # white PM
        index = np.arange(first, first + n)
        np.savetxt(out, np.column_stack((index, index, noisy * 1e-9)), fmt='%d,%d,%.13e')
PY
  run "$size samples, complete default run" time-error --data "$work/series.csv"
done
