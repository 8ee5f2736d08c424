#!/usr/bin/env python3
"""Samples source mutants of src/ and tells how many the unit tests kill.

Each mutant is one small change on one line of a library source file: a
comparison flipped, `&&` and `||` swapped, a condition negated, an integer
constant off by one, `true`/`false` swapped, or a call statement deleted. The
sample is drawn deterministically from --seed over every candidate site, so
the same seed over the same sources gives the same mutants. Each mutant is
applied alone, the build is redone with ninja (a mutant that does not compile
is "stillborn" and not counted), the unit tests run, and the file is always
restored, also on Ctrl-C.

Lines that only log (the log macros and helpers, Qt's log functions) are not mutated:
their mutants change nothing a caller can observe but text.

Usage:
  scripts/mutants.py --build build --seed 7 --count 60 [--related | --subsystem] [--jobs 2]
  scripts/mutants.py --list --seed 7 --count 60      # show the sample only
"""
import argparse
import os
import random
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))

COMPARISONS = {"==": "!=", "!=": "==", "<=": ">", ">=": "<", "<": ">=", ">": "<="}
# A comparison operator standing between two operands; not part of <<, >>, ->,
# templates or includes (those lines are filtered before).
COMPARISON = re.compile(r"(?<=[\w\)\]'\"] )(==|!=|<=|>=|<|>)(?= [\w\(!'\"-])")
LOGICAL = re.compile(r"(?<= )(&&|\|\|)(?= )")
CONDITION = re.compile(r"\b(if|while) \((.+)\)\s*(\{|$|return\b.*;|continue;|break;)")
INTEGER = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
BOOLEAN = re.compile(r"\b(true|false)\b")
CALL_STATEMENT = re.compile(r"^(\s*)((?:[A-Za-z_]\w*(?:->|\.|::))*[A-Za-z_]\w*\(.*\));\s*$")
SKIP_LINE = re.compile(
    r"^\s*(#|//|\*|/\*)|\b[A-Z]*LOG\(|\blog[A-Z]\w*\(|qDebug|qInfo|qWarning|qCritical|Q_ASSERT|static_assert|"
    r"Q_PROPERTY|Q_ENUM|Q_DECLARE|Q_OBJECT|Q_GADGET|template\s*<|operator[<>=!]")
NOT_A_CALL = re.compile(r"^\s*(return|if|while|for|switch|case|else|delete|new)\b|=")
STRING = re.compile(r'"(?:\\.|[^"\\])*"' + r"|'(?:\\.|[^'\\])*'")


def blank_strings(line):
    """The line with string and character literals blanked, so no operator inside them matches."""
    return STRING.sub(lambda m: m.group(0)[0] + "_" * (len(m.group(0)) - 2) + m.group(0)[-1], line)


def sites_in_line(line):
    """Every (start, end, replacement, kind) that mutates this line."""
    if SKIP_LINE.search(line):
        return []
    code = blank_strings(line.split("//", 1)[0])
    found = []
    for m in COMPARISON.finditer(code):
        found.append((m.start(1), m.end(1), COMPARISONS[m.group(1)], "comparison"))
    for m in LOGICAL.finditer(code):
        found.append((m.start(1), m.end(1), "||" if m.group(1) == "&&" else "&&", "logical"))
    m = CONDITION.search(code)
    if m and code.count("(", m.start(2), m.end(2)) == code.count(")", m.start(2), m.end(2)):
        found.append((m.start(2), m.end(2), "!(" + line[m.start(2):m.end(2)] + ")", "negation"))
    for m in INTEGER.finditer(code):
        value = int(m.group(1))
        if value > 1 << 30:
            continue
        found.append((m.start(1), m.end(1), str(value + 1), "constant"))
    for m in BOOLEAN.finditer(code):
        found.append((m.start(1), m.end(1), "false" if m.group(1) == "true" else "true", "boolean"))
    m = CALL_STATEMENT.match(code)
    if m and not NOT_A_CALL.match(code) and code.count("(") == code.count(")"):
        found.append((m.start(2), len(line.rstrip("\n")), "/* deleted */;", "deletion"))
    return found


def candidate_files(headers):
    endings = (".cpp", ".h") if headers else (".cpp",)
    for base, _, names in os.walk(os.path.join(ROOT, "src")):
        for name in sorted(names):
            if name.endswith(endings):
                yield os.path.relpath(os.path.join(base, name), ROOT)


def all_sites(headers):
    sites = []
    for path in sorted(candidate_files(headers)):
        in_block_comment = False
        with open(os.path.join(ROOT, path), encoding="utf-8") as f:
            for number, line in enumerate(f, 1):
                stripped = line.strip()
                if in_block_comment:
                    in_block_comment = "*/" not in stripped
                    continue
                if stripped.startswith("/*"):
                    in_block_comment = "*/" not in stripped
                    continue
                for start, end, replacement, kind in sites_in_line(line):
                    sites.append((path, number, start, end, replacement, kind))
    return sites


def sample(seed, count, headers):
    sites = all_sites(headers)
    rng = random.Random(seed)
    chosen = rng.sample(sites, min(count, len(sites)))
    return sorted(chosen), len(sites)


def mutated_line(line, site):
    _, _, start, end, replacement, _ = site
    return line[:start] + replacement + line[end:]


def unit_tests(build):
    out = subprocess.run(["ctest", "--test-dir", build, "-N", "-L", "unit"], capture_output=True, text=True)
    return re.findall(r"Test\s+#\d+: (\S+)", out.stdout)


def related_tests(build, path):
    """Unit tests whose name shares a word with the mutated file's name (tst_<stem>, telvix<x> -> tst_<x>)."""
    stem = os.path.splitext(os.path.basename(path))[0]
    words = {stem, stem.replace("telvix", ""), stem.replace("messages", "")}
    words = {w for w in words if len(w) >= 3}
    return [n for n in unit_tests(build) if any(w in n for w in words)]


def subsystem_tests(build, path):
    """Unit tests whose source lies in the test folder of the mutated file's subsystem:
    src/<subsystem>/... is tested by tests/<subsystem>/..., whatever the tests are named."""
    subsystem = path.split(os.sep)[1]
    folder = os.path.join(ROOT, "tests", subsystem)
    sources = set()
    for base, _, names in os.walk(folder):
        sources.update(os.path.splitext(n)[0] for n in names if n.endswith(".cpp"))
    return [n for n in unit_tests(build) if n in sources]


def run(cmd, timeout):
    try:
        return subprocess.run(cmd, capture_output=True, text=True, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return None


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build", help="configured Ninja build directory")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=60)
    parser.add_argument("--jobs", type=int, default=max(1, os.cpu_count() or 1))
    parser.add_argument("--related", action="store_true",
                        help="run only the unit tests named after the mutated file (all unit tests when none is)")
    parser.add_argument("--subsystem", action="store_true",
                        help="run only the unit tests in tests/<subsystem> of the mutated file's src/<subsystem>")
    parser.add_argument("--headers", action="store_true", help="mutate headers too (slow: wide rebuilds)")
    parser.add_argument("--test-timeout", type=int, default=120)
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    args = parser.parse_args()
    build = os.path.abspath(os.path.join(ROOT, args.build))

    chosen, total = sample(args.seed, args.count, args.headers)
    print(f"mutants: {len(chosen)} sampled from {total} sites with seed {args.seed}", flush=True)
    if args.list:
        for site in chosen:
            path, number = site[0], site[1]
            with open(os.path.join(ROOT, path), encoding="utf-8") as f:
                line = f.readlines()[number - 1]
            print(f"{path}:{number} [{site[5]}] {line.strip()} → {mutated_line(line, site).strip()}")
        return 0

    current = {}

    def restore(*_):
        for path, text in current.items():
            with open(os.path.join(ROOT, path), "w", encoding="utf-8") as f:
                f.write(text)
        current.clear()

    def interrupted(signum, _frame):
        restore()
        sys.exit(128 + signum)

    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)

    if run(["ninja", "-C", build], None) != 0:
        print("mutants: the unmutated tree does not build", file=sys.stderr)
        return 2

    counts = {"tried": 0, "stillborn": 0, "killed": 0, "survived": 0}
    survivors = []
    started = time.time()
    for index, site in enumerate(chosen, 1):
        path, number = site[0], site[1]
        full = os.path.join(ROOT, path)
        with open(full, encoding="utf-8") as f:
            text = f.read()
        lines = text.splitlines(keepends=True)
        original = lines[number - 1]
        lines[number - 1] = mutated_line(original, site)
        label = f"{path}:{number} {original.strip()} → {lines[number - 1].strip()}"
        current[path] = text
        try:
            with open(full, "w", encoding="utf-8") as f:
                f.write("".join(lines))
            tests = (subsystem_tests(build, path) if args.subsystem
                     else related_tests(build, path) if args.related else [])
            targets = tests if tests else []
            counts["tried"] += 1
            if run(["ninja", "-C", build] + targets, None) != 0:
                counts["stillborn"] += 1
                verdict = "stillborn"
            else:
                cmd = ["ctest", "--test-dir", build, "-L", "unit", "-j", str(args.jobs),
                       "--timeout", str(args.test_timeout), "--stop-on-failure"]
                if tests:
                    cmd += ["-R", "^(" + "|".join(re.escape(t) for t in tests) + ")$"]
                code = run(cmd, args.test_timeout * 4)
                if code == 0:
                    counts["survived"] += 1
                    survivors.append(label)
                    verdict = "survived"
                else:
                    counts["killed"] += 1
                    verdict = "killed" if code is not None else "killed (hang)"
        finally:
            restore()
        print(f"[{index}/{len(chosen)}] {verdict}: {label}", flush=True)

    # Leave the build matching the sources.
    run(["ninja", "-C", build], None)
    counted = counts["killed"] + counts["survived"]
    rate = 100.0 * counts["killed"] / counted if counted else 0.0
    print(f"\ntried {counts['tried']} / stillborn {counts['stillborn']} / killed {counts['killed']} / "
          f"survived {counts['survived']}; kill rate {rate:.1f}% ({time.time() - started:.0f} s)")
    for label in survivors:
        print(f"survived: {label}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
