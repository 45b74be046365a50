#!/usr/bin/env python3
"""Runs the tool on every package of the hostile corpus and checks each outcome and budget.

    run_hostile.py --opcvk OPCVK --corpus tests/data/hostile --work DIR [--case NAME]...

The corpus (tests/data/hostile/cases.json) gives each package, what it is, and what must come
of it: refused with a given message by list, test and extract, or the outcome of each command.
Every command runs in a process of its own, whose wall time and peak memory (ru_maxrss) must
stay within the case's bounds; a command that runs three times past its time is killed and
counts as a hang.  Nothing may be written outside the extraction's destination.

With --sanitized (a tool built with AddressSanitizer), the bounds are widened and the cases
that are about size alone are left out.

The small packages are committed in packages/ and must be what make_corpus.py makes (so that
the script and the files never drift apart); the big ones are made by make_corpus.py --big at
every run.  Prints one line per command with its time and memory, and exits 1 on any
violation.
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import threading
import time


class Runner:
    def __init__(self, args):
        self.opcvk = os.path.abspath(args.opcvk)
        self.corpus = os.path.abspath(args.corpus)
        self.work = os.path.abspath(args.work)
        self.only = set(args.case or [])
        self.sanitized = args.sanitized
        self.violations = []
        self.lines = []

    def violation(self, what, problem):
        self.violations.append("%s: %s" % (what, problem))

    # --- the packages

    def check_committed(self):
        made = os.path.join(self.work, "small")
        subprocess.run([sys.executable, os.path.join(self.corpus, "make_corpus.py"), made],
                       check=True)
        committed = os.path.join(self.corpus, "packages")
        names = sorted(os.listdir(made))
        if names != sorted(os.listdir(committed)):
            self.violation("corpus", "packages/ does not hold what make_corpus.py makes")
        for name in names:
            with open(os.path.join(made, name), "rb") as a, \
                    open(os.path.join(committed, name), "rb") as b:
                if a.read() != b.read():
                    self.violation("corpus", "packages/%s differs from what make_corpus.py makes "
                                   "(run make_corpus.py %s)" % (name, committed))

    def make_big(self):
        folder = os.path.join(self.work, "big")
        started = time.monotonic()
        subprocess.run([sys.executable, os.path.join(self.corpus, "make_corpus.py"), folder,
                        "--big"], check=True)
        self.lines.append("big packages made in %.1f s" % (time.monotonic() - started))
        return folder

    # --- one command

    def measure(self, argv, env, limit, scratch):
        """Runs argv; gives its exit code, output, wall seconds and peak memory in MiB.  The
        output goes through files, so that this process stays small: a child's peak memory
        counts what it was forked from."""
        out_path = os.path.join(scratch, "stdout")
        err_path = os.path.join(scratch, "stderr")
        with open(out_path, "wb") as out, open(err_path, "wb") as err:
            process = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                       env=env)
            killer = threading.Timer(limit, process.kill)
            started = time.monotonic()
            killer.start()
            _, status, usage = os.wait4(process.pid, 0)
            wall = time.monotonic() - started
            killer.cancel()
        process.returncode = os.waitstatus_to_exitcode(status)
        # Only the head of the output is kept, and its lines are counted as they are read.
        lines = 0
        with open(out_path, "rb") as out:
            head = out.read(1 << 16)
            lines += head.count(b"\n")
            for block in iter(lambda: out.read(1 << 16), b""):
                lines += block.count(b"\n")
        with open(err_path, "rb") as err:
            errors = err.read(1 << 16)
        os.unlink(out_path)
        os.unlink(err_path)
        return process.returncode, (head, lines), errors, wall, usage.ru_maxrss / 1024.0

    def run_case(self, case, package, defaults):
        seconds = case.get("seconds", defaults["seconds"])
        mib = case.get("mib", defaults["mib"])
        if self.sanitized:
            seconds, mib = seconds * 5, mib * 3
        for index, run in enumerate(self.expand(case)):
            scratch = os.path.join(self.work, "runs", "%s-%d" % (case["package"], index))
            os.makedirs(scratch)
            dest = os.path.join(scratch, "dest")
            argv = [self.opcvk] + [a.replace("{pkg}", package).replace("{dest}", dest)
                                   for a in run["command"]] + ["-q"]
            env = dict(os.environ, LC_ALL=case.get("locale", "C.UTF-8"))
            if self.sanitized:
                # AddressSanitizer keeps freed blocks aside (256 MiB by default) to catch late
                # uses, and ru_maxrss counts them: a short quarantine keeps the bound about what
                # the tool itself holds.
                options = [o for o in env.get("ASAN_OPTIONS", "").split(":") if o]
                env["ASAN_OPTIONS"] = ":".join(options + ["quarantine_size_mb=16"])
            what = "%s: %s" % (case["package"], run["command"][0])
            code, out, err, wall, peak = self.measure(argv, env, seconds * 3, scratch)
            status = "ok"
            if wall > seconds * 3:
                self.violation(what, "did not end within %d s (a hang), killed" % (seconds * 3))
                status = "HANG"
            else:
                problems = self.judge(run, package, code, out, err)
                for problem in problems:
                    self.violation(what, problem)
                if wall > seconds:
                    self.violation(what, "took %.2f s, more than its bound of %d s" % (wall,
                                                                                       seconds))
                if peak > mib:
                    self.violation(what, "used %.0f MiB, more than its bound of %d MiB" % (peak,
                                                                                          mib))
                if problems or wall > seconds or peak > mib:
                    status = "FAIL"
            if run.get("nothing_extracted") and os.path.isdir(dest) and os.listdir(dest):
                self.violation(what, "extracted something: %s" % ", ".join(os.listdir(dest)))
            left = [n for n in os.listdir(scratch) if n != "dest"]
            if left:
                self.violation(what, "wrote outside its destination: %s" % ", ".join(left))
            self.lines.append("%-36s %-8s exit %d  %7.2f s (bound %3d)  %6.0f MiB (bound %4d)  %s"
                              % (case["package"], run["command"][0], code, wall, seconds, peak,
                                 mib, status))
            shutil.rmtree(scratch, ignore_errors=True)

    def expand(self, case):
        """The runs of a case; a refusal stands for list, test and extract all refusing."""
        if "runs" in case:
            return case["runs"]
        message = case["refused"]
        found_by_test = ("manifest: " if case.get("manifest") else "package {pkg}: ") + message
        return [{"command": ["list", "{pkg}"], "exit": 1, "stderr": "opcvk: " + message},
                {"command": ["test", "{pkg}"], "exit": 1, "stdout_first": found_by_test},
                {"command": ["extract", "{pkg}", "{dest}"], "exit": 1,
                 "stderr": "opcvk: " + message, "nothing_extracted": True}]

    def judge(self, run, package, code, out, err):
        problems = []
        head, lines = out
        text = head.decode("utf-8", errors="replace")
        errors = err.decode("utf-8", errors="replace")
        sub = lambda s: s.replace("{pkg}", package)
        if code != run["exit"]:
            problems.append("exit %d, expected %d (stderr %r)" % (code, run["exit"],
                                                                 errors[-300:]))
        if "stderr" in run and errors != sub(run["stderr"]) + "\n":
            problems.append("stderr %r, expected %r" % (errors[-300:], sub(run["stderr"])))
        if "stderr" not in run and errors:
            problems.append("unexpected stderr %r" % errors[-300:])
        if "stdout_first" in run and text.split("\n", 1)[0] != sub(run["stdout_first"]):
            problems.append("first line %r, expected %r" % (text.split("\n", 1)[0][:300],
                                                           sub(run["stdout_first"])))
        if "stdout_has" in run and sub(run["stdout_has"]) not in text:
            problems.append("output lacks %r" % sub(run["stdout_has"]))
        if "stdout_lines" in run and lines != run["stdout_lines"]:
            problems.append("%d lines of output, expected %d" % (lines, run["stdout_lines"]))
        return problems

    # --- all of it

    def run(self):
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(os.path.join(self.work, "runs"))
        with open(os.path.join(self.corpus, "cases.json")) as f:
            corpus = json.load(f)
        cases = [c for c in corpus["cases"] if (not self.only or c["package"] in self.only) and
                 not (self.sanitized and c.get("scale"))]
        self.check_committed()
        big = self.make_big() if any(c.get("big") for c in cases) else None
        for case in cases:
            folder = big if case.get("big") else os.path.join(self.corpus, "packages")
            self.run_case(case, os.path.join(folder, case["package"] + ".opc"), corpus)
        print("\n".join(self.lines))
        if self.violations:
            print("\n%d violations:" % len(self.violations))
            print("\n".join("  " + v for v in self.violations))
            return 1
        print("%d packages, no violations" % len(cases))
        shutil.rmtree(self.work, ignore_errors=True)
        return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--opcvk", required=True)
    parser.add_argument("--corpus", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--case", action="append")
    parser.add_argument("--sanitized", action="store_true",
                        help="the tool is built with sanitizers: wider bounds, no scale cases")
    return Runner(parser.parse_args()).run()


if __name__ == "__main__":
    sys.exit(main())
