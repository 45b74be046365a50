#!/usr/bin/env python3
"""Runs one data-driven case of the opcvk command-line tool.

    run_case.py OPCVK CASE.json [--keep]

A case is a JSON object:

  "description"  what the case shows (free text)
  "fixture"      trees to lay out before anything runs, keyed by where they go:
                 "src" ({src}), "dest" ({dest}), "tmp" ({tmp} itself); each a list of
                 entries (see below)
  "setup"        steps run in order, each of which must succeed:
                   {"opcvk": [args...]}            the tool, exit 0 required
                   {"sh": "script"}                bash, with $OPCVK $PKG $SRC $DEST $TMP set
                   {"truncate": path, "size": n}   cut a file to n bytes
                   {"zip_replace": path, "item": name, "replace": [[old, new], ...]}
                                                   rewrite one item of a ZIP file, text
                                                   replacements in UTF-8, everything else
                                                   copied as it stands
                   {"zip_add": path, "item": name, "text"|"base64": ...}
                                                   append an item to a ZIP file
                   {"older_package": path, "entries": [...], "platform": p, "encoding": e}
                                                   write a package of the older generation
                                                   (see "An older package" below)
                   {"zip_delete": path, "item": name}
                                                   copy a ZIP file without one item
                   {"zip_bend": path, "item": name, "crc": n, "compressed_size": n,
                    "uncompressed_size": n, "flip_data": true}
                                                   change what one item's headers (local and
                                                   central) declare, or a byte of its data,
                                                   in place: an archive that lies
  "command"      the tool's arguments, a list of strings
  "after"        steps as in "setup", run once the command has ended and before the checks
                 (to let a writer started in the background finish, for example)
  "as_nobody"    run the command as uid/gid 65534 (the tests run as root otherwise)
  "terminal"     answers typed at a terminal: the command runs with a pseudo-terminal as its
                 standard input (otherwise it has none), and each answer, with a line break,
                 is typed once a prompt (standard error ending in ": ") asks for it; none of
                 the answers may then show in what the terminal echoed
  "locales"      locales the case needs; where one is missing, the case is skipped (exit 77)
  "env"          extra environment of the command
  "exit"         the expected exit code
  "stdout"       "exact text" | {"lines": [...]} | {"regex": re} | {"json": value} |
                 {"json": value, "ignore": [keys of an object whose values are not compared]} |
                 {"text": t, "encoding": e} | {"base64": b} | {"any": true};
                 absent means empty
  "stderr"       "the one line" (without its newline) | {"regex": re} | {"any": true};
                 absent means empty
  "folder"       {"path": p, "entries": [...], "times": bool, "exact": bool (default true)}:
                 the tree at p compared semantically with the entries; with "times" the
                 mtime of every file entry that gives one is compared to the microsecond
  "package"      {"path": p, "list": [{"path":..., other keys compared when given}],
                  "cat": {package path: content description}, "cat_raw": {...},
                  "args": [...]}: the package seen through "opcvk list --json" (every entry,
                 in order) and "opcvk cat" ("cat_raw" adds --no-transforms), each run with
                 "args" added (a key or password file)
  "zip"          {"path": p, "has": [items], "lacks": [items], "lacks_text": {item: [texts]},
                  "xml": {item: {"namespace": ns, "root": {attributes}, "children":
                  [{attributes}, ...]}}}: the ZIP items of the package afterwards, texts that
                 an item's UTF-8 content must not hold, and XML items compared semantically:
                 the root's namespace and attributes, and each child element's attributes, in
                 document order (attribute order carries no meaning)
  "then"         more runs of the tool once the command has run, each {"command": [...],
                 "exit": n, "stdout": ..., "stderr": ..., "terminal": [...]} checked like the
                 command
  "absent"       paths that must not exist afterwards
  "unchanged"    paths whose bytes must be what they were before the command

Placeholders in strings: {pkg} ({tmp}/package.zip), {src}, {dest}, {tmp}.

An entry of a tree: {"path": "a/b.txt"} with one of
  "text": t (with "encoding": e, default utf-8) | "base64": b | "hex": h  -> a file
  "folder": true                                                        -> a folder
  "link": target                                                        -> a symbolic link
and optionally "mode": "0644" and "mtime": "2021-02-03T04:05:06.123456Z" (files and
folders), "owner": "nobody".  Missing parent folders are made.

An older package is what the older generation of the file system wrote: the manifest
/metadata/filesystemManifestV1.xml without a version, in the older namespace, with its own
relationship and content type, decimal file modes with their type bits, and each link's
target in a part of its own.  An entry: {"path": "a/b.txt"} with "text"/"base64"/"hex" (a
file), "folder": true, or "link": target; optionally "mode": "0644", "mtime" (as above, the
date attribute), "name": the name as the manifest writes it (default "/" + path; the older
generation at times left the "/" out), "part": the part of a file or link (default "/fsroot/"
+ path), and for a link "stored": the text its part holds instead of the target.
"""

import base64
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import zipfile
from datetime import datetime, timezone
import importlib.util
import locale
from importlib.machinery import SourceFileLoader

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.normpath(os.path.join(HERE, "..", "..", ".."))


def load_compare_trees():
    """scripts/compare-trees has no .py suffix, so it is loaded by hand."""
    loader = SourceFileLoader("compare_trees", os.path.join(REPO, "scripts", "compare-trees"))
    module_plan = importlib.util.spec_from_loader("compare_trees", loader)
    module = importlib.util.module_from_spec(module_plan)
    loader.exec_module(module)
    return module


compare_trees = load_compare_trees()

NOBODY = 65534
TIMEOUT = 120
SKIPPED = 77  # ctest's SKIP_RETURN_CODE for the cases


class CaseFailure(Exception):
    pass


def parse_time_us(text):
    """"2021-02-03T04:05:06.123456Z" -> microseconds since the epoch (UTC)."""
    match = re.fullmatch(r"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d)(?:\.(\d{1,6}))?Z", text)
    if not match:
        raise CaseFailure("bad time in case: %r" % text)
    base = datetime.strptime(match.group(1), "%Y-%m-%dT%H:%M:%S").replace(tzinfo=timezone.utc)
    seconds = int((base - datetime(1970, 1, 1, tzinfo=timezone.utc)).total_seconds())
    micros = int((match.group(2) or "0").ljust(6, "0"))
    return seconds * 1_000_000 + micros


def content_bytes(wanted):
    """The bytes a content description stands for, or None if it names no content."""
    if "text" in wanted:
        return wanted["text"].encode(wanted.get("encoding", "utf-8"))
    if "base64" in wanted:
        return base64.b64decode(wanted["base64"])
    if "hex" in wanted:
        return bytes.fromhex(wanted["hex"])
    return None


class Case:
    def __init__(self, opcvk, path, tmp):
        with open(path, "rb") as f:
            self.data = json.load(f)
        self.opcvk = opcvk
        self.tmp = tmp
        self.places = {
            "pkg": os.path.join(tmp, "package.zip"),
            "src": os.path.join(tmp, "src"),
            "dest": os.path.join(tmp, "dest"),
            "tmp": tmp,
        }

    # --- placeholders

    def sub(self, value):
        if isinstance(value, str):
            for key, place in self.places.items():
                value = value.replace("{%s}" % key, place)
            return value
        if isinstance(value, list):
            return [self.sub(v) for v in value]
        if isinstance(value, dict):
            return {k: self.sub(v) for k, v in value.items()}
        return value

    # --- fixtures

    def lay_out(self, root, entries):
        os.makedirs(root, exist_ok=True)
        late = []  # folder modes and times go last, once nothing more is made inside them
        for entry in entries:
            full = os.path.join(root, entry["path"])
            os.makedirs(os.path.dirname(full), exist_ok=True)
            data = content_bytes(entry)
            if data is not None:
                with open(full, "wb") as f:
                    f.write(data)
            elif entry.get("folder"):
                os.makedirs(full, exist_ok=True)
            elif "link" in entry:
                os.symlink(self.sub(entry["link"]), full)
                continue
            else:
                raise CaseFailure("fixture entry without content: %r" % entry)
            if entry.get("owner") == "nobody":
                os.chown(full, NOBODY, NOBODY)
            if entry.get("folder"):
                late.append((full, entry))
            else:
                self.set_mode_and_time(full, entry)
        for full, entry in reversed(late):
            self.set_mode_and_time(full, entry)

    @staticmethod
    def set_mode_and_time(full, entry):
        if "mode" in entry:
            os.chmod(full, int(entry["mode"], 8))
        if "mtime" in entry:
            ns = parse_time_us(entry["mtime"]) * 1000
            os.utime(full, ns=(ns, ns))

    # --- running

    def environment(self, extra=None):
        env = dict(os.environ)
        # Packing turns reproducible under SOURCE_DATE_EPOCH; a case that wants it says so.
        env.pop("SOURCE_DATE_EPOCH", None)
        env.update({"OPCVK": self.opcvk, "PKG": self.places["pkg"], "SRC": self.places["src"],
                    "DEST": self.places["dest"], "TMP": self.tmp})
        # One locale for every run, so that the encoding a package records is known.
        env["LC_ALL"] = "C.UTF-8"
        for key, value in (extra or {}).items():
            env[key] = self.sub(value)
        return env

    def run_tool(self, args, as_nobody=False, env=None):
        argv = [self.opcvk] + self.sub(args)
        if as_nobody:
            argv = ["setpriv", "--reuid=%d" % NOBODY, "--regid=%d" % NOBODY,
                    "--clear-groups"] + argv
        return subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, env=self.environment(env),
                              timeout=TIMEOUT, cwd=self.tmp)

    def run_tool_at_terminal(self, args, answers, env=None):
        """Runs the tool with a pseudo-terminal as standard input, typing each answer once a
        prompt asks for it.  Returns the result and what the terminal echoed."""
        import pty
        import select
        master, slave = pty.openpty()
        try:
            process = subprocess.Popen([self.opcvk] + self.sub(args), stdin=slave,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                       env=self.environment(env), cwd=self.tmp)
        finally:
            os.close(slave)
        out, err, echoed = b"", b"", b""
        pending = list(answers)
        prompts_answered = 0
        streams = {process.stdout.fileno(): "out", process.stderr.fileno(): "err", master: "echo"}
        deadline = TIMEOUT
        try:
            while process.stdout.fileno() in streams or process.stderr.fileno() in streams:
                ready, _, _ = select.select(list(streams), [], [], deadline)
                if not ready:
                    raise CaseFailure("the command did not end within %d s" % TIMEOUT)
                for fd in ready:
                    try:
                        chunk = os.read(fd, 65536)
                    except OSError:
                        chunk = b""
                    if not chunk:
                        del streams[fd]
                        continue
                    if streams[fd] == "out":
                        out += chunk
                    elif streams[fd] == "err":
                        err += chunk
                    else:
                        echoed += chunk
                # A prompt is text on standard error that ends in ": " and has not been
                # answered yet.
                if pending and err.endswith(b": ") and err.count(b": ") > prompts_answered:
                    os.write(master, pending.pop(0).encode("utf-8") + b"\n")
                    prompts_answered = err.count(b": ")
            process.wait(timeout=TIMEOUT)
            while True:
                ready, _, _ = select.select([master], [], [], 0)
                if not ready:
                    break
                try:
                    chunk = os.read(master, 65536)
                except OSError:
                    break
                if not chunk:
                    break
                echoed += chunk
        finally:
            if process.poll() is None:
                process.kill()
            os.close(master)
        result = subprocess.CompletedProcess(process.args, process.returncode, out, err)
        return result, echoed

    def run_and_check_terminal(self, args, answers, env, failures, name):
        if answers is None:
            return self.run_tool(args, env=env)
        result, echoed = self.run_tool_at_terminal(args, answers, env)
        for answer in answers:
            if answer and answer.encode("utf-8") in echoed:
                failures.append("%s: the terminal echoed %r" % (name, answer))
        return result

    def setup(self):
        self.run_steps(self.data.get("setup", []))

    def run_steps(self, steps):
        for step in steps:
            if "opcvk" in step:
                result = self.run_tool(step["opcvk"])
                if result.returncode != 0:
                    raise CaseFailure("step %r exited %d: %s" % (
                        step["opcvk"], result.returncode, result.stderr.decode(errors="replace")))
            elif "sh" in step:
                result = subprocess.run(["bash", "-euo", "pipefail", "-c", step["sh"]],
                                        env=self.environment(), cwd=self.tmp,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        timeout=TIMEOUT)
                if result.returncode != 0:
                    raise CaseFailure("script exited %d: %s\n%s" % (
                        result.returncode, step["sh"], result.stdout.decode(errors="replace")))
            elif "truncate" in step:
                os.truncate(self.sub(step["truncate"]), step["size"])
            elif "zip_replace" in step:
                self.zip_rewrite(self.sub(step["zip_replace"]), step["item"],
                                 lambda data: self.replace_all(data, step["replace"]))
            elif "older_package" in step:
                write_older_package(self.sub(step["older_package"]), step)
            elif "zip_add" in step:
                with zipfile.ZipFile(self.sub(step["zip_add"]), "a", zipfile.ZIP_DEFLATED) as z:
                    z.writestr(step["item"], content_bytes(step))
            elif "zip_delete" in step:
                self.zip_delete(self.sub(step["zip_delete"]), step["item"])
            elif "zip_bend" in step:
                bend_zip(self.sub(step["zip_bend"]), step["item"], step)
            else:
                raise CaseFailure("unknown step %r" % step)

    def replace_all(self, data, pairs):
        text = data.decode("utf-8")
        for old, new in pairs:
            if old not in text:
                raise CaseFailure("zip_replace: %r not found in the item" % old)
            text = text.replace(old, self.sub(new))
        return text.encode("utf-8")

    @staticmethod
    def zip_rewrite(path, item, change):
        """Copies the ZIP at path with one item changed, items and their order kept."""
        with zipfile.ZipFile(path) as old:
            infos = old.infolist()
            contents = [old.read(info) for info in infos]
        if item not in [info.filename for info in infos]:
            raise CaseFailure("zip_replace: no item %r in %s" % (item, path))
        with zipfile.ZipFile(path + ".new", "w") as new:
            for info, data in zip(infos, contents):
                if info.filename == item:
                    data = change(data)
                new.writestr(info, data, compress_type=info.compress_type)
        os.replace(path + ".new", path)

    @staticmethod
    def zip_delete(path, item):
        """Copies the ZIP at path without one item, the others and their order kept."""
        with zipfile.ZipFile(path) as old:
            infos = [info for info in old.infolist() if info.filename != item]
            if len(infos) == len(old.infolist()):
                raise CaseFailure("zip_delete: no item %r in %s" % (item, path))
            contents = [old.read(info) for info in infos]
        with zipfile.ZipFile(path + ".new", "w") as new:
            for info, data in zip(infos, contents):
                new.writestr(info, data, compress_type=info.compress_type)
        os.replace(path + ".new", path)

    # --- checks

    def check_stream(self, name, actual, expected, failures):
        text = actual.decode("utf-8", errors="replace")
        if expected is None:
            if actual:
                failures.append("%s: expected nothing, got:\n%s" % (name, text))
            return
        if isinstance(expected, str):
            expected = self.sub(expected)
            if name.endswith("stderr"):
                ok = text == expected + "\n"
            else:
                ok = text == expected
            if not ok:
                failures.append("%s: expected exactly:\n%r\ngot:\n%r" % (name, expected, text))
            return
        expected = self.sub(expected)
        if expected.get("any"):
            return
        if "lines" in expected:
            lines = text.split("\n")
            if lines and lines[-1] == "":
                lines.pop()
            else:
                failures.append("%s: the output does not end with a newline" % name)
            if lines != expected["lines"]:
                failures.append("%s: lines differ:\n%s" % (name, line_diff(expected["lines"], lines)))
        elif "regex" in expected:
            if not re.fullmatch(expected["regex"], text, re.S):
                failures.append("%s: %r does not match /%s/" % (name, text, expected["regex"]))
        elif "json" in expected:
            try:
                value = json.loads(text)
            except ValueError as e:
                failures.append("%s: not JSON (%s):\n%s" % (name, e, text))
                return
            want = expected["json"]
            ignored = expected.get("ignore", [])
            if ignored and isinstance(value, dict) and isinstance(want, dict):
                # Keys whose values vary (sizes of compressed data) must be there, with any value.
                for key in ignored:
                    if key not in value:
                        failures.append("%s: JSON has no key %r" % (name, key))
                value = {k: v for k, v in value.items() if k not in ignored}
                want = {k: v for k, v in want.items() if k not in ignored}
            if value != want:
                failures.append("%s: JSON differs:\nexpected %s\ngot      %s" % (
                    name, json.dumps(expected["json"], ensure_ascii=False),
                    json.dumps(value, ensure_ascii=False)))
        else:
            want = content_bytes(expected)
            if want is None:
                raise CaseFailure("bad %s expectation %r" % (name, expected))
            if actual != want:
                failures.append("%s: bytes differ:\nexpected %r\ngot      %r" % (name, want, actual))

    def check_folder(self, wanted, failures):
        root = self.sub(wanted["path"])
        if not os.path.isdir(root):
            failures.append("folder %s does not exist" % root)
            return
        actual = compare_trees.scan(root)
        expected = {}
        for entry in wanted.get("entries", []):
            parts = entry["path"].split("/")
            for i in range(1, len(parts)):
                expected.setdefault("/".join(parts[:i]), {"path": "/".join(parts[:i]),
                                                          "folder": True, "implied": True})
            expected[entry["path"]] = entry
        if wanted.get("exact", True):
            for rel in sorted(set(actual) - set(expected)):
                failures.append("folder: unexpected %s %s" % (actual[rel].kind, rel))
        for rel, entry in sorted(expected.items()):
            got = actual.get(rel)
            if got is None:
                failures.append("folder: missing %s" % rel)
                continue
            data = content_bytes(entry)
            kind = "file" if data is not None else "link" if "link" in entry else "folder"
            if got.kind != kind:
                failures.append("folder: %s is a %s, expected a %s" % (rel, got.kind, kind))
                continue
            if data is not None and got.data != data:
                failures.append("folder: %s has %r, expected %r" % (rel, got.data, data))
            if kind == "link" and got.target != self.sub(entry["link"]):
                failures.append("folder: link %s has the text %r, expected %r" % (
                    rel, got.target, self.sub(entry["link"])))
            if "mode" in entry and kind != "link" and got.mode != int(entry["mode"], 8):
                failures.append("folder: %s has mode %04o, expected %s" % (rel, got.mode,
                                                                          entry["mode"]))
            if wanted.get("times") and "mtime" in entry:
                want = parse_time_us(entry["mtime"])
                if got.mtime_us != want:
                    failures.append("folder: %s has time %s, expected %s" % (
                        rel, compare_trees.format_time(got.mtime_us),
                        compare_trees.format_time(want)))
            if kind == "folder" and entry.get("empty") and not got.empty:
                failures.append("folder: %s is not empty" % rel)

    def check_package(self, wanted, failures):
        pkg = self.sub(wanted.get("path", "{pkg}"))
        if "list" in wanted:
            result = self.run_tool(["list", "--json", pkg] + self.sub(wanted.get("args", [])))
            if result.returncode != 0:
                failures.append("package: list --json exited %d: %s" % (
                    result.returncode, result.stderr.decode(errors="replace")))
            else:
                entries = json.loads(result.stdout.decode("utf-8"))
                want = self.sub(wanted["list"])
                paths = [e.get("path") for e in entries]
                if paths != [w["path"] for w in want]:
                    failures.append("package: paths differ:\n%s" % line_diff(
                        [w["path"] for w in want], paths))
                else:
                    for got, w in zip(entries, want):
                        for key, value in w.items():
                            if got.get(key, "<absent>") != value:
                                failures.append("package: %s has %s %r, expected %r" % (
                                    w["path"], key, got.get(key, "<absent>"), value))
        for key, extra in (("cat", []), ("cat_raw", ["--no-transforms"])):
            for path, content in wanted.get(key, {}).items():
                result = self.run_tool(["cat", pkg, path] + extra + self.sub(wanted.get("args", [])))
                want = content_bytes(content)
                if result.returncode != 0:
                    failures.append("package: cat %s exited %d: %s" % (
                        path, result.returncode, result.stderr.decode(errors="replace")))
                elif result.stdout != want:
                    failures.append("package: cat %s gave %r, expected %r" % (
                        path, result.stdout, want))

    @staticmethod
    def check_zip(wanted, failures):
        path = wanted.get("path")
        try:
            with zipfile.ZipFile(path) as z:
                items = {info.filename: z.read(info) for info in z.infolist()}
        except (OSError, zipfile.BadZipFile) as e:
            failures.append("zip: cannot read %s: %s" % (path, e))
            return
        for item in wanted.get("has", []):
            if item not in items:
                failures.append("zip: no item %s" % item)
        for item in wanted.get("lacks", []):
            if item in items:
                failures.append("zip: item %s is there, and must not be" % item)
        for item, texts in wanted.get("lacks_text", {}).items():
            content = items.get(item, b"").decode("utf-8", errors="replace")
            for text in texts:
                if text in content:
                    failures.append("zip: %s holds %r:\n%s" % (item, text, content))
        for item, want in wanted.get("xml", {}).items():
            if item not in items:
                failures.append("zip: no item %s" % item)
                continue
            got = xml_shape(items[item])
            if got != want:
                failures.append("zip: %s differs:\nexpected %s\ngot      %s" % (
                    item, json.dumps(want, ensure_ascii=False), json.dumps(got, ensure_ascii=False)))

    def run(self):
        for where, entries in self.data.get("fixture", {}).items():
            self.lay_out(self.places[where], entries)
        if self.data.get("as_nobody"):
            # The command runs as nobody: let it reach the work folder.
            os.chmod(self.tmp, 0o777)
        self.setup()
        before = {}
        for path in self.sub(self.data.get("unchanged", [])):
            with open(path, "rb") as f:
                before[path] = f.read()
        command = self.data["command"]
        failures = []
        if "terminal" in self.data:
            result = self.run_and_check_terminal(command, self.data["terminal"],
                                                 self.data.get("env"), failures, "command")
        else:
            result = self.run_tool(command, self.data.get("as_nobody", False),
                                   self.data.get("env"))
        self.run_steps(self.data.get("after", []))
        if result.returncode != self.data["exit"]:
            failures.append("exit code %d, expected %d" % (result.returncode, self.data["exit"]))
        self.check_stream("stdout", result.stdout, self.data.get("stdout"), failures)
        self.check_stream("stderr", result.stderr, self.data.get("stderr"), failures)
        if "folder" in self.data:
            self.check_folder(self.data["folder"], failures)
        if "package" in self.data:
            self.check_package(self.data["package"], failures)
        if "zip" in self.data:
            self.check_zip(self.sub(self.data["zip"]), failures)
        for i, run in enumerate(self.data.get("then", [])):
            name = "then[%d] %s" % (i, " ".join(self.sub(run["command"])))
            then = self.run_and_check_terminal(run["command"], run.get("terminal"), None,
                                               failures, name)
            if then.returncode != run.get("exit", 0):
                failures.append("%s: exit code %d, expected %d: %s" % (
                    name, then.returncode, run.get("exit", 0),
                    then.stderr.decode(errors="replace")))
            self.check_stream(name + ": stdout", then.stdout, run.get("stdout"), failures)
            self.check_stream(name + ": stderr", then.stderr, run.get("stderr"), failures)
        for path in self.sub(self.data.get("absent", [])):
            if os.path.lexists(path):
                failures.append("%s exists, and must not" % path)
        for path, data in before.items():
            with open(path, "rb") as f:
                if f.read() != data:
                    failures.append("%s was changed" % path)
        if failures:
            raise CaseFailure("opcvk %s\n%s" % (" ".join(self.sub(command)),
                                                "\n".join("  - " + f for f in failures)))


def xml_shape(data):
    """An XML document as the "xml" expectation of a "zip" check describes it."""
    import xml.etree.ElementTree as ElementTree
    root = ElementTree.fromstring(data)
    namespace = root.tag[1:].split("}")[0] if root.tag.startswith("{") else ""
    return {"namespace": namespace, "root": dict(root.attrib),
            "children": [dict(child.attrib) for child in root]}


# What the older generation wrote: its manifest's identity, and the type bits of the file
# modes in its permissions.
OLDER_NAMESPACE = "http://schemas.opcvkservices.org/orvane/compiler/2011/fileManifest"
OLDER_RELATIONSHIP = "http://schemas.opcvkservices.org/orvane/compiler/2011/relationships/fileManifest"
OLDER_CONTENT_TYPE = "application/vnd.veltrance.orvane.compiler.fileManifest+xml"
OLDER_MANIFEST = "/metadata/filesystemManifestV1.xml"
TYPE_BITS = {"File": 0o100000, "Folder": 0o040000, "SymLink": 0o120000}


def write_older_package(path, step):
    """A package of the older generation at path, from the entries of an "older_package"
    step."""
    from xml.sax.saxutils import quoteattr
    from urllib.parse import quote

    parts = {}  # part name -> (content type, bytes)
    lines = []
    for entry in step["entries"]:
        rel = entry["path"]
        part = entry.get("part", "/fsroot/" + quote(rel, safe="/+@"))
        data = content_bytes(entry)
        if data is not None:
            kind, content = "File", part
            parts[part] = ("application/octet-stream", data)
        elif "link" in entry:
            kind, content = "SymLink", part
            stored = entry.get("stored", entry["link"])
            parts[part] = ("application/octet-stream", stored.encode("utf-8"))
        elif entry.get("folder"):
            kind, content = "Folder", "/" + rel
        else:
            raise CaseFailure("older package entry without content: %r" % entry)
        attributes = [("name", entry.get("name", "/" + rel)), ("content", content),
                      ("type", kind)]
        if "mode" in entry:
            attributes.append(("permissions", str(TYPE_BITS[kind] | int(entry["mode"], 8))))
        if "mtime" in entry:
            attributes.append(("date", entry["mtime"]))
        lines.append("  <fileEntry %s/>" % " ".join(
            "%s=%s" % (name, quoteattr(value)) for name, value in attributes))
    manifest = ('<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
                '<fileEntries xmlns="%s" platform=%s encoding=%s>\n%s\n</fileEntries>\n' % (
                    OLDER_NAMESPACE, quoteattr(step.get("platform", "win64")),
                    quoteattr(step.get("encoding", "windows-1252")), "\n".join(lines)))
    parts[OLDER_MANIFEST] = (OLDER_CONTENT_TYPE, manifest.encode("utf-8"))

    overrides = "".join('<Override PartName=%s ContentType=%s/>' % (
        quoteattr(name), quoteattr(content_type)) for name, (content_type, _) in parts.items())
    content_types = (
        '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
        '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
        '<Default Extension="rels" '
        'ContentType="application/vnd.openxmlformats-package.relationships+xml"/>%s</Types>'
        % overrides)
    relationships = (
        '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n'
        '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
        '<Relationship Id="R1" Type="%s" Target="%s"/></Relationships>' % (
            OLDER_RELATIONSHIP, OLDER_MANIFEST))
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as z:
        z.writestr("[Content_Types].xml", content_types)
        z.writestr("_rels/.rels", relationships)
        for name, (_, data) in parts.items():
            z.writestr(name.lstrip("/"), data)


def bend_zip(path, item, changes):
    """Overwrites fields of one item's local and central headers, or a byte of its data."""
    with zipfile.ZipFile(path) as archive:
        info = archive.getinfo(item)
        directory = archive.start_dir
    with open(path, "r+b") as f:
        data = bytearray(f.read())
        local = info.header_offset
        central = directory
        while data[central:central + 4] == b"PK\x01\x02":
            name_size, extra_size, comment_size = struct.unpack_from("<HHH", data, central + 28)
            if data[central + 46:central + 46 + name_size] == item.encode("utf-8"):
                break
            central += 46 + name_size + extra_size + comment_size
        else:
            raise CaseFailure("zip_bend: no central header for %r" % item)
        for field, local_at, central_at in (("crc", 14, 16), ("compressed_size", 18, 20),
                                            ("uncompressed_size", 22, 24)):
            if field in changes:
                struct.pack_into("<I", data, local + local_at, changes[field])
                struct.pack_into("<I", data, central + central_at, changes[field])
        if changes.get("flip_data"):
            name_size, extra_size = struct.unpack_from("<HH", data, local + 26)
            data[local + 30 + name_size + extra_size] ^= 0xFF
        f.seek(0)
        f.write(data)


def missing_locales(names):
    """The locales of names that this machine cannot set, tried as the tool would."""
    missing = []
    saved = locale.setlocale(locale.LC_ALL)
    for name in names:
        try:
            locale.setlocale(locale.LC_ALL, name)
        except locale.Error:
            missing.append(name)
    locale.setlocale(locale.LC_ALL, saved)
    return missing


def line_diff(expected, actual):
    import difflib
    return "\n".join(difflib.unified_diff(expected, actual, "expected", "actual", lineterm=""))


def main(argv):
    if len(argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    opcvk, case_path = os.path.abspath(argv[0]), argv[1]
    keep = "--keep" in argv[2:]
    with open(case_path, "rb") as f:
        missing = missing_locales(json.load(f).get("locales", []))
    if missing:
        print("SKIP %s: the locale %s is not installed" % (os.path.basename(case_path),
                                                         ", ".join(missing)))
        return SKIPPED
    # Files made without --restore get the permissions of this mask; cases count on it.
    os.umask(0o022)
    tmp = tempfile.mkdtemp(prefix="opcvk-cli-")
    try:
        Case(opcvk, case_path, tmp).run()
    except CaseFailure as e:
        print("FAIL %s\n%s" % (os.path.basename(case_path), e))
        print("work folder: %s" % tmp if keep else "(run with --keep to keep the work folder)")
        return 1
    finally:
        if not keep:
            # Fixtures may hold read-only folders; open them up so that all of it can go.
            for folder, dirs, _ in os.walk(tmp):
                for d in dirs:
                    full = os.path.join(folder, d)
                    if not os.path.islink(full):
                        os.chmod(full, 0o755)
            shutil.rmtree(tmp, ignore_errors=True)
    print("PASS %s" % os.path.basename(case_path))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
