#!/usr/bin/env python3
"""Reads compound files with olefile, an independent reader, for the compound file tests.

  olefile_check.py stream CONTAINER NAME EXPECTED
      exits 0 when stream NAME of CONTAINER holds exactly the bytes of file EXPECTED and olefile
      finds no defect in the container; otherwise prints why and exits 1.
  olefile_check.py corpus FOLDER
      prints one line per compound file under FOLDER: the path relative to FOLDER, a tab, then
      either the name, size and CRC-32 of its "Workbook" (else "Book") stream, tab-separated, or
      "-" when olefile finds no such stream, cannot read the file, or reads a stream
      shorter than its recorded size.
"""
import os
import sys
import zlib

import olefile


def check_stream(container, name, expected_path):
    with open(expected_path, 'rb') as f:
        expected = f.read()
    ole = olefile.OleFileIO(container, raise_defects=olefile.DEFECT_INCORRECT)
    if not ole.exists(name):
        print('no stream %r; streams: %r' % (name, ole.listdir()))
        return 1
    data = ole.openstream(name).read()
    if data != expected:
        print('stream %r: %d bytes, expected %d' % (name, len(data), len(expected)))
        return 1
    return 0


def workbook_stream(path):
    try:
        ole = olefile.OleFileIO(path)
        for name in ('Workbook', 'Book'):
            if ole.exists(name) and ole.get_type(name) == olefile.STGTY_STREAM:
                data = ole.openstream(name).read()
                # olefile hands back what the chain holds even when it ends before the size
                # the directory records: that stream is damaged.
                if len(data) != ole.get_size(name):
                    return '-'
                return '%s\t%d\t%08x' % (name, len(data), zlib.crc32(data))
    except Exception:
        pass
    return '-'


def list_corpus(folder):
    for root, _, files in sorted(os.walk(folder)):
        for leaf in sorted(files):
            path = os.path.join(root, leaf)
            with open(path, 'rb') as f:
                if f.read(8) != b'\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1':
                    continue
            print('%s\t%s' % (os.path.relpath(path, folder), workbook_stream(path)))
    return 0


if __name__ == '__main__':
    if len(sys.argv) == 5 and sys.argv[1] == 'stream':
        sys.exit(check_stream(sys.argv[2], sys.argv[3], sys.argv[4]))
    if len(sys.argv) == 3 and sys.argv[1] == 'corpus':
        sys.exit(list_corpus(sys.argv[2]))
    print(__doc__)
    sys.exit(2)
