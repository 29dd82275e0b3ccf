# SPDX-License-Identifier: MIT
"""edidsim's rewriting of scenario files, on copies in a scratch folder:

  canonical  every shipped scenario is in the canonical form: --format leaves
             each byte as it is
  unchanged  blessing the shipped scenarios, which pass, changes no byte
  stripped   the shipped scenarios without expect and warnings, blessed, pass,
             and every expectation they had comes back: the same messages in
             the same order, each original field with its value, the same
             warnings
  refused    a bless that cannot play a file leaves it untouched: a bad
             scenario (status 2), a plug-in that does not load (status 3);
             --format refuses what the reader refuses, saying why
  links      a file named by a symbolic link is rewritten where the link
             points, and the link stays

Usage: check_rewrite.py CHECK --program EDIDSIM [--emulator CMD] --repo DIR
--scratch DIR [--plugin PATH]
"""
import argparse
import json
import re
import shutil
import subprocess
import sys
from pathlib import Path


def fail(text):
    print("FAIL: " + text)
    sys.exit(1)


class Edidsim:
    def __init__(self, program, emulator):
        self.command = (emulator.split("|") if emulator else []) + [program]

    def run(self, *args, code=0):
        done = subprocess.run(self.command + [str(a) for a in args], capture_output=True, text=True)
        # A sanitizer's report may leave the status as expected.
        if re.search(r"(ERROR|WARNING): [A-Za-z]+Sanitizer|runtime error:", done.stderr):
            fail(f"edidsim {' '.join(map(str, args))}: a sanitizer report\n{done.stderr}")
        if done.returncode != code:
            fail(f"edidsim {' '.join(map(str, args))}: status {done.returncode}, expected {code}\n"
                 f"--- stdout\n{done.stdout}--- stderr\n{done.stderr}")
        return done.stdout + done.stderr


def copies(repo, scratch):
    """The shipped scenarios copied with the EDID files they name."""
    shutil.rmtree(scratch, ignore_errors=True)
    shutil.copytree(repo / "scenarios", scratch)
    return sorted(scratch.glob("*.json"))


def check_canonical(edidsim, repo, scratch):
    files = copies(repo, scratch)
    edidsim.run("--format", *files)
    for copy in files:
        if copy.read_bytes() != (repo / "scenarios" / copy.name).read_bytes():
            fail(f"scenarios/{copy.name} is not in the canonical form; run: edidsim --format scenarios/{copy.name}")
    print(f"{len(files)} scenarios in the canonical form")


def check_unchanged(edidsim, repo, scratch):
    files = copies(repo, scratch)
    out = edidsim.run("--bless", *files)
    for copy in files:
        if copy.read_bytes() != (repo / "scenarios" / copy.name).read_bytes():
            fail(f"blessing scenarios/{copy.name} changed it:\n{out}")
        if f"unchanged {copy}: 0 of " not in out:
            fail(f"no 'unchanged' line for {copy}:\n{out}")
    print(out, end="")


def message_names(edidsim):
    rows = re.findall(r"^\| (0x[0-9A-F]{8}) \| (\w+) \|", edidsim.run("--messages-markdown"), re.M)
    return {number: name for number, name in rows}


def identity(item, names):
    text = item if isinstance(item, str) else item.get("name", item.get("number"))
    return names.get(text.upper().replace("0X", "0x"), text) if text.lower().startswith("0x") else text


def fields(item):
    return {} if isinstance(item, str) else {k: v for k, v in item.items() if k not in ("name", "number")}


def within(original, blessed):
    """Every key the original gives, with its value; lists element by element."""
    if isinstance(original, dict):
        return isinstance(blessed, dict) and all(k in blessed and within(v, blessed[k]) for k, v in original.items())
    if isinstance(original, list):
        return (isinstance(blessed, list) and len(original) == len(blessed)
                and all(within(o, b) for o, b in zip(original, blessed)))
    return type(original) is type(blessed) and original == blessed


def check_stripped(edidsim, repo, scratch):
    files = copies(repo, scratch)
    for copy in files:
        document = json.loads(copy.read_text())
        for step in document["steps"]:
            step.pop("expect", None)
            step.pop("warnings", None)
        copy.write_text(json.dumps(document))
    out = edidsim.run("--bless", *files)
    edidsim.run(*files)
    names = message_names(edidsim)
    complete = 0
    for copy in files:
        steps = json.loads((repo / "scenarios" / copy.name).read_text())["steps"]
        blessed = json.loads(copy.read_text())["steps"]
        if f"blessed {copy}: {len(steps)} of {len(steps)} steps changed" not in out:
            fail(f"no 'blessed' line for {copy}:\n{out}")
        for index, (step, again) in enumerate(zip(steps, blessed)):
            where = f"{copy.name} step {index}"
            if "expect" not in again:
                fail(f"{where}: not blessed")
            if {k: v for k, v in step.items() if k not in ("expect", "warnings")} != \
               {k: v for k, v in again.items() if k not in ("expect", "warnings")}:
                fail(f"{where}: the step's other keys changed")
            if "expect" not in step:
                continue
            if step.get("warnings", []) != again.get("warnings", []):
                fail(f"{where}: warnings {step.get('warnings')} came back as {again.get('warnings')}")
            if [identity(i, names) for i in step["expect"]] != [identity(i, names) for i in again["expect"]]:
                fail(f"{where}: expected {step['expect']}, blessed {again['expect']}")
            for item, back in zip(step["expect"], again["expect"]):
                if not within(fields(item), fields(back)):
                    fail(f"{where}: {item} came back as {back}")
                complete += fields(item) == fields(back)
    if complete == 0:
        fail("no complete expectation to compare")
    print(f"{len(files)} scenarios blessed from nothing pass; {complete} complete expectations came back equal")


def check_refused(edidsim, repo, scratch, plugin):
    copies(repo, scratch)
    bad = scratch / "wrong-type.json"
    shutil.copy(repo / "tests/scenarios/data/wrong-type.json", bad)
    # Not canonical, expecting nothing: a bless that went ahead would rewrite it.
    good = scratch / "default.json"
    document = json.loads(good.read_text())
    for step in document["steps"]:
        step.pop("expect", None)
    good.write_text(json.dumps(document))
    before = {path: path.read_bytes() for path in (bad, good)}
    out = edidsim.run("--bless", good, bad, code=2)
    if "wrong-type.json: /steps/0/interface: expected an integer" not in out:
        fail(f"the bad scenario's problem is not named:\n{out}")
    edidsim.run("--plugin", plugin, "--bless", good, code=3)
    edidsim.run("--bless", code=2)
    for path, text in before.items():
        if path.read_bytes() != text:
            fail(f"{path.name} was written by a bless that could not play it")
    # --format reads as the reader does: no JSON file other than a scenario is rewritten.
    other = scratch / "other.json"
    other.write_text('{"a":1}')
    rows = [
        {"name": "a directory", "file": scratch, "says": f"{scratch}: is a directory, not a scenario file"},
        {"name": "no file", "file": scratch / "no-such.json",
         "says": "no-such.json: cannot be read: No such file or directory"},
        {"name": "not a scenario", "file": other, "says": "other.json: /device: missing"},
        {"name": "a bad scenario", "file": bad, "says": "wrong-type.json: /steps/0/interface: expected an integer"},
    ]
    for row in rows:
        out = edidsim.run("--format", row["file"], code=2)
        if row["says"] not in out:
            fail(f"--format of {row['name']}: {row['says']!r} not said:\n{out}")
    if other.read_text() != '{"a":1}':
        fail("--format rewrote a JSON file that is no scenario")
    leftovers = [p.name for p in scratch.iterdir() if p.suffix != ".json" and p.is_file()]
    if leftovers:
        fail(f"files left beside the scenarios: {leftovers}")
    print("refused blesses left the files untouched")


def check_links(edidsim, repo, scratch):
    copies(repo, scratch)
    target = scratch / "default.json"
    document = json.loads(target.read_text())
    for step in document["steps"]:
        step.pop("expect", None)
    link = scratch / "links" / "default.json"
    link.parent.mkdir()
    link.symlink_to(target)
    for option, wanted in [("--format", "reformatted"), ("--bless", "blessed")]:
        target.write_text(json.dumps(document))
        out = edidsim.run(option, link)
        if not link.is_symlink() or link.resolve() != target.resolve():
            fail(f"{option} replaced the link {link} by a file")
        if wanted not in out or target.read_text().count("\n") < 3:
            fail(f"{option} did not rewrite the link's target:\n{out}")
    if not all("expect" in step for step in json.loads(target.read_text())["steps"]):
        fail(f"the link's target was not blessed:\n{target.read_text()}")
    leftovers = [p.name for p in scratch.rglob("*") if ".json." in p.name]
    if leftovers:
        fail(f"files left beside the scenarios: {leftovers}")
    print("a link's target rewritten, the link kept")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("check", choices=["canonical", "unchanged", "stripped", "refused", "links"])
    parser.add_argument("--program", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--repo", required=True, type=Path)
    parser.add_argument("--scratch", required=True, type=Path)
    parser.add_argument("--plugin", default="/nonexistent/liboutputedidviewmodel.so")
    args = parser.parse_args()
    edidsim = Edidsim(args.program, args.emulator)
    if args.check == "refused":
        check_refused(edidsim, args.repo, args.scratch, args.plugin)
    else:
        globals()["check_" + args.check](edidsim, args.repo, args.scratch)


if __name__ == "__main__":
    main()
