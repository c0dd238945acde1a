// Dumps a Jet file through mdb-reader, an engine nobody here wrote, so tests can compare what
// Vantor wrote with what an independent reader sees.
//
//   node dump.mjs FILE.mdb          user table names, one per line
//   node dump.mjs FILE.mdb TABLE    every row of TABLE as one JSON object per line,
//                                   keys in column order
//   node dump.mjs --columns FILE.mdb TABLE
//                                   TABLE's columns, one JSON object per line
//
// Values are made JSON-safe: Date -> ISO string, binary -> {"hex": "..."}, bigint -> string.
// NaN and the infinities become the strings "NaN", "Infinity", "-Infinity" rather than the null
// JSON.stringify would give, so they cannot be mistaken for a null field.
// On failure: one line on stderr, exit status 1.

import { readFileSync } from "node:fs";
import MDBReader from "mdb-reader";

function jsonSafe(value) {
  if (value === null || value === undefined) return null;
  if (typeof value === "bigint") return value.toString();
  if (typeof value === "number") return Number.isFinite(value) ? value : String(value);
  if (value instanceof Date) {
    return Number.isNaN(value.getTime()) ? "Invalid Date" : value.toISOString();
  }
  if (value instanceof Uint8Array) return { hex: Buffer.from(value).toString("hex") };
  if (Array.isArray(value)) return value.map(jsonSafe);
  if (typeof value === "object") {
    const out = {};
    for (const [key, item] of Object.entries(value)) out[key] = jsonSafe(item);
    return out;
  }
  return value;
}

function main(args) {
  if (args[0] === "--columns") {
    if (args.length !== 3) throw new Error("usage: node dump.mjs --columns FILE.mdb TABLE");
    const table = new MDBReader(readFileSync(args[1])).getTable(args[2]);
    const lines = table.getColumns().map((column) => JSON.stringify(jsonSafe(column)) + "\n");
    process.stdout.write(lines.join(""));
    return;
  }
  if (args.length < 1 || args.length > 2) {
    throw new Error("usage: node dump.mjs FILE.mdb [TABLE]");
  }
  const [file, tableName] = args;
  const reader = new MDBReader(readFileSync(file));

  if (tableName === undefined) {
    const names = reader.getTableNames();
    process.stdout.write(names.map((name) => name + "\n").join(""));
    return;
  }

  const table = reader.getTable(tableName);
  const columns = table.getColumnNames();
  const lines = [];
  for (const row of table.getData()) {
    const ordered = {};
    for (const column of columns) ordered[column] = jsonSafe(row[column]);
    lines.push(JSON.stringify(ordered) + "\n");
  }
  process.stdout.write(lines.join(""));
}

try {
  main(process.argv.slice(2));
} catch (err) {
  const message = err instanceof Error ? err.message : String(err);
  process.stderr.write("dump.mjs: " + message.replace(/\s*\n\s*/g, " ") + "\n");
  process.exitCode = 1;
}
