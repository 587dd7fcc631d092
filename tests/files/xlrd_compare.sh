#!/bin/sh
# Runs the comparison with xlrd under a Python that has it. Without xlrd, or without the corpus,
# the test is skipped (exit 77), except under CI (CI=true), where either is a failure.
cli=$1
folder=${TESSAREL_CORPUS:-$(dirname "$0")/../../../shared/corpus}
here=$(dirname "$0")
missing() {
  echo "$1"
  [ "$CI" = true ] && exit 1
  exit 77
}
[ -d "$folder" ] || missing "corpus not found at $folder"
for python in python3 /usr/bin/python3; do
  if "$python" -c 'import xlrd' 2>/dev/null; then
    exec "$python" "$here/xlrd_compare.py" "$cli" "$folder"
  fi
done
missing "python3-xlrd not installed: values not compared"
