"""A baseline for `boardreport --baseline` (doc/baseline.md) out of the answer to baseline.sql."""
import collections
import json

MOST_VALUES = 100


def spread(rows):
    """{"least":...,"most":...,"bins":{...}} of rows of bin, times, least, most."""
    rows = sorted(rows)
    return {'least': min(row[2] for row in rows), 'most': max(row[3] for row in rows),
            'bins': {str(row[0]): row[1] for row in rows}}


def baseline(rows):
    """The file's text, byte for byte as `boardreport baseline` writes it."""
    found = collections.defaultdict(list)  # by part, model and name
    words = collections.defaultdict(dict)
    for part, model, name, word, number, count, least, most in rows:
        found[part, model, name].append((int(number), int(count), float(least), float(most)))
        words[part, model, name][word] = int(count)

    def names_of(part, model=''):
        return sorted((name for its, of, name in found if (its, of) == (part, model)), key=str.encode)

    def times(*key):
        return sum(row[1] for row in found[key])

    def fact(model, name):
        if ('number', model, name) in found:
            return {'reports': times('number', model, name), 'numbers': spread(found['number', model, name])}
        its = words['word', model, name]
        return {'reports': times('word', model, name),
                'values': None if len(its) > MOST_VALUES else dict(sorted(its.items(), key=lambda item: item[0].encode()))}

    models = sorted({model for part, model, _ in found if part == 'reports'}, key=str.encode)
    return json.dumps({
        'format': 'boardreport-baseline', 'version': 1, 'reports': sum(times('reports', model, '') for model in models),
        'sections': {title: {'reports': times('seconds', '', title),
                             'failures': dict(sorted(words.get(('failure', '', title), {}).items())),
                             'seconds': spread(found['seconds', '', title])} for title in names_of('seconds')},
        'models': {model: {
            'reports': times('reports', model, ''),
            'facts': {name: fact(model, name)
                      for name in sorted(names_of('number', model) + names_of('word', model), key=str.encode)},
            'rates': {name: spread(found['rate', model, name]) for name in names_of('rate', model)}} for model in models},
    }, ensure_ascii=False, separators=(',', ':')) + '\n'
