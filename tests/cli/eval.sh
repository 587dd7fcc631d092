#!/usr/bin/env bash
# The eval verb as a user runs it: each formula and the text its cell shows, under the French
# and the US regional settings; syntax errors exit 1 with the entry message.
set -u
cli=$1
fail=0
expect() {  # locale, formula, expected output
  local got
  got=$("$cli" eval --locale "$1" "$2" 2>&1)
  local status=$?
  if [ $status != 0 ] || [ "$got" != "$3" ]; then
    echo "FAIL: [$1] $2: got '$got' (exit $status), expected '$3'"; fail=1
  fi
}
refuse() {  # locale, formula
  local err
  err=$("$cli" eval --locale "$1" "$2" 2>&1 >/dev/null)
  local status=$?
  if [ $status != 1 ] || ! grep -q 'Erreur rencontr' <<<"$err"; then
    echo "FAIL: [$1] $2 should be refused: exit $status, '$err'"; fail=1
  fi
}
while IFS='|' read -r formula result; do
  expect fr-FR "$formula" "$result"
done <<'TABLE'
=-2^2|4
=2^3^2|64
=SI(FAUX;1)|FAUX
=1/0|#DIV/0!
=0,1+0,2=0,3|VRAI
="a"="A"|VRAI
=SOMME(1;2;3)|6
=ABS (1)|#NAME?
=1 2|#REF!
=-B1^2|0
=10%*3|0,3
=2*(3+4)|14
="l'""an"&1,5|l'"an1,5
=SOMME({1\2;3\4})|10
=SI(VRAI;"oui";"non")|oui
=1+2*3-4/2|5
=3>2|VRAI
=#N/A|#N/A
=(1;2)|#VALUE!
1+1|2
=TEXTE(1234,5;"#,##0.00")|1 234,50
=TEXTE(-1234,5;"#,##0.00 ""€"";[Red]-#,##0.00 ""€""")|-1 234,50 €
=TEXTE(60;"dd/mm/yyyy")|29/02/1900
=TEXTE(45000,75;"dddd d mmmm yyyy hh:mm")|mercredi 15 mars 2023 18:00
=TEXTE(1,5;"[h]:mm")|36:00
=TEXTE(0,5;"# ?/?")| 1/2
=TEXTE("abc";"0")|abc
=CTXT(1234,567)|1 234,57
=CTXT(-1234,567;-2;VRAI)|-1200
=FRANC(-1234,567)|-1 234,57 €
=FRANC(1234,567;0)|1 235 €
TABLE
expect en-US '=0.1+0.2=0.3' 'VRAI'
expect en-US '=SOMME(1,2,3)' '6'
expect en-US '=SOMME({1,2;3,4})' '10'
expect en-US '=1.5*2' '3'
expect en-US '=TEXTE(1234.5,"#,##0.00")' '1,234.50'
expect en-US '=FRANC(-1234.567)' '($1,234.57)'
expect en-US '=TEXTE(0.5,"h:mm AM/PM")' '12:00 PM'
refuse fr-FR '=1+'
refuse fr-FR '=SOMME(1;'
refuse fr-FR '=(1'
refuse fr-FR '={1;2\3}'
refuse en-US '=SOMME(1;2)'
"$cli" eval >/dev/null 2>&1; [ $? = 2 ] || { echo "FAIL: eval without a formula is a usage error"; fail=1; }
exit $fail
