"""A report's records as one would write them in an hour: what the reader's are measured beside.

records.py REPORT
"""
import json
import re
import sys

RECORD = re.compile(r'Time: (\d+), Value: \(?([^)]*)')
HEADER = re.compile(r'------ (.*) \((.*)\) ------$')
FOOTER = re.compile(r"------ (.*)s was the duration of '.*' ------$")

failed, index, title, detail, text, sensors = 0, 0, '', '', [], []
for line in open(sys.argv[1], errors='replace'):
    if line.startswith('------ ') and (match := FOOTER.match(line)):
        failure = text.pop()[4:-1] if text and text[-1].startswith('*** ') else None
        print(json.dumps({'type': 'section', 'file': sys.argv[1], 'index': index, 'title': title,
                          'kind': 'command' if '/bin/' in detail else 'file', 'detail': detail,
                          'seconds': float(match[1]), 'failure': failure, 'complete': True,
                          'text': ''.join(text)}, ensure_ascii=False))
        failed += failure is not None
        index += 1
    elif line.startswith('------ ') and (match := HEADER.match(line)):
        (title, detail), text = match.groups(), []
    elif line.startswith('*** Sensor '):
        sensors.append({'type': 'sensor', 'name': line.strip('* \n'), 'times': [], 'values': []})
    elif sensors and (match := RECORD.match(line)):
        sensors[-1]['times'].append(int(match[1]))
        sensors[-1]['values'].append([float(value) for value in match[2].split(', ')])
    else:
        text.append(line)
for sensor in sensors:
    print(json.dumps(sensor))
print(json.dumps({'type': 'report', 'file': sys.argv[1], 'sections': index, 'failed': failed}))
