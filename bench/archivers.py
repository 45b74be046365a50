#!/usr/bin/python3
"""Compares opcvk with common ZIP archivers on one generated corpus, phase by phase.

    bench/archivers.py --corpus mixed --work DIR --opcvk BUILD/tools/opcvk/opcvk
                       [--seed N] [--skip-tool TOOL]... [--runs N] [--no-strace]
                       [--no-content-check] [--encrypted] [--keep]

The corpus (bench/corpus/generate_corpus.py) is made once in DIR/corpus and reused while the
preset, the seed and the generator stay the same.  Then each tool, in turn and on the same
corpus, creates an archive, lists it and extracts it:

  opcvk    opcvk pack / opcvk list / opcvk extract (which restores permissions and times)
  zip      zip -r -y -q -6 / unzip -l / unzip -q        (-y: links stored as links)
  zip-1    the same with zip -1, a reference for a fast level
  bsdtar   bsdtar --format zip -cf / -tf / -xf
  7z       7z a -tzip -mx=5 -snl / 7z l / 7z x -snld  (-snld: it refuses links with "..",
           even those that stay inside the destination, without it)
  python   zipfile, ZIP_DEFLATED level 6: write / namelist / extractall

The listing runs twice per round: into a file ("list") and into /dev/null ("list-null"), since
writing a listing costs differently in the two.

With --encrypted two more tools take their turns, for the cost of encryption:

  opcvk-key  opcvk pack / list / extract with --key-file (a random 32-byte key made for the run)
  7z-aes     7z a -t7z -mhe=on -mx=1 -snl -pPASSWORD / 7z l -p / 7z x -p -snld (AES-256,
             names encrypted too; the fastest compression level, as encrypted opcvk stores)

Every phase is its own process under /usr/bin/time (wall, user + system, peak resident size),
after a sync; the page cache is not dropped, so the corpus is read warm by every tool alike.
With --runs N the tools take turns N times (round 1: every tool; round 2: every tool; ...) and
the tables give the median of each figure, so that a drift of the machine's speed hits all
tools alike.  Each extraction of the first round is checked against the corpus: the files,
folders and links that came back, their bytes (and content, unless --no-content-check), modes
and modification times.  After the rounds each tool extracts once more under strace -f -c
(unless --no-strace), for the system calls per corpus entry (files, folders and links), and
the peak memory of each phase is also given per entry.
Install the peers with scripts/setup-bench-deps.  The tables are printed in Markdown and
saved in DIR/results-<preset>-<time>.md.
"""

import argparse
import hashlib
import json
import os
import shutil
import stat
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
GENERATOR = os.path.join(HERE, "corpus", "generate_corpus.py")
ZIPFILE_TOOL = os.path.join(HERE, "corpus", "zipfile_tool.py")
PYTHON = "/usr/bin/python3"
MIB = 1 << 20
TOOLS = ("opcvk", "zip", "zip-1", "bsdtar", "7z", "python")
ENCRYPTED_TOOLS = ("opcvk-key", "7z-aes")
PASSWORD = "bench-password"
# The tool whose version each row reports, and the suffix of its archive.
BASE = {"zip-1": "zip", "opcvk-key": "opcvk", "7z-aes": "7z"}
SUFFIX = {"opcvk": "opcvk", "opcvk-key": "opcvk", "7z-aes": "7z"}
# "list-null" is the listing again with its output thrown away: a listing to a file and one
# to /dev/null differ in what writing costs.
PHASES = ("create", "list", "list-null", "extract")
# The commands each tool needs, for the check before anything runs.
NEEDS = {"zip": ("zip", "unzip"), "zip-1": ("zip", "unzip"), "bsdtar": ("bsdtar",), "7z": ("7z",),
         "7z-aes": ("7z",), "python": (PYTHON,)}


def corpus_presets():
    """The generator's presets, read from its source so that a new preset needs no change here."""
    sys.path.insert(0, os.path.dirname(GENERATOR))
    sys.dont_write_bytecode = True
    try:
        import generate_corpus
    finally:
        sys.path.pop(0)
    return generate_corpus.PRESETS


def log(message):
    print(message, file=sys.stderr, flush=True)


def commands(tool, opcvk, src, archive, dest, no_transforms, key_file):
    """(create, list, extract) as (argv, working folder) pairs."""
    if tool in ("opcvk", "opcvk-key"):
        key = ["--key-file", key_file] if tool == "opcvk-key" else []
        pack = [opcvk, "pack", "-q"] + key + [src, archive]
        pack += ["--no-transforms"] if no_transforms else []
        return ((pack, None), ([opcvk, "list"] + key + [archive], None),
                ([opcvk, "extract", "-q"] + key + [archive, dest], None))
    if tool in ("zip", "zip-1"):
        level = "-6" if tool == "zip" else "-1"
        return ((["zip", "-r", "-y", "-q", level, archive, "."], src), (["unzip", "-l", archive], None),
                (["unzip", "-q", archive, "-d", dest], None))
    if tool == "bsdtar":
        return ((["bsdtar", "--format", "zip", "-cf", archive, "-C", src, "."], None),
                (["bsdtar", "-tf", archive], None), (["bsdtar", "-xf", archive, "-C", dest], None))
    if tool == "7z":
        return ((["7z", "a", "-tzip", "-mx=5", "-snl", "-bd", archive, "."], src),
                (["7z", "l", archive], None), (["7z", "x", "-y", "-bd", "-snld", "-o" + dest, archive], None))
    if tool == "7z-aes":
        password = "-p" + PASSWORD
        return ((["7z", "a", "-t7z", "-mhe=on", "-mx=1", "-snl", "-bd", password, archive, "."], src),
                (["7z", "l", password, archive], None),
                (["7z", "x", "-y", "-bd", "-snld", password, "-o" + dest, archive], None))
    if tool == "python":
        return (([PYTHON, ZIPFILE_TOOL, "create", src, archive], None),
                ([PYTHON, ZIPFILE_TOOL, "list", archive], None),
                ([PYTHON, ZIPFILE_TOOL, "extract", archive, dest], None))
    raise ValueError(tool)


def counted_calls(argv, cwd, out_path, env):
    """Runs argv under strace -f -c; returns the total number of system calls, or None."""
    count_file = out_path + ".strace"
    with open(out_path, "wb") as out:
        rc = subprocess.run(["strace", "-f", "-c", "-o", count_file] + argv, cwd=cwd, stdout=out,
                            stderr=subprocess.STDOUT, env=env).returncode
    total = None
    if os.path.exists(count_file):
        with open(count_file) as f:
            for line in f:
                fields = line.split()
                if fields and fields[-1] == "total":
                    # "100.00 seconds usecs/call calls [errors] total"
                    total = int(fields[3])
        os.unlink(count_file)
    return total if rc == 0 else None


def median(values):
    values = sorted(v for v in values if v is not None)
    if not values:
        return None
    middle = len(values) // 2
    return values[middle] if len(values) % 2 else (values[middle - 1] + values[middle]) / 2


def timed(argv, cwd, out_path, env, discard=False):
    """Runs argv under /usr/bin/time; returns (exit code, wall s, cpu s, peak MiB).  The output
    goes to out_path, or with `discard` to /dev/null (and only the errors to out_path)."""
    subprocess.run(["sync"], check=True)
    time_file = out_path + ".time"
    with open(out_path, "wb") as out:
        rc = subprocess.run(["/usr/bin/time", "-f", "%e %U %S %M", "-o", time_file] + argv, cwd=cwd,
                            stdout=subprocess.DEVNULL if discard else out,
                            stderr=out if discard else subprocess.STDOUT, env=env).returncode
    with open(time_file) as f:
        last = f.read().strip().splitlines()[-1].split()
    os.unlink(time_file)
    wall, user, system, peak_kib = float(last[0]), float(last[1]), float(last[2]), int(last[3])
    return rc, wall, user + system, peak_kib / 1024


def scan(root, hashes):
    """Relative path -> [kind, size, mode, mtime ns, link target or content digest]."""
    entries = {}
    stack = [""]
    while stack:
        rel = stack.pop()
        with os.scandir(os.path.join(root, rel)) as it:
            for e in it:
                r = f"{rel}/{e.name}" if rel else e.name
                st = e.stat(follow_symlinks=False)
                mode = stat.S_IMODE(st.st_mode)
                if stat.S_ISDIR(st.st_mode):
                    entries[r] = ["d", 0, mode, st.st_mtime_ns, None]
                    stack.append(r)
                elif stat.S_ISLNK(st.st_mode):
                    entries[r] = ["l", 0, mode, st.st_mtime_ns, os.readlink(e.path)]
                elif stat.S_ISREG(st.st_mode):
                    digest = None
                    if hashes:
                        with open(e.path, "rb") as f:
                            digest = hashlib.file_digest(f, "md5").hexdigest()
                    entries[r] = ["f", st.st_size, mode, st.st_mtime_ns, digest]
                else:
                    entries[r] = ["o", 0, mode, st.st_mtime_ns, None]
    return entries


def compare(source, got, hashes):
    """What of `source` came back in `got`: counts and a short verdict."""
    want = {k: sum(1 for e in source.values() if e[0] == k) for k in "fdl"}
    have = {"f": 0, "d": 0, "l": 0}
    content = times2 = times_us = 0
    modes = {"f": 0, "d": 0}
    for path, e in source.items():
        g = got.get(path)
        if g is None or g[0] != e[0]:
            continue
        if e[0] == "l":
            have["l"] += g[4] == e[4]
            continue
        have[e[0]] += 1
        modes[e[0]] += g[2] == e[2]
        if e[0] == "f":
            content += g[1] == e[1] and (not hashes or g[4] == e[4])
            delta = abs(g[3] - e[3])
            times2 += delta <= 2_000_000_000
            times_us += delta < 1000
    want_bytes = sum(e[1] for e in source.values())
    got_bytes = sum(e[1] for e in got.values())
    extra = sum(1 for p in got if p not in source)
    problems = []
    for kind, label in (("f", "files"), ("d", "folders"), ("l", "links")):
        if have[kind] != want[kind]:
            problems.append(f"{label} {have[kind]}/{want[kind]}")
    if got_bytes != want_bytes:
        problems.append(f"bytes {got_bytes - want_bytes:+d}")
    if content != want["f"]:
        problems.append(f"content {content}/{want['f']}")
    if extra:
        problems.append(f"{extra} extra")
    files = max(1, want["f"])
    return {
        "verdict": "ok" if not problems else "; ".join(problems),
        "files": f"{have['f']}/{want['f']}", "folders": f"{have['d']}/{want['d']}",
        "links": f"{have['l']}/{want['l']}", "bytes": got_bytes == want_bytes and "equal" or f"{got_bytes - want_bytes:+d}",
        "content": f"{content}/{want['f']}" if hashes else "not checked",
        "file_modes": f"{100 * modes['f'] / max(1, want['f']):.0f}%",
        "folder_modes": f"{100 * modes['d'] / max(1, want['d']):.0f}%",
        "times2": f"{100 * times2 / files:.0f}%", "times_us": f"{100 * times_us / files:.0f}%",
    }


def generator_digest():
    with open(GENERATOR, "rb") as f:
        return hashlib.sha1(f.read()).hexdigest()


def ensure_corpus(work, preset, seed, env):
    """The corpus folder and its record (summary and scan), made if missing or stale."""
    base = os.path.join(work, "corpus", f"{preset}-seed{seed}")
    record_path = base + ".json"
    digest = generator_digest()
    if os.path.exists(record_path):
        with open(record_path) as f:
            record = json.load(f)
        if record.get("generator") == digest and os.path.isdir(base):
            log(f"corpus {preset} (seed {seed}) reused from {base}")
            record["reused"] = True
            return base, record
        os.unlink(record_path)
    log(f"making corpus {preset} (seed {seed}) in {base}")
    os.makedirs(os.path.dirname(base), exist_ok=True)
    began = time.monotonic()
    out = subprocess.run([PYTHON, GENERATOR, "--preset", preset, "--seed", str(seed), "--out", base,
                          "--force", "--json"], check=True, stdout=subprocess.PIPE, env=env).stdout
    summary = json.loads(out)
    summary["seconds"] = round(time.monotonic() - began, 1)
    log(f"  {summary['files']} files, {summary['folders']} folders, {summary['links']} links, "
        f"{summary['bytes'] / MIB:.1f} MiB in {summary['seconds']} s; scanning")
    record = {"generator": digest, "summary": summary, "entries": scan(base, True)}
    with open(record_path, "w") as f:
        json.dump(record, f)
    return base, record


def version_of(tool, opcvk, env):
    argv = {"opcvk": [opcvk, "--version"], "zip": ["zip", "-v"], "bsdtar": ["bsdtar", "--version"],
            "7z": ["7z", "i"], "python": [PYTHON, "--version"]}.get(tool)
    if argv is None:
        return None
    try:
        out = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=env, text=True,
                             errors="replace").stdout
    except OSError as e:
        return str(e)
    lines = [line.strip() for line in out.splitlines() if line.strip()]
    if tool == "zip":
        lines = [line for line in lines if line.startswith("This is Zip")] or lines
    if tool == "7z":
        lines = [line for line in lines if line.startswith("7-Zip")] or lines
    return lines[0] if lines else "?"


def fmt(x, digits=2):
    return "-" if x is None else f"{x:.{digits}f}"


def ratio(a, b):
    return "-" if a is None or b is None or b == 0 else f"{a / b:.2f}"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0],
                                 formatter_class=argparse.RawDescriptionHelpFormatter,
                                 epilog="\n\n".join(__doc__.split("\n\n")[1:]))
    ap.add_argument("--corpus", required=True, choices=corpus_presets())
    ap.add_argument("--work", required=True, help="folder for the corpus, archives and extractions")
    ap.add_argument("--opcvk", help="the opcvk binary (needed unless --skip-tool opcvk)")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--skip-tool", action="append", default=[], choices=TOOLS + ENCRYPTED_TOOLS,
                    metavar="TOOL", help=f"leave a tool out; one of {', '.join(TOOLS + ENCRYPTED_TOOLS)}; "
                    "may be repeated")
    ap.add_argument("--no-content-check", action="store_true",
                    help="compare sizes only, not the bytes of every extracted file")
    ap.add_argument("--no-transforms", action="store_true", help="pass --no-transforms to opcvk pack")
    ap.add_argument("--encrypted", action="store_true",
                    help=f"add the encrypted rows: {', '.join(ENCRYPTED_TOOLS)}")
    ap.add_argument("--keep", action="store_true", help="keep archives and extractions")
    ap.add_argument("--runs", type=int, default=1, help="rounds of all tools; medians are shown")
    ap.add_argument("--no-strace", action="store_true",
                    help="leave out the extraction under strace that counts system calls")
    args = ap.parse_args()

    tools = [t for t in TOOLS + (ENCRYPTED_TOOLS if args.encrypted else ()) if t not in args.skip_tool]
    if "opcvk" in tools or "opcvk-key" in tools:
        if not args.opcvk or not os.access(args.opcvk, os.X_OK):
            ap.error("--opcvk must name the opcvk binary (or use --skip-tool opcvk)")
        args.opcvk = os.path.abspath(args.opcvk)
    missing = sorted({c for t in tools for c in NEEDS.get(t, ()) if not shutil.which(c)}
                     | ({"/usr/bin/time"} if not os.access("/usr/bin/time", os.X_OK) else set())
                     | ({"strace"} if not args.no_strace and not shutil.which("strace") else set()))
    if missing:
        sys.exit(f"archivers.py: missing {', '.join(missing)}: run scripts/setup-bench-deps "
                 "or leave the tool out with --skip-tool")

    env = dict(os.environ, LC_ALL="C.UTF-8", LANG="C.UTF-8")
    work = os.path.abspath(args.work)
    os.makedirs(work, exist_ok=True)
    run_began = time.monotonic()
    src, record = ensure_corpus(work, args.corpus, args.seed, env)
    load_start = open("/proc/loadavg").read().split()[:3]
    measured_began = time.monotonic()
    source = record["entries"]
    summary = record["summary"]
    hashes = not args.no_content_check

    runs = os.path.join(work, "runs")
    shutil.rmtree(runs, ignore_errors=True)
    os.makedirs(runs)
    key_file = os.path.join(runs, "bench.key")
    with open(os.open(key_file, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o600), "wb") as f:
        f.write(os.urandom(32))
    entries = max(1, len(source))  # files, folders and links of the corpus
    samples = {}  # (tool, phase) -> [(wall, cpu, peak)], one per round
    outputs = {}  # (tool, phase) -> output MiB of the first round
    verdicts = {}  # (tool, phase) -> what went wrong, and the check of the first extraction
    codes = {}  # (tool, phase) -> the worst exit code of any round
    calls = {}  # tool -> system calls of one extraction
    checks = {}
    failed = set()  # tools whose archive could not be made
    for round_number in range(1, args.runs + 1):
        for tool in tools:
            if tool in failed:
                continue
            archive = os.path.join(runs, f"{tool}.{SUFFIX.get(tool, 'zip')}")
            dest = os.path.join(runs, f"{tool}-out")
            shutil.rmtree(dest, ignore_errors=True)
            os.makedirs(dest)
            if os.path.exists(archive):
                os.unlink(archive)
            create, listing, extract = commands(tool, args.opcvk, src, archive, dest,
                                                args.no_transforms, key_file)
            for phase, (argv, cwd) in zip(PHASES, (create, listing, listing, extract)):
                log(f"round {round_number}/{args.runs}, {tool} {phase}: {' '.join(argv)}")
                out_path = os.path.join(runs, f"{tool}-{phase}.out")
                rc, wall, cpu, peak = timed(argv, cwd, out_path, env, phase == "list-null")
                key = (tool, phase)
                samples.setdefault(key, []).append((wall, cpu, peak))
                codes[key] = rc if rc != 0 else codes.get(key, 0)
                verdict = None
                if rc != 0:
                    with open(out_path, "rb") as f:
                        tail = f.read()[-300:].decode("utf-8", "replace").strip().splitlines()
                    verdict = f"exit {rc}: {tail[-1] if tail else ''}"
                    log(f"  {verdict}")
                if round_number == 1:
                    output = None
                    if phase == "create" and os.path.exists(archive):
                        output = os.path.getsize(archive) / MIB
                    elif phase == "extract":
                        got = scan(dest, hashes)
                        checks[tool] = compare(source, got, hashes)
                        output = sum(e[1] for e in got.values()) / MIB
                        verdict = (verdict + "; " if verdict else "") + checks[tool]["verdict"]
                    outputs[key] = output
                    verdicts[key] = verdict or ""
                elif verdict:
                    verdicts[key] = (verdicts[key] + "; " if verdicts[key] else "") + \
                        f"round {round_number}: {verdict}"
                log(f"  {wall:.2f} s wall, {cpu:.2f} s cpu, {peak:.0f} MiB peak")
                if rc != 0 and phase == "create":
                    failed.add(tool)
                    break
            if round_number == args.runs and tool not in failed and not args.no_strace:
                # Once more, outside the timed runs: strace slows a process down.
                traced = os.path.join(runs, f"{tool}-traced")
                os.makedirs(traced)
                argv, cwd = commands(tool, args.opcvk, src, archive, traced, args.no_transforms,
                                     key_file)[2]
                log(f"{tool} extract under strace -f -c")
                calls[tool] = counted_calls(argv, cwd, os.path.join(runs, f"{tool}-traced.out"), env)
                shutil.rmtree(traced, ignore_errors=True)
            if not args.keep:
                shutil.rmtree(dest, ignore_errors=True)
                if os.path.exists(archive) and round_number == args.runs:
                    os.unlink(archive)
    rows = []  # (tool, phase, rc, wall, cpu, peak, output MiB, verdict), medians of the rounds
    results = {}
    for tool in tools:
        for phase in PHASES:
            key = (tool, phase)
            if key not in samples:
                rows.append((tool, phase, None, None, None, None, None, "skipped"))
                continue
            wall, cpu, peak = (median([sample[i] for sample in samples[key]]) for i in range(3))
            rows.append((tool, phase, codes[key], wall, cpu, peak, outputs.get(key), verdicts.get(key, "")))
            results[key] = (wall, cpu, peak, outputs.get(key))
    load_end = open("/proc/loadavg").read().split()[:3]

    lines = []
    add = lines.append
    add(f"# Archivers on the `{args.corpus}` corpus (seed {args.seed})")
    add("")
    add(f"Corpus: {summary['files']} files, {summary['folders']} folders ({summary.get('empty_folders', '?')} empty), "
        f"{summary['links']} links, {summary['bytes'] / MIB:.1f} MiB, "
        f"{'reused' if record.get('reused') else 'made'} ({summary['seconds']} s to make). "
        f"Machine: {os.cpu_count()} processors; load average {' '.join(load_start)} at start, "
        f"{' '.join(load_end)} at end. Page cache warm (sync before each phase, caches not dropped). "
        f"The tools took {time.monotonic() - measured_began:.0f} s, checks included; the whole run "
        f"{time.monotonic() - run_began:.0f} s.")
    add("")
    for tool in dict.fromkeys(BASE.get(t, t) for t in tools):  # each program once
        v = version_of(tool, args.opcvk, env)
        if v:
            add(f"- {tool}: {v}")
    add("")
    rounds = f"medians of {args.runs} rounds" if args.runs > 1 else "one round"
    add(f"Figures: {rounds}; peak memory also per corpus entry ({entries} files, folders and links); "
        "system calls of one extraction (strace -f -c, the whole process) per entry.")
    add("")
    add("| tool | phase | wall s | CPU s | peak MiB | peak KiB/entry | output MiB | syscalls/entry | check |")
    add("|---|---|---:|---:|---:|---:|---:|---:|---|")
    for tool, phase, rc, wall, cpu, peak, output, verdict in rows:
        per_entry = None if peak is None else peak * 1024 / entries
        syscalls = calls.get(tool) if phase == "extract" else None
        add(f"| {tool} | {phase} | {fmt(wall)} | {fmt(cpu)} | {fmt(peak, 0)} | {fmt(per_entry, 2)} | "
            f"{fmt(output, 1)} | {fmt(None if syscalls is None else syscalls / entries, 2)} | {verdict} |")
    add("")
    add("What each extraction gave back (permission bits; modification times of files, "
        "within 2 s and within 1 µs):")
    add("")
    add("| tool | files | folders | links | bytes | same content | file modes | folder modes | times 2 s | times 1 µs |")
    add("|---|---|---|---|---|---|---:|---:|---:|---:|")
    for tool in tools:
        c = checks.get(tool)
        if c:
            add(f"| {tool} | {c['files']} | {c['folders']} | {c['links']} | {c['bytes']} | {c['content']} | "
                f"{c['file_modes']} | {c['folder_modes']} | {c['times2']} | {c['times_us']} |")
    for us in ("opcvk", "opcvk-key"):
        if us not in tools or len(tools) == 1:
            continue
        add("")
        add(f"{us} divided by each peer (below 1: {us} is faster, smaller or leaner):")
        add("")
        add("| phase | peer | wall | CPU | peak | output | syscalls |")
        add("|---|---|---:|---:|---:|---:|---:|")
        for phase in PHASES:
            ours = results.get((us, phase))
            for peer in tools:
                theirs = results.get((peer, phase))
                if peer == us or ours is None or theirs is None:
                    continue
                out_ratio = ratio(ours[3], theirs[3]) if phase == "create" else "-"
                call_ratio = ratio(calls.get(us), calls.get(peer)) if phase == "extract" else "-"
                add(f"| {phase} | {peer} | {ratio(ours[0], theirs[0])} | {ratio(ours[1], theirs[1])} | "
                    f"{ratio(ours[2], theirs[2])} | {out_ratio} | {call_ratio} |")
    text = "\n".join(lines) + "\n"
    print(text)
    stamp = time.strftime("%Y%m%d-%H%M%S")
    with open(os.path.join(work, f"results-{args.corpus}-{stamp}.md"), "w") as f:
        f.write(text)
    if not args.keep:
        shutil.rmtree(runs, ignore_errors=True)
    return 1 if any(r[2] not in (0, None) for r in rows) else 0


if __name__ == "__main__":
    sys.exit(main())
