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
    "verbose": 'BOOLEAN', facts: 'MAP(VARCHAR, VARCHAR)', black_box: 'VARCHAR', sections: 'INTEGER', failed: 'INTEGER',
    errors: 'INTEGER', warnings: 'INTEGER',
    -- finding
    "check": 'VARCHAR', severity: 'VARCHAR', says: 'VARCHAR', hint: 'VARCHAR', section: 'VARCHAR', line: 'UBIGINT',
    evidence: 'VARCHAR'
});

CREATE VIEW reports AS
SELECT file, facts['serial'] AS serial, facts['device'] AS device, split_part(facts['build'], '/', 4) AS build,
       facts, black_box, sections, failed, complete, errors, warnings
FROM records WHERE type = 'report';

CREATE VIEW findings AS
SELECT file, serial, build, "check", severity, says, hint, section, line, evidence
FROM records JOIN (SELECT file, serial, build FROM reports) USING (file) WHERE type = 'finding';
