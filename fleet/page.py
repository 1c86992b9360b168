"""fleet.html: the answers as one file that needs no network."""
import base64
import hashlib
import html
import json
import pathlib
import subprocess

HERE = pathlib.Path(__file__).resolve().parent / 'page_assets'
PAGES = 25  # of the worst devices


def is_number(value):
    """Whether a cell is one, or nothing; engines write large ones as text."""
    if value is None or isinstance(value, (int, float)):
        return True
    if not isinstance(value, str) or not value[-1:].isdigit():
        return False
    try:
        float(value)
        return True
    except ValueError:
        return False


def cell(value):
    """As it is shown."""
    if value is None:
        return ''
    return f'{value:.6g}' if isinstance(value, float) else str(value)


def hash_of(text):
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def columns(answer):
    """Text that holds numbers as numbers, a column being all numbers or none."""
    names, rows = answer
    number = [name not in ('build', 'serial', 'who') and all(is_number(row[at]) for row in rows)
              for at, name in enumerate(names)]
    return {'names': names, 'rows': [[float(v) if n and isinstance(v, str) else v for v, n in zip(row, number)]
                                     for row in rows]}


def pages_of_reports(answers, engine, boardreport, folder):
    """Makes the pages of the worst devices' reports. Returns their links by key."""
    if 'devices' not in answers:
        return {}
    at = answers['devices'][0].index('a_report')
    keys = [row[at] for row in answers['devices'][1][:PAGES]]
    if not keys:
        return {}
    folder.mkdir(exist_ok=True)
    wanted = ', '.join(f"'{key}'" for key in keys)
    links = {}
    for key, file in engine.ask(f'SELECT key, file FROM reports WHERE key IN ({wanted})')[1]:
        page = folder / f'{key}.html'
        if subprocess.run([boardreport, 'page', file, '-o', page], capture_output=True, check=False).returncode == 0:
            links[key] = f'{folder.name}/{page.name}'
    return links


def write(path, engine, texts, answers, boardreport):
    """The page of the answers, and beside it the pages of the worst devices' reports."""
    links = pages_of_reports(answers, engine, boardreport, path.with_name(path.stem + '-pages'))
    reports, devices, models = engine.ask("SELECT count(*), count(DISTINCT serial), count(DISTINCT device) FROM reports")[1][0]
    data = {'links': links, 'questions': [
        {'name': name, 'title': texts[name].strip().splitlines()[0].lstrip('- '), 'sql': texts[name], **columns(answer)}
        for name, answer in answers.items()]}
    style, script = (HERE / 'style.css').read_text(), (HERE / 'page.js').read_text()
    text = (HERE / 'template.html').read_text()
    for mark, value in {
            'POLICY': f"default-src 'none'; style-src {hash_of(style)}; script-src {hash_of(script)}",
            'STYLE': style, 'SCRIPT': script,
            'ABOUT': html.escape(f'{reports} reports of {devices} devices, {models} models'),
            'DATA': json.dumps(data, ensure_ascii=False, separators=(',', ':')).replace('<', '\\u003c')}.items():
        text = text.replace(f'<!--{mark}-->', value, 1)
    path.write_text(text, encoding='utf-8', errors='replace')
