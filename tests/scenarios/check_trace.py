# SPDX-License-Identifier: MIT
"""Every record of edidsim's JSON traces against docs/trace.schema.json: the
shipped scenarios', a refused, a failing and an unchecked one's, those of a
plug-in that does not load and a bad command line, and the page's where
EDIDSIM_PAGE_PICTURES names a directory for its pictures; and the schema
refuses records that are wrong, so it cannot pass everything."""

import argparse
import glob
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

parser = argparse.ArgumentParser()
parser.add_argument("--edidsim", required=True)
parser.add_argument("--emulator", default="", help="what runs the program, separated by |")
parser.add_argument("--repo", required=True)
parser.add_argument("--data", required=True)
args = parser.parse_args()

with open(os.path.join(args.repo, "docs", "trace.schema.json"), encoding="utf-8") as f:
    schema = json.load(f)
jsonschema.Draft202012Validator.check_schema(schema)
validator = jsonschema.Draft202012Validator(schema)
program = [part for part in args.emulator.split("|") if part] + [args.edidsim]
failures = []
seen = {}  # record type: one record of it


def run(name, arguments, status):
    # A command's options follow its name.
    command = arguments[:1] + ["--json"] + arguments[1:] if arguments[:1] == ["page"] else ["--json"] + arguments
    done = subprocess.run(program + command, capture_output=True, text=True, check=False)
    if done.returncode != status:
        failures.append(f"{name}: exit status {done.returncode}, expected {status}\n{done.stderr}")
    if done.stderr:
        failures.append(f"{name}: standard error holds {done.stderr!r}")
    records = []
    for number, line in enumerate(done.stdout.splitlines(), 1):
        try:
            record = json.loads(line)
        except json.JSONDecodeError as error:
            failures.append(f"{name}: line {number} is no JSON: {error}: {line}")
            continue
        for error in validator.iter_errors(record):
            failures.append(f"{name}: line {number}: {error.message}: {line}")
        records.append(record)
        seen.setdefault(record.get("type"), record)
    if not records or records[0] != {"type": "trace", "version": 1}:
        failures.append(f"{name}: the first record is not the version: {records[:1]}")
    if not records or records[-1].get("type") != "summary" or records[-1].get("status") != status:
        failures.append(f"{name}: the last record is no summary of status {status}: {records[-1:]}")
    return records


shipped = sorted(glob.glob(os.path.join(args.repo, "scenarios", "*.json")))
if not shipped:
    failures.append("no shipped scenario found")
for file in shipped:
    run(os.path.basename(file), [file], 0)
everything = run("all shipped", shipped, 0)
if everything and everything[-1].get("passed") != len(shipped):
    failures.append(f"all shipped: not every one passed: {everything[-1]}")
data = args.data
run("refused", [os.path.join(data, "several-faults.json"), os.path.join(data, "syntax-error.json")], 2)
run("failing", [os.path.join(data, "diff-expectation.json"), os.path.join(data, "unexpected-warning.json")], 1)
run("unchecked", [os.path.join(data, "unchecked.json"), os.path.join(data, "demonstration.json")], 0)
with tempfile.TemporaryDirectory() as folder:
    many = os.path.join(folder, "many-faults.json")
    with open(many, "w", encoding="utf-8") as f:
        json.dump({"device": {"interfaces": []}, "steps": [{"do": "dance"}] * 30}, f)
    run("capped", [many], 2)
run("no plug-in", ["--plugin", "/nonexistent/liboutputedidviewmodel.so", shipped[0]], 3)
run("bad option", ["--frobnicate"], 2)
# The page's run, where it is built, ends as the run command's.
pictures = os.environ.get("EDIDSIM_PAGE_PICTURES")
if pictures:
    run("page failing", ["page", "--replace", "--screenshots", pictures, os.path.join(data, "two-unmet.json")], 1)
    run("page refused", ["page", os.path.join(data, "several-faults.json")], 2)

# Every type of record the program writes was met (the page's only by the
# page command).
wanted = {"trace", "plugin", "scenario", "step", "message", "warning", "note", "failure", "difference", "result",
          "problem", "problemsNotShown", "error", "summary"}
if wanted - seen.keys():
    failures.append(f"record types never written: {sorted(wanted - seen.keys())}")


def without(record, key):
    return {k: v for k, v in record.items() if k != key}


# Records the schema must refuse: the old untyped form, an unknown type or
# version, and real records with a field lost, added or of the wrong shape.
wrong = [
    {"name": "untyped, as before the format had versions", "record": {"note": "registered 16 message numbers"}},
    {"name": "an unknown type", "record": {"type": "verdict", "text": "passed"}},
    {"name": "another version", "record": {"type": "trace", "version": 2}},
    {"name": "a number not in hexadecimal", "record": {**seen.get("message", {}), "number": "FC020607"}},
    {"name": "a message without its direction", "record": without(seen.get("message", {}), "dir")},
    {"name": "a field the format lacks", "record": {**seen.get("step", {}), "time": 12}},
    {"name": "a summary without status", "record": without(seen.get("summary", {}), "status")},
    {"name": "a side as a text", "record": {**seen.get("difference", {}), "expected": {"index": 0, "text": "0xFC001009"}}},
    {"name": "a missing message that came",
     "record": {**seen.get("difference", {}), "change": "missing",
                "came": {"index": 0, "kind": "call", "number": None, "name": "relatedConnectors", "length": None,
                         "fields": {}}}},
    {"name": "a warning's side with a message's fields", "record": {**seen.get("difference", {}), "what": "warnings"}},
    {"name": "a problem of two lines", "record": {**seen.get("problem", {}), "message": "one\ntwo"}},
    {"name": "a negative step", "record": {**seen.get("step", {}), "step": -1}},
]
for row in wrong:
    if validator.is_valid(row["record"]):
        failures.append(f"the schema accepts {row['name']}: {json.dumps(row['record'])}")

for failure in failures:
    print(failure)
sys.exit(1 if failures else 0)
