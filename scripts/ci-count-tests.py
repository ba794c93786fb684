#!/usr/bin/env python3
"""Counts the tests in a folder of program logs (PROGRAM.log, with its exit
status in PROGRAM.log.rc) and prints one line:
    NAME: P tests passed, S skipped, of T run (N programs)
A googletest program counts its own tests; any other program counts as one
test. Exits 1 on any failure, on a googletest program without its summary,
and when nothing passed."""
import glob
import re
import sys

name, logs = sys.argv[1], sys.argv[2]
ran = passed = skipped = programs = 0
bad = []
for log in sorted(glob.glob(logs + "/*.log")):
    programs += 1
    text = open(log, errors="replace").read()
    rc = int(open(log + ".rc").read())
    total = re.search(r"\[==========\] (\d+) tests? from .* ran", text)
    ok = re.search(r"\[  PASSED  \] (\d+) test", text)
    skip = re.search(r"\[  SKIPPED \] (\d+) test", text)
    if total:
        n_ok = int(ok.group(1)) if ok else 0
        n_skip = int(skip.group(1)) if skip else 0
        ran += int(total.group(1))
        passed += n_ok
        skipped += n_skip
        if rc != 0 or "[  FAILED  ]" in text or n_ok + n_skip != int(total.group(1)):
            bad.append(log)
    elif "[==========]" in text or "Running main()" in text:
        bad.append(log)  # a googletest program that stopped before its summary
    else:
        ran += 1
        passed += rc == 0
        if rc != 0:
            bad.append(log)
print(f"{name}: {passed} tests passed, {skipped} skipped, of {ran} run ({programs} programs)")
for log in bad:
    print(f"--- failed: {log}")
    print("".join(open(log, errors="replace").readlines()[-40:]))
sys.exit(1 if bad or passed == 0 else 0)
