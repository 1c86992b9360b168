-- The records as they are.
-- Types that are named need no guess over the first lines; facts are a map, as each report has its own.
CREATE TABLE records AS
FROM read_json('records.ndjson', format = 'newline_delimited', maximum_object_size = 134217728, columns = {
    type: 'VARCHAR', file: 'VARCHAR',
    -- section
    index: 'INTEGER', title: 'VARCHAR', kind: 'VARCHAR', detail: 'VARCHAR', seconds: 'DOUBLE',
    failure: 'VARCHAR', complete: 'BOOLEAN', text: 'VARCHAR', lossy: 'BOOLEAN', cut: 'BOOLEAN',
    -- sensor
    sensor: 'UINTEGER', name: 'VARCHAR', skipped: 'VARCHAR', times: 'UBIGINT[]', "values": 'DOUBLE[][]',
    -- report, beside `complete`
    "verbose": 'BOOLEAN', facts: 'MAP(VARCHAR, VARCHAR)', black_box: 'VARCHAR', sections: 'INTEGER', failed: 'INTEGER'
});

CREATE VIEW reports AS
SELECT file, facts['serial'] AS serial, facts['device'] AS device, split_part(facts['build'], '/', 4) AS build,
       facts, black_box, sections, failed, complete
FROM records WHERE type = 'report';
