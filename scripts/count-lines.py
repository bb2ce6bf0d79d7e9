#!/usr/bin/env python3
"""Share of test code: non-blank, non-comment lines of C, C++ and Python that
git tracks, tests (tests/, sim/tests/, tools/tests/, python/tests/, fuzz/)
against everything else maintained (src/, include/, sim/, tools/,
python/oru_sensor/, bench/, examples/). Prints e.g. "tests: 31 % of 15,200 lines"."""

import os
import re
import subprocess

SOURCES = (".c", ".cc", ".cpp", ".h", ".hpp", ".py")
TESTS = ("tests/", "sim/tests/", "tools/tests/", "python/tests/", "fuzz/")
CODE = ("src/", "include/", "sim/", "tools/", "python/oru_sensor/", "bench/", "examples/")
COMMENT = re.compile(r"^\s*(//|#|/\*|\*)")


def lines_of(path):
    with open(path, errors="replace") as f:
        return sum(1 for line in f if line.strip() and not COMMENT.match(line))


def main():
    top = subprocess.run(["git", "rev-parse", "--show-toplevel"], capture_output=True, text=True).stdout.strip()
    files = subprocess.run(["git", "-C", top, "ls-files"], capture_output=True, text=True).stdout.split()
    tests = code = 0
    for name in files:
        if not name.endswith(SOURCES) or not os.path.isfile(os.path.join(top, name)):
            continue
        if name.startswith(TESTS):
            tests += lines_of(os.path.join(top, name))
        elif name.startswith(CODE):
            code += lines_of(os.path.join(top, name))
    total = tests + code
    print("tests: %d %% of %s lines (%s test lines, %s code lines)"
          % (round(100 * tests / total) if total else 0, format(total, ","), format(tests, ","), format(code, ",")))


if __name__ == "__main__":
    main()
