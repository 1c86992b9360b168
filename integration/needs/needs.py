"""What the service asks of a device, from what device_needs prints."""

import collections
import re

Need = collections.namedtuple("Need", "access what builds report entries")

BUILTINS = {"[[", "]]", "cd", "done", "echo", "fi"}
BEFORE_A_COMMAND = {"do", "else", "if", "then", "while"}
TOKEN = re.compile(r"""\$\(|`|&&|\|\||[;|\n()]|"|'[^']*'|(?:\$(?!\()|[^\s;|&()`"'$])+""")

# Of a program's paths, those that it changes; all others read theirs.
CHANGES = {
    "chmod": lambda paths: paths,
    "cp": lambda paths: paths[-1:],
    "mkdir": lambda paths: paths,
    "rm": lambda paths: paths,
    "tar": lambda paths: paths[:1],
}


def commands_of(script):
    """The commands of a shell script, each a list of words, those within others among them."""
    commands, stack = [], []
    current, quoted, loop = [], False, False
    for token in TOKEN.findall(script):
        if token in ("`", "$(") and not (token == "`" and stack and stack[-1][0] == "`"):
            stack.append((token, current, quoted, loop))
            current, quoted, loop = [], False, False
        elif stack and (token, stack[-1][0]) in ((")", "$("), ("`", "`")):
            commands.append(current)
            _, current, quoted, loop = stack.pop()
            current = current + ["(substituted)"]
        elif token == '"':
            quoted = not quoted
        elif quoted:
            current.append(token)
        elif token in (";", "&&", "||", "|", "\n"):
            commands.append(current)
            current, loop = [], False
        elif current == [] and token == "for":
            loop = True
        elif current == [] and (token in BEFORE_A_COMMAND or loop):
            pass
        elif current == [] and re.match(r"\w+=", token):
            current.append("[[")  # an assignment runs nothing
        elif not re.match(r"\d*>", token):
            current.append(token.strip("'"))
    commands.append(current)
    return [command for command in commands if command and command[0] != "(substituted)"]


def accesses_of(argv):
    """Pairs of access and what, for one command."""
    program = argv[0].rsplit("/", 1)[-1]
    if program not in BUILTINS:
        yield "run", "/vendor/bin/" + program
    if program == "sh":
        for command in commands_of(argv[-1].replace("\\n", "\n")):
            yield from accesses_of(command)
        return
    paths = [word for word in argv[1:] if re.match(r"/[^/]", word)]
    changed = CHANGES.get(program, lambda paths: [])(paths)
    for path in paths:
        if path == "/dev/null":
            continue
        if program == "cd":
            yield "read", path.rstrip("/") + "/"
        else:
            yield "write" if path in changed else "read", path


def is_within(what, folder, access):
    """A directory that is written is so with all below it; one that is listed, with its files."""
    if access == "read":
        return what != folder and folder in (what + "/", what[: what.rfind("/") + 1])
    return (what + "/").startswith(folder) and not what.endswith("/")


def is_folder_written(what, access, seen):
    return access == "write" and any(other.startswith(what + "/") for _, other in seen)


def needs_of(lines):
    """The service's needs, each once, sorted. What is read or written in a directory that is itself
    is one need, the directory's, whose name then ends with a slash."""
    seen = collections.defaultdict(lambda: (set(), set()))
    for line in lines:
        build, report, title, kind, *what = line.rstrip("\n").split("\t")
        if kind == "command":
            pairs = accesses_of(what)
        elif kind == "list":
            pairs = [("read", what[0].rstrip("/") + "/")]
        else:
            pairs = [("read" if kind == "file" else kind, what[0])]
        for access, one in pairs:
            ways, titles = seen[access, re.sub(r"(?<=^/proc/self/fd/)\d+$", "N", one)]
            ways.add((build, report))
            titles.update({title} - {"-"})

    folders = {
        "read": {what for access, what in seen if access == "read" and what.endswith("/")},
        "write": {what + "/" for access, what in seen if is_folder_written(what, access, seen)},
    }
    for access, what in sorted(seen):
        within = [folder for folder in folders.get(access, ()) if is_within(what, folder, access)]
        if within:
            ways, titles = seen.pop((access, what))
            outermost = min(within, key=len)
            seen[access, outermost][0].update(ways)
            seen[access, outermost][1].update(titles)

    needs = []
    for (access, what), (ways, titles) in sorted(seen.items()):
        builds = "every" if any(build == "user" for build, _ in ways) else "development"
        reports = {report for _, report in ways}
        report = next(kind for kind in ("plain", "bundle", "verbose") if kind in reports)
        needs.append(Need(access, what, builds, report, sorted(titles)))
    return needs


TABLES = (
    ("Programs that are run", ("run",)),
    ("Files and directories that are read", ("read",)),
    ("Files and directories that are written", ("write",)),
    ("Properties and sockets", ("get", "set", "socket")),
)
ACCESS = {"get": "read", "set": "written", "socket": "connected to"}
REPORT = {"plain": "every", "bundle": "with a bundle", "verbose": "with the modem's logs"}


def page_of(needs):
    """The same as tables of a page."""
    lines = []
    for heading, accesses in TABLES:
        lines += [f"### {heading}", "", "| what | builds | report | entries |", "| --- | --- | --- | --- |"]
        for need in needs:
            if need.access not in accesses:
                continue
            how = f" ({ACCESS[need.access]})" if need.access in ACCESS else ""
            entries = ", ".join(need.entries[:3]) or "(the service itself)"
            if len(need.entries) > 3:
                entries += f" and {len(need.entries) - 3} more"
            what = need.what.replace("|", "\\|")
            lines.append(f"| `{what}`{how} | {need.builds} | {REPORT[need.report]} | {entries} |")
        lines.append("")
    return "\n".join(lines)
