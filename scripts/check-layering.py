#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks the project's includes against its targets and its arrows.

  check-layering.py --targets build/layering-targets.json [--no-qt TARGET]...

The description is what cmake/LayeringCheck.cmake writes at generate time.
Three checks, each problem one line FILE:LINE: ...; exit status 1 if any:

- An include that crosses into another folder is backed by a direct link:
  the including target's own link line names the target that owns the
  included file. A target reached through another's PUBLIC link does not
  count: a file includes what it uses, and its target links what it
  includes, so no layer breaks when another drops a dependency.
- The arrows between the simulator's rooms point one way (ARROWS).
- No Qt header is reachable from a --no-qt target's sources.
"""

import argparse
import json
import os
import re
import sys
from dataclasses import dataclass, field

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
CXX_SUFFIXES = (".h", ".hh", ".hpp", ".hxx", ".inc", ".ipp", ".c", ".cc", ".cpp", ".cxx")
# <QString>, <QtCore/QString>, <qglobal.h>.
QT_HEADER = re.compile(r"^(Q[A-Za-z0-9_]*|Qt[A-Za-z0-9]*/.+|q[a-z0-9_]*\.h)$")
LINKABLE = {"STATIC_LIBRARY", "SHARED_LIBRARY", "OBJECT_LIBRARY", "INTERFACE_LIBRARY"}


@dataclass
class Arrow:
    name: str
    # Folders (relative to the root, with a trailing slash) the rule holds for.
    within: tuple
    # Folders they never include from; empty: anything of the project
    # outside their own folder.
    never: tuple = ()


ARROWS = [
    # The decoder is plain C++17 any program can take; sim/edid/ is where
    # it lived before edid/.
    Arrow(name="the decoder stands alone", within=("edid/", "sim/edid/")),
    # The page and the program sit on top of the simulator, never under it.
    Arrow(name="the simulator knows neither page nor program", within=("sim/", "edid/"),
          never=("page/", "edidsim/")),
]


@dataclass
class Target:
    name: str
    type: str
    source_dir: str
    files: list
    links: set = field(default_factory=set)


class Tree:
    """The source tree, its targets and who owns which file."""

    def __init__(self, description):
        self.root = os.path.realpath(description["root"])
        self.build = os.path.realpath(description["build"])
        self.tests = os.path.join(self.root, "tests")
        self.targets = {}
        self.listed = {}  # file -> names of the targets listing it
        self.by_dir = {}  # directory -> targets declared there
        for entry in description["targets"]:
            target = Target(name=entry["name"], type=entry["type"],
                            source_dir=os.path.realpath(entry["sourceDir"]),
                            files=[os.path.realpath(f) for f in entry["files"]],
                            links=set(entry["links"]))
            self.targets[target.name] = target
            self.by_dir.setdefault(target.source_dir, []).append(target)
            for path in target.files:
                self.listed.setdefault(path, set()).add(target.name)
        self._includes = {}

    def rel(self, path):
        return os.path.relpath(path, self.root)

    def inside(self, path):
        """In the source tree, and not generated into a build tree in it."""
        def under(top):
            return path == top or path.startswith(top + os.sep)
        return under(self.root) and not under(self.build)

    def is_test(self, target):
        return target.source_dir == self.tests or target.source_dir.startswith(self.tests + os.sep)

    def includes(self, path):
        """(line, bracket, name) of every #include of a file, cached."""
        if path not in self._includes:
            found = []
            with open(path, encoding="utf-8", errors="replace") as source:
                for number, line in enumerate(source, 1):
                    match = INCLUDE.match(line)
                    if match:
                        found.append((number, match.group(1), match.group(2)))
            self._includes[path] = found
        return self._includes[path]

    def resolve(self, includer, bracket, name, tests):
        """The project file an include names, or None (system, Qt, generated).
        As the compiler looks: a quoted include beside its includer first,
        then the root, then tests/ for the tests' own targets."""
        bases = [os.path.dirname(includer)] if bracket == '"' else []
        bases.append(self.root)
        if tests:
            bases.append(self.tests)
        for base in bases:
            path = os.path.realpath(os.path.join(base, name))
            if self.inside(path) and os.path.isfile(path):
                return path
        return None

    def owners(self, path):
        """The targets that own a file, and whether they list it.

        A file's owner is the target listing it among its sources or header
        sets. Failing that, the library targets declared in the file's
        folder, or in the nearest folder above it that declares any target.
        Where a folder declares several libraries and none lists the file,
        any of them is taken as its owner, so a link to any of them passes:
        listing the header in its target's sources makes the check exact."""
        listed = self.listed.get(path)
        if listed:
            return listed, True
        folder = os.path.dirname(path)
        while True:
            declared = self.by_dir.get(folder)
            if declared:
                return {t.name for t in declared if t.type in LINKABLE}, False
            if folder == self.root or not self.inside(folder):
                return set(), False
            folder = os.path.dirname(folder)


def is_cxx(path):
    return path.endswith(CXX_SUFFIXES)


def check_links(tree, target, problems, missing):
    """Follows a target's includes from its sources through its own headers
    and the headers of the same folder; an include into another folder is
    checked against the target's direct links, not followed: the included
    file's own target answers for what that file includes."""
    tests = tree.is_test(target)
    start = [f for f in target.files if is_cxx(f) and tree.inside(f) and os.path.isfile(f)]
    seen = set(start)
    queue = list(start)
    while queue:
        includer = queue.pop()
        for line, bracket, name in tree.includes(includer):
            path = tree.resolve(includer, bracket, name, tests)
            if path is None:
                continue
            owners, listed = tree.owners(path)
            same_folder = os.path.dirname(path) == os.path.dirname(includer)
            if target.name in owners or (same_folder and not listed):
                if path not in seen:
                    seen.add(path)
                    queue.append(path)
                continue
            where = f'{tree.rel(includer)}:{line}: includes "{name}"'
            if not owners:
                problems.add(f"{where}, which no library target owns, from target {target.name}")
            elif not owners & target.links:
                owned = " or ".join(sorted(owners))
                problems.add(f"{where} (owned by {owned}) but target {target.name} does not link it directly")
                missing.setdefault(target.name, set()).add(owned if len(owners) == 1 else f"({owned})")


def check_arrows(tree, problems):
    for arrow in ARROWS:
        for folder in arrow.within:
            top = os.path.join(tree.root, folder)
            for directory, _, names in os.walk(top):
                for file_name in sorted(names):
                    includer = os.path.join(directory, file_name)
                    if not is_cxx(includer):
                        continue
                    for line, bracket, name in tree.includes(includer):
                        path = tree.resolve(includer, bracket, name, tests=False)
                        if path is None:
                            continue
                        rel = tree.rel(path)
                        if arrow.never:
                            broken = rel.startswith(arrow.never)
                            rule = f"nothing in {' or '.join(arrow.within)} includes from {' or '.join(arrow.never)}"
                        else:
                            broken = not rel.startswith(folder)
                            rule = f"nothing in {folder} includes anything of the project outside it"
                        if broken:
                            problems.add(f'{tree.rel(includer)}:{line}: includes "{name}": {rule} ({arrow.name})')


def check_no_qt(tree, target, problems):
    """Follows every project include from the target's sources, whichever
    folder it leads to: a Qt header anywhere on the way reaches the target."""
    tests = tree.is_test(target)
    start = [f for f in target.files if is_cxx(f) and tree.inside(f) and os.path.isfile(f)]
    via = {f: None for f in start}
    queue = list(start)
    while queue:
        includer = queue.pop()
        for line, bracket, name in tree.includes(includer):
            path = tree.resolve(includer, bracket, name, tests)
            if path is not None:
                if path not in via:
                    via[path] = includer
                    queue.append(path)
                continue
            if QT_HEADER.match(name):
                chain = []
                step = includer
                while step is not None:
                    chain.append(tree.rel(step))
                    step = via[step]
                problems.add(f"{tree.rel(includer)}:{line}: includes <{name}>, a Qt header, reached from target "
                             f"{target.name} ({' <- '.join(chain)})")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--targets", required=True, help="the description cmake wrote")
    parser.add_argument("--no-qt", action="append", default=[], metavar="TARGET",
                        help="a target no Qt header may reach")
    args = parser.parse_args()
    try:
        with open(args.targets, encoding="utf-8") as description:
            tree = Tree(json.load(description))
    except (OSError, ValueError, KeyError) as error:
        print(f"check-layering: {args.targets}: {error}", file=sys.stderr)
        return 2
    if not tree.targets:
        print(f"check-layering: {args.targets}: no targets", file=sys.stderr)
        return 2
    missing = [name for name in args.no_qt if name not in tree.targets]
    if missing:
        print(f"check-layering: no target {', '.join(missing)}", file=sys.stderr)
        return 2

    problems = set()
    missing = {}  # target -> the owners it should link
    for target in tree.targets.values():
        check_links(tree, target, problems, missing)
    check_arrows(tree, problems)
    for name in args.no_qt:
        check_no_qt(tree, tree.targets[name], problems)

    def by_place(problem):
        file_name, line, rest = problem.split(":", 2)
        return file_name, int(line), rest

    for problem in sorted(problems, key=by_place):
        print(problem)
    for name in sorted(missing):
        print(f"{name} lacks direct links to {', '.join(sorted(missing[name]))}")
    if problems:
        print(f"check-layering: {len(problems)} problem(s) in {len(tree.targets)} targets")
        return 1
    print(f"check-layering: {len(tree.targets)} targets, no problems")
    return 0


if __name__ == "__main__":
    sys.exit(main())
