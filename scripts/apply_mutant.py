"""Reads scripts/mutants.txt for check_mutants.sh, which tells what it is for.

A line of the list holds, between bars: the file, the exact text that stands there once, what takes
its place, what the change is, and the test program with a colon and the filter of the tests that
notice it. A line break is written \\n, a bar within a text \\|.
"""

import collections
import pathlib
import re
import shutil
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FIELDS = ("path", "old", "new", "what", "tests")
Mutant = collections.namedtuple("Mutant", FIELDS)


def read_list():
    mutants = []
    for line in (ROOT / "scripts/mutants.txt").read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        fields = [field.strip().replace("\\|", "|") for field in re.split(r"(?<!\\)\|", line)]
        if len(fields) != len(FIELDS):
            sys.exit(f"not {len(FIELDS)} fields: {line}")
        mutant = Mutant(*fields)
        mutants.append(mutant._replace(old=mutant.old.replace("\\n", "\n"),
                                       new=mutant.new.replace("\\n", "\n")))
    return mutants


def check(mutants):
    bad = 0
    for number, mutant in enumerate(mutants, 1):
        count = (ROOT / mutant.path).read_text().count(mutant.old)
        if count != 1:
            print(f"{number}: {mutant.path} holds the text {count} times: {mutant.old!r}")
            bad += 1
    folders = collections.Counter(str(pathlib.Path(m.path).parent) for m in mutants)
    for folder, count in sorted(folders.items()):
        print(f"{count:5}  {folder}")
    print(f"{len(mutants):5}  in all")
    return bad


def main():
    mutants = read_list()
    action, *words = sys.argv[1:]
    if action == "--check":
        sys.exit(1 if check(mutants) else 0)
    elif action == "--count":
        print(len(mutants))
    elif action == "--tests":
        mutant = mutants[int(words[0]) - 1]
        program, tests = mutant.tests.split(":", 1)
        print(program, tests, mutant.what, sep="\t")
    elif action == "--apply":
        mutant = mutants[int(words[0]) - 1]
        target = pathlib.Path(words[1]) / mutant.path
        target.write_text(target.read_text().replace(mutant.old, mutant.new, 1))
    elif action == "--restore":
        for path in sorted({mutant.path for mutant in mutants}):
            target = pathlib.Path(words[0]) / path
            if target.read_bytes() != (ROOT / path).read_bytes():
                shutil.copyfile(ROOT / path, target)


main()
