#!/usr/bin/env python3
"""Reads every Jet file of a folder with csdtool and with two readers nobody
here wrote (mdbtools and mdb-reader) and fails on any difference.

  compare_corpus.py CSDTOOL DUMP_MJS FILE_OR_FOLDER...

For each file: `csdtool tables` must equal `mdb-tables -1`; every table's
columns must equal mdb-reader's (name, type, size); every table's
`csdtool export` must equal `mdb-export` byte for byte, except for two
faults of mdbtools, each accepted only where mdb-reader shows the field
differs from what mdbtools printed in the same way:

  * Jet 3 text holding one of the five bytes Windows-1252 leaves undefined
    (0x81, 0x8D, 0x8F, 0x90, 0x9D): Windows reads them as U+0081 etc., which
    csdtool prints; mdbtools' iconv fails on them and prints "?". mdb-reader
    shows U+FFFD there, which proves the stored byte is not a "?".
  * Dates before 1899-12-30 (stored negative): mdbtools prints them all as
    "01/00/00 00:00:00". mdb-reader shows a date before 1899-12-30 there.
"""

import csv
import io
import json
import os
import subprocess
import sys

C1_UNDEFINED = "\u0081\u008d\u008f\u0090\u009d"
MDBTOOLS_BAD_DATE = "01/00/00 00:00:00"

TYPE_NAMES = {
    "Boolean": "boolean", "Byte": "byte", "Integer": "integer", "Long": "long",
    "Currency": "currency", "Single": "float", "Double": "double", "DateTime": "datetime",
    "Binary": "binary", "Text": "text", "OLE": "ole", "Memo": "memo", "GUID": "repid",
    "Decimal": "numeric",
}


def run(args, check=True):
    proc = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if check and proc.returncode != 0:
        raise RuntimeError("%s failed (%d): %s" % (" ".join(args), proc.returncode,
                                                   proc.stderr.decode("utf-8", "replace")))
    return proc.stdout


def parse_csv(data):
    text = data.decode("utf-8", "surrogateescape")
    return list(csv.reader(io.StringIO(text, newline="")))


def is_jet3(path):
    with open(path, "rb") as f:
        head = f.read(0x15)
    return len(head) > 0x14 and head[0x14] == 0


class Comparison:
    def __init__(self, csdtool, dump):
        self.csdtool = csdtool
        self.dump = dump
        self.failures = []
        self.exceptions = 0
        self.tables = 0

    def fail(self, where, what):
        self.failures.append("%s: %s" % (where, what))

    def reader_rows(self, path, table):
        out = run(["node", self.dump, path, table])
        return [json.loads(line) for line in out.decode("utf-8").splitlines()]

    def field_excused(self, jet3, ours, theirs, reader_value):
        if jet3 and any(c in ours for c in C1_UNDEFINED):
            masked = "".join("?" if c in C1_UNDEFINED else c for c in ours)
            if masked == theirs and isinstance(reader_value, str) and "\ufffd" in reader_value:
                return True
        if theirs == MDBTOOLS_BAD_DATE and isinstance(reader_value, str):
            if reader_value < "1899-12-30":
                return True
        return False

    def compare_export(self, path, table):
        where = "%s %s" % (os.path.basename(path), table)
        ours_raw = run([self.csdtool, "export", path, table])
        theirs_raw = run(["mdb-export", path, table])
        if ours_raw == theirs_raw:
            return
        # Only now compare field by field. Quoting is decided by column type, so
        # the many tables that match byte for byte already prove it.
        ours, theirs = parse_csv(ours_raw), parse_csv(theirs_raw)
        if len(ours) != len(theirs):
            self.fail(where, "%d lines, mdb-export has %d" % (len(ours), len(theirs)))
            return
        if ours[0] != theirs[0]:
            self.fail(where, "header %r, mdb-export has %r" % (ours[0], theirs[0]))
            return
        reader = self.reader_rows(path, table)
        if len(reader) != len(ours) - 1:
            self.fail(where, "mdb-reader has %d rows, csdtool %d" % (len(reader), len(ours) - 1))
            return
        jet3 = is_jet3(path)
        header = ours[0]
        for i, (a, b) in enumerate(zip(ours[1:], theirs[1:])):
            if a == b:
                continue
            if len(a) != len(b):
                self.fail(where, "row %d has %d fields, mdb-export %d" % (i + 1, len(a), len(b)))
                continue
            for col, x, y in zip(header, a, b):
                if x == y:
                    continue
                if self.field_excused(jet3, x, y, reader[i].get(col)):
                    self.exceptions += 1
                    continue
                self.fail(where, "row %d column %s: csdtool %r, mdb-export %r, mdb-reader %r"
                          % (i + 1, col, x, y, reader[i].get(col)))

    def compare_columns(self, path, table):
        where = "%s %s" % (os.path.basename(path), table)
        ours = [line.split("\t") for line in
                run([self.csdtool, "columns", path, table]).decode("utf-8").splitlines()]
        theirs = [json.loads(line) for line in
                  run(["node", self.dump, "--columns", path, table]).decode("utf-8").splitlines()]
        if len(ours) != len(theirs):
            self.fail(where, "%d columns, mdb-reader has %d" % (len(ours), len(theirs)))
            return
        for o, t in zip(ours, theirs):
            name, type_name, size = o[0], TYPE_NAMES.get(o[1], o[1]), int(o[2])
            if name != t["name"] or type_name != t["type"]:
                self.fail(where, "column %s %s, mdb-reader has %s %s"
                          % (name, type_name, t["name"], t["type"]))
            # mdb-reader reports Booleans, which live in the null mask, as size 0.
            elif size != t["size"] and not (type_name == "boolean" and t["size"] == 0):
                self.fail(where, "column %s size %d, mdb-reader has %d" % (name, size, t["size"]))

    def compare_file(self, path):
        name = os.path.basename(path)
        ours = run([self.csdtool, "tables", path]).decode("utf-8").splitlines()
        theirs = run(["mdb-tables", "-1", path]).decode("utf-8").splitlines()
        if ours != theirs:
            self.fail(name, "tables %r, mdb-tables has %r" % (ours, theirs))
            return
        for table in ours:
            self.tables += 1
            self.compare_columns(path, table)
            self.compare_export(path, table)


def main(argv):
    if len(argv) < 4:
        print(__doc__)
        return 2
    comparison = Comparison(argv[1], argv[2])
    files = []
    for arg in argv[3:]:
        if os.path.isdir(arg):
            files += sorted(os.path.join(arg, f) for f in os.listdir(arg)
                            if f.lower().endswith((".mdb", ".csd")))
        else:
            files.append(arg)
    if not files:
        print("no Jet files found in %s" % " ".join(argv[3:]))
        return 1
    for path in files:
        try:
            comparison.compare_file(path)
        except RuntimeError as e:
            comparison.fail(os.path.basename(path), str(e))
    for f in comparison.failures:
        print("FAIL " + f)
    print("%d files, %d tables compared; %d fields excused as known mdbtools faults; %d failures"
          % (len(files), comparison.tables, comparison.exceptions, len(comparison.failures)))
    return 1 if comparison.failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
