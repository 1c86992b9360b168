"""A report's page or records as one would write them in an hour: what the reader's are measured beside.

rival.py json REPORT
rival.py page PAGE REPORT
"""
import html
import json
import re
import sys

RECORD = re.compile(r'Time: (\d+), Value: \(?([^)]*)')
HEADER = re.compile(r'------ (.*) \((.*)\) ------$')
FOOTER = re.compile(r"------ (.*)s was the duration of '.*' ------$")


def read(report):
    sections, sensors = [], []
    title, detail, text = '', '', []
    for line in open(report, errors='replace'):
        if line.startswith('------ ') and (match := FOOTER.match(line)):
            failure = text.pop()[4:-1] if text and text[-1].startswith('*** ') else None
            sections.append({'type': 'section', 'file': report, 'index': len(sections), 'title': title,
                             'kind': 'command' if '/bin/' in detail else 'file', 'detail': detail,
                             'seconds': float(match[1]), 'failure': failure, 'complete': True,
                             'text': ''.join(text)})
        elif line.startswith('------ ') and (match := HEADER.match(line)):
            (title, detail), text = match.groups(), []
        elif line.startswith('*** Sensor '):
            sensors.append({'type': 'sensor', 'name': line.strip('* \n'), 'times': [], 'values': []})
        elif sensors and (match := RECORD.match(line)):
            sensors[-1]['times'].append(int(match[1]))
            sensors[-1]['values'].append([float(value) for value in match[2].split(', ')])
        else:
            text.append(line)
    return sections, sensors


def write_page(page, sections, sensors):
    page.write('<!doctype html><meta charset="utf-8"><script type="application/json">')
    page.write(json.dumps(sensors).replace('<', '\\u003c'))
    page.write('</script>')
    for section in sections:
        page.write(f'<details><summary>{html.escape(section["title"])}</summary>'
                   f'<pre>{html.escape(section["text"])}</pre></details>')


if sys.argv[1] == 'page':
    with open(sys.argv[2], 'w') as to:
        write_page(to, *read(sys.argv[3]))
else:
    for found in read(sys.argv[2]):
        for record in found:
            print(json.dumps(record, ensure_ascii=False))
