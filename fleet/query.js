// Runs .sql files in DuckDB, one after another in one session, and prints what each gives:
//     node query.js FOLDER_OF_NODE_MODULES FILE...
// Relative paths in the queries are below the working folder.
'use strict';
const fs = require('fs');
const path = require('path');
const {DuckDBInstance} = require(path.resolve(process.argv[2], '@duckdb/node-api'));

function table(names, rows) {
  const cells = [names, ...rows].map(row => row.map(cell => cell === null ? '' : String(cell)));
  const widths = names.map((_, column) => Math.max(...cells.map(row => [...row[column]].length)));
  const isNumber = names.map((_, column) => rows.every(row => row[column] === null || !isNaN(row[column])));
  return cells.map(row => row.map((cell, column) => isNumber[column] ? cell.padStart(widths[column])
                                                                     : cell.padEnd(widths[column])).join('  ').trimEnd()).join('\n');
}

async function main() {
  const session = await (await DuckDBInstance.create(':memory:', {autoinstall_known_extensions: 'false'})).connect();
  for (const file of process.argv.slice(3)) {
    const query = fs.readFileSync(file, 'utf8');
    const begin = process.hrtime.bigint();
    const result = await session.runAndReadAll(query);
    const seconds = Number(process.hrtime.bigint() - begin) / 1e9;
    console.log(`\n${query.split('\n')[0]}   [${path.basename(file)}, ${seconds.toFixed(2)} s]`);
    if (result.currentRowCount > 0) console.log(table(result.columnNames(), result.getRowsJson()));
  }
}

main().catch(error => {
  console.error(String(error.message));
  process.exit(1);
});
