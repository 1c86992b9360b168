"""A report's page as one would write it in an hour: what the reader's is measured beside.

page.py REPORT PAGE
"""
import html
import json
import re
import sys

RECORD = re.compile(r'Time: (\d+), Value: \(?([^)]*)')

sections, sensors = [], {}
title, records, text = '', None, []
for line in open(sys.argv[1], errors='replace').read().split('\n'):
    if line.startswith('------ ') and "s was the duration of '" in line:
        sections.append((title, '\n'.join(text)))
        text = []
    elif line.startswith('------ '):
        title, text, records = line.strip('- '), [], None
    elif line.startswith('*** Sensor '):
        records = sensors[line.strip('* ')] = []
    elif records is not None and (match := RECORD.match(line)):
        records.append([int(match[1]), *map(float, match[2].split(', '))])
    else:
        text.append(line)

with open(sys.argv[2], 'w') as page:
    page.write('<!doctype html><meta charset="utf-8"><script type="application/json">')
    page.write(json.dumps(sensors).replace('<', '\\u003c'))
    page.write('</script>')
    for title, text in sections:
        page.write(f'<details><summary>{html.escape(title)}</summary><pre>{html.escape(text)}</pre></details>')
