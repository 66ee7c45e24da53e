# Sourced by the run benchmarks: run LABEL ARGUMENTS... times one run of $tool writing into
# $work/out, and prints its wall and processor time, peak memory and the time of every step.
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

