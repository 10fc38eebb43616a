"""What the Python scripts share: where the tree is, what they need first, how they end; pages
with figures that a script renews, and lists of explained exceptions."""

import argparse
import os
import subprocess
import sys
import tomllib

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NAME = os.path.basename(sys.argv[0])


class Unusable(Exception):
    """The script cannot do its work; the text says why in plain words."""


def parser(text, report=None, install=True):
    """The options that most scripts have; `report` is the page that is made of the figures."""
    made = argparse.ArgumentParser(description=text, formatter_class=argparse.RawDescriptionHelpFormatter)
    if install:
        made.add_argument("--no-install", action="store_true", help="install no packages")
    if report:
        made.add_argument("--report", type=page_with_marks, help=f"a page whose figures are replaced ({report})")
    return made


def prepare(no_install, why, *groups):
    """The packages of these groups; and root and namespaces, unless there is no `why`."""
    if not no_install and subprocess.run([os.path.join(ROOT, "scripts", "install-deps"), *groups]).returncode != 0:
        raise Unusable("the packages of the groups " + ", ".join(groups) + " are not all there, see above")
    if why and os.geteuid() != 0:
        raise Unusable(f"root is needed, {why}: sudo {sys.argv[0]}")
    unshare = ["unshare", "--net", "--mount", "--pid", "--fork", "true"]
    if why and subprocess.run(unshare, capture_output=True).returncode != 0:
        raise Unusable("this machine does not let us make namespaces (unshare --net --mount --pid fails)")


def run_main(main):
    """Runs main and ends with its status: 2 with one line when the work could not be done."""
    try:
        status = main()
    except KeyboardInterrupt:
        status = 130
    except (Unusable, OSError) as error:
        print(f"{NAME}: {error}", file=sys.stderr)
        status = 2
    sys.exit(status)


def parts_of(path, name="figures"):
    """What stands before and behind the figures of that name on a page, with the marks around them."""
    begin, end = f"<!-- {name}: begin -->\n", f"<!-- {name}: end -->\n"
    with open(path, encoding="utf-8") as handle:
        whole = handle.read()
    if begin not in whole or end not in whole:
        raise Unusable(f"{path} has no marks for the figures ({begin.strip()} ... {end.strip()})")
    head, rest = whole.split(begin, 1)
    return head + begin, end + rest.split(end, 1)[1]


def page_with_marks(path):
    """Before anything is measured for it."""
    parts_of(path)
    return path


def put_figures(path, text, name="figures"):
    head, tail = parts_of(path, name)
    with open(path, "w", encoding="utf-8") as handle:
        handle.write(f"{head}\n{text}\n{tail}")


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
