# SPDX-License-Identifier: MIT
"""edidsim --junit: one test case per scenario file named as given, the
failure's text the comparison the text trace shows, unchecked scenarios and
demonstrations skipped, refused files errors."""

import argparse
import os
import re
import subprocess
import sys
import tempfile

from junitparser import JUnitXml

parser = argparse.ArgumentParser()
parser.add_argument("--edidsim", required=True)
parser.add_argument("--emulator", default="", help="what runs the program, separated by |")
parser.add_argument("--repo", required=True)
parser.add_argument("--data", required=True)
args = parser.parse_args()

program = [part for part in args.emulator.split("|") if part] + [args.edidsim]
failures = []


def play(arguments, status):
    done = subprocess.run(program + arguments, capture_output=True, text=True, check=False)
    if done.returncode != status:
        failures.append(f"{arguments}: exit status {done.returncode}, expected {status}\n{done.stderr}")
    return done.stdout


def report(name, arguments, status):
    """The cases of a run's report by name: (outcome, message, text)."""
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "report.xml")
        play(["--junit", path] + arguments, status)
        suites = list(JUnitXml.fromfile(path))
    cases = {}
    for suite in suites:
        for case in suite:
            results = list(case.result)
            outcome = type(results[0]).__name__.lower() if results else "passed"
            cases[case.name] = (outcome, results[0].message if results else None, results[0].text if results else None)
    if [s.tests for s in suites] != [len(cases)]:
        failures.append(f"{name}: one suite of {len(cases)} cases expected, got {[s.tests for s in suites]}")
    return cases


def counts(cases):
    tally = {}
    for outcome, _, _ in cases.values():
        tally[outcome] = tally.get(outcome, 0) + 1
    return tally


data = args.data
default = os.path.join(args.repo, "scenarios", "default.json")
failing = os.path.join(data, "diff-expectation.json")
unchecked = os.path.join(data, "unchecked.json")
demonstration = os.path.join(data, "demonstration.json")

# The failure's text is the text trace's comparison, line for line.
trace = play([failing], 1)
compared = "".join(line + "\n" for line in trace.splitlines() if re.match(r"(!! |   [-+! ] )", line))
rows = [
    {"name": "played", "arguments": [default, failing, unchecked, demonstration], "status": 1,
     "counts": {"passed": 1, "failure": 1, "skipped": 2},
     "cases": {failing: ("failure", "1 step(s) did not meet their expectations", compared),
               unchecked: ("skipped", "unchecked: no step has an expectation", None)}},
    {"name": "checks required", "arguments": ["--require-checks", unchecked, demonstration], "status": 1,
     "counts": {"failure": 1, "skipped": 1},
     "cases": {unchecked: ("failure", 'nothing is checked: no step has "expect" or "warnings"', None)}},
    {"name": "refused", "arguments": [default, os.path.join(data, "wrong-type.json")], "status": 2,
     "counts": {"skipped": 1, "error": 1},
     "cases": {default: ("skipped", "not played: a file was refused", None),
               os.path.join(data, "wrong-type.json"): (
                   "error", "refused: 1 problem",
                   os.path.join(data, "wrong-type.json") + ": /steps/0/interface: expected an integer, got a string\n")}},
]
if "!! step 1: the warnings differ" not in compared or "   ! came     #1 0xFC020607 DetailTiming" not in compared:
    failures.append(f"the text trace of {failing} lacks its comparison:\n{trace}")
# A capped problem list counts every problem, the shown and the others.
folder = tempfile.TemporaryDirectory()
many = os.path.join(folder.name, "many-faults.json")
with open(many, "w", encoding="utf-8") as f:
    f.write('{"device": {"interfaces": []}, "steps": [' + ", ".join(['{"do": "dance"}'] * 21) + "]}")
for row in rows:
    cases = report(row["name"], row["arguments"], row["status"])
    if counts(cases) != row["counts"]:
        failures.append(f"{row['name']}: {counts(cases)}, expected {row['counts']}")
    for file, wanted in row["cases"].items():
        if cases.get(file) != wanted:
            failures.append(f"{row['name']}: {file}: {cases.get(file)}, expected {wanted}")

capped = report("capped", [many], 2).get(many, (None, None, ""))
if capped[1] != "refused: 21 problems, 20 shown" or not capped[2].endswith(many + ": 1 more problem not shown\n"):
    failures.append(f"capped: {capped}")
folder.cleanup()

for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
