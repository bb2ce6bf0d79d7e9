#!/usr/bin/env python3
"""Mutation sampler: how many small faults in a room does its test suite catch?

Applies one change at a time to the sources of a room (flip a comparison,
shift a constant by one, swap && and || or `and` and `or`, delete a call
statement, change a returned value), rebuilds incrementally, runs the tests
that cover the room, and counts the mutant killed when any test fails or
times out. Rooms (--room): the library's core (src/ without the rooms
below), measurement, calibration, reconstruction, tools (the command line
and its logger) and python (the binding and the live view; Python mutants
need no rebuild). A mutant that does not compile is replaced by the
next candidate of the same kind and not counted. The source file is always
restored, also on Ctrl-C.

Candidates are ordered by a hash of (seed, file, line text, change), so the
same seed picks the same mutants in two trees whose sources differ in a few
lines only. Kinds take turns, so every kind is sampled.

  scripts/mutate.py --seed 2026 --count 60 [--room core,measurement,...] [--tree DIR] [--build DIR] [--report FILE]

Not part of scripts/test.sh: one run takes an hour or more.
"""

import argparse
import ast
import glob
import hashlib
import io
import json
import os
import re
import signal
import subprocess
import sys
import time
import tokenize

KINDS = ("comparison", "constant", "logic", "call", "return")
FLIP = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
KEYWORDS = {"return", "if", "while", "for", "switch", "case", "delete", "throw", "sizeof", "static_assert", "else", "do"}
CALL = re.compile(r"^(\s*)([A-Za-z_][\w:]*(?:(?:\.|->)[A-Za-z_]\w*)*)\s*(?:<[\w:, ]*>)?\s*\((.*)\)\s*;\s*$")
RETURN = re.compile(r"^(\s*)return\s+(.+?)\s*;\s*$")
NUMBER = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)(?![\w.'])")
COMPARISON = re.compile(r"(?<=\s)(==|!=|<=|>=|<|>)(?=\s)")
LOGIC = re.compile(r"(?<=\s)(&&|\|\|)(?=\s)")


def mask(text):
    """Blanks comments, string and character literals, keeping columns and newlines."""
    out, i, n = [], 0, len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            out.append(" " * (j - i))
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            out.append(re.sub(r"[^\n]", " ", text[i:j]))
            i = j
        elif text.startswith('R"', i) and (i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")):
            k = text.find("(", i)
            end = ")" + text[i + 2:k] + '"'
            j = text.find(end, k)
            j = n if j < 0 else j + len(end)
            out.append(re.sub(r"[^\n]", " ", text[i:j]))
            i = j
        elif c in "\"'":
            if c == "'" and i > 0 and text[i - 1].isalnum() and i + 1 < n and text[i + 1].isalnum():
                out.append(c)  # digit separator 1'000
                i += 1
                continue
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            j = min(j + 1, n)
            out.append(c + " " * (j - i - 2) + c if j - i >= 2 else " " * (j - i))
            i = j
        else:
            out.append(c)
            i += 1
    return "".join(out)


def balanced(s):
    depth = 0
    for ch in s:
        depth += ch == "("
        depth -= ch == ")"
        if depth < 0:
            return False
    return depth == 0


def bump(literal, key):
    hexa = literal.lower().startswith("0x")
    octal = not hexa and len(literal) > 1 and literal.startswith("0")
    value = int(literal, 16 if hexa else 8 if octal else 10)
    new = value + (1 if value == 0 or int(key[:2], 16) % 2 else -1)
    return hex(new) if hexa else "0%o" % new if octal else str(new)


def sites_of(path, rel):
    """Yields (kind, line_no, column, before, after) for one source file."""
    with open(path) as f:
        text = f.read()
    lines = text.split("\n")
    masked = mask(text).split("\n")
    for no, (line, m) in enumerate(zip(lines, masked), 1):
        if m.lstrip().startswith("#") or not m.strip():
            continue
        for x in COMPARISON.finditer(m):
            yield "comparison", no, x.start(), x.group(1), FLIP[x.group(1)]
        for x in LOGIC.finditer(m):
            yield "logic", no, x.start(), x.group(1), "||" if x.group(1) == "&&" else "&&"
        for x in NUMBER.finditer(m):
            if re.search(r"\[\s*$", m[: x.start()]) and m.lstrip().startswith(("std::array", "char", "uint8_t")):
                continue
            key = hashlib.sha256(("%s:%d:%d" % (rel, no, x.start())).encode()).hexdigest()
            yield "constant", no, x.start(), x.group(0), bump(x.group(1), key) + x.group(2)
        c = CALL.match(m)
        if c and c.group(2).split("::")[0] not in KEYWORDS and balanced(c.group(3)) and "=" not in m.split("(")[0]:
            yield "call", no, len(c.group(1)), line.strip(), ";"
        r = RETURN.match(m)
        if r:
            expr = line[r.start(2):r.end(2)]
            if expr == "true" or expr == "false":
                new = "false" if expr == "true" else "true"
            elif NUMBER.fullmatch(expr) or re.fullmatch(r"-\d+", expr):
                new = str(int(expr, 16 if expr.lower().startswith("0x") else 10) + 1) if expr != "1" else "0"
            elif expr in ("{}", "nullptr", "0"):
                continue
            else:
                new = "{}"
            yield "return", no, r.start(2), expr, new



# Each room: its sources (globs under the tree, minus `exclude`), the test
# files whose GoogleTest suites cover it, and the other ctest tests that do
# (the CLI's, Python's and the live view's). `all_native`: every test but the
# external ones (the core is used by all of them).
ROOMS = {
    "core": dict(sources=["src/*.cpp", "src/*/*.cpp"],
                 exclude=["src/measurement/", "src/calibration/", "src/reconstruction/"], all_native=True),
    "measurement": dict(sources=["src/measurement/*.cpp"],
                        suites=["tests/test_measurement.cpp", "tests/test_reading_files.cpp"],
                        tests=["measuring_cli"]),
    "calibration": dict(sources=["src/calibration/*.cpp"],
                        suites=["tests/test_calibration.cpp", "tests/test_calibration_sweep.cpp"],
                        tests=["calibration_cli"]),
    "reconstruction": dict(sources=["src/reconstruction/*.cpp"], suites=["tests/test_reconstruction.cpp"],
                           tests=["measuring_cli"]),
    "tools": dict(sources=["tools/*.cpp", "tools/logger/*.cpp"], suites=["tools/tests/test_*.cpp"],
                  tests=["cli", "cli_logger", "cli_terminal", "measuring_cli", "calibration_cli"]),
    "python": dict(sources=["python/oru_sensor/*.py", "python/oru_sensor/web/*.py"],
                   tests=["python_binding", "python_web"]),
}
SUITE = re.compile(r"^\s*(?:TEST(?:_F|_P)?|INSTANTIATE_TEST_SUITE_P)\(\s*(\w+)\s*,", re.M)


def room_files(tree, room):
    layout = ROOMS[room]
    out = []
    for pattern in layout["sources"]:
        for path in sorted(glob.glob(os.path.join(tree, pattern))):
            rel = os.path.relpath(path, tree)
            if not any(rel.startswith(e) for e in layout.get("exclude", ())):
                out.append(rel)
    return out


def room_tests(tree, room):
    """ctest arguments that choose the room's tests."""
    layout = ROOMS[room]
    if layout.get("all_native"):
        return ["-LE", "external"]
    names = set()
    for pattern in layout.get("suites", ()):
        for path in glob.glob(os.path.join(tree, pattern)):
            with open(path) as f:
                names.update(SUITE.findall(f.read()))
    parts = ["(\\w+/)?%s[./]" % n for n in sorted(names)] + ["%s$" % t for t in layout.get("tests", ())]
    return ["-R", "^(%s)" % "|".join(parts)]


def python_sites(path, rel):
    """The same kinds for Python: comparisons, `and`/`or`, integer constants,
    call statements (made `pass`) and returned values (made None)."""
    with open(path) as f:
        text = f.read()
    for tok in tokenize.generate_tokens(io.StringIO(text).readline):
        (no, col), kind = tok.start, tok.type
        if kind == tokenize.OP and tok.string in FLIP:
            yield "comparison", no, col, tok.string, FLIP[tok.string]
        elif kind == tokenize.NAME and tok.string in ("and", "or"):
            yield "logic", no, col, tok.string, "or" if tok.string == "and" else "and"
        elif kind == tokenize.NUMBER and re.fullmatch(r"\d+", tok.string):
            key = hashlib.sha256(("%s:%d:%d" % (rel, no, col)).encode()).hexdigest()
            yield "constant", no, col, tok.string, bump(tok.string, key)
    for node in ast.walk(ast.parse(text)):
        if not isinstance(node, (ast.Expr, ast.Return)) or node.lineno != node.end_lineno:
            continue
        if isinstance(node, ast.Expr) and isinstance(node.value, ast.Call):
            yield "call", node.lineno, node.col_offset, ast.get_source_segment(text, node), "pass"
        elif isinstance(node, ast.Return) and node.value is not None:
            expr = ast.get_source_segment(text, node.value)
            if expr != "None":
                yield "return", node.lineno, node.value.col_offset, expr, "None"

def collect(tree, seed, rooms):
    by_kind = {k: [] for k in KINDS}
    for room in rooms:
        for rel in room_files(tree, room):
            path = os.path.join(tree, rel)
            with open(path) as f:
                lines = f.read().split("\n")
            seen = {}
            sites = python_sites if rel.endswith(".py") else sites_of
            for kind, no, col, before, after in sites(path, rel):
                text = lines[no - 1].strip()
                ident = (rel, text, kind, before, after)
                seen[ident] = seen.get(ident, 0) + 1
                key = "%d|%s|%s|%s|%s|%s|%d" % (seed, rel, text, kind, before, after, seen[ident])
                rank = hashlib.sha256(key.encode()).hexdigest()
                by_kind[kind].append((rank, rel, no, col, before, after, room))
    for k in by_kind:
        by_kind[k].sort()
    return by_kind


def interleave(by_kind):
    queues = {k: list(v) for k, v in by_kind.items()}
    while any(queues.values()):
        for k in KINDS:
            if queues[k]:
                yield k, queues[k].pop(0)


def apply(tree, rel, no, col, before, after, kind):
    path = os.path.join(tree, rel)
    with open(path) as f:
        original = f.read()
    lines = original.split("\n")
    line = lines[no - 1]
    if kind == "call":
        indent = line[: len(line) - len(line.lstrip())]
        lines[no - 1] = indent + ("pass" if rel.endswith(".py") else ";")
    else:
        assert line[col:col + len(before)] == before, (rel, no, line, before)
        lines[no - 1] = line[:col] + after + line[col + len(before):]
    with open(path, "w") as f:
        f.write("\n".join(lines))
    return path, original


def forget_test_costs(build):
    """ctest starts the slowest and the last failed tests first; in file order
    the quick unit tests come first and a mutant is found out sooner. Which
    tests run is the same either way."""
    for name in ("CTestCostData.txt", "LastTestsFailed.log"):
        try:
            os.remove(os.path.join(build, "Testing", "Temporary", name))
        except FileNotFoundError:
            pass


def run(cmd, env, timeout=None):
    p = subprocess.run(cmd, env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=timeout)
    return p.returncode, p.stdout


def failed_tests(output):
    """Names from ctest's closing list, which also holds parameterised
    cases and aborted or timed-out tests."""
    return sorted(set(re.findall(r"^\s+\d+ - (\S+)", output, re.M)))


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--tree", default=os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    ap.add_argument("--build", help="build directory (default TREE/build-mutate)")
    ap.add_argument("--seed", type=int, default=2026)
    ap.add_argument("--count", type=int, default=60)
    ap.add_argument("--room", default="core", help="comma-separated rooms to mutate: " + ", ".join(ROOMS))
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--test-timeout", type=int, default=300, help="seconds per test")
    ap.add_argument("--report", help="JSON report (default BUILD/mutate-report.json)")
    ap.add_argument("--list", action="store_true", help="print the chosen candidates and exit")
    ap.add_argument("--only", help="comma-separated positions in the candidate order (as --list numbers them) "
                    "to run again, e.g. to check a survivor after adding a test")
    args = ap.parse_args()
    tree = os.path.abspath(args.tree)
    build = os.path.abspath(args.build or os.path.join(tree, "build-mutate"))
    report = args.report or os.path.join(build, "mutate-report.json")
    env = dict(os.environ, ORU_STRESS_SECONDS="1")

    rooms = args.room.split(",")
    unknown = [r for r in rooms if r not in ROOMS]
    if unknown:
        ap.error("unknown room %s; rooms: %s" % (", ".join(unknown), ", ".join(ROOMS)))
    by_kind = collect(tree, args.seed, rooms)
    print("candidates: " + ", ".join("%s %d" % (k, len(v)) for k, v in by_kind.items()), flush=True)
    if args.list:
        for i, (kind, (_, rel, no, col, before, after, room)) in enumerate(interleave(by_kind)):
            if i >= args.count:
                break
            print("%3d %-10s %-14s %s:%d  %s -> %s" % (i, kind, room, rel, no, before, after))
        return 0
    only = {int(x) for x in args.only.split(",")} if args.only else None

    signal.signal(signal.SIGTERM, lambda *_: (_ for _ in ()).throw(KeyboardInterrupt()))
    build_cmd = ["cmake", "--build", build, "-j%d" % args.jobs]
    def test_cmd(room):
        return ["ctest", "--test-dir", build, "-j%d" % args.jobs, "--timeout", str(args.test_timeout),
                "--stop-on-failure", "--output-on-failure"] + room_tests(tree, room)
    rc, out = run(["cmake", "-S", tree, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DORU_BUILD_TESTS=ON"], env)
    if rc != 0:
        print(out)
        return 2
    t0 = time.time()
    rc, out = run(build_cmd, env)
    for room in rooms:
        if rc == 0:
            rc, out = run(test_cmd(room), env)
    if rc != 0:
        print(out[-4000:])
        print("the unmutated tree does not build or pass its tests", file=sys.stderr)
        return 2
    print("unmutated build and tests: %.0f s" % (time.time() - t0), flush=True)

    results, discarded = [], 0
    started = time.time()
    try:
        for position, (kind, (_, rel, no, col, before, after, room)) in enumerate(interleave(by_kind)):
            if len(results) >= args.count or (only is not None and position > max(only)):
                break
            if only is not None and position not in only:
                continue
            path, original = apply(tree, rel, no, col, before, after, kind)
            t = time.time()
            try:
                rc, out = run(build_cmd, env)
                if rc != 0:
                    discarded += 1
                    print("   -  %-10s %s:%d  %s -> %s  (does not compile)" % (kind, rel, no, before, after), flush=True)
                    continue
                forget_test_costs(build)
                try:
                    rc, out = run(test_cmd(room), env, timeout=args.test_timeout * 4)
                except subprocess.TimeoutExpired:
                    rc, out = 1, "ctest timed out"
            finally:
                with open(path, "w") as f:
                    f.write(original)
            killed = rc != 0
            entry = dict(position=position, room=room, kind=kind, file=rel, line=no, before=before, after=after, killed=killed,
                         seconds=round(time.time() - t), failed=failed_tests(out)[:5],
                         output=out[-3000:] if killed else "")
            results.append(entry)
            print("%3d  %-8s %-10s %s:%d  %s -> %s  %ds %s" % (len(results), "killed" if killed else "SURVIVED", kind,
                                                            rel, no, before, after, entry["seconds"],
                                                            ",".join(entry["failed"][:2])), flush=True)
    except KeyboardInterrupt:
        print("interrupted; source restored", file=sys.stderr)
    finally:
        # Leave the build matching the restored sources.
        run(build_cmd, env)

    n = len(results)
    k = sum(r["killed"] for r in results)
    summary = "killed %d of %d (%.1f %%), %d mutants did not compile, %.0f min" % (
        k, n, 100.0 * k / n if n else 0, discarded, (time.time() - started) / 60)
    print(summary)
    for r in results:
        if not r["killed"]:
            print("survived: %s:%d  %s -> %s  (%s)" % (r["file"], r["line"], r["before"], r["after"], r["kind"]))
    with open(report, "w") as f:
        json.dump(dict(seed=args.seed, count=args.count, rooms=rooms, summary=summary, mutants=results), f, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
