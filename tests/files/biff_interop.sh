#!/bin/sh
# Runs the interoperability check of written .xls files under Debian's Python (xlrd, xlwt) with
# Gnumeric's ssconvert. Without them or the corpus the test is skipped (exit 77), except under CI
# (CI=true), where anything missing is a failure.
cli=$1
folder=${TESSAREL_CORPUS:-$(dirname "$0")/../../../shared/corpus}
here=$(dirname "$0")
missing() {
  echo "$1"
  [ "$CI" = true ] && exit 1
  exit 77
}
[ -d "$folder" ] || missing "corpus not found at $folder"
command -v ssconvert >/dev/null 2>&1 || missing "ssconvert (gnumeric) not installed"
/usr/bin/python3 -c 'import xlrd, xlwt' 2>/dev/null || missing "python3-xlrd or xlwt not installed"
exec /usr/bin/python3 "$here/biff_interop.py" "$cli" "$folder"
