#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: walkthrough.py OVRA MACHINE [--record]

Types the lines of transcript.txt that begin with "$ " into a shell, beside a copy of MACHINE in the folder "machine", and
compares what is printed with what stands below them: standard output and standard error as a terminal shows them, and the
exit status where it is not 0. "..." is what differs from run to run. --record writes what is printed into the transcript.
"""
import os
import re
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
TRANSCRIPT = os.path.join(HERE, "transcript.txt")
OVRA, MACHINE = (os.path.abspath(path) for path in sys.argv[1:3])
RECORDS = sys.argv[3:] == ["--record"]
MOST_CALLS = 60


def steps(text):
    """(what stands before a typed line, that line, what is printed), and what stands behind the last."""
    found, before = [], []
    for line in text.splitlines():
        if line.startswith("$ "):
            found.append((before, line[2:], []))
            before = []
        elif line.startswith("# "):
            if found and found[-1][2][-1:] == [""]:
                before.append(found[-1][2].pop())
            before.append(line)
        elif found and not before:
            found[-1][2].append(line)
        else:
            sys.exit(f"{TRANSCRIPT}: a line of output without a typed one: {line}")
    return found, before


def typed(line, folder, environment):
    done = subprocess.run(["bash", "-c", line], cwd=folder, env=environment, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=30, check=False)
    status = [] if done.returncode == 0 else [f"(exit status {done.returncode})"]
    return done.stdout.splitlines() + status


def alike(line, printed):
    return re.fullmatch(".*".join(re.escape(part) for part in line.split("...")), printed) is not None


def agree(wanted, printed):
    return len(wanted) == len(printed) and all(alike(*pair) for pair in zip(wanted, printed))


def main():
    with open(TRANSCRIPT, encoding="utf-8") as file:
        found, rest = steps(file.read())
    if not 10 <= len(found) <= MOST_CALLS:
        sys.exit(f"{len(found)} lines are typed")
    wrong, recorded = 0, []
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run(["cp", "-a", "--sparse=always", MACHINE, f"{folder}/machine"], check=True)
        environment = {"PATH": f"{os.path.dirname(OVRA)}:/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC", "HOME": folder}
        for before, line, wanted in found:
            printed = typed(line, folder, environment)
            recorded += [*before, f"$ {line}", *(wanted if agree(wanted, printed) else printed)]
            if not RECORDS and not agree(wanted, printed):
                wrong += 1
                print(f"$ {line}", *(f"- {each}" for each in wanted), *(f"+ {each}" for each in printed), sep="\n")
    if RECORDS:
        with open(TRANSCRIPT, "w", encoding="utf-8") as file:
            file.write("\n".join(recorded + rest) + "\n")
    print(f"{len(found)} lines, {wrong} of them print something else")
    return wrong != 0


if __name__ == "__main__":
    sys.exit(main())
