#!/usr/bin/env bash
# Speed of painting and rendering, each beside its reference in the same run:
#   1. a full 1280 by 800 window of formatted cells painted on the memory drawing context
#      (paint_bench) and through the Qt drawing context offscreen (paint_qt_bench);
#   2. `tessarel --render-png` of the 65,535 x 10 numbers workbook against LibreOffice's
#      `soffice --headless --convert-to png` of the same file.
# Usage: bench/render_speed.sh [BUILD_DIR]   (default build/bench, a Release build; it is
# configured and built here when missing). Prints the figures; measured, never asserted.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/bench}
if [ ! -x "$build/tessarel" ] || [ ! -x "$build/bench/paint_bench" ] ||
  [ ! -x "$build/bench/paint_qt_bench" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTESSAREL_TESTS=OFF >/dev/null
  cmake --build "$build" -j2 --target tessarel paint_bench paint_qt_bench
fi
work=$(mktemp -d /tmp/tessarel-render-XXXXXX)
trap 'rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=$work HOME=$work

echo "== painting a full 1280x800 window (targets: 4 ms memory context, 8 ms Qt offscreen)"
"$build/bench/paint_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true
"$build/bench/paint_qt_bench" --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

big=/tmp/tessarel-big.xls
/usr/bin/python3 "$root/bench/make_big_xls.py" "$big"

# Best of three runs: "WALL CPU" in seconds, CPU being user plus system time of the command and
# its children (on a loaded machine the wall time says more about the neighbours).
best_of_three() {
  local best="" line
  for _ in 1 2 3; do
    line=$( { TIMEFORMAT='%R %U %S'; time "$@" >/dev/null 2>&1; } 2>&1 | tail -1)
    line=$(awk '{ printf "%.3f %.3f", $1, $2 + $3 }' <<<"$line")
    if [ -z "$best" ] || awk -v t="${line% *}" -v b="${best% *}" 'BEGIN { exit !(t < b) }'; then
      best=$line
    fi
  done
  echo "$best"
}

echo "== rendering the 65,535 x 10 numbers workbook to PNG (target: at most 1/5 of LibreOffice)"
ours=$(best_of_three "$build/tessarel" --render-png "$work/ours.png" --size 1280x800 "$big")
[ -s "$work/ours.png" ] || { echo "tessarel wrote no picture" >&2; exit 1; }
echo "tessarel --render-png:            wall ${ours% *} s, cpu ${ours#* } s"
if command -v soffice >/dev/null; then
  peer=$(best_of_three soffice --headless "-env:UserInstallation=file://$work/lo" \
    --convert-to png --outdir "$work" "$big")
  [ -s "$work/tessarel-big.png" ] || { echo "soffice wrote no picture" >&2; exit 1; }
  echo "soffice --headless --convert-to:  wall ${peer% *} s, cpu ${peer#* } s"
  echo "ratio tessarel / soffice:         wall $(awk -v a="${ours% *}" -v b="${peer% *}" \
    'BEGIN { printf "%.3f", a / b }'), cpu $(awk -v a="${ours#* }" -v b="${peer#* }" \
    'BEGIN { printf "%.3f", a / b }')"
else
  echo "soffice is not installed (scripts/bootstrap --bench installs it): no peer figure"
fi
