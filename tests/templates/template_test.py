#!/usr/bin/env python3
"""Checks the generated template documents against their JSON descriptions.

  template_test.py CSDTOOL DUMP_MJS DESCRIPTIONS_DIR BUILT_DIR [JET3_DOCUMENT]

For MstnTemplate.csd (mstn.json) and AutoCadTemplate.csd (autocad.json), and
for JET3_DOCUMENT (mstn.json's tables added to an Access 97 file, whose own
tables come first; its text takes one byte a character):

  * tables, in order: `csdtool tables`, `mdb-tables -1` and mdb-reader;
  * columns with type and size: `csdtool columns` and mdb-reader;
  * indexes: `csdtool schema` (names, columns, flags) and `mdb-schema` (mysql
    form, which is the one that lists them);
  * rows: `csdtool export` equals `mdb-export` byte for byte and both equal the
    description; mdb-reader's rows equal it value for value (it alone tells an
    empty text from Null);
  * `csdtool check` finds no fault;
  * the reference data keeps the rules the editor relies on (geometry
    sub-types, the linkage attributes 26 and 27, keys on non-spatial
    attributes, value tables of the attribute's type, the seven scanner rows).
"""

import csv
import io
import json
import os
import re
import subprocess
import sys

TEMPLATES = [("mstn.json", "MstnTemplate.csd"), ("autocad.json", "AutoCadTemplate.csd")]

BYTES = {"Boolean": 1, "Byte": 1, "Integer": 2, "Long": 4, "Currency": 8, "Single": 4,
         "Double": 8, "DateTime": 8, "Memo": 0}
READER_TYPES = {"Boolean": "boolean", "Byte": "byte", "Integer": "integer", "Long": "long",
                "Currency": "currency", "Single": "float", "Double": "double",
                "DateTime": "datetime", "Text": "text", "Memo": "memo"}
GDO_TYPES = {1, 2, 3, 4, 5, 6, 7, 8, 10, 12, 32, 33}
VALUE_COLUMN = {1: "Boolean", 2: "Byte", 3: "Integer", 4: "Long", 5: "Currency", 6: "Single",
                7: "Double", 8: "DateTime", 10: "Text", 12: "Memo"}
KEY_TYPES = {"GraphicFeature", "DbLinkedFeature", "DbLFeatSuppGrAttr", "GraphicToDbTableLink",
             "GraphicToDbRowLink"}
PARAMETER_NAMES = ["DBConnectString", "GraphicConnectString", "CADExtension",
                   "GraphicScannerClass", "DbScannerClass", "INI", "Version"]
PARAMETERS = {
    "mstn.json": ["*.dgn", "Torv.VektScanner"],
    "autocad.json": ["*.dwg; *.dxf", "Torv.AutoCADScanner"],
}


def run(args, check=True):
    proc = subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if check and proc.returncode != 0:
        raise RuntimeError("%s failed (%d): %s" % (" ".join(args), proc.returncode,
                                                   proc.stderr.decode("utf-8", "replace")))
    return proc


def out(args):
    return run(args).stdout.decode("utf-8")


def parse_csv(text):
    return list(csv.reader(io.StringIO(text, newline="")))


class Failures:
    def __init__(self):
        self.items = []
        self.checks = 0

    def expect(self, ok, where, what):
        self.checks += 1
        if not ok:
            self.items.append("%s: %s" % (where, what))

    def equal(self, got, want, where, what):
        if got == want or not (isinstance(got, list) and isinstance(want, list)):
            self.expect(got == want, where, "%s: got %r, want %r" % (what, got, want))
            return
        # Lists of rows or columns: name the first difference, not both lists whole.
        i = next((i for i, (g, w) in enumerate(zip(got, want)) if g != w), min(len(got), len(want)))
        self.expect(False, where, "%s: %d entries, want %d; entry %d is %r, want %r" % (
            what, len(got), len(want), i + 1, got[i] if i < len(got) else None,
            want[i] if i < len(want) else None))


class TemplateCheck:
    def __init__(self, tools, fails):
        self.csdtool, self.dump = tools
        self.f = fails
        self.unit = 2  # bytes a text character takes
        self.base_tables = 0  # tables the file held before the description's

    def reader_rows(self, path, table):
        text = out(["node", self.dump, path, table])
        return [json.loads(line) for line in text.splitlines()]

    def check_tables(self, path, desc):
        where = os.path.basename(path)
        want = [t["name"] for t in desc["tables"]]
        skip = self.base_tables
        self.f.equal(out([self.csdtool, "tables", path]).splitlines()[skip:], want, where,
                     "csdtool tables")
        self.f.equal(out(["mdb-tables", "-1", path]).splitlines()[skip:], want, where, "mdb-tables")
        self.f.equal(out(["node", self.dump, path]).splitlines()[skip:], want, where,
                     "mdb-reader tables")

    def check_columns(self, path, table):
        where = "%s %s" % (os.path.basename(path), table["name"])
        cols = table["columns"]
        ours = [line.split("\t") for line in
                out([self.csdtool, "columns", path, table["name"]]).splitlines()]
        want = [[c["name"], c["type"], str(self.unit * c["size"] if c["type"] == "Text" else BYTES[c["type"]])]
                for c in cols]
        self.f.equal([o[:3] for o in ours], want, where, "csdtool columns")
        self.f.equal(["autonumber" in o[3].split(",") for o in ours],
                     [bool(c.get("autoNumber")) for c in cols], where, "AutoNumber flags")
        reader = [json.loads(line) for line in
                  out(["node", self.dump, "--columns", path, table["name"]]).splitlines()]
        self.f.equal([(r["name"], r["type"], r["autoLong"]) for r in reader],
                     [(c["name"], READER_TYPES[c["type"]], bool(c.get("autoNumber")))
                      for c in cols], where, "mdb-reader columns")
        self.f.equal([r["size"] for r in reader if r["type"] == "text"],
                     [self.unit * c["size"] for c in cols if c["type"] == "Text"], where,
                     "mdb-reader text sizes")

    def check_indexes(self, path, table, mysql_indexes):
        where = "%s %s" % (os.path.basename(path), table["name"])
        text = out([self.csdtool, "schema", path, table["name"]])
        ours = []
        if "  Indexes:\n" in text:
            for line in text.split("  Indexes:\n", 1)[1].splitlines():
                m = re.match(r"    (.+?) \((.*)\)(.*)$", line)
                self.f.expect(m is not None, where, "unreadable index line %r" % line)
                if m:
                    ours.append((m.group(1), m.group(2).split(", "),
                                 frozenset(re.findall(r"primary key|unique|ignore-nulls|required",
                                                      m.group(3)))))
        want, want_mysql = [], []
        for ix in table["indexes"]:
            desc = ix.get("descending", [False] * len(ix["columns"]))
            flags = set()
            if ix.get("primary"):
                flags |= {"primary key", "unique", "required"}
            for key, word in (("unique", "unique"), ("ignoreNulls", "ignore-nulls"),
                              ("required", "required")):
                if ix.get(key):
                    flags.add(word)
            want.append((ix["name"], [c + (" DESC" if d else "") for c, d in
                                      zip(ix["columns"], desc)], frozenset(flags)))
            kind = "PRIMARY KEY" if ix.get("primary") else (
                "UNIQUE INDEX" if ix.get("unique") else "INDEX")
            want_mysql.append((kind, None if ix.get("primary") else ix["name"], ix["columns"]))
        self.f.equal(sorted(ours, key=lambda i: i[0]), sorted(want, key=lambda i: i[0]), where,
                     "csdtool schema indexes")
        self.f.equal(sorted(mysql_indexes.get(table["name"], []), key=str),
                     sorted(want_mysql, key=str), where, "mdb-schema indexes")
        m = re.search(r", (\d+) rows", text)
        self.f.equal(int(m.group(1)) if m else None, len(table["rows"]), where, "row count")

    def check_rows(self, path, table):
        where = "%s %s" % (os.path.basename(path), table["name"])
        ours = out([self.csdtool, "export", path, table["name"]])
        theirs = out(["mdb-export", path, table["name"]])
        self.f.equal(ours, theirs, where, "csdtool export against mdb-export")
        rows = parse_csv(ours)
        self.f.equal(rows[0] if rows else None, [c["name"] for c in table["columns"]], where,
                     "CSV header")
        self.f.equal(rows[1:], [[csv_text(v) for v in r] for r in table["rows"]], where, "CSV rows")
        names = [c["name"] for c in table["columns"]]
        self.f.equal(self.reader_rows(path, table["name"]),
                     [dict(zip(names, r)) for r in table["rows"]], where, "mdb-reader rows")

    def check(self, path, desc):
        self.check_tables(path, desc)
        mysql_indexes = parse_mysql_indexes(out(["mdb-schema", "--indexes", path, "mysql"]))
        for table in desc["tables"]:
            self.check_columns(path, table)
            self.check_indexes(path, table, mysql_indexes)
            self.check_rows(path, table)
        proc = run([self.csdtool, "check", path], check=False)
        self.f.expect(proc.returncode == 0 and not proc.stdout, os.path.basename(path),
                      "csdtool check: %s" % proc.stdout.decode("utf-8", "replace"))


def csv_text(v):
    if v is None:
        return ""
    if isinstance(v, bool):
        return "1" if v else "0"
    return str(v)


def parse_mysql_indexes(text):
    found = {}
    for m in re.finditer(r"ALTER TABLE `(.+?)` ADD (PRIMARY KEY|UNIQUE INDEX|INDEX) ?(?:`(.+?)` )?"
                         r"\((.+?)\);", text):
        cols = [c.strip().strip("`") for c in m.group(4).split(",")]
        found.setdefault(m.group(1), []).append((m.group(2), m.group(3), cols))
    return found


def table_of(desc, name):
    return next(t for t in desc["tables"] if t["name"] == name)


def records(desc, name):
    t = table_of(desc, name)
    names = [c["name"] for c in t["columns"]]
    return [dict(zip(names, r)) for r in t["rows"]]


def check_reference_data(key, desc, f):
    """The rules the editor's forms take for granted about the template's rows."""
    where = key
    attrs = {a["AttrId"]: a for a in records(desc, "GraphicAttributes")}
    for a in attrs.values():
        f.expect(a["GDOType"] in GDO_TYPES, where, "attribute %s has GDOType %r" % (a["Name"], a["GDOType"]))
        spatial = a["GDOType"] in (32, 33)
        f.expect((a["GDOSubType"] is not None) == spatial, where,
                 "attribute %s: GDOType %d with GDOSubType %r" % (a["Name"], a["GDOType"], a["GDOSubType"]))
    f.expect(any(a["GDOType"] == 32 for a in attrs.values()), where, "no spatial attribute")
    f.expect(any(a["GDOType"] == 33 for a in attrs.values()), where, "no graphic attribute")
    f.equal({a["GDOSubType"] for a in attrs.values() if a["GDOSubType"] is not None},
            {1, 2, 3, 4, 5}, where, "geometry kinds offered")

    domains = {d["DomainTypeId"]: d["DomainType"] for d in records(desc, "DomainTypes")}
    f.expect("Range" in domains.values() and len(domains) >= 2, where,
             "domains %r lack Range or a list kind" % domains)
    tables = {t["name"].lower(): t for t in desc["tables"]}
    empty = 0
    ranges = set()
    for d in records(desc, "FeatureDefAttr"):
        a = attrs.get(d["AttrId"])
        f.expect(a is not None, where, "definable AttrId %r unknown" % d["AttrId"])
        f.expect(d["DomainTypeId"] in domains, where, "DomainTypeId %r unknown" % d["DomainTypeId"])
        if a is None or d["DomainTypeId"] not in domains:
            continue
        f.expect(a["GDOType"] not in (32, 33), where, "geometry %s is definable" % a["Name"])
        if not d["TableName"]:
            empty += 1
            continue
        vt = tables.get(d["TableName"].lower())
        f.expect(vt is not None, where, "value table %s missing" % d["TableName"])
        if vt is None:
            continue
        cols = {c["name"]: c for c in vt["columns"]}
        is_range = domains[d["DomainTypeId"]] == "Range"
        if is_range:
            ranges.add(a["GDOType"])
        want = ["feaId", "minVal", "maxVal"] if is_range else ["feaId", "Value"]
        f.equal(sorted(cols), sorted(want), where, "columns of %s" % d["TableName"])
        f.equal(cols.get("feaId", {}).get("type"), "Long", where, "%s.feaId" % d["TableName"])
        for c in want[1:]:
            f.equal(cols.get(c, {}).get("type"), VALUE_COLUMN[a["GDOType"]], where,
                    "type of %s.%s for %s" % (d["TableName"], c, a["Name"]))
        f.equal([ix["columns"] for ix in vt["indexes"]], [["feaId"]], where,
                "indexes of %s" % d["TableName"])
        f.equal(vt["rows"], [], where, "rows of %s" % d["TableName"])
    f.equal(empty, 1, where, "definable attributes without a value table")
    value_tables = {d["TableName"].lower() for d in records(desc, "FeatureDefAttr") if d["TableName"]}
    f.equal(len(desc["tables"]), 12 + len(value_tables), where, "table count")

    keys = records(desc, "KeysParameters")
    for k in keys:
        f.expect(k["Type"] in KEY_TYPES, where, "key type %r" % k["Type"])
        a = attrs.get(k["AttrId"])
        f.expect(a is not None and a["GDOSubType"] is None, where,
                 "key %s on attribute %r, which the key dialogs do not list" % (k["Type"], k["AttrId"]))
    kinds = sorted((k["Type"], k["AttrId"]) for k in keys)
    f.equal(sum(k["Type"] == "GraphicFeature" for k in keys), 1, where, "GraphicFeature keys")

    params = records(desc, "CADParameters")
    f.equal([p["Name"] for p in params], PARAMETER_NAMES, where, "CADParameters names")
    ext, scanner = PARAMETERS[key]
    f.equal([p["Value"] for p in params],
            [None, None, ext, scanner, "Torv.ODBCDatabaseScanner", None, "1.0"], where,
            "CADParameters values")

    if key == "mstn.json":
        f.equal((attrs[26]["Name"], attrs[26]["GDOType"]), ("EntityNumber", 4), where, "AttrId 26")
        f.equal((attrs[27]["Name"], attrs[27]["GDOType"]), ("OccurenceNumber", 4), where, "AttrId 27")
        for want in [("DbLFeatSuppGrAttr", 26), ("GraphicToDbRowLink", 27),
                     ("GraphicToDbTableLink", 26)]:
            f.expect(want in kinds, where, "no key row %r" % (want,))
        f.equal(sum(k["Type"] == "DbLinkedFeature" for k in keys), 1, where, "DbLinkedFeature keys")
        # Switching linkage on makes the table-link attribute a definition attribute.
        f.expect(26 in [d["AttrId"] for d in records(desc, "FeatureDefAttr")], where,
                 "table-link attribute 26 is not definable")
        # The wizard compares range ends as text, 32-bit integers or doubles by type.
        f.expect({3, 4, 7} <= ranges, where, "Range attributes of types %r" % sorted(ranges))
    else:
        f.expect(26 not in attrs and 27 not in attrs, where, "AutoCAD uses linkage ids 26/27")
        f.equal([k["Type"] for k in keys], ["GraphicFeature"], where, "AutoCAD key rows")


def main(argv):
    if len(argv) not in (5, 6):
        print(__doc__)
        return 2
    csdtool, dump, descriptions, built = argv[1:5]
    fails = Failures()
    check = TemplateCheck((csdtool, dump), fails)
    documents = [(source, os.path.join(built, target)) for source, target in TEMPLATES]
    if len(argv) == 6:
        documents.append(("mstn.json", argv[5]))
    for source, path in documents:
        desc = json.load(open(os.path.join(descriptions, source), encoding="utf-8"))
        check_reference_data(source, desc, fails)
        try:
            head = open(path, "rb").read(0x15)
            jet3 = len(head) == 0x15 and head[0x14] == 0
            check.unit = 1 if jet3 else 2
            check.base_tables = (len(out(["mdb-tables", "-1", path]).splitlines()) -
                                 len(desc["tables"]) if jet3 else 0)
            check.check(path, desc)
            if jet3:  # every definition page, as in every Access 97 file
                data = open(path, "rb").read()
                bad = [n for n in range(len(data) // 2048)
                       if data[n * 2048:n * 2048 + 2] == b"\x02\x01"
                       and data[n * 2048 + 2:n * 2048 + 4] != b"VC"]
                fails.expect(not bad, os.path.basename(path),
                             "definition pages without VC: %s" % bad[:5])
        except RuntimeError as e:
            fails.items.append("%s: %s" % (os.path.basename(path), e))
    for item in fails.items:
        print("FAIL " + item)
    print("%d checks on %d documents; %d failures" % (fails.checks, len(documents),
                                                      len(fails.items)))
    return 1 if fails.items else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
