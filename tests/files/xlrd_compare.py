"""Compares the cell values that `tessarel-cli cells` lists for every .xls and .xlt file of the
corpus with those of xlrd, an independent reader. Values are compared as loaded (no --recalc).
Usage: xlrd_compare.py TESSAREL_CLI CORPUS_FOLDER. Exits 1 when fewer than 99.9% of the cells
xlrd reports agree, or when a file makes the tool fail in a way other than a refusal."""
import os
import subprocess
import sys

import xlrd

ERRORS = {0x00: "#NULL!", 0x07: "#DIV/0!", 0x0F: "#VALUE!", 0x17: "#REF!", 0x1D: "#NAME?",
          0x24: "#NUM!", 0x2A: "#N/A"}
# The French names the program shows, in the same order as the codes above.
FRENCH = {0x00: "#NUL!", 0x07: "#DIV/0!", 0x0F: "#VALEUR!", 0x17: "#REF!", 0x1D: "#NOM?",
          0x24: "#NOMBRE!", 0x2A: "#N/A"}


def unescape(text):
    out, i = [], 0
    while i < len(text):
        if text[i] == "\\" and i + 1 < len(text):
            out.append({"t": "\t", "n": "\n", "r": "\r", "\\": "\\"}.get(text[i + 1], text[i + 1]))
            i += 2
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def column_number(letters):
    n = 0
    for c in letters:
        n = n * 26 + ord(c) - 64
    return n - 1


def split_address(address):
    letters = "".join(c for c in address if c.isalpha())
    return int(address[len(letters):]) - 1, column_number(letters)


def ours(cli, path):
    run = subprocess.run([cli, "cells", "--locale", "en-US", path], capture_output=True)
    if run.returncode == 1:
        return None, run.stderr.decode("utf-8", "replace").strip()
    if run.returncode != 0:
        raise RuntimeError("%s: exit %d: %s" % (path, run.returncode, run.stderr[-400:]))
    cells = {}
    for line in run.stdout.decode("utf-8", "replace").split("\n"):
        fields = line.split("\t")
        if len(fields) < 4:
            continue
        row, col = split_address(fields[1])
        cells[(int(fields[0]), row, col)] = (fields[2], unescape(fields[3]))
    return cells, None


def agrees(cell, mine):
    if mine is None:
        return False
    kind, value = mine
    if cell.ctype in (xlrd.XL_CELL_NUMBER, xlrd.XL_CELL_DATE):
        return kind == "n" and float(value) == cell.value
    if cell.ctype == xlrd.XL_CELL_TEXT:
        return kind == "s" and value == cell.value
    if cell.ctype == xlrd.XL_CELL_BOOLEAN:
        return kind == "b" and value == str(int(cell.value))
    if cell.ctype == xlrd.XL_CELL_ERROR:
        return kind == "e" and value in (ERRORS.get(cell.value), FRENCH.get(cell.value))
    return True


def worksheet_cells(book):
    """((sheet index in the file, row, column), cell) of every cell that holds something. xlrd
    lists worksheets only; its map gives each file sheet's place among them."""
    for file_index, xlrd_index in enumerate(book._all_sheets_map):
        if xlrd_index < 0:
            continue
        sheet = book.sheet_by_index(xlrd_index)
        for row in range(sheet.nrows):
            for col in range(sheet.ncols):
                cell = sheet.cell(row, col)
                if cell.ctype in (xlrd.XL_CELL_EMPTY, xlrd.XL_CELL_BLANK):
                    continue
                if cell.ctype == xlrd.XL_CELL_TEXT and cell.value == "":
                    continue
                yield (file_index, row, col), cell


def main():
    cli, folder = sys.argv[1], sys.argv[2]
    files = compared = agreeing = refused = 0
    differences = []
    for root, _, names in sorted(os.walk(folder)):
        for name in sorted(names):
            if not name.lower().endswith((".xls", ".xlt")):
                continue
            path = os.path.join(root, name)
            relative = os.path.relpath(path, folder)
            try:
                book = xlrd.open_workbook(path, logfile=open(os.devnull, "w"))
            except Exception:
                continue  # xlrd cannot read it: nothing to compare with
            mine, why = ours(cli, path)
            if mine is None:
                refused += 1
                differences.append("%s: refused (%s) but xlrd reads it" % (relative, why))
                continue
            files += 1
            for (file_index, row, col), cell in worksheet_cells(book):
                compared += 1
                mine_cell = mine.get((file_index, row, col))
                if agrees(cell, mine_cell):
                    agreeing += 1
                elif len(differences) < 40:
                    differences.append("%s: sheet %d %s: xlrd %r, tessarel %r" % (
                        relative, file_index, xlrd.cellname(row, col), cell.value, mine_cell))
    ratio = 100.0 * agreeing / compared if compared else 100.0
    print("xlrd: %d files compared, %d refused that xlrd reads; %d cells, %d agree (%.4f%%)" % (
        files, refused, compared, agreeing, ratio))
    for line in differences:
        print("  " + line)
    return 0 if ratio >= 99.9 and files > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
