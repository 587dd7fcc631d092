#!/usr/bin/env bash
# Retakes typed-sheet.png: the program on a virtual display, a small sheet typed with real key
# events, B2:B4 selected so that the status bar shows their sum, and the screen grabbed.
# Usage: docs/screenshots/take-typed-sheet.sh PATH/TO/tessarel OUT.png
# Needs Xvfb, xdotool, setxkbmap and ImageMagick's import: `scripts/bootstrap --bench` installs
# them.
set -euo pipefail
app=$1 out=$2
app_pid=""
work=$(mktemp -d /tmp/tessarel-shot-XXXXXX)
export XDG_CONFIG_HOME=$work/config XDG_RUNTIME_DIR=$work/runtime TMPDIR=$work
mkdir -p "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
export ASAN_OPTIONS=detect_leaks=0 QT_QPA_PLATFORM=xcb LANG=fr_FR.UTF-8 LC_ALL=
display=:$((500 + RANDOM % 300))
Xvfb "$display" -screen 0 900x480x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $app_pid $xvfb 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
export DISPLAY=$display
for _ in $(seq 50); do xdotool getmouselocation >/dev/null 2>&1 && break; sleep 0.1; done
# A French keyboard has the accented letters on keys of their own, which xdotool then presses
# instead of remapping a spare key for each (a remap can lose the character).
setxkbmap fr
"$app" >"$work/app.log" 2>&1 &
app_pid=$!
win=""
for _ in $(seq 100); do
  win=$(xdotool search --name '^Tessarel - ' 2>/dev/null | head -1) && [ -n "$win" ] && break
  sleep 0.1
done
xdotool windowmove "$win" 0 0 windowsize "$win" 900 480
xdotool windowactivate --sync "$win" 2>/dev/null || xdotool windowfocus --sync "$win"
sleep 0.5
row() {  # types the cells of one row from the active cell, Tab between, then Enter
  local first=1
  for cell in "$@"; do
    [ $first = 1 ] || xdotool key Tab
    first=0
    # xdotool reads the text in the shell's encoding: UTF-8 whatever the program's locale.
    [ -n "$cell" ] && LC_ALL=C.UTF-8 xdotool type --delay 40 -- "$cell"
  done
  xdotool key Return Home
}
row 'Mois' 'Ventes' 'Frais' 'Marge' 'Taux' 'Clos'
row 'Janvier' '1250,5' '830' '=B2-C2' '=D2/B2' 'VRAI'
row 'Février' '1410' '902,4' '=B3-C3' '12,50%' 'FAUX'
row 'Mars' '1735,25' '1011' '=B4-C4' '-3,20%' "'0042"
row 'Total' '=SOMME(B2:B4)' '=SOMME(C2:C4)' '=SOMME(D2:D4)' '=D5/0'
xdotool key Down
row 'Les ventes du premier trimestre dépassent les prévisions'
# B2:B4 selected, so that the status bar shows their sum.
xdotool key ctrl+Home Right Down shift+Down shift+Down
xdotool mousemove 450 250
sleep 0.5
import -window root "$out"
