"""Makes the changes of scripts/mutants.txt; check_mutants.sh tells what for and calls this.

A line of the list holds, between bars: the file, the exact text that stands there once, what takes
its place, what the change is, and the test program with a colon and the filter of the tests that
notice it. A line break is written \\n, a bar within a text \\|.

What holds the changed file is compiled from a copy of the sources, with the commands of
build/release, and linked before the libraries of the test program. The libraries still have the
unchanged object; the linker takes nothing from it, because all that it has is there by then.
"""

import collections
import concurrent.futures
import functools
import json
import os
import pathlib
import queue
import re
import shlex
import shutil
import subprocess
import sys
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release"
SCRATCH = ROOT / "build/mutants"
COPIED = ("src", "client/include")
# Sanitizers and slow machines aside, no test of the list needs a tenth of it.
TIMEOUT_S = 120
FIELDS = ("path", "old", "new", "what", "tests")


class Mutant(collections.namedtuple("Mutant", FIELDS)):
    @property
    def program(self):
        return self.tests.split(":", 1)[0]

    @property
    def filter(self):
        return self.tests.split(":", 1)[1]

    @property
    def folder(self):
        return str(pathlib.Path(self.path).parent)


def processor_flags():
    cpuinfo = pathlib.Path("/proc/cpuinfo")
    return set(cpuinfo.read_text().split()) if cpuinfo.exists() else set()


def runs_here(mutant):
    """Whether this processor has the instructions of a file named after them."""
    needed = re.search(r"_(avx2|avx512)\.", mutant.path)
    return needed is None or {"avx2": "avx2", "avx512": "avx512vl"}[needed[1]] in processor_flags()


def read_list():
    mutants = []
    for line in (ROOT / "scripts/mutants.txt").read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        fields = [field.strip(" ").replace("\\|", "|") for field in re.split(r"(?<!\\)\|", line)]
        if len(fields) != len(FIELDS):
            sys.exit(f"not {len(FIELDS)} fields: {line}")
        fields[1:3] = [field.replace("\\n", "\n") for field in fields[1:3]]
        mutants.append(Mutant(*fields))
    return mutants


def check_texts(mutants):
    bad = 0
    for number, mutant in enumerate(mutants, 1):
        count = (ROOT / mutant.path).read_text().count(mutant.old)
        if count != 1 or mutant.old == mutant.new:
            print(f"{number}: {mutant.path} holds the text {count} times: {mutant.old!r}")
            bad += 1
    return bad


def ninja(*words):
    return subprocess.run(["ninja", "-C", BUILD, *words], check=True, capture_output=True,
                          text=True).stdout


class Commands:
    """How build/release compiles and links."""

    def __init__(self, programs):
        subprocess.run(["cmake", "--build", BUILD, "-j", str(os.cpu_count()), "--target",
                        *sorted(programs)], check=True, stdout=subprocess.DEVNULL)
        self.compile = {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.compile[words[words.index("-o") + 1]] = words
        self.users = collections.defaultdict(set)  # of a file: the objects that hold it
        for line in ninja("-t", "deps").splitlines():
            if line.startswith("    "):
                path = pathlib.Path(os.path.normpath(BUILD / line.strip()))
                if path.is_relative_to(ROOT):
                    self.users[str(path.relative_to(ROOT))].add(target)
            elif ":" in line:
                target = line.split(":", 1)[0]

    @functools.cache
    def link(self, program):
        command = ninja("-t", "commands", "-s", f"tests/{program}").strip()
        return shlex.split(command.removeprefix(": && ").split(" && ")[0])

    @functools.cache
    def objects(self, program):
        """Those that are linked into the program, by the libraries or by themselves."""
        objects = {word for word in self.link(program) if word.endswith(".o")}
        for library in {word for word in self.link(program) if word.endswith(".a")}:
            if (BUILD / library).is_relative_to(BUILD) and not library.startswith("/"):
                words = shlex.split(ninja("-t", "commands", "-s", library))
                objects |= {word for word in words if word.endswith(".o")}
        return objects


def copy_sources(place):
    for folder in COPIED:
        shutil.copytree(ROOT / folder, place / folder, dirs_exist_ok=True)


def into(place, word):
    """A word of a compiler's command with the copy's folders in place of the tree's."""
    for folder in COPIED:
        word = re.sub(rf"{re.escape(str(ROOT / folder))}(?=/|$)", str(place / folder), word)
    return word


def build_changed(commands, mutant, place):
    """The test program with the change, or None when it does not compile."""
    link = commands.link(mutant.program)
    changed = commands.users[mutant.path] & commands.objects(mutant.program)
    # A test that includes a source file takes the place of the library's object.
    if mutant.path.endswith(".cpp") and changed & set(link):
        changed &= set(link)
    if not changed:
        return None
    replaced = {}
    for number, name in enumerate(sorted(changed)):
        words = [into(place, word) for word in commands.compile[name]]
        replaced[name] = str(place / f"{number}.o")
        words[words.index("-o") + 1] = replaced[name]
        if subprocess.run(words, cwd=BUILD, stderr=subprocess.DEVNULL).returncode != 0:
            return None
    program = str(place / mutant.program)
    output = link.index("-o")
    words = [replaced.pop(word, word) for word in link[:output]]
    words += [*replaced.values(), "-o", program, *link[output + 2:]]
    linked = subprocess.run(words, cwd=BUILD, stderr=subprocess.DEVNULL).returncode == 0
    return program if linked else None


def run_tests(program, tests):
    """Whether they pass, and the first that does not or what ended the program."""
    words = [program, f"--gtest_filter={tests}", "--gtest_fail_fast"]
    try:
        run = subprocess.run(words, cwd=BUILD, timeout=TIMEOUT_S, capture_output=True, text=True,
                             errors="replace", stdin=subprocess.DEVNULL)
    except subprocess.TimeoutExpired:
        return False, f"not ended after {TIMEOUT_S} s"
    if run.returncode == 0:
        passed = re.search(r"\[  PASSED  \] (\d+) test", run.stdout)
        return True, f"{passed[1] if passed else 0} tests"
    failed = re.search(r"\[  FAILED  \] (\S+?),? ", run.stdout)
    if failed or run.returncode == 1:  # a test that captures standard output may swallow its name
        return False, failed[1] if failed else "a test failed"
    return False, f"ended with {run.returncode}"


def check_unchanged(mutants):
    """A test that fails anyway notices nothing."""
    for tests in sorted({mutant.tests for mutant in mutants}):
        program, names = tests.split(":", 1)
        passed, what = run_tests(BUILD / "tests" / program, names)
        if not passed or what == "0 tests":
            sys.exit(f"without any change, {tests}: {what}")


class Checker:
    """Compiles two changes at a time, runs the tests of one: some measure pauses."""

    def __init__(self, mutants):
        self.commands = Commands({mutant.program for mutant in mutants})
        check_unchanged(mutants)
        self.testing = threading.Lock()
        self.places = queue.Queue()
        self.workers = os.cpu_count() or 1
        shutil.rmtree(SCRATCH, ignore_errors=True)
        for number in range(self.workers):
            place = SCRATCH / str(number)
            copy_sources(place)
            self.places.put(place)

    def check(self, mutant):
        """Whether it was noticed, and how."""
        place = self.places.get()
        target = place / mutant.path
        original = target.read_text()
        try:
            target.write_text(original.replace(mutant.old, mutant.new, 1))
            program = build_changed(self.commands, mutant, place)
            if program is None:
                return False, "DOES NOT COMPILE"
            with self.testing:
                passed, what = run_tests(program, mutant.filter)
            return not passed, f"NOT NOTICED by {mutant.tests}" if passed else what
        finally:
            target.write_text(original)
            self.places.put(place)


def check(numbered):
    begin = time.monotonic()
    checker = Checker([mutant for _, mutant in numbered])
    table = collections.Counter()
    bad = 0
    with concurrent.futures.ThreadPoolExecutor(checker.workers) as pool:
        verdicts = pool.map(checker.check, [mutant for _, mutant in numbered])
        for (number, mutant), (noticed, what) in zip(numbered, verdicts):
            print(f"{number:4}  {what:60}  {mutant.folder}: {mutant.what}", flush=True)
            if noticed:
                table[mutant.folder, mutant.program] += 1
            else:
                bad += 1
    print()
    for (folder, program), count in sorted(table.items()):
        print(f"{count:5}  {folder:40}  noticed by {program}")
    print(f"{len(numbered):5}  changes, {bad} unnoticed, {time.monotonic() - begin:.0f} s")
    return bad


def main():
    mutants = read_list()
    if check_texts(mutants):
        sys.exit(1)
    numbered = list(enumerate(mutants, 1))
    option, *words = sys.argv[1:] or [""]
    if option == "--list":
        for folder, count in sorted(collections.Counter(m.folder for m in mutants).items()):
            print(f"{count:5}  {folder}")
        print(f"{len(mutants):5}  in all")
        return
    if option == "--part":
        part, parts = map(int, words)
        numbered = numbered[part - 1::parts]
    elif option == "--grep":
        numbered = [pair for pair in numbered if any(words[0] in field for field in pair[1])]
    left_out = [pair for pair in numbered if not runs_here(pair[1])]
    if left_out:
        print(f"{len(left_out)} changes need instructions that this processor does not have")
    numbered = [pair for pair in numbered if pair not in left_out]
    if not numbered or check(numbered):
        sys.exit(1)


main()
