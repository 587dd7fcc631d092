"""Checks that the .xls files tessarel-cli writes open in two independent readers, xlrd and
Gnumeric's ssconvert (through the Excel 97 file it writes again), with the values tessarel-cli itself reads from them, in both versions
(Excel 97 and, with --biff5, Excel 95). The sources are a generated workbook with every cell kind,
3-D references and long texts that cross CONTINUE records, and a sample of the corpus (which
brings defined names, styles and real formulas).
Usage: biff_interop.py TESSAREL_CLI CORPUS_FOLDER. Exits 1 on any disagreement."""
import os
import subprocess
import sys
import tempfile

import xlrd
import xlwt

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from xlrd_compare import agrees, ours, worksheet_cells  # noqa: E402

SAMPLE_EVERY = 12  # one corpus file in so many, in sorted order


def generated(path):
    """A workbook with numbers of each RK form and NUMBER, texts short, wide and long, booleans,
    errors, blanks, formulas with number, text, boolean and error results, and 3-D references."""
    book = xlwt.Workbook(encoding="utf-8")
    one = book.add_sheet("Un")
    two = book.add_sheet("Deux")
    numbers = [0, 1.5, 100, 0.01, 1.1, -7, 123456789.25, 1e-300, -2.5e100, 536870912]
    for i, n in enumerate(numbers):
        one.write(i, 0, n)
        two.write(i, 0, n * 2)
        two.write(i, 1, i)
    texts = ["court", "é accentué", "Ж кириллица", "a" * 10000, "Жé" * 4600, ""]
    for i, t in enumerate(texts):
        one.write(i, 1, t)
    one.write(0, 2, True)
    one.write(1, 2, False)
    one.write(2, 2, xlwt.Formula("1/0"))
    one.write(3, 2, xlwt.Formula("NA()"))
    one.write(4, 2, xlwt.Formula("A1+A2*3"))
    one.write(5, 2, xlwt.Formula('IF(A2>1,"grand","petit")'))
    one.write(6, 2, xlwt.Formula("Deux!A3+1"))
    one.write(7, 2, xlwt.Formula("SUM(Deux!A1:B10)"))
    one.write(8, 2, xlwt.Formula("A2>1"))
    one.write(9, 2, xlwt.Formula('"texte "&B1'))
    style = xlwt.easyxf("font: bold on; align: horiz center; pattern: pattern solid, fore_colour yellow")
    for c in range(3, 8):
        one.write(12, c, None, style)
    for r in range(40, 300, 7):
        one.write(r, 4, r * 0.25)
    book.save(path)


def run(args):
    return subprocess.run(args, capture_output=True)


def xlrd_disagreements(path, mine, label):
    out = []
    book = xlrd.open_workbook(path, logfile=open(os.devnull, "w"))
    for key, cell in worksheet_cells(book):
        if not agrees(cell, mine.get(key)):
            out.append("%s xlrd %s: %r / %r" % (label, key, cell.value, mine.get(key)))
    return out


def gnumeric_disagreements(path, mine, folder, label):
    """Gnumeric reads our file and writes it again as its own Excel 97 file, which xlrd then
    reads: what Gnumeric understood of each cell, at its own place."""
    again = os.path.join(folder, "gnumeric.xls")
    if os.path.exists(again):
        os.remove(again)
    done = run(["ssconvert", "-T", "Gnumeric_Excel:excel_biff8", path, again])
    if done.returncode != 0 or not os.path.exists(again):
        return ["%s ssconvert failed: %s" % (label, done.stderr[-300:])]
    return xlrd_disagreements(again, mine, label.replace("(", "(gnumeric, "))


def main():
    cli, folder = sys.argv[1], sys.argv[2]
    work = tempfile.mkdtemp(prefix="tessarel-interop-")
    sources = [os.path.join(work, "generated.xls")]
    generated(sources[0])
    corpus = []
    for root, _, names in sorted(os.walk(folder)):
        for name in sorted(names):
            if name.lower().endswith(".xls") and "crash" not in name and "fuzz" not in name:
                corpus.append(os.path.join(root, name))
    sources += corpus[::SAMPLE_EVERY]
    problems, checked, cells = [], 0, 0
    for source in sources:
        for version in ("8", "5"):
            out = os.path.join(work, "out.xls")
            args = [cli, "convert", source, out] + (["--biff5"] if version == "5" else [])
            done = run(args)
            if done.returncode != 0:
                if source == sources[0]:
                    problems.append("generated workbook does not convert: %s" % done.stderr)
                break  # a corpus file we refuse to read has nothing to compare
            label = "%s (BIFF%s)" % (os.path.relpath(source, folder) if source != sources[0]
                                     else "generated", version)
            mine, why = ours(cli, out)
            if mine is None:
                problems.append("%s: we cannot read our own file: %s" % (label, why))
                continue
            checked += 1
            cells += len(mine)
            problems += xlrd_disagreements(out, mine, label)[:5]
            problems += gnumeric_disagreements(out, mine, work, label)[:5]
    print("interop: %d files written and read by xlrd and ssconvert, %d cells, %d problems" % (
        checked, cells, len(problems)))
    for p in problems[:60]:
        print("  " + p)
    return 0 if not problems and checked > 2 else 1


if __name__ == "__main__":
    sys.exit(main())
