#!/usr/bin/env python3
"""Interrupts saves of a package opened for Modify at every stage, with real processes and real
files, and checks what is left on disk.

    run_faults.py --victim SAVE_VICTIM --shim FAULT_SHIM.so --work DIR [--exhaustive] [--seed N]

Each save is made by save_victim (a package of several parts changed in every way and saved),
and interrupted by:
  - SIGKILL at a numbered call of the save (fault_shim.so, preloaded, kills the process just
    before the call runs: file creation, each write, the flush, the rename, the opening and the
    flush of the folder after the rename, each read of the old package), and SIGKILL at random
    moments of a long save;
  - a call that fails with ENOSPC, EIO or EFBIG (the shim), once or for good (a disk that
    stays full);
  - RLIMIT_FSIZE below the size of the new package, with SIGXFSZ ignored (the write fails
    with EFBIG) and with SIGXFSZ left to kill the process;
  - a small tmpfs that the new package does not fit into (where a tmpfs can be mounted);
  - a folder that the process may not write to, and a package file that it may not write to.

After each run the package must be the old one byte for byte (SHA-256 of the file) or the
complete new one (its parts and relationships as the victim's dump gives them, every part
read to its end so that sizes and CRCs are checked, and the archive's CRCs checked by Python's
zipfile as well).  A save that failed without being killed must leave nothing beside the
package, and must have said so (exit 1, one line) exactly when the package is the old one.
A killed save may leave its temporary file: the next save of the package must remove it.

By default a sample of the points runs (short enough for CI); --exhaustive runs every point.
Prints the counts (points interrupted, outcomes) and exits 1 on any violation.
"""

import argparse
import errno
import hashlib
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time
import zipfile

NOBODY = 65534
TEMPORARY = re.compile(r"^\.p\.zip\.[0-9a-f]{8}\.tmp$")
TIMEOUT = 300


class Harness:
    def __init__(self, args):
        self.victim = os.path.abspath(args.victim)
        self.shim = os.path.abspath(args.shim)
        self.work = os.path.abspath(args.work)
        self.exhaustive = args.exhaustive
        self.random = random.Random(args.seed)
        self.violations = []
        self.report = []
        self.run_number = 0

    # --- running the victim

    def environment(self, faults=None):
        env = dict(os.environ)
        for key in list(env):
            if key.startswith("OPCVK_FAULT_"):
                del env[key]
        if faults is not None:
            env["LD_PRELOAD"] = self.shim
            # A sanitizer runtime must come first among the libraries; the shim comes before
            # it here, which is harmless, so the check is turned off.
            asan = env.get("ASAN_OPTIONS", "")
            env["ASAN_OPTIONS"] = (asan + ":" if asan else "") + "verify_asan_link_order=0"
            env.update({"OPCVK_FAULT_" + k.upper(): str(v) for k, v in faults.items()})
        return env

    def victim_run(self, args, faults=None, preexec=None, user=None):
        argv = [self.victim] + args
        if user is not None:
            argv = ["setpriv", "--reuid=%d" % user, "--regid=%d" % user, "--clear-groups"] + argv
        return subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, env=self.environment(faults),
                              preexec_fn=preexec, timeout=TIMEOUT)

    def dump(self, package):
        result = self.victim_run(["dump", package])
        if result.returncode != 0:
            return None
        return result.stdout

    # --- scenarios

    def fresh(self, scenario):
        """A new folder holding a copy of the scenario's original package."""
        self.run_number += 1
        folder = os.path.join(self.work, "runs", "%s-%d" % (scenario.name, self.run_number))
        os.makedirs(folder)
        package = os.path.join(folder, "p.zip")
        shutil.copy2(scenario.original, package)
        return folder, package

    def prepare(self, scenario):
        base = os.path.join(self.work, scenario.name)
        os.makedirs(base)
        scenario.original = os.path.join(base, "original.zip")
        self.must(self.victim_run(["create", scenario.original] + scenario.create_args),
                  "create the original package of " + scenario.name)
        scenario.old_hash = sha256(scenario.original)
        scenario.old_dump = self.dump(scenario.original)
        folder, package = self.fresh(scenario)
        log = os.path.join(base, "calls.log")
        started = time.monotonic()
        self.must(self.victim_run(["modify", package] + scenario.modify_args,
                                  {"mode": "count", "log": log}),
                  "save " + scenario.name + " without faults")
        scenario.save_seconds = time.monotonic() - started
        scenario.new_dump = self.dump(package)
        scenario.new_size = os.path.getsize(package)
        if scenario.old_dump is None or scenario.new_dump is None:
            raise SystemExit("the victim cannot dump the packages of " + scenario.name)
        with open(log) as f:
            scenario.calls = [line.split() for line in f.read().splitlines()]
        kinds = {}
        for _, kind, _ in scenario.calls:
            kinds[kind] = kinds.get(kind, 0) + 1
        self.report.append("%s: the save makes %d calls (%s); the new package has %d bytes" % (
            scenario.name, len(scenario.calls),
            ", ".join("%s %d" % item for item in sorted(kinds.items())), scenario.new_size))

    def must(self, result, what):
        if result.returncode != 0:
            raise SystemExit("could not %s (exit %d): %s" % (
                what, result.returncode, result.stderr.decode(errors="replace")))

    def points(self, scenario, kinds, budget):
        """The numbers of the calls to interrupt: every one with --exhaustive; else the first
        and last, every rename, flush and creation and the calls around them, and calls spread
        over the rest.  Numbers count only the calls of `kinds`."""
        calls = [c for c in scenario.calls if kinds is None or c[1] in kinds]
        count = len(calls)
        if count <= budget:
            return list(range(1, count + 1))
        chosen = {1, count}
        for index, (_, kind, call) in enumerate(calls, start=1):
            if kind in ("rename", "sync") or (kind == "open" and index > count - 8):
                chosen.update({index - 1, index, index + 1})
        spread = max(budget - len(chosen), 0)
        for i in range(spread):
            chosen.add(1 + (i * (count - 1)) // max(spread - 1, 1))
        return sorted(p for p in chosen if 1 <= p <= count)

    # --- judging a run

    def judge(self, scenario, folder, package, what, result, may_leave_temporary):
        """Classifies the package as "old" or "new" and records violations."""
        names = sorted(os.listdir(folder))
        others = [n for n in names if n != "p.zip"]
        temporaries = [n for n in others if TEMPORARY.match(n)]
        if not os.path.exists(package):
            self.violation(what, "the package is gone", result)
            return None
        outcome = None
        if sha256(package) == scenario.old_hash:
            outcome = "old"
        else:
            dump = self.dump(package)
            if dump == scenario.new_dump and zip_checks_out(package):
                outcome = "new"
            else:
                self.violation(what, "the package is neither the old one nor the complete new one",
                               result)
                return None
        strays = [n for n in others if n not in temporaries or not may_leave_temporary]
        if strays:
            self.violation(what, "left beside the package: %s" % ", ".join(strays), result)
        return outcome, len(temporaries)

    def violation(self, what, problem, result=None):
        detail = ""
        if result is not None:
            detail = " (exit %s, stderr %r)" % (result.returncode,
                                                 result.stderr.decode(errors="replace")[-300:])
        self.violations.append("%s: %s%s" % (what, problem, detail))

    def next_save_cleans(self, scenario, folder, package, outcome, what):
        """The next save removes what a killed save left, and keeps the package as it was."""
        result = self.victim_run(["resave", package])
        if result.returncode != 0:
            self.violation(what + ", next save", "failed", result)
            return
        left = [n for n in os.listdir(folder) if n != "p.zip"]
        if left:
            self.violation(what + ", next save", "left: %s" % ", ".join(left))
        expected = scenario.old_dump if outcome == "old" else scenario.new_dump
        if self.dump(package) != expected:
            self.violation(what + ", next save", "changed the package")

    # --- the faults

    def kills(self, scenario, budget):
        outcomes = {"old": 0, "new": 0}
        left = 0
        points = self.points(scenario, None, budget)
        labels = set()
        for point in points:
            folder, package = self.fresh(scenario)
            what = "%s: SIGKILL at call %d (%s)" % (scenario.name, point,
                                                    " ".join(scenario.calls[point - 1][1:]))
            result = self.victim_run(["modify", package] + scenario.modify_args,
                                     {"mode": "kill", "at": point})
            if result.returncode not in (-signal.SIGKILL, 0):
                self.violation(what, "the process did not die by SIGKILL", result)
            judged = self.judge(scenario, folder, package, what, result, True)
            if judged is None:
                continue
            outcomes[judged[0]] += 1
            left += judged[1]
            if judged[1]:
                labels.add("temporary")
            self.next_save_cleans(scenario, folder, package, judged[0], what)
        # The rename, then the opening and the flush of the folder: a kill at a call after
        # the rename and up to the folder's flush falls between the two.
        renames = [i for i, c in enumerate(scenario.calls, start=1) if c[1] == "rename"]
        syncs = [i for i, c in enumerate(scenario.calls, start=1) if c[1] == "sync"]
        between = [p for p in points if renames and syncs and renames[-1] < p <= syncs[-1]]
        self.report.append(
            "  SIGKILL at %d calls: %d old, %d new; %d left a temporary file, each removed by "
            "the next save; %d of the kills fell between the rename and the folder's flush" % (
                len(points), outcomes["old"], outcomes["new"], left, len(between)))

    def timed_kills(self, scenario, count):
        outcomes = {"old": 0, "new": 0}
        left = 0
        for _ in range(count):
            folder, package = self.fresh(scenario)
            delay = self.random.uniform(0, scenario.save_seconds * 1.3)
            what = "%s: SIGKILL %.3f s into the save" % (scenario.name, delay)
            process = subprocess.Popen([self.victim, "modify", package, "--announce"] +
                                       scenario.modify_args, stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE, env=self.environment())
            process.stdout.readline()
            time.sleep(delay)
            process.send_signal(signal.SIGKILL)
            _, stderr = process.communicate(timeout=TIMEOUT)
            result = subprocess.CompletedProcess(process.args, process.returncode, b"", stderr)
            judged = self.judge(scenario, folder, package, what, result, True)
            if judged is None:
                continue
            outcomes[judged[0]] += 1
            left += judged[1]
            self.next_save_cleans(scenario, folder, package, judged[0], what)
        self.report.append("  SIGKILL at %d random moments: %d old, %d new; %d left a temporary "
                           "file, each removed by the next save" % (
                               count, outcomes["old"], outcomes["new"], left))

    def failures(self, scenario, error, kinds, sticky, budget):
        name = errno.errorcode[error]
        points = self.points(scenario, kinds, budget)
        outcomes = {"old": 0, "new": 0}
        for point in points:
            folder, package = self.fresh(scenario)
            faults = {"mode": "fail", "at": point, "errno": error}
            if kinds is not None:
                faults["kinds"] = ",".join(sorted(kinds))
            if sticky:
                faults["sticky"] = 1
            what = "%s: %s at call %d of %s%s" % (scenario.name, name, point,
                                                  "/".join(sorted(kinds or ["any"])),
                                                  " and every one after" if sticky else "")
            result = self.victim_run(["modify", package] + scenario.modify_args, faults)
            self.failed_save(scenario, folder, package, what, result, outcomes)
        self.report.append("  %s at %d calls of %s%s: %d old (the save reported it), %d new" % (
            name, len(points), "/".join(sorted(kinds or ["any kind"])),
            ", for good" if sticky else "", outcomes["old"], outcomes["new"]))

    def failed_save(self, scenario, folder, package, what, result, outcomes):
        """A save that failed without being killed: said so exactly when the package is the old
        one, in one line, and left nothing."""
        if result.returncode not in (0, 1):
            self.violation(what, "the process crashed or failed oddly", result)
        judged = self.judge(scenario, folder, package, what, result, False)
        if judged is None:
            return
        outcome = judged[0]
        outcomes[outcome] += 1
        stderr = result.stderr.decode(errors="replace")
        if result.returncode == 1:
            if outcome != "old":
                self.violation(what, "the save failed but the package was replaced", result)
            # A save also reads the package it replaces (the items it keeps are copied from
            # it, their local headers read on the way), so a read may be what failed.
            if not re.fullmatch(r"save_victim: Could not (save|read) package \"[^\n]*\": [^\n]+\n",
                                stderr):
                self.violation(what, "the failure is not told in one line", result)
        elif result.returncode == 0 and outcome != "new":
            self.violation(what, "the save succeeded but the package is the old one", result)

    def file_size_limits(self, scenario, budget):
        outcomes = {"old": 0, "new": 0}
        limits = sorted({0, 4096, scenario.new_size // 2, scenario.new_size - 1, 512})[:budget]
        killed = 0
        for limit in limits:
            for ignore in (True, False):
                folder, package = self.fresh(scenario)
                what = "%s: RLIMIT_FSIZE %d, SIGXFSZ %s" % (scenario.name, limit,
                                                            "ignored" if ignore else "default")

                def limited(limit=limit, ignore=ignore):
                    signal.signal(signal.SIGXFSZ, signal.SIG_IGN if ignore else signal.SIG_DFL)
                    resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

                result = self.victim_run(["modify", package] + scenario.modify_args,
                                         preexec=limited)
                if ignore:
                    self.failed_save(scenario, folder, package, what, result, outcomes)
                    continue
                if result.returncode != -signal.SIGXFSZ:
                    self.violation(what, "the process was not stopped by SIGXFSZ", result)
                killed += 1
                judged = self.judge(scenario, folder, package, what, result, True)
                if judged is not None:
                    outcomes[judged[0]] += 1
                    self.next_save_cleans(scenario, folder, package, judged[0], what)
        self.report.append("  RLIMIT_FSIZE at %d sizes below the new package, SIGXFSZ ignored "
                           "and not (%d killed): %d old, %d new" % (
                               len(limits), killed, outcomes["old"], outcomes["new"]))

    def small_file_system(self, scenario, budget):
        mount = os.path.join(self.work, "tmpfs-" + scenario.name)
        os.makedirs(mount)
        size = ((os.path.getsize(scenario.original) + scenario.new_size) // 4096 + 64) * 4096
        if subprocess.run(["mount", "-t", "tmpfs", "-o", "size=%d" % size, "tmpfs", mount],
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode != 0:
            self.report.append("  small tmpfs: skipped (a tmpfs cannot be mounted here)")
            return
        outcomes = {"old": 0, "new": 0}
        # Free space from none to more than the new package needs.
        frees = sorted({0, 4096, scenario.new_size // 2, scenario.new_size - 4096,
                        scenario.new_size + (1 << 16)})[:budget]
        try:
            for free in frees:
                folder = os.path.join(mount, "run")
                shutil.rmtree(folder, ignore_errors=True)
                os.makedirs(folder)
                package = os.path.join(folder, "p.zip")
                shutil.copy2(scenario.original, package)
                fill(os.path.join(mount, "filler"), mount, free)
                what = "%s: tmpfs of %d bytes with %d free" % (scenario.name, size, free)
                result = self.victim_run(["modify", package] + scenario.modify_args)
                self.failed_save(scenario, folder, package, what, result, outcomes)
                os.unlink(os.path.join(mount, "filler"))
        finally:
            subprocess.run(["umount", "-l", mount])
        self.report.append("  a tmpfs with %d amounts of free space (%d less than the new "
                           "package needs): %d old (the save reported a full disk), %d new" % (
                               len(frees), len([f for f in frees if f < scenario.new_size]),
                               outcomes["old"], outcomes["new"]))

    def unwritable(self, scenario):
        outcomes = {"old": 0, "new": 0}
        user = NOBODY if os.geteuid() == 0 else None
        # A folder that may not be written: the save cannot even begin.
        folder, package = self.fresh(scenario)
        os.chmod(package, 0o666)
        os.chmod(folder, 0o555)
        what = "%s: folder not writable" % scenario.name
        os.chmod(self.work, 0o755)
        result = self.victim_run(["modify", package] + scenario.modify_args, user=user)
        os.chmod(folder, 0o755)
        if result.returncode != 1 or b"could not create a temporary file beside it" not in \
                result.stderr:
            self.violation(what, "the save was not refused", result)
        self.failed_save(scenario, folder, package, what, result, outcomes)
        # A package file that may not be written, in a folder that may: the save replaces it,
        # as an editor does, and keeps its permission bits.
        folder, package = self.fresh(scenario)
        os.chmod(package, 0o444)
        os.chmod(folder, 0o777)
        what = "%s: package file not writable" % scenario.name
        result = self.victim_run(["modify", package] + scenario.modify_args, user=user)
        self.failed_save(scenario, folder, package, what, result, outcomes)
        if os.stat(package).st_mode & 0o777 != 0o444:
            self.violation(what, "the new package does not keep the mode 0444")
        self.report.append("  folder not writable, package file not writable: %d old, %d new" % (
            outcomes["old"], outcomes["new"]))

    # --- all of it

    def run(self):
        shutil.rmtree(self.work, ignore_errors=True)
        os.makedirs(os.path.join(self.work, "runs"))
        # A small package, whose save has few calls, is interrupted at every one of them; the
        # big one (a few MiB, compressed on two threads) at a sample, unless --exhaustive.
        scenarios = [Scenario("small", [], [], 1000), Scenario("big", ["--big"],
                                                               ["--big", "--threads", "2"], 3)]
        if self.exhaustive:
            scenarios.insert(1, Scenario("small-threads", [], ["--threads", "2"], 1000))
            for scenario in scenarios:
                scenario.budget = 100000
        for scenario in scenarios:
            self.prepare(scenario)
            budget = scenario.budget
            self.kills(scenario, budget * 2)
            if scenario.name == "big":
                self.timed_kills(scenario, 40 if self.exhaustive else 4)
            self.failures(scenario, errno.ENOSPC, {"write", "open", "sync"}, False, budget)
            self.failures(scenario, errno.ENOSPC, {"write"}, True, budget)
            self.failures(scenario, errno.EIO, None, False, budget * 2)
            self.failures(scenario, errno.EFBIG, {"write"}, False, budget)
            self.file_size_limits(scenario, budget)
            self.small_file_system(scenario, budget)
            if scenario.name == "small":
                self.unwritable(scenario)
        print("\n".join(self.report))
        if self.violations:
            print("\n%d violations:" % len(self.violations))
            print("\n".join("  " + v for v in self.violations))
            return 1
        print("no violations (%d runs of the victim)" % self.run_number)
        shutil.rmtree(self.work, ignore_errors=True)
        return 0


class Scenario:
    def __init__(self, name, create_args, modify_args, budget):
        self.name = name
        self.create_args = create_args
        self.modify_args = modify_args
        # How many points of each kind of fault are sampled.
        self.budget = budget


def sha256(path):
    digest = hashlib.sha256()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest()


def zip_checks_out(path):
    """An independent reader finds every item's CRC right."""
    try:
        with zipfile.ZipFile(path) as archive:
            return archive.testzip() is None
    except (zipfile.BadZipFile, OSError):
        return False


def fill(path, mount, free):
    """Writes a file that leaves about `free` bytes of the file system at `mount` unused."""
    stat = os.statvfs(mount)
    available = stat.f_bavail * stat.f_frsize
    size = max(available - free, 0)
    with open(path, "wb") as f:
        block = b"\0" * (1 << 16)
        while size > 0:
            n = min(size, len(block))
            try:
                f.write(block[:n])
                f.flush()
            except OSError:
                break
            size -= n


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--victim", required=True)
    parser.add_argument("--shim", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--exhaustive", action="store_true")
    parser.add_argument("--seed", type=int, default=1)
    return Harness(parser.parse_args()).run()


if __name__ == "__main__":
    sys.exit(main())
