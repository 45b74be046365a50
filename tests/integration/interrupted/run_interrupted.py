#!/usr/bin/env python3
"""Runs the tool's writing commands and stops them part way, as a user's system can.

    run_interrupted.py --opcvk OPCVK --work DIR

Two ways of stopping:
- a limit on the size of files (RLIMIT_FSIZE, what "ulimit -f" sets), below the size of what
  the command writes: the command must fail with exit code 1 and a message, not die by a
  signal; a save names the cause, a package it changes stays byte for byte as it was, and
  nothing of the command's is left beside it;
- kill -9 once the command has begun to write its temporary file: the package stays as it
  was, the temporary file is what stays beside it, and the next save of the same package
  removes it.

Prints one line per check and exits 1 if any failed.
"""

import argparse
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

LIMIT = 256 * 1024  # bytes that a file may reach under the size limit


def make_tree(folder, files, size):
    os.makedirs(folder)
    for i in range(files):
        # Bytes that do not compress, so that a package is as large as what it holds.
        with open(os.path.join(folder, "f%03d.bin" % i), "wb") as f:
            f.write(os.urandom(size))


class Checks:
    def __init__(self, opcvk, work):
        self.opcvk = opcvk
        self.work = work
        self.failures = []

    def check(self, what, ok, detail=""):
        print("%-64s %s%s" % (what, "ok" if ok else "FAILED", "" if ok else ": " + detail))
        if not ok:
            self.failures.append(what)

    def run(self, args, limit=None, cwd=None):
        def limited():
            if limit is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
        return subprocess.run([self.opcvk] + args + ["-q"], cwd=cwd, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, preexec_fn=limited)

    @staticmethod
    def beside(folder, keep):
        return sorted(n for n in os.listdir(folder) if n not in keep)

    # --- the size limit

    def size_limit(self, small, big):
        folder = os.path.join(self.work, "fsize")
        os.makedirs(folder)
        package = os.path.join(folder, "p.opc")
        shutil.copy(small, package)
        with open(package, "rb") as f:
            before = f.read()
        cases = [
            ("pack of a new package", ["pack", big, os.path.join(folder, "new.opc")], None),
            ("pack --update of a package", ["pack", "--update", big, package], package),
            ("add to a package", ["add", package, big, "--as", "/big"], package),
        ]
        for what, args, changed in cases:
            result = self.run(args, limit=LIMIT)
            self.check("size limit, %s: exit 1" % what, result.returncode == 1,
                       "exit %d, stderr %r" % (result.returncode, result.stderr[-300:]))
            self.check("size limit, %s: the cause is told" % what,
                       "File too large" in result.stderr, repr(result.stderr[-300:]))
            if changed:
                with open(changed, "rb") as f:
                    self.check("size limit, %s: the package is unchanged" % what,
                               f.read() == before)
            left = self.beside(folder, {"p.opc"})
            self.check("size limit, %s: nothing left beside it" % what, not left, str(left))

        # Extraction of a file larger than the limit: a failed write, told as one with the
        # file and the cause, not a signal.  Files go out on more than one thread, so any of
        # them may be the first to fail.
        dest = os.path.join(folder, "dest")
        packed = os.path.join(self.work, "big.opc")
        result = self.run(["extract", packed, dest], limit=LIMIT)
        self.check("size limit, extract: exit 1", result.returncode == 1,
                   "exit %d, stderr %r" % (result.returncode, result.stderr[-300:]))
        self.check("size limit, extract: the failed write is told",
                   re.fullmatch(r"opcvk: Could not write file: %s/f\d{3}\.bin: File too large\n"
                                % re.escape(dest), result.stderr) is not None,
                   repr(result.stderr[-300:]))

    # --- kill -9

    def killed(self, small, big):
        folder = os.path.join(self.work, "killed")
        os.makedirs(folder)
        package = os.path.join(folder, "p.opc")
        shutil.copy(small, package)
        with open(package, "rb") as f:
            before = f.read()
        process = subprocess.Popen([self.opcvk, "add", "-q", package, big, "--as", "/big"],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        # Wait until the temporary file has some bytes: the save is under way.
        deadline = time.monotonic() + 60
        begun = False
        while not begun and process.poll() is None and time.monotonic() < deadline:
            for name in self.beside(folder, {"p.opc"}):
                try:
                    begun = begun or os.path.getsize(os.path.join(folder, name)) > 0
                except OSError:
                    pass
            time.sleep(0.001)
        if process.poll() is None:
            process.send_signal(signal.SIGKILL)
        process.wait()
        self.check("kill -9 during add: killed while saving",
                   begun and process.returncode == -signal.SIGKILL,
                   "begun %s, exit %s" % (begun, process.returncode))
        with open(package, "rb") as f:
            self.check("kill -9 during add: the package is unchanged", f.read() == before)
        left = self.beside(folder, {"p.opc"})
        self.check("kill -9 during add: one temporary file stays beside it",
                   len(left) == 1 and left[0].startswith(".p.opc.") and left[0].endswith(".tmp"),
                   str(left))
        result = self.run(["rm", package, "/f000.bin"])
        self.check("kill -9 during add: the next save succeeds", result.returncode == 0,
                   result.stderr[-300:])
        left = self.beside(folder, {"p.opc"})
        self.check("kill -9 during add: the next save removes what stayed", not left, str(left))

    def run_all(self):
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(self.work)
        small_tree = os.path.join(self.work, "small")
        big_tree = os.path.join(self.work, "big")
        make_tree(small_tree, 4, 1000)
        # Each file, and the package, above the limit; large enough that a save takes a while.
        make_tree(big_tree, 16, 1 << 20)
        small = os.path.join(self.work, "small.opc")
        result = self.run(["pack", small_tree, small])
        if result.returncode != 0:
            print("could not make the small package: " + result.stderr)
            return 1
        result = self.run(["pack", big_tree, os.path.join(self.work, "big.opc")])
        if result.returncode != 0:
            print("could not make the big package: " + result.stderr)
            return 1
        self.size_limit(small, big_tree)
        self.killed(small, big_tree)
        if self.failures:
            print("\n%d checks failed" % len(self.failures))
            return 1
        shutil.rmtree(self.work, ignore_errors=True)
        print("all checks passed")
        return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--opcvk", required=True)
    parser.add_argument("--work", required=True)
    args = parser.parse_args()
    return Checks(os.path.abspath(args.opcvk), os.path.abspath(args.work)).run_all()


if __name__ == "__main__":
    sys.exit(main())
