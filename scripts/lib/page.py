"""Pages with figures that a script renews, and lists of explained exceptions."""

import tomllib

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


def table(titles, rows, numbers=False):
    """A Markdown table; with numbers all columns but the first are set to the right."""
    lines = [titles, ["---"] + ["---:" if numbers else "---"] * (len(titles) - 1), *rows]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def read_entries(path, kind):
    """The explained exceptions of a list, which stand below their files, as named tuples of that kind."""
    with open(path, "rb") as handle:
        try:
            return [kind(file, **entry) for file, entries in tomllib.load(handle).items() for entry in entries]
        except (tomllib.TOMLDecodeError, TypeError) as error:
            raise Unusable(f"{path}: {error}") from None
