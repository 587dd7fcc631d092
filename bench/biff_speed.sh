#!/usr/bin/env bash
# Times tessarel-cli against Gnumeric's ssconvert on the big workbook (65,535 rows x 10 numbers),
# both in the same run, with /usr/bin/time for wall time and peak memory:
#   read: `convert big.xls big.csv`   target: at most 1/10 of ssconvert's time, under 100 MB
#   save: `convert big.csv out.xls`   target: at most 1/10 of ssconvert's time
# Each command runs REPEAT times (default 1: ssconvert takes minutes to save), the two programs
# taking turns, and the median wall time and the largest peak memory are reported. The machine
# should be otherwise idle: the ratio is only fair when both programs get the same share of it.
#
# Usage: bench/biff_speed.sh            builds build/bench/tessarel-cli (Release) if needed
#        TESSAREL_CLI=path bench/biff_speed.sh   times that binary instead
# The workbook is generated once into BENCH_DIR (default /tmp/tessarel-bench) and reused.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
dir="${BENCH_DIR:-/tmp/tessarel-bench}"
repeat="${REPEAT:-1}"
mkdir -p "$dir"

for tool in /usr/bin/time ssconvert /usr/bin/python3; do
  command -v "$tool" >/dev/null || { echo "biff_speed: $tool is missing (scripts/bootstrap)" >&2; exit 1; }
done

cli="${TESSAREL_CLI:-}"
if [ -z "$cli" ]; then
  build="$root/build/bench"
  if [ ! -f "$build/build.ninja" ]; then
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTESSAREL_TESTS=OFF \
      -DTESSAREL_DESKTOP=OFF >/dev/null
  fi
  cmake --build "$build" -j2 --target tessarel-cli >/dev/null
  cli="$build/tessarel-cli"
fi

/usr/bin/python3 "$root/bench/make_big_xls.py" "$dir/big.xls"

# Runs a command once; prints "seconds kilobytes", or "failed" when it exits non-zero.
measure() {
  local report="$dir/time.txt"
  if /usr/bin/time -o "$report" -f "%e %M" "$@" >/dev/null 2>"$dir/stderr.txt"; then
    cat "$report"
  else
    echo failed
  fi
}

# Runs ours and theirs REPEAT times in turns; sets ours_time ours_kb theirs_time theirs_kb
# (ours_time is "failed" if any run of ours failed).
compare() {
  local ours=() theirs=() result
  ours_kb=0
  theirs_kb=0
  ours_time=""
  for ((i = 0; i < repeat; i++)); do
    result=$(measure "${ours_cmd[@]}")
    if [ "$result" = failed ]; then
      ours_time=failed
    else
      ours+=("${result% *}")
      ((${result#* } > ours_kb)) && ours_kb=${result#* }
    fi
    result=$(measure "${theirs_cmd[@]}")
    if [ "$result" = failed ]; then
      echo "biff_speed: ssconvert failed: $(cat "$dir/stderr.txt")" >&2
      exit 1
    fi
    theirs+=("${result% *}")
    ((${result#* } > theirs_kb)) && theirs_kb=${result#* }
  done
  [ "$ours_time" = failed ] || ours_time=$(printf '%s\n' "${ours[@]}" | sort -g | sed -n "$(((repeat + 1) / 2))p")
  theirs_time=$(printf '%s\n' "${theirs[@]}" | sort -g | sed -n "$(((repeat + 1) / 2))p")
}

printf '%-6s %12s %12s %10s %10s %8s   %s\n' step "ours (s)" "ssconvert" "ours MB" "their MB" ratio target
line() {  # step, time target as a fraction, memory target in MB or "-"
  if [ "$ours_time" = failed ]; then
    printf '%-6s %12s %12.2f %10s %10.0f %8s   %s\n' "$1" "-" "$theirs_time" "-" \
      "$((theirs_kb / 1024))" "-" "xls save not available"
    return
  fi
  local ratio verdict mb
  ratio=$(awk -v a="$ours_time" -v b="$theirs_time" 'BEGIN { printf "%.3f", (b > 0 ? a / b : 0) }')
  mb=$((ours_kb / 1024))
  verdict=$(awk -v r="$ratio" -v t="$2" 'BEGIN { print ((r + 0 <= t + 0) ? "met" : "missed") }')
  local target="time <= $2 x ssconvert ($verdict)"
  if [ "$3" != - ]; then
    target="$target, memory < $3 MB ($( ((mb < $3)) && echo met || echo missed))"
  fi
  printf '%-6s %12.3f %12.2f %10d %10d %8s   %s\n' "$1" "$ours_time" "$theirs_time" "$mb" \
    "$((theirs_kb / 1024))" "$ratio" "$target"
}

ours_cmd=("$cli" convert --locale en-US "$dir/big.xls" "$dir/ours.csv")
theirs_cmd=(ssconvert "$dir/big.xls" "$dir/theirs.csv")
compare
line read 0.1 100

rm -f "$dir/ours.xls"
ours_cmd=("$cli" convert --locale en-US "$dir/big.csv" "$dir/ours.xls")
theirs_cmd=(ssconvert "$dir/big.csv" "$dir/theirs.xls")
compare
line save 0.1 -
