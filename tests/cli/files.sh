#!/usr/bin/env bash
# The file verbs as a user runs them: `cells` lists a csv, txt or pxl file, `convert` turns one into
# the other, and refused files exit 1 with the reason on stderr.
set -u
cli=$1
fail=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run() {  # expected status, command...
  local want=$1
  shift
  "$@" >"$work/out" 2>"$work/err"
  local got=$?
  if [ "$got" != "$want" ]; then
    echo "FAIL: $*: exit $got, expected $want"; cat "$work/err"; fail=1
  fi
}
same() {  # description, expected text, file
  if [ "$2" != "$(cat "$3")" ]; then
    echo "FAIL: $1"; diff <(printf '%s\n' "$2") "$3"; fail=1
  fi
}

printf '1,5;"12";=A1*2\r\n\r\nvrai;"a;b";15/03/2024\r\n' >"$work/a.csv"
run 0 "$cli" cells --locale fr-FR "$work/a.csv"
same "cells of a csv" "$(printf '0\tA1\tn\t1.5\t\t1,5\n0\tB1\ts\t12\t\t12\n0\tC1\tn\t3\t=A1*2\t3\n0\tA3\tb\t1\t\tVRAI\n0\tB3\ts\ta;b\t\ta;b\n0\tC3\tn\t45366\t\t15/03/2024')" "$work/out"
run 0 "$cli" cells --recalc --sheet 0 --locale fr-FR "$work/a.csv"
run 1 "$cli" cells --sheet 1 --locale fr-FR "$work/a.csv"

run 0 "$cli" convert --locale fr-FR "$work/a.csv" "$work/b.txt"
same "csv to txt" "$(printf '1,5\t"12"\t3\r\n\r\nVRAI\t"a;b"\t15/03/2024\r')" "$work/b.txt"
run 0 "$cli" convert --locale fr-FR "$work/b.txt" "$work/c.csv"
same "txt back to csv" "$(printf '1,5;"12";3\r\n;;\r\nVRAI;"a;b";15/03/2024\r')" "$work/c.csv"

# Both Excel versions hold what the csv held; a row past 16,384 is reported for Excel 95.
run 0 "$cli" cells --locale fr-FR "$work/a.csv"
cp "$work/out" "$work/a.cells"
for form in "" --biff5; do
  run 0 "$cli" convert --locale fr-FR $form "$work/a.csv" "$work/a$form.xls"
  run 0 "$cli" cells --locale fr-FR "$work/a$form.xls"
  same "csv to xls $form" "$(cat "$work/a.cells")" "$work/out"
done
{ printf '1\r\n'; for i in $(seq 2 16400); do printf '\r\n'; done; printf '=A1+1\r\n'; } >"$work/long.csv"
run 0 "$cli" convert --locale fr-FR "$work/long.csv" "$work/long.xls" --biff5
grep -q '1 cells past row 16384 not kept' "$work/err" || { echo "FAIL: dropped cells not told"; cat "$work/err"; fail=1; }

printf 'a;b\r\nc;=SOMME(1;\r\n' >"$work/bad.csv"
run 1 "$cli" cells --locale fr-FR "$work/bad.csv"
grep -q 'row 2, column 2: Erreur rencontr' "$work/err" || { echo "FAIL: formula position"; cat "$work/err"; fail=1; }
printf 'a;b"c\r\n' >"$work/quote.csv"
run 1 "$cli" convert --locale fr-FR "$work/quote.csv" "$work/never.txt"
grep -q 'Invalid data in input file' "$work/err" || { echo "FAIL: invalid data message"; fail=1; }
[ -e "$work/never.txt" ] && { echo "FAIL: a refused load wrote its target"; fail=1; }
# Pocket Excel: a formula outside the format's function list is saved as its value, and said so.
printf '1,5\ttexte\t=A1*2\t=PLAFOND(A1;1)\t=SI(A1>1;B1;0)\r\n' >"$work/p.txt"
run 0 "$cli" convert --locale fr-FR "$work/p.txt" "$work/p.pxl"
grep -q 'p.pxl: saved as values: 1 formulas calling a function outside' "$work/err" ||
  { echo "FAIL: pocket drops not reported"; cat "$work/err"; fail=1; }
run 0 "$cli" cells --locale fr-FR "$work/p.pxl"
same "cells of a pxl" "$(printf '0\tA1\tn\t1.5\t\t1,5\n0\tB1\ts\ttexte\t\ttexte\n0\tC1\tn\t3\t=A1*2\t3\n0\tD1\tn\t2\t\t2\n0\tE1\ts\ttexte\t=SI(A1>1;B1;0)\ttexte')" "$work/out"
run 0 "$cli" convert --locale fr-FR "$work/p.pxl" "$work/q.pxt"
cmp -s "$work/p.pxl" "$work/q.pxt" || { echo "FAIL: pxl to pxt changed the stream"; fail=1; }

run 1 "$cli" cells "$work/missing.csv"
grep -q 'Unable to open input file' "$work/err" || { echo "FAIL: missing file message"; fail=1; }
run 1 "$cli" convert --locale fr-FR "$work/a.csv" "$work/out.xyz"
grep -q "n'est pas reconnu" "$work/err" || { echo "FAIL: unknown type message"; fail=1; }
run 2 "$cli" convert "$work/a.csv"
run 2 "$cli" cells
[ $fail = 0 ] && echo "cli files: all checks passed"
exit $fail
