"""Where mutants are tried: scratch copies of the tree, each with its own build."""

import collections
import hashlib
import os
import re
import shlex
import shutil
import subprocess
import time

from common import Unusable
from mutants import files_below

FOLDERS = ("unit", "tables", "fatal", "sandbox")
FILE_LIMIT = 256 << 20  # bytes a runaway mutant may write into one file
MEMORY_LIMIT = 4 << 30  # bytes of data it may hold
BUILD_LIMIT = 900  # seconds for one build
SLOW = 60.0  # seconds; a program that takes longer is not asked
PASSED = re.compile(r"^\[  PASSED  \] (\d+) tests?\.", re.MULTILINE)
# Verdicts besides the name of the program that noticed.
SURVIVED = ""
NO_MUTANT = None


def configure(tree, build):
    # Without optimising and without warnings, so that a mutant costs seconds.
    options = ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -g0", "-DCMAKE_CXX_FLAGS=-w", "-DVELARIX_BUILD_LAB=OFF", "-DVELARIX_BUILD_TOOLS=OFF"]
    run(["cmake", "-S", tree, "-B", build, "-G", "Ninja", *options])


def run(command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True)
    if done.returncode != 0:
        raise Unusable("%s failed:\n%s" % (shlex.join(command), done.stdout[-3000:]))
    return done.stdout


def defined(path):
    """The strong global symbols that an object or a program defines."""
    symbols = set()
    for line in run(["nm", "--defined-only", path]).splitlines():
        parts = line.split()
        if len(parts) == 3 and parts[1] in "TDBR":
            symbols.add(parts[2])
    return symbols


def digest(path):
    with open(path, "rb") as handle:
        return hashlib.file_digest(handle, "sha256").hexdigest()


class Experience:
    """What the workshops learn together about the test programs."""

    def __init__(self):
        self.kills = collections.Counter()
        self.seconds = {}  # by program, on the unchanged tree
        self.tests = {}  # by program, how many pass there
        self.flaky = collections.Counter()  # by program, failures that a second run did not have

    def order(self, file, programs):
        """The programs that noticed mutants of the file so far first, the quick ones before the
        slow; the slowest only where there is no other."""
        programs = [name for name in programs if self.seconds[name] < SLOW] or programs
        link = 0.5  # seconds
        return sorted(programs, key=lambda name: (self.kills[file, name] + 0.01) / (link + self.seconds[name]), reverse=True)


class Workshop:
    """A scratch copy of the tree with its own build."""

    def __init__(self, source, folder, experience, ninja_jobs):
        self.source = source
        self.folder = folder
        self.tree = os.path.join(folder, "tree")
        self.build = os.path.join(folder, "build")
        self.scratch = os.path.join(folder, "tmp")
        self.experience = experience
        self.ninja_jobs = str(ninja_jobs)
        self.programs = {}  # path by name
        self.digests = {}  # of the unchanged programs
        self.holders = {}  # by source file, the programs that hold its code or start the daemon
        self.last_write = 0.0

    def make(self):
        os.makedirs(self.scratch)
        shutil.copytree(self.source, self.tree)
        configure(self.tree, self.build)
        run(["ninja", "-C", self.build, "-j", self.ninja_jobs, "all"])
        self.find_programs()
        self.find_holders()

    def find_programs(self):
        for name in FOLDERS:
            folder = os.path.join(self.build, "tests", "daemon", name)
            for name in sorted(os.listdir(folder)):
                path = os.path.join(folder, name)
                if os.path.isfile(path) and os.access(path, os.X_OK) and not name.endswith(".so"):
                    self.programs[name] = path
                    self.digests[name] = digest(path)
        if not self.programs:
            raise Unusable("no test program was built")

    def find_holders(self):
        daemon = os.path.join(self.build, "src", "main", "VelarixHA").encode()
        symbols = {name: defined(path) for name, path in self.programs.items()}
        self.starters = set()
        for name, path in self.programs.items():
            with open(path, "rb") as handle:
                if daemon in handle.read():
                    self.starters.add(name)
        for file in files_below(self.source):
            if file.endswith(".cpp"):
                own = defined(self.object_of(file))
                self.holders[file] = {name for name in self.programs if own <= symbols[name]} | self.starters

    def object_of(self, file):
        room, name = file.split("/")[1:]
        if room == "main":  # the entry as the tests hold it, under another name
            return os.path.join(self.build, "tests", "daemon", "unit", "CMakeFiles", "velarix_entry.dir", "__", "__", "__", file + ".o")
        return os.path.join(self.build, "src", room, "CMakeFiles", f"velarix_{room}.dir", name + ".o")

    def measure(self):
        """Runs every program on the unchanged tree: how long it takes and how many tests pass."""
        for name in self.programs:
            begun = time.monotonic()
            status, output = self.start(name, limit=600.0)
            passed = PASSED.search(output)
            if status != 0 or passed is None:
                raise Unusable(f"{name} fails on the unchanged tree:\n{output[-2000:]}")
            self.experience.seconds[name] = time.monotonic() - begun
            self.experience.tests[name] = int(passed.group(1))

    def start(self, name, limit):
        """Runs a program. Gives its status and its output; one that takes longer than `limit` is killed."""
        output_path = os.path.join(self.scratch, "output")
        command = ["timeout", "-s", "KILL", str(limit), "prlimit", f"--fsize={FILE_LIMIT}", f"--data={MEMORY_LIMIT}",
                   "--core=0", self.programs[name], "--gtest_brief=1", "--gtest_fail_fast"]
        # Into a file: what the program leaves behind may keep a pipe open.
        with open(output_path, "wb") as output:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.DEVNULL,
                                  cwd=self.build, env={**os.environ, "TMPDIR": self.scratch}, start_new_session=True)
        with open(output_path, encoding="utf-8", errors="replace") as output:
            return done.returncode, output.read()

    def notices(self, name):
        """Whether the program fails, twice in a row: a failure that does not come again is the
        machine's and not the mutant's."""
        limit = max(20.0, 5.0 * self.experience.seconds[name])
        for attempt in (1, 2):
            status, output = self.start(name, limit)
            if status == 0:
                passed = PASSED.search(output)
                if passed is None or int(passed.group(1)) != self.experience.tests[name]:
                    raise Unusable(f"{name} passes without running all of its tests:\n{output[-2000:]}")
                if attempt == 2:
                    self.experience.flaky[name] += 1
                return False
        return True

    def builds(self, file, *targets):
        """Whether ninja builds the targets; a build that breaks for another reason than an error
        of the compiler ends the run, since its mutants would be lost in silence."""
        command = ["ninja", "-C", self.build, "-j", self.ninja_jobs, *targets]
        done = subprocess.run(command, capture_output=True, text=True, start_new_session=True, timeout=BUILD_LIMIT)
        if done.returncode != 0 and "error:" not in done.stdout:
            raise Unusable(f"{file}: the build broke:\n{done.stdout[-3000:]}{done.stderr[-1000:]}")
        return done.returncode == 0

    def try_mutant(self, mutant):
        """Gives the name of the program that noticed, SURVIVED or NO_MUTANT (it does not compile)."""
        path = os.path.join(self.tree, mutant.file)
        self.write(path, mutant.text)
        try:
            return self.judge(mutant)
        finally:
            with open(os.path.join(self.source, mutant.file), encoding="utf-8") as original:
                self.write(path, original.read())
            shutil.rmtree(self.scratch, ignore_errors=True)
            os.makedirs(self.scratch, exist_ok=True)

    def judge(self, mutant):
        room = mutant.file.split("/")[1]
        # A header reaches further than its own room.
        target = "VelarixHA" if room == "main" or mutant.file.endswith(".h") else "velarix_" + room
        if not self.builds(mutant.file, target):
            return NO_MUTANT
        holders = self.holders.get(mutant.file, set(self.programs))
        for name in self.experience.order(mutant.file, holders):
            if not self.builds(mutant.file, name):
                return NO_MUTANT
            same = name not in self.starters and digest(self.programs[name]) == self.digests[name]
            if not same and self.notices(name):
                self.experience.kills[mutant.file, name] += 1
                return name
        return SURVIVED

    def write(self, path, text):
        """Writes the file with a time later than that of every write before."""
        with open(path, "w", encoding="utf-8") as handle:
            handle.write(text)
        self.last_write = max(time.time(), self.last_write + 0.01)
        os.utime(path, (self.last_write, self.last_write))
