#!/usr/bin/env python3
"""Lines and branches that the runs of a counting build reached, per file and in all.

    coverage.py BUILD_DIR DIRECTORIES LINES BRANCHES [--missed FILE]

DIRECTORIES is a regular expression for the source files that count, LINES and BRANCHES are the
percentages wanted; the exit code is 1 below them. --missed lists the lines of the files whose name
contains FILE that have not run, or not gone every way.

What counts:
- A line once, whatever templates it stands in; it has run if it ran in one instance.
- A branch of a template once for all instances of the same shape (`if constexpr` makes others).
- No branch that an exception takes out of a call, and not the way back that goes with it: a call is
  no decision of the code. gcov marks these branches.
- No branch that the compiler alone makes: at the end of a block (what an exception has to clear up),
  at a catch clause (which clause it is), at a local static (whether it is the first time).
"""
import argparse
import collections
import concurrent.futures
import json
import os
import re
import subprocess
import sys


def counted_by(notes, root):
    """What gcov makes of one object: its files as gcov tells them."""
    run = subprocess.run(
        ["gcov", "--json-format", "--stdout", "--branch-probabilities", "--branch-counts",
         "--relative-only", "--source-prefix", root, notes],
        capture_output=True, text=True, check=False)
    if run.returncode != 0 or "stamp mismatch" in run.stderr:
        sys.exit(f"coverage: gcov fails on {notes}: {run.stderr.strip()}")
    return [file for line in run.stdout.splitlines() for file in json.loads(line)["files"]]


def decisions(branches):
    """Counts of the branches that are decisions of the code."""
    kept = []
    back = False  # the branch that follows is the way back out of a call
    for branch in branches:
        if branch["throw"]:
            if kept and kept[-1]["fallthrough"]:
                kept.pop()
            else:
                back = True
        elif back and branch["fallthrough"]:
            back = False
        else:
            kept.append(branch)
    return [branch["count"] for branch in kept]


COMPILERS_OWN = re.compile(r"\s*(\}[\])};]*$|\} catch \(|static )")


class File:
    def __init__(self, name):
        with open(name, encoding="utf-8") as source:
            self.text = source.read().splitlines()
        self.lines = collections.Counter()
        self.branches = {}  # (line, where its function begins, number of branches) -> counts

    def add(self, told):
        begin = {f["name"]: (f["start_line"], f["start_column"]) for f in told["functions"]}
        for line in told["lines"]:
            number = line["line_number"]
            self.lines[number] += line["count"]
            counts = decisions(line["branches"])
            if counts and not COMPILERS_OWN.match(self.text[number - 1]):
                key = (number, begin.get(line.get("function_name")), len(counts))
                before = self.branches.get(key, [0] * len(counts))
                self.branches[key] = [a + b for a, b in zip(before, counts)]

    def figures(self):
        """Lines run, lines, branches taken, branches."""
        ways = [count for counts in self.branches.values() for count in counts]
        return (sum(1 for n in self.lines.values() if n), len(self.lines),
                sum(1 for n in ways if n), len(ways))

    def missed(self, name):
        ways = collections.defaultdict(str)
        for (line, _, _), counts in sorted(self.branches.items(), key=lambda item: item[0][0]):
            if not all(counts):
                ways[line] += " " + "".join("+" if n else "-" for n in counts)
        for line in sorted(self.lines):
            if not self.lines[line] or ways[line]:
                print(f"{name}:{line}:{ways[line] or ' not run'}: {self.text[line - 1].strip()}")


def percent(part, whole):
    return 100 * part / whole if whole else 100.0


def main():
    parser = argparse.ArgumentParser(description="Lines and branches that tests have reached.")
    for word in ("build", "directories"):
        parser.add_argument(word)
    for word in ("lines", "branches"):
        parser.add_argument(word, type=float)
    parser.add_argument("--missed")
    words = parser.parse_args()
    root = os.getcwd()
    notes = [os.path.join(at, name) for at, _, names in os.walk(words.build) for name in names
             if name.endswith(".gcno")]
    files = {}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for told in pool.map(lambda name: counted_by(name, root), notes):
            for file in told:
                name = os.path.relpath(file["file"], root)
                if re.match(words.directories, name):
                    if name not in files:
                        files[name] = File(name)
                    files[name].add(file)
    if words.missed:
        for name in sorted(files):
            if words.missed in name:
                files[name].missed(name)
        return 0

    total = (0, 0, 0, 0)
    print(f"{'file':42}{'lines run':>16}{'branches taken':>22}")
    for name in sorted(files):
        figures = files[name].figures()
        total = tuple(a + b for a, b in zip(total, figures))
        print(f"{name:42}{figures[0]:6}/{figures[1]:<5}{percent(*figures[:2]):4.0f}%"
              f"{figures[2]:12}/{figures[3]:<5}{percent(*figures[2:]):4.0f}%")
    lines, branches = percent(*total[:2]), percent(*total[2:])
    print(f"lines    {lines:5.1f}% ({total[0]} of {total[1]}), wanted {words.lines:.0f}%")
    print(f"branches {branches:5.1f}% ({total[2]} of {total[3]}), wanted {words.branches:.0f}%")
    return 0 if lines >= words.lines and branches >= words.branches else 1


sys.exit(main())
