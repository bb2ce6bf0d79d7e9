#!/usr/bin/env python3
"""Counts the tests of every tier from the files the tiers leave in a results
folder: JUnit XML (ctest --output-junit) and NAME.count files holding
"PASSED FAILED". Prints a line per file, or with --totals the closing line
"N passed, N failed"."""

import os
import sys
import xml.etree.ElementTree as ET


def counts(path):
    if path.endswith(".xml"):
        root = ET.parse(path).getroot()
        suites = [root] if root.tag == "testsuite" else root.findall("testsuite")
        total = sum(int(s.get("tests", 0)) for s in suites)
        bad = sum(int(s.get("failures", 0)) + int(s.get("errors", 0)) for s in suites)
        skipped = sum(int(s.get("skipped", 0)) for s in suites)
        return total - bad - skipped, bad
    with open(path) as f:
        passed, failed = f.read().split()
    return int(passed), int(failed)


def main(argv):
    totals_only = argv[1:2] == ["--totals"]
    folder = argv[-1]
    passed = failed = 0
    for name in sorted(os.listdir(folder)):
        if not name.endswith((".xml", ".count")):
            continue
        p, f = counts(os.path.join(folder, name))
        passed += p
        failed += f
        if not totals_only:
            print("%-24s %6d passed, %d failed" % (name.rsplit(".", 1)[0], p, f))
    print("%d passed, %d failed" % (passed, failed))


if __name__ == "__main__":
    main(sys.argv)
