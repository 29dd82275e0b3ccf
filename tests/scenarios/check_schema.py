# SPDX-License-Identifier: MIT
"""docs/scenario.schema.json against the scenarios: it takes every shipped
scenario and every test scenario the reader takes, and refuses the bad test
files whose fault is one of structure. The reader stays the authority: the
faults it alone finds are listed as such.

Usage: check_schema.py REPO
"""
import json
import sys
from pathlib import Path

import jsonschema

# Refused by the schema: unknown keys, missing keys, wrong types (expected
# fields' too), numbers out of range, unknown step kinds or host variations.
STRUCTURAL = [
    "control-characters.json",
    "expectation-keys.json",  # its verdicts as an object; its unknown keys are the reader's to find
    "expectation-types.json",
    "interface-id-string.json",
    "misspelt-names.json",
    "missing-field.json",
    "negative-length.json",
    "number-overflow.json",  # 1e400: JSON's parser here reads infinity, beyond a float
    "out-of-range.json",
    "raw-address.json",  # its bad number, kind and hex; raw bytes where addresses belong are the reader's to find
    "several-faults.json",
    "unknown-key.json",
    "unknown-variation.json",
    "wrong-type.json",
]
# Refused by the reader only, taken by the schema: interface ids that name no interface, message
# names and which fields each message shows, EDID files and modes.
SEMANTIC = [
    "bad-edid.json",
    "duplicate-keys.json",  # a JSON reader keeps one of them
    "edid-interlaced-choice.json",
    "missing-edid.json",
    "unknown-interface.json",
    "unknown-message.json",
]
# Not JSON at all.
UNPARSABLE = ["syntax-error.json"]
# Taken by the reader: they test the play, not the reading.
VALID = [
    "control-warning.json",
    "demonstration.json",
    "diff-expectation.json",
    "edid-damaged.json",
    "edid-interlaced-preferred.json",
    "flags-as-numbers.json",
    "two-unmet.json",
    "unchecked.json",
    "unexpected-warning.json",
    "unmet-expectation.json",
    "probe-report.json",
    "probe-report-unknown-variation.json",  # a scenario all the same; --host-profile refuses it
    "raw-steps.json",
    "unreachable-screen.json",
]

INTERFACE = {"id": 3, "thumb": {"width": 1920, "height": 1080, "refresh": 60}}


def scenario(steps, **top):
    return {**top, "device": {"interfaces": [INTERFACE]}, "steps": steps}


# What the files above do not show: booleans written 0 and 1, a device step's
# partial interface, and the choices between keys.
CASES = [
    {"name": "booleans as 0 and 1", "valid": True,
     "document": scenario([{"do": "answer", "accept": 0}], demonstration=1)},
    {"name": "booleans as true and false", "valid": True,
     "document": scenario([{"do": "answer", "accept": True}], demonstration=False)},
    {"name": "a boolean as 2", "valid": False, "document": scenario([], demonstration=2)},
    {"name": "a boolean as a string", "valid": False, "document": scenario([{"do": "answer", "accept": "yes"}])},
    {"name": "a device step changes one key", "valid": True,
     "document": scenario([{"do": "device", "interfaces": [{"id": 3, "status": 2}], "writesApply": 0}])},
    {"name": "an interface without thumb or EDID", "valid": False,
     "document": {"device": {"interfaces": [{"id": 3}]}, "steps": []}},
    {"name": "an EDID and a thumb", "valid": False,
     "document": {"device": {"interfaces": [{**INTERFACE, "edid": "a.edid"}]}, "steps": []}},
    {"name": "a choice by timing and by EDID", "valid": False,
     "document": scenario([{"do": "chooseThumb", "timing": INTERFACE["thumb"], "edid": {"interface": 3, "index": 0}}])},
    {"name": "a key of another step kind", "valid": False, "document": scenario([{"do": "refresh", "interface": 3}])},
    {"name": "an expectation with name and number", "valid": False,
     "document": scenario([{"do": "refresh", "expect": [{"name": "ThumbTiming", "number": "0xFC020608"}]}])},
]


def main():
    repo = Path(sys.argv[1])
    data = repo / "tests" / "scenarios" / "data"
    schema = json.loads((repo / "docs" / "scenario.schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    failures = []

    listed = set(STRUCTURAL + SEMANTIC + UNPARSABLE + VALID)
    unlisted = sorted(p.name for p in data.glob("*.json") if p.name not in listed)
    if unlisted:
        failures.append(f"test files neither structural, semantic nor valid here: {unlisted}")

    def errors(document):
        return [f"{e.json_path}: {e.message}" for e in validator.iter_errors(document)]

    for path in sorted((repo / "scenarios").glob("*.json")) + [data / name for name in VALID + SEMANTIC]:
        found = errors(json.loads(path.read_text()))
        if found:
            failures.append(f"{path.name} refused: {found}")
    for name in STRUCTURAL:
        if not errors(json.loads((data / name).read_text())):
            failures.append(f"{name} taken, though its fault is one of structure")
    for name in UNPARSABLE:
        try:
            json.loads((data / name).read_text())
            failures.append(f"{name} parses")
        except json.JSONDecodeError:
            pass
    for case in CASES:
        found = errors(case["document"])
        if bool(found) == case["valid"]:
            failures.append(f"{case['name']}: {'refused: ' + str(found) if found else 'taken'}")

    for failure in failures:
        print("FAIL: " + failure)
    if not failures:
        print(f"schema: {len(STRUCTURAL)} structural faults refused, {len(CASES)} cases as expected")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
