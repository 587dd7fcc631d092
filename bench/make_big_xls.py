#!/usr/bin/python3
"""Writes the speed benchmarks' big workbook: one sheet of ROWS rows x 10 columns of numbers.

Usage: make_big_xls.py OUT.xls [ROWS]   (ROWS defaults to 65535, the most a BIFF8 sheet holds)
Also writes OUT's stem with .csv beside it: the same numbers as comma-separated text, for the
benchmarks that save csv into xls. The numbers mix integers, decimals and large and small
magnitudes so that both the RK and the NUMBER cell forms and the General format's branches are
exercised. A file already present with the right size of sheet is kept, so runs reuse it.
"""
import os
import sys

import xlwt


def value(row, col):
    k = row * 10 + col
    kind = k % 5
    if kind == 0:
        return row + col
    if kind == 1:
        return (k % 9973) / 8.0
    if kind == 2:
        return k * 1.000001
    if kind == 3:
        return -(k % 1000) / 3.0
    return (k % 777) * 1e-7


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: make_big_xls.py OUT.xls [ROWS]")
    out = sys.argv[1]
    rows = int(sys.argv[2]) if len(sys.argv) > 2 else 65535
    csv = os.path.splitext(out)[0] + ".csv"
    stamp = out + ".rows"
    if os.path.exists(out) and os.path.exists(csv) and os.path.exists(stamp):
        with open(stamp) as f:
            if f.read().strip() == str(rows):
                return
    book = xlwt.Workbook()
    sheet = book.add_sheet("Feuil1")
    with open(csv, "w") as text:
        for r in range(rows):
            cells = [value(r, c) for c in range(10)]
            for c, v in enumerate(cells):
                sheet.write(r, c, v)
            text.write(",".join(repr(v) for v in cells) + "\n")
    book.save(out)
    with open(stamp, "w") as f:
        f.write(str(rows))


if __name__ == "__main__":
    main()
