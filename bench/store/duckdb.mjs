// Answers the benchmark's questions with DuckDB, one thread: node duckdb.mjs CSV DATABASE ROUNDS.
// Prints {"question": {"ms": best, "answer": text}, ...}; "load" is the time of reading the CSV into the table.
import { DuckDBInstance } from "@duckdb/node-api";
import { existsSync } from "node:fs";

const [csv, database, rounds] = process.argv.slice(2);
const fresh = !existsSync(database);
const instance = await DuckDBInstance.create(database, { threads: "1" });
const connection = await instance.connect();
const rows = async (sql) => (await connection.runAndReadAll(sql)).getRows();
const out = {};
if (fresh) {
  const begin = performance.now();
  await connection.run(`
    create table files as
    select path::integer as path, name, size::bigint as size, space::bigint as space,
           make_timestamp(created * 1000000) as created, make_timestamp(modified * 1000000) as modified,
           make_timestamp(accessed * 1000000) as accessed, owner
    from read_csv('${csv}', header = true, columns = {path: 'BIGINT', name: 'VARCHAR', size: 'BIGINT', space: 'BIGINT',
      created: 'BIGINT', modified: 'BIGINT', accessed: 'BIGINT', owner: 'VARCHAR'})`);
  await connection.run("checkpoint");
  out.load = { ms: performance.now() - begin, answer: "" };
}

// The text behind the last full stop, or nothing.
const extension = "case when contains(name, '.') then lower(split_part(name, '.', -1)) else '' end";
const text = (r) => r.map(String).join(" ");
const questions = {
  sums: ["select sum(size), sum(space) from files", (r) => text(r[0])],
  largest: [
    `select size, name from files where modified >= timestamp '2015-01-01' and owner like '%7'
     and ends_with(lower(name), '.jpg') order by size desc, rowid limit 200`,
    (r) => r.map((x) => text(x) + "\n").join("")],
  extensions: [
    `select ${extension} as e, count(*), sum(size), sum(space) from files group by e order by e`,
    (r) => r.map((x) => text(x) + "\n").join("")],
  days: [
    "select count(*), bit_xor(s) from (select sum(size)::bigint as s from files group by modified::date having s <> 0)",
    (r) => `${r[0][0]} days ${r[0][1]}`],
  substring: ["select count(*) from files where contains(name, 'invoice')", (r) => text(r[0])],
  substring_nocase: ["select count(*) from files where name ilike '%photo%'", (r) => text(r[0])],
  regex: ["select count(*) from files where regexp_matches(name, '^(report|draft).*[0-9]{3}\\.pdf$')", (r) => text(r[0])],
  folder: ["select count(*), sum(size), sum(length(name)) from files where path = 31337", (r) => text(r[0])],
};
for (const [name, [sql, show]] of Object.entries(questions)) {
  let best = Infinity, answer = "";
  for (let i = 0; i < Number(rounds); ++i) {
    const begin = performance.now();
    const result = await rows(sql);
    best = Math.min(best, performance.now() - begin);
    answer = show(result);
  }
  out[name] = { ms: best, answer };
}
console.log(JSON.stringify(out));
