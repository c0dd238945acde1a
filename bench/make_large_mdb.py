#!/usr/bin/env python3
"""Makes a large Jet 4 file for the export benchmark out of a small real one.

The engine cannot write files yet, and mdbtools only reads, so this grows a
real file the blunt way: it copies the data pages of one user table to the
end of the file again and again, and points the table's owned-pages usage map
at all of them. Every copy keeps its rows byte for byte, so the table simply
holds the same rows many times over. Long values and overflowed rows are not
copied: the copied rows keep pointing at the originals, which any reader
follows as it would in the source file.

What changes in the file:
  - the copies of the table's data pages, appended after the last page;
  - usage map pages (type 0x05) appended after them, one per 32,736 pages;
  - the table's owned-pages map row, rewritten in place as a reference map
    (type 0x01) that lists those usage map pages;
  - the row count in the table definition.
Nothing else is touched: no index learns about the new rows (exports read
the data pages, not the indexes) and the file-wide free-page map is left as
it was. It is a file for readers to chew on, not one to hand to Access.

The table definition's page comes from MSysObjects, read with mdb-export, so
the script parses no catalog rows itself.

Usage: make_large_mdb.py SOURCE.mdb TABLE OUT.mdb [SIZE_MB]
"""

import csv
import io
import struct
import subprocess
import sys

PAGE = 4096                 # Jet 4 page size
VERSION_OFFSET = 0x14       # header byte: 0 for Jet 3, 1 for Jet 4
PAGE_DATA = 0x01
PAGE_USAGE_MAP = 0x05
DATA_TDEF = 4               # data page: owning table definition page, 4 bytes
DATA_ROW_COUNT = 12         # data page: number of row slots, 2 bytes
DATA_ROW_TABLE = 14         # data page: first 2-byte row offset
ROW_OFFSET_MASK = 0x1FFF
TDEF_NUM_ROWS = 16          # table definition: live row count, 4 bytes
TDEF_OWNED_PAGES = 55       # table definition: packed row pointer of the owned-pages map
MAP_INLINE = 0x00
MAP_REFERENCE = 0x01
MAP_PAGE_HEADER = 4         # usage map page: type, 0x01, two unused bytes
PAGES_PER_MAP_PAGE = (PAGE - MAP_PAGE_HEADER) * 8


def die(msg):
    sys.exit("make_large_mdb: " + msg)


def tdef_page_of(path, table):
    out = subprocess.run(["mdb-export", path, "MSysObjects"], check=True,
                         capture_output=True).stdout
    text = out.decode("utf-8", errors="replace")
    for rec in csv.DictReader(io.StringIO(text)):
        if rec["Type"] == "1" and rec["Name"].lower() == table.lower():
            return int(rec["Id"]) & 0x00FFFFFF
    die(f"{path}: no table named '{table}'")


def row_bounds(page, row):
    count = struct.unpack_from("<H", page, DATA_ROW_COUNT)[0]
    if row >= count:
        die(f"row {row} not on its page ({count} rows)")
    start = struct.unpack_from("<H", page, DATA_ROW_TABLE + 2 * row)[0] & ROW_OFFSET_MASK
    end = PAGE if row == 0 else (
        struct.unpack_from("<H", page, DATA_ROW_TABLE + 2 * (row - 1))[0] & ROW_OFFSET_MASK)
    return start, end


def map_pages(data, map_row, page_count):
    """Pages set in a usage map row (either kind), ascending."""
    pages = []

    def add_bits(bits, first):
        for i, byte in enumerate(bits):
            for b in range(8):
                if byte & (1 << b):
                    p = first + i * 8 + b
                    if p < page_count:
                        pages.append(p)

    if map_row[0] == MAP_INLINE:
        add_bits(map_row[5:], struct.unpack_from("<I", map_row, 1)[0])
    elif map_row[0] == MAP_REFERENCE:
        for i in range((len(map_row) - 1) // 4):
            mp = struct.unpack_from("<I", map_row, 1 + 4 * i)[0]
            if mp:
                add_bits(data[mp * PAGE + MAP_PAGE_HEADER:(mp + 1) * PAGE], i * PAGES_PER_MAP_PAGE)
    else:
        die(f"unknown usage map type {map_row[0]}")
    return sorted(pages)


def main():
    if len(sys.argv) not in (4, 5):
        die("usage: make_large_mdb.py SOURCE.mdb TABLE OUT.mdb [SIZE_MB]")
    src, table, dst = sys.argv[1:4]
    size_mb = float(sys.argv[4]) if len(sys.argv) == 5 else 32.0

    data = bytearray(open(src, "rb").read())
    if data[VERSION_OFFSET] != 1 or len(data) % PAGE:
        die(f"{src}: not a Jet 4 file")
    page_count = len(data) // PAGE

    tdef = tdef_page_of(src, table)
    tdef_off = tdef * PAGE
    owned = struct.unpack_from("<I", data, tdef_off + TDEF_OWNED_PAGES)[0]
    map_page, map_slot = owned >> 8, owned & 0xFF
    map_pg = data[map_page * PAGE:(map_page + 1) * PAGE]
    start, end = row_bounds(map_pg, map_slot)
    map_row_off = map_page * PAGE + start
    map_row_len = end - start

    def is_table_page(p):
        return (data[p * PAGE] == PAGE_DATA and
                struct.unpack_from("<I", data, p * PAGE + DATA_TDEF)[0] == tdef)

    table_pages = [p for p in map_pages(data, bytes(data[map_row_off:map_row_off + map_row_len]),
                                        page_count) if is_table_page(p)]
    if not table_pages:
        die(f"{src}: table '{table}' has no data pages")

    target_pages = int(size_mb * 1024 * 1024) // PAGE
    copies = max(1, (target_pages - page_count) // len(table_pages))
    owned_pages = list(table_pages)
    for _ in range(copies):
        for p in table_pages:
            owned_pages.append(len(data) // PAGE)
            data += data[p * PAGE:(p + 1) * PAGE]

    # The reference map: one usage map page per PAGES_PER_MAP_PAGE pages of
    # the file, appended after the copies, listed in the rewritten map row.
    total_after_maps = len(data) // PAGE
    n_maps = total_after_maps // PAGES_PER_MAP_PAGE + 1
    if 1 + 4 * n_maps > map_row_len:
        die(f"the owned-pages map row holds {map_row_len} bytes, too few for {n_maps} map pages")
    first_map = len(data) // PAGE
    maps = [bytearray(PAGE) for _ in range(n_maps)]
    for m in maps:
        m[0], m[1] = PAGE_USAGE_MAP, 0x01
    for p in owned_pages:
        m = maps[p // PAGES_PER_MAP_PAGE]
        bit = p % PAGES_PER_MAP_PAGE
        m[MAP_PAGE_HEADER + bit // 8] |= 1 << (bit % 8)
    for m in maps:
        data += m

    new_row = bytearray(map_row_len)
    new_row[0] = MAP_REFERENCE
    for i in range(n_maps):
        struct.pack_into("<I", new_row, 1 + 4 * i, first_map + i)
    data[map_row_off:map_row_off + map_row_len] = new_row

    rows = struct.unpack_from("<I", data, tdef_off + TDEF_NUM_ROWS)[0]
    struct.pack_into("<I", data, tdef_off + TDEF_NUM_ROWS, rows * (copies + 1))

    with open(dst, "wb") as f:
        f.write(data)
    print(f"{dst}: {len(data)} bytes, {len(data) // PAGE} pages; the {len(table_pages)} data pages "
          f"of '{table}' copied {copies} times")


if __name__ == "__main__":
    main()
