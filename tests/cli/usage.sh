#!/usr/bin/env bash
# The command-line tool as a user runs it: help, version, usage errors and the entries verb.
set -u
cli=$1
here=$(cd "$(dirname "$0")" && pwd)
fail=0
check() {  # description, expected status, command...
  local what=$1 want=$2
  shift 2
  "$@" >/tmp/tessarel-cli-out.$$ 2>/tmp/tessarel-cli-err.$$
  local got=$?
  if [ "$got" != "$want" ]; then
    echo "FAIL: $what: exit $got, expected $want"; cat /tmp/tessarel-cli-err.$$; fail=1
  fi
}
check "help" 0 "$cli" --help
grep -q '^usage: tessarel-cli' /tmp/tessarel-cli-out.$$ || { echo "FAIL: help text"; fail=1; }
check "version" 0 "$cli" --version
check "no verb" 2 "$cli"
check "unknown verb" 2 "$cli" frobnicate
check "unknown option" 2 "$cli" entries --frob x
check "bad locale" 2 "$cli" entries --locale xx-YY x
check "missing file" 1 "$cli" entries /nonexistent/file.txt

printf '1,5\nvrai\n#n/a\nbonjour\n\n1 234,5\n=SOMME(A1;A6)*2\n15/03/2024\n12,5%%\n' >/tmp/tessarel-entries.$$
check "entries" 0 "$cli" entries --locale fr-FR /tmp/tessarel-entries.$$
expected=$(printf '0\tA1\tn\t1.5\t\t1,5\n0\tA2\tb\t1\t\tVRAI\n0\tA3\te\t#N/A\t\t#N/A\n0\tA4\ts\tbonjour\t\tbonjour\n0\tA6\tn\t1234.5\t\t1 234,50\n0\tA7\tn\t2472\t=SOMME(A1;A6)*2\t2472\n0\tA8\tn\t45366\t\t15/03/2024\n0\tA9\tn\t0.125\t\t12,50%%')
if [ "$(cat /tmp/tessarel-cli-out.$$)" != "$expected" ]; then
  echo "FAIL: entries listing"; diff <(echo "$expected") /tmp/tessarel-cli-out.$$; fail=1
fi
check "entries en-US" 1 "$cli" entries --locale en-US /tmp/tessarel-entries.$$
grep -q 'Erreur rencontr' /tmp/tessarel-cli-err.$$ || { echo "FAIL: the entry message"; fail=1; }
# A typed group needs three digits: "1,5" is text under en-US; the French formula is refused.
[ "$(head -1 /tmp/tessarel-cli-out.$$)" = $'0\tA1\ts\t1,5\t\t1,5' ] || { echo "FAIL: en-US reads 1,5 as text"; fail=1; }
check "functions" 0 "$cli" functions
[ "$(wc -l </tmp/tessarel-cli-out.$$)" = 832 ] || { echo "FAIL: functions lists 832 rows"; fail=1; }
grep -q $'^SOMME\t4\t3\tRrrrrrrrrrrrrrrrrrrrrrrrrrrrrr\t' /tmp/tessarel-cli-out.$$ ||
  { echo "FAIL: functions row of SOMME"; fail=1; }
grep -q $'^FIN.MOIS\t-1\t2\t' /tmp/tessarel-cli-out.$$ || { echo "FAIL: add-in row"; fail=1; }
check "functions takes no file" 2 "$cli" functions x

rm -f /tmp/tessarel-cli-out.$$ /tmp/tessarel-cli-err.$$ /tmp/tessarel-entries.$$
[ $fail = 0 ] && echo "cli usage: all checks passed"
exit $fail
