#!/usr/bin/env python3
"""The fixed cost of `opcvk pack`, `info` and `props` on a small tree, beside another build and
`zip -qr`.

A user's first commands work on small trees, where the start of the process and the metadata
documents (core properties) cost more than the files.  For each command this counts what noise
does not move: instructions (`valgrind --tool=cachegrind --cache-sim=no`) and the libraries
the process maps (`LD_DEBUG=files`); then, in each round, `perf stat -r N` runs our build, the
other build (--baseline) and `zip -qr` in turn, and the table gives the median of the rounds'
mean elapsed milliseconds.

    bench/small_commands.py --opcvk build-rel/tools/opcvk/opcvk \
        --baseline /path/to/other/opcvk --work /dev/shm/small --rounds 3 --runs 20
"""
import argparse
import os
import shutil
import statistics
import subprocess
import sys


def make_tree(path, files):
    """Short text files, the same at every call."""
    shutil.rmtree(path, ignore_errors=True)
    os.makedirs(path)
    for i in range(files):
        with open(os.path.join(path, f"file_{i:04d}.txt"), "w") as out:
            out.write(f"line {i}\n" * (1 + i % 7))


def instructions(command, pre):
    """Instructions that the command executes, by cachegrind's count."""
    pre()
    result = subprocess.run(["valgrind", "--tool=cachegrind", "--cache-sim=no",
                             "--cachegrind-out-file=/dev/null"] + command,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                            check=True)
    for line in result.stderr.splitlines():
        if "I" in line and "refs:" in line:
            return int(line.split()[-1].replace(",", ""))
    raise RuntimeError("no instruction count from cachegrind")


def libraries(command, pre):
    """Lines of the dynamic loader that name a file it looks up or maps for the command."""
    pre()
    env = dict(os.environ, LD_DEBUG="files")
    result = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                            text=True, env=env, check=True)
    return sum(1 for line in result.stderr.splitlines() if "file=" in line)


def elapsed_ms(command, runs, pre_command):
    """Mean elapsed milliseconds of `runs` runs, each after `pre_command`."""
    result = subprocess.run(["perf", "stat", "-r", str(runs), "--pre", pre_command] + command,
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                            check=True)
    for line in result.stderr.splitlines():
        if "seconds time elapsed" in line:
            return float(line.split()[0]) * 1000
    raise RuntimeError("no elapsed time from perf stat")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--opcvk", required=True)
    parser.add_argument("--baseline", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--files", type=int, default=10)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--runs", type=int, default=20)
    args = parser.parse_args()

    os.makedirs(args.work, exist_ok=True)
    tree = os.path.join(args.work, "tree")
    make_tree(tree, args.files)
    package = os.path.join(args.work, "given.opc")
    out = os.path.join(args.work, "out.opc")
    archive = os.path.join(args.work, "out.zip")
    if os.path.exists(package):
        os.unlink(package)
    subprocess.run([args.baseline, "pack", "-q", tree, package], check=True)
    clean = f"rm -f {out} {archive}"

    def remove():
        subprocess.run(["sh", "-c", clean], check=True)

    forms = {
        "pack": lambda tool: [tool, "pack", "-q", tree, out],
        "info": lambda tool: [tool, "info", package],
        "props": lambda tool: [tool, "props", package],
    }
    print(f"{'command':8} {'build':9} {'instructions':>14} {'libraries':>10} {'ms (median)':>12}")
    for name, form in forms.items():
        tools = {"ours": args.opcvk, "baseline": args.baseline}
        counts = {k: (instructions(form(t), remove), libraries(form(t), remove))
                  for k, t in tools.items()}
        times = {k: [] for k in tools}
        if name == "pack":
            times["zip -qr"] = []
        for _ in range(args.rounds):
            for k, t in tools.items():
                times[k].append(elapsed_ms(form(t), args.runs, clean))
            if name == "pack":
                times["zip -qr"].append(
                    elapsed_ms(["zip", "-qr", archive, tree], args.runs, clean))
        for k, values in times.items():
            ins, libs = counts.get(k, (None, None))
            print(f"{name:8} {k:9} {ins if ins is not None else '-':>14} "
                  f"{libs if libs is not None else '-':>10} {statistics.median(values):12.2f}")
        sys.stdout.flush()
    remove()


if __name__ == "__main__":
    main()
