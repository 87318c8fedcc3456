// The same reports with DuckDB, one thread, written into tables: node duckdb.mjs PATHS FILES DATABASE ROUNDS.
// Prints {"report": {"ms": best, "answer": text}, ...}.
import { DuckDBInstance } from "@duckdb/node-api";

const [paths, files, database, rounds] = process.argv.slice(2);
const instance = await DuckDBInstance.create(database, { threads: "1" });
const connection = await instance.connect();
const rows = async (sql) => (await connection.runAndReadAll(sql)).getRows();
await connection.run(`create table paths as select * from read_csv('${paths}', header = true, columns = {
  number: 'INTEGER', parent: 'INTEGER', last: 'INTEGER', levels: 'INTEGER', name: 'VARCHAR', path: 'VARCHAR'})`);
await connection.run(`create table files as
  select path, name, size, space, make_timestamp(created * 1000000) as created,
         make_timestamp(modified * 1000000) as modified, make_timestamp(accessed * 1000000) as accessed, owner
  from read_csv('${files}', header = true, columns = {path: 'INTEGER', name: 'VARCHAR', size: 'BIGINT',
    space: 'BIGINT', created: 'BIGINT', modified: 'BIGINT', accessed: 'BIGINT', owner: 'INTEGER'})`);
await connection.run("checkpoint");

const reports = {
  file_largest: [
    `create or replace table r as select f.size, p.path, f.name from files f join paths p on p.number = f.path
     where f.modified >= timestamp '2015-01-01' and regexp_matches(f.name, '\\.jpg$', 'i')
     order by f.size desc, f.path desc, f.name desc limit 200`,
    "select count(*), sum(size)::bigint from r"],
  file_ages: [
    `create or replace table r as select d, sum(c)::bigint as c, sum(a)::bigint as a, sum(m)::bigint as m from (
       select created::date as d, sum(size) as c, 0 as a, 0 as m from files group by 1
       union all select accessed::date, 0, sum(size), 0 from files group by 1
       union all select modified::date, 0, 0, sum(size) from files group by 1) group by d`,
    "select count(*), sum(c)::bigint from r"],
  group_by_pcre: [
    `create or replace table r as select case when contains(name, '.') then lower(split_part(name, '.', -1)) else '(none)' end as v,
       sum(size)::bigint as size, sum(space)::bigint as space, count(*) as n from files group by v`,
    "select count(*), sum(size)::bigint from r"],
  file_search: [
    `create or replace table r as select p.path, sum(f.size) as size, sum(f.space) as space, count(*) as n,
       sum(f.size) filter (regexp_matches(f.name, '^(report|draft).*[0-9]{3}\\.pdf$', 'i')) as fsize,
       sum(f.space) filter (regexp_matches(f.name, '^(report|draft).*[0-9]{3}\\.pdf$', 'i')) as fspace,
       count(*) filter (regexp_matches(f.name, '^(report|draft).*[0-9]{3}\\.pdf$', 'i')) as fn
     from files f join paths p on p.number = f.path group by p.path`,
    "select sum(n)::bigint, sum(fn)::bigint from r"],
  tree_summary: [
    `create or replace table r as
     with own as (select path, sum(size) as size, sum(space) as space, count(*) as n, max(created) as c,
                    max(modified) as m, max(accessed) as a from files group by path)
     select p.path, p.name, sum(o.size)::bigint as size, sum(o.space)::bigint as space, sum(o.n)::bigint as n,
            max(o.c) as c, max(o.m) as m, max(o.a) as a, p.number
     from paths p left join own o on o.path between p.number and p.last group by p.path, p.name, p.number`,
    "select count(*), sum(size)::bigint from r"],
};
const out = {};
for (const [name, [sql, check]] of Object.entries(reports)) {
  let best = Infinity;
  for (let i = 0; i < Number(rounds); ++i) {
    const begin = performance.now();
    await connection.run(sql);
    best = Math.min(best, performance.now() - begin);
  }
  out[name] = { ms: best, answer: (await rows(check))[0].map(String).join(" ") };
}
console.log(JSON.stringify(out));
