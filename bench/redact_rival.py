#!/usr/bin/python3
"""Replaces identifiers by patterns alone, as one would in an hour: what `boardreport redact` is measured
beside.

redact_rival.py FILE
"""
import re
import sys

PATTERNS = [re.compile(pattern) for pattern in (
    rb'\[[\w.]*(?:serial(?:no|_?number|num)?|android_id)\]: \[([^\]\n]+)\]',
    rb'(?i:serial(?:no|[ _-]?(?:number|num|no)))["\'\])]*[ \t]*[:=]+[ \t]*["\']?([0-9A-Za-z][0-9A-Za-z._:-]*)',
    rb'(?<![0-9A-Za-z:-])((?:[0-9A-Fa-f]{2}[:-]){5}[0-9A-Fa-f]{2})(?![0-9A-Za-z])',
    rb'(?<![0-9A-Za-z.])([0-9]{1,3}(?:\.[0-9]{1,3}){3})(?![0-9A-Za-z.])',
    rb'((?:[0-9A-Fa-f]{1,4}:){7}[0-9A-Fa-f]{1,4})', rb'([0-9A-Fa-f]{1,4}(?::[0-9A-Fa-f]{1,4}){0,6}::[0-9A-Fa-f:]*)',
    rb'(?<![0-9A-Za-z])([0-9]{15})(?![0-9A-Za-z])', rb'(?<![0-9A-Za-z])(89[0-9]{17,18})(?![0-9A-Za-z])',
    rb'(?i:imsi)["\']?[:=] ?([0-9]{14,15})', rb'(\+[1-9][0-9 ().-]{6,18}[0-9])',
    rb'([0-9A-Za-z._%+-]{1,64}@[0-9A-Za-z-]+(?:\.[0-9A-Za-z-]+)*\.[A-Za-z]{2,24})',
    rb'(?i:ssid)["\']?[:=] ?"([^"\n]{1,32})"', rb'(?i:lat|lon|latitude|longitude)["\']?[:=] ?(-?[0-9]{1,3}\.[0-9]{4,})',
    rb'(?i:account|user_?name)["\']?[:=] ?([0-9A-Za-z._+@-]{3,64})', rb'/(?:home|Users)/([^/\s"\']{1,32})')]


def main():
    stand_ins = {}

    def replace(match):
        value = match[1]
        stand_in = stand_ins.setdefault(value, b'value-%d' % (len(stand_ins) + 1))
        begin = match.start(1) - match.start()
        return match[0][:begin] + stand_in + match[0][begin + len(value):]

    with open(sys.argv[1], 'rb') as lines:
        for line in lines:
            for pattern in PATTERNS:
                line = pattern.sub(replace, line)
            sys.stdout.buffer.write(line)


main()
