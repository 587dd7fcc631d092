#!/usr/bin/env bash
# The desktop program as a person runs it, on a virtual display: start it, type values and a
# formula with real key events, save as csv from the keyboard and check the file's bytes; then
# start it a second time with a file while the first runs, and check that the first opened the
# file and the second left at once. Skips without Xvfb and xdotool, except under CI=true.
set -uo pipefail
app=$1

skip() {
  if [ "${CI:-}" = "true" ]; then
    echo "end_to_end: $1 (required under CI)" >&2
    exit 1
  fi
  echo "end_to_end: skipped, $1"
  exit 77
}
command -v Xvfb >/dev/null || skip "Xvfb is not installed"
command -v xdotool >/dev/null || skip "xdotool is not installed"

work=$(mktemp -d /tmp/tessarel-e2e-XXXXXX)
export XDG_CONFIG_HOME=$work/config XDG_RUNTIME_DIR=$work/runtime TMPDIR=$work
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}:detect_leaks=0
export QT_QPA_PLATFORM=xcb LANG=fr_FR.UTF-8 LC_ALL=
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

display=:$((90 + RANDOM % 400))
Xvfb "$display" -screen 0 1280x800x24 -nolisten tcp >"$work/xvfb.log" 2>&1 &
pids+=($!)
export DISPLAY=$display
for _ in $(seq 50); do xdotool getmouselocation >/dev/null 2>&1 && break; sleep 0.1; done

fail() {
  echo "end_to_end: $1" >&2
  [ -f "$work/app.log" ] && sed 's/^/  app: /' "$work/app.log" >&2
  exit 1
}

# Waits for a window whose title matches $1; prints its id.
wait_window() {
  for _ in $(seq 100); do
    id=$(xdotool search --name "$1" 2>/dev/null | head -1)
    [ -n "$id" ] && { echo "$id"; return 0; }
    sleep 0.1
  done
  return 1
}

"$app" >"$work/app.log" 2>&1 &
first=$!
pids+=($first)
window=$(wait_window '^Tessarel - Classeur1$') || fail "the window did not appear"
xdotool windowactivate --sync "$window" 2>/dev/null || xdotool windowfocus --sync "$window"
sleep 0.5

# A1 12, A2 30, A3 =A1+A2*2, B1 text; Enter moves down.
xdotool type --delay 40 '12'
xdotool key Return
xdotool type --delay 40 '30'
xdotool key Return
xdotool type --delay 40 '=A1+A2*2'
xdotool key Return
xdotool key Up Up Up Right
xdotool type --delay 40 'total'
xdotool key Return
sleep 0.3

# Save As from the keyboard: the File menu by its access key, then "Enregistrer Sous".
out=$work/book.csv
xdotool key alt+f
sleep 0.3
xdotool key s
dialog=$(wait_window 'Enregistrer sous') || fail "the save dialog did not appear"
sleep 0.5
xdotool key ctrl+a
xdotool type --delay 20 "$out"
xdotool key Return
for _ in $(seq 50); do [ -s "$out" ] && break; sleep 0.1; done
[ -s "$out" ] || fail "nothing was saved to $out"
expected=$'12;total\r\n30;\r\n72;\r\n'
actual=$(cat "$out"; echo x)
actual=${actual%x}
[ "$actual" = "$expected" ] || fail "saved bytes differ: $(od -c "$out" | head -5)"
wait_window '^Tessarel - book.csv$' >/dev/null || fail "the caption did not take the new name"

# A second start hands its file to the first and leaves.
other=$work/other.csv
printf '1;2\r\n' >"$other"
timeout 20 "$app" "$other" >"$work/second.log" 2>&1
status=$?
[ $status -eq 0 ] || fail "the second start exited with $status"
wait_window '^Tessarel - other.csv$' >/dev/null || fail "the first instance did not open the file"
kill -0 "$first" 2>/dev/null || fail "the first instance is gone"
echo "end_to_end: passed"
