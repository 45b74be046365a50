#!/usr/bin/env python3
"""Each form of `opcvk list` against `unzip -l`, on packages made beforehand.

`unzip -l` shows sizes and times, so the fair match for it is `opcvk list -l`, whose sizes
come from the parts of the files; the plain listing and the JSON forms are timed beside it.
Each package X.opc is matched with the archive X.zip beside it, holding the same tree.  In
each round, and for each package, `perf stat -r N` runs every form of each given opcvk (a
baseline build too, with --baseline) and then unzip's, so that all meet the same state of the
machine; the table gives the median of the rounds' mean task-clock milliseconds.

    bench/list_forms_vs_unzip.py --opcvk build-rel/tools/opcvk/opcvk \
        --baseline /usr/local/bin/opcvk --rounds 3 --runs 10 /dev/shm/st/small.opc
"""
import argparse
import os
import shutil
import statistics
import sys

from list_vs_unzip import log, perf_stat

FORMS = {"list": [], "list -l": ["-l"], "list -l --parts": ["-l", "--parts"],
         "list --json --parts": ["--json", "--parts"]}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--opcvk", required=True)
    ap.add_argument("--baseline", help="another opcvk to time beside it")
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--runs", type=int, default=10, help="runs per perf stat")
    ap.add_argument("--forms", default=",".join(FORMS), help="comma-separated forms to time")
    ap.add_argument("packages", nargs="+", help="X.opc, with X.zip beside it")
    args = ap.parse_args()
    if shutil.which("perf") is None or shutil.which("unzip") is None:
        sys.exit("needs perf and unzip on the PATH")
    tools = [("opcvk", os.path.abspath(args.opcvk))]
    if args.baseline:
        tools.append(("baseline", os.path.abspath(args.baseline)))
    forms = [form for form in args.forms.split(",") if form]
    for form in forms:
        if form not in FORMS:
            sys.exit(f"unknown form {form!r}; known: {', '.join(FORMS)}")
    for package in args.packages:
        if not os.path.exists(os.path.splitext(package)[0] + ".zip"):
            sys.exit(f"no archive beside {package}")

    samples = {}
    for round_number in range(1, args.rounds + 1):
        for package in args.packages:
            archive = os.path.splitext(package)[0] + ".zip"
            for form in forms:
                for tool_name, tool in tools:
                    _, task_clock = perf_stat([tool, "list"] + FORMS[form] + [package], args.runs)
                    samples.setdefault((package, f"{tool_name} {form}"), []).append(task_clock)
            _, task_clock = perf_stat(["unzip", "-l", archive], args.runs)
            samples.setdefault((package, "unzip -l"), []).append(task_clock)
            log(f"round {round_number} {os.path.basename(package)} done")

    print("| package | command | task-clock ms (median of rounds) |")
    print("|---|---|---:|")
    for (package, command), values in samples.items():
        print(f"| {os.path.basename(package)} | {command} | {statistics.median(values):.2f} |")


if __name__ == "__main__":
    main()
