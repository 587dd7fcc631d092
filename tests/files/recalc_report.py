"""Reports, file by file, how many formula results of the corpus come out the same when
tessarel-cli calculates them (--recalc) as the results the files hold. It measures the function
library's progress; it sets no target. Usage: recalc_report.py TESSAREL_CLI CORPUS_FOLDER"""
import os
import subprocess
import sys


def formula_values(cli, path, recalc):
    command = [cli, "cells", "--locale", "en-US"] + (["--recalc"] if recalc else []) + [path]
    run = subprocess.run(command, capture_output=True, timeout=600)
    if run.returncode != 0:
        return None
    values = {}
    for line in run.stdout.decode("utf-8", "replace").split("\n"):
        fields = line.split("\t")
        if len(fields) >= 5 and fields[4]:
            values[(fields[0], fields[1])] = (fields[2], fields[3])
    return values


def same(a, b):
    if a == b:
        return True
    if a[0] == "n" and b[0] == "n":
        x, y = float(a[1]), float(b[1])
        return abs(x - y) <= 1e-9 * max(1.0, abs(x), abs(y))
    return False


def main():
    cli, folder = sys.argv[1], sys.argv[2]
    total = agreeing = 0
    for root, _, names in sorted(os.walk(folder)):
        for name in sorted(names):
            if not name.lower().endswith((".xls", ".xlt")):
                continue
            path = os.path.join(root, name)
            loaded = formula_values(cli, path, False)
            if not loaded:
                continue
            calculated = formula_values(cli, path, True) or {}
            agree = sum(1 for k, v in loaded.items() if k in calculated and same(v, calculated[k]))
            total += len(loaded)
            agreeing += agree
            print("%6d of %6d  %5.1f%%  %s" % (agree, len(loaded), 100.0 * agree / len(loaded),
                                             os.path.relpath(path, folder)))
    if total:
        print("recalc: %d of %d formula results as the files hold them (%.2f%%)" % (
            agreeing, total, 100.0 * agreeing / total))


if __name__ == "__main__":
    main()
