"""What the Python scripts share: where the tree is, how they end, what they need first."""

import argparse
import os
import subprocess
import sys

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
        made.add_argument("--report", help=f"a page whose figures are replaced ({report})")
    return made


def prepare(no_install, why, *groups):
    """The packages of these groups; and root and namespaces, unless there is no `why`."""
    if not no_install and subprocess.run([os.path.join(ROOT, "scripts", "install-deps"), *groups]).returncode != 0:
        raise Unusable("the packages of the groups " + ", ".join(groups) + " are not all there, see above")
    if why and os.geteuid() != 0:
        raise Unusable(f"root is needed, {why}: sudo {sys.argv[0]}")
    if why and subprocess.run(["unshare", "--net", "--mount", "--pid", "--fork", "true"], capture_output=True).returncode != 0:
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
