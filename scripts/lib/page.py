"""Pages with figures that a script renews, and lists of explained exceptions."""

from common import Unusable


def marks(name):
    return f"<!-- {name}: begin -->\n", f"<!-- {name}: end -->\n"


def parts_of(path, name="figures"):
    """What stands before and behind the figures of that name on a page."""
    begin, end = marks(name)
    with open(path, encoding="utf-8") as handle:
        whole = handle.read()
    if begin not in whole or end not in whole:
        raise Unusable(f"{path} has no marks for the figures ({begin.strip()} ... {end.strip()})")
    head, rest = whole.split(begin, 1)
    return head, rest.split(end, 1)[1]


def put_figures(path, text, name="figures"):
    """Replaces what stands between the two marks of that name."""
    head, tail = parts_of(path, name)
    begin, end = marks(name)
    with open(path, "w", encoding="utf-8") as handle:
        handle.write(head + begin + "\n" + text + "\n" + end + tail)


def tell(text, path, name="figures"):
    """Puts the figures on the page, or prints them when none is given."""
    put_figures(path, text, name) if path else print(text, end="")


def read_entries(path, names):
    """Reads blocks of "name: value" lines, parted by blank lines; "#" begins a comment.

    Every entry has exactly the given names; "reason" may go over several lines.
    """
    entries = []
    fields = {}
    with open(path, encoding="utf-8") as handle:
        for number, line in enumerate([*handle, "\n"], start=1):
            line = line.rstrip("\n")
            if line.startswith("#"):
                continue
            if not line.strip():
                if fields and set(fields) != set(names):
                    raise Unusable(f"{path}:{number}: an entry has {', '.join(names)}; this one has {', '.join(fields)}")
                if fields:
                    entries.append(fields)
                fields = {}
            elif line.startswith(" ") and "reason" in fields:
                fields["reason"] += " " + line.strip()
            else:
                name, _, value = line.partition(": ")
                if name not in names or name in fields:
                    raise Unusable(f'{path}:{number}: "{name}" has no place here')
                fields[name] = value.strip()
    return entries
