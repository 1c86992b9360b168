// DuckDB for one asker: node duckdb.js FOLDER_OF_NODE_MODULES DATABASE. A line {"sql":...} on standard
// input is answered with {"names":[...],"rows":[[...],...]} or {"error":...}. The database is a file.
'use strict';
const path = require('path');
const readline = require('readline');
const {DuckDBInstance} = require(path.resolve(process.argv[2], '@duckdb/node-api'));

async function main() {
  const options = {autoinstall_known_extensions: 'false', memory_limit: '4GB', preserve_insertion_order: 'false'};
  const session = await (await DuckDBInstance.create(process.argv[3], options)).connect();
  for await (const line of readline.createInterface({input: process.stdin})) {
    let answer;
    try {
      const result = await session.runAndReadAll(JSON.parse(line).sql);
      answer = {names: result.columnNames(), rows: result.getRowsJson()};
    } catch (error) {
      answer = {error: String(error.message)};
    }
    console.log(JSON.stringify(answer));
  }
}

main();
