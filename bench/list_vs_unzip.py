#!/usr/bin/env python3
"""`opcvk list` against `unzip -l`, from a tree of ten files to a big one.

A listing of a small package is mostly the start of the process, so this times whole runs of
both tools, as a user meets them, on trees of several sizes: two made here (10 and 1,000
files) and any folders given with --tree.  Each tree is packed once by each tool (`opcvk pack`
and `zip -r -y -6`, both from inside the tree).  Then, in each round and for each tree,
`perf stat -r N` runs opcvk's listing and unzip's in turn, so that both meet the same state of
the machine; the table gives the median of the rounds' means and their ratio.

    bench/list_vs_unzip.py --opcvk build-rel/tools/opcvk/opcvk --work /dev/shm/lvu \
        --tree mixed=/dev/shm/pack/corpus/mixed-seed1 --rounds 3 --runs 20
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys

MADE_TREES = {"files10": (1, 10), "files1000": (20, 50)}  # name: (folders, files per folder)


def log(text):
    print(text, file=sys.stderr, flush=True)


def make_tree(path, folders, per_folder):
    """A tree of short text files, the same at every call."""
    if os.path.isdir(path):
        return path
    staging = path + ".part"
    shutil.rmtree(staging, ignore_errors=True)
    for f in range(folders):
        folder = os.path.join(staging, f"folder{f:02d}") if folders > 1 else staging
        os.makedirs(folder, exist_ok=True)
        for i in range(per_folder):
            with open(os.path.join(folder, f"file_{i:03d}.txt"), "w") as out:
                out.write(f"line {i} of folder {f}\n" * (1 + i % 7))
    os.rename(staging, path)
    return path


def pack_both(opcvk, name, tree, work):
    package = os.path.join(work, name + ".opc")
    archive = os.path.join(work, name + ".zip")
    for path in (package, archive):
        if os.path.exists(path):
            os.unlink(path)
    subprocess.run([opcvk, "pack", "-q", ".", package], cwd=tree, check=True)
    subprocess.run(["zip", "-r", "-y", "-q", "-6", archive, "."], cwd=tree, check=True)
    return package, archive


def perf_stat(command, runs):
    """Mean elapsed and task-clock milliseconds of `runs` runs, output to /dev/null."""
    with open(os.devnull, "w") as null:
        result = subprocess.run(["perf", "stat", "-e", "task-clock", "-r", str(runs)] + command,
                                stdout=null, stderr=subprocess.PIPE, text=True, check=True)
    elapsed = task_clock = None
    for line in result.stderr.splitlines():
        fields = line.split()
        if "seconds time elapsed" in line:
            elapsed = float(fields[0]) * 1000
        elif len(fields) > 2 and fields[1] == "msec" and fields[2] == "task-clock":
            task_clock = float(fields[0].replace(",", ""))
    if elapsed is None or task_clock is None:
        sys.exit("could not read perf stat's output:\n" + result.stderr)
    return elapsed, task_clock


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--opcvk", required=True)
    ap.add_argument("--work", required=True, help="folder for the made trees and the packages")
    ap.add_argument("--tree", action="append", default=[], metavar="NAME=FOLDER")
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--runs", type=int, default=20, help="runs per perf stat")
    args = ap.parse_args()
    if shutil.which("perf") is None or shutil.which("unzip") is None or shutil.which("zip") is None:
        sys.exit("needs perf, zip and unzip on the PATH")
    opcvk = os.path.abspath(args.opcvk)
    os.makedirs(args.work, exist_ok=True)

    trees = [(name, make_tree(os.path.join(args.work, name), *shape))
             for name, shape in MADE_TREES.items()]
    for named_folder in args.tree:
        name, _, folder = named_folder.partition("=")
        trees.append((name, os.path.abspath(folder)))
    packages = {name: pack_both(opcvk, name, tree, args.work) for name, tree in trees}

    samples = {name: {"opcvk": [], "unzip": []} for name, _ in trees}
    for round_number in range(1, args.rounds + 1):
        for name, _ in trees:
            package, archive = packages[name]
            ours = perf_stat([opcvk, "list", package], args.runs)
            theirs = perf_stat(["unzip", "-l", archive], args.runs)
            samples[name]["opcvk"].append(ours)
            samples[name]["unzip"].append(theirs)
            log(f"round {round_number} {name}: opcvk {ours[0]:.2f} ms, unzip {theirs[0]:.2f} ms")

    print("| tree | opcvk elapsed ms | unzip -l elapsed ms | ratio | opcvk task-clock ms | "
          "unzip task-clock ms |")
    print("|---|---:|---:|---:|---:|---:|")
    for name, _ in trees:
        ours = samples[name]["opcvk"]
        theirs = samples[name]["unzip"]
        ours_elapsed = statistics.median(s[0] for s in ours)
        theirs_elapsed = statistics.median(s[0] for s in theirs)
        print(f"| {name} | {ours_elapsed:.2f} | {theirs_elapsed:.2f} | "
              f"{ours_elapsed / theirs_elapsed:.2f}x | "
              f"{statistics.median(s[1] for s in ours):.2f} | "
              f"{statistics.median(s[1] for s in theirs):.2f} |")


if __name__ == "__main__":
    main()
