#!/usr/bin/python3
"""Makes a seeded file tree for the archiver benchmarks.

    bench/corpus/generate_corpus.py --preset mixed --out DIR [--seed N] [--force]

The same preset and seed give the same tree: the same names, bytes, permission bits, link
targets and times (nanoseconds included), so that runs on different days or machines measure
the same work.  Presets:

  mixed     ~500 MiB in ~11,000 files: a source-like tree (C-like, Python and web sources,
            prose, JSON, logs), incompressible blobs and already compressed files, three
            100 MiB files (text, random bytes, a disk image of zeros, text and noise),
            relative links to files and folders, empty folders, names with blanks and
            non-ASCII letters, varied permission bits and times with sub-second parts.
  mixed-1g  the same mix with twice the files (~1 GiB).
  small     100,000 files of 100 B to 4 KiB, text and random, in 400 folders.
  big       one 2 GiB text file (log lines).
  deep      20,000 small files along chains of folders 30 to 60 deep, with long names: half
            the paths are longer than 500 bytes, the longest 1,100.
  sparse    24,000 folders holding none to two files each: ~28,000 files, a tenth of them
            of 0 bytes, 6,000 relative links (to files and to folders), 4,000 more empty
            folders.
  intl      30,000 small files in 600 folders, nearly all named in accented Latin, Greek,
            Cyrillic, CJK or emoji, so that most names carry bytes of 0x80 and above.
  blobs     ~330 MiB: six incompressible files of 24 to 64 MiB beside 400 small text files
            and 100 files of 0 bytes.

Only the Python standard library is used.  Content is made in bulk from pools of lines that
are drawn once per run, so that text compresses like real text (words repeat, whole lines
rarely do within a 32 KiB window) and a few hundred MiB take seconds.
"""

import argparse
import gzip
import io
import json
import math
import os
import shutil
import sys
import time
import zipfile
from random import Random

MIB = 1 << 20
BLOCK = 16 * MIB  # randbytes() cannot make more than 256 MiB at once

# Times fall between 2021-01-01 and 2025-01-01, UTC.
TIME_FROM = 1609459200
TIME_SPAN = 4 * 365 * 86400

COMMON_WORDS = (
    "the of and to in is that for it as was with be by on not he this are or his from at "
    "which but have an they you were her she there been one all we their has would when if "
    "so no will more can other time into only some could new these two may first then do "
    "any like my now over such our man me even most made after also did many before must "
    "through back years where much your way well down should because each just those people "
    "how too little state good very make world still own see men work long get here between "
    "both life being under never day same another know while last might us great old year "
    "off come since against go came right used take three buffer value index record stream "
    "file folder path entry package part content type size count offset length error result "
    "request response server client cache table query config option message event handler"
).split()

FOREIGN_WORDS = (
    "café naïve Größe façade Zürich Kraków smörgåsbord résumé jalapeño São Paulo Ελλάδα "
    "東京 Straße déjà vu coöperate Ångström piñata München crème brûlée Øresund Ťatry"
).split()

UNUSUAL_NAMES = (
    "Überblick und Notizen.md", "résumé final.txt", "日本語のメモ.txt", "Ελληνικά σημειώσεις.txt",
    "naïve café menu.json", "party plan 🎉.txt", "100% done.txt", "C# notes.md", "a+b=c.txt",
    "Kraków trip (draft).md", "año nuevo.txt", "Привет мир.txt", "Ünïcödé ßpåcé.log",
    "meeting notes 2023-04-01.md", "copy of report [final].txt", "it's here.txt",
)

SYLLABLES = (
    "ka ra to mi sen do lu ver an tis pol ex ing ter con al re de pro qua zen mar bel cor fin "
    "gal hex ion jet kin lo max nor om pex ril sol tun ur vox wy yel zo ba ce di fu ge"
).split()

FILE_MODES = ((0o644, 70), (0o600, 8), (0o640, 6), (0o664, 6), (0o755, 5), (0o444, 3),
              (0o700, 1), (0o750, 1))
FOLDER_MODES = ((0o755, 85), (0o750, 8), (0o700, 4), (0o775, 3))


def weighted(pairs):
    values = [v for v, _ in pairs]
    cumulative = []
    total = 0
    for _, w in pairs:
        total += w
        cumulative.append(total)
    return values, cumulative


class Vocabulary:
    """Words, identifiers and pools of lines, all drawn from one generator."""

    def __init__(self, rng):
        self.rng = rng
        made = set()
        words = list(COMMON_WORDS)
        while len(words) < 4000:
            w = "".join(rng.choices(SYLLABLES, k=rng.choice((1, 2, 2, 3, 3, 4))))
            if w not in made:
                made.add(w)
                words.append(w)
        self.words = words
        # Zipf-like weights: a few words are everywhere, most are rare.
        self.word_weights = []
        total = 0.0
        for i in range(len(words)):
            total += 1.0 / (i + 1.5)
            self.word_weights.append(total)
        self.identifiers = [self._identifier() for _ in range(3000)]
        self.prose_lines = self._prose_pool(30000)
        self.markdown_lines = self._markdown_pool(20000)
        self.c_lines = self._c_pool(40000)
        self.python_lines = self._python_pool(30000)
        self.web_lines = self._web_pool(30000)
        self.log_messages = self._log_messages(8000)
        self.license = self._license()

    def pick_words(self, k):
        return self.rng.choices(self.words, cum_weights=self.word_weights, k=k)

    def _identifier(self):
        parts = self.pick_words(self.rng.choice((1, 2, 2, 3)))
        if self.rng.random() < 0.5:
            return "_".join(parts)
        return parts[0] + "".join(p.capitalize() for p in parts[1:])

    def sentence(self):
        rng = self.rng
        words = self.pick_words(rng.randint(5, 22))
        if rng.random() < 0.08:
            words[rng.randrange(len(words))] = rng.choice(FOREIGN_WORDS)
        if len(words) > 8 and rng.random() < 0.4:
            words[rng.randrange(3, len(words) - 2)] += ","
        return words[0].capitalize() + " " + " ".join(words[1:]) + rng.choice(".....?!:")

    def _prose_pool(self, n):
        rng = self.rng
        pool = []
        for _ in range(n):
            tail = rng.choices(("\n", " ", "\n\n"), (35, 55, 10))[0]
            pool.append((self.sentence() + tail).encode())
        return pool

    def _markdown_pool(self, n):
        rng = self.rng
        pool = []
        for _ in range(n):
            r = rng.random()
            if r < 0.04:
                line = "#" * rng.randint(1, 3) + " " + " ".join(self.pick_words(rng.randint(2, 6))).title() + "\n\n"
            elif r < 0.14:
                line = "- " + self.sentence() + "\n"
            elif r < 0.18:
                line = "`" + rng.choice(self.identifiers) + "()` " + self.sentence() + "\n"
            else:
                line = self.sentence() + rng.choice(("\n", " ", "\n\n"))
            pool.append(line.encode())
        return pool

    def _c_pool(self, n):
        rng = self.rng
        ids = self.identifiers
        types = ("int", "size_t", "uint32_t", "bool", "auto", "const char*", "std::string", "double")
        ops = ("<", ">", "==", "!=", "<=", ">=")
        pool = []
        for _ in range(n):
            ind = "  " * rng.choice((0, 1, 1, 2, 2, 2, 3, 3, 4))
            a, b, c = rng.choice(ids), rng.choice(ids), rng.choice(ids)
            form = rng.randrange(12)
            if form == 0:
                line = f"{ind}{rng.choice(types)} {a} = {b}({c}, {rng.randint(0, 4096)});"
            elif form == 1:
                line = f"{ind}if ({a} {rng.choice(ops)} {rng.choice((0, 1, 16, 255, 1024))}) {{"
            elif form == 2:
                line = f"{ind}}}"
            elif form == 3:
                line = f"{ind}return {a};"
            elif form == 4:
                line = f"{ind}// {self.sentence()}"
            elif form == 5:
                line = f"{ind}for (size_t i = 0; i < {a}.size(); ++i) {{"
            elif form == 6:
                line = f"{ind}{a}->{b} = {c};"
            elif form == 7:
                line = ""
            elif form == 8:
                line = f"{ind}{a}.{b}({c}, \"{' '.join(self.pick_words(3))}\");"
            elif form == 9:
                line = f"static {rng.choice(types)} {a}({rng.choice(types)} {b}, {rng.choice(types)} {c}) {{"
            elif form == 10:
                line = f"#include \"{a}/{b}.h\""
            else:
                line = f"{ind}{a} += {b} * {rng.randint(2, 64)};"
            pool.append((line + "\n").encode())
        return pool

    def _python_pool(self, n):
        rng = self.rng
        ids = self.identifiers
        pool = []
        for _ in range(n):
            ind = "    " * rng.choice((0, 1, 1, 2, 2, 3))
            a, b, c = rng.choice(ids), rng.choice(ids), rng.choice(ids)
            form = rng.randrange(10)
            if form == 0:
                line = f"def {a}({b}, {c}=None):"
            elif form == 1:
                line = f"{ind}{a} = {b}.{c}({rng.randint(0, 100)})"
            elif form == 2:
                line = f"{ind}return {a}"
            elif form == 3:
                line = f"{ind}# {self.sentence()}"
            elif form == 4:
                line = f"{ind}if {a} is not None and {b} > {rng.randint(0, 9)}:"
            elif form == 5:
                line = ""
            elif form == 6:
                line = f"{ind}for {a} in {b}:"
            elif form == 7:
                line = f"import {a}" if rng.random() < 0.5 else f"from {a} import {b}"
            elif form == 8:
                line = f"{ind}raise ValueError(\"{self.sentence()}\")"
            else:
                line = f"{ind}self.{a} = {b}"
            pool.append((line + "\n").encode())
        return pool

    def _web_pool(self, n):
        rng = self.rng
        ids = self.identifiers
        pool = []
        for _ in range(n):
            ind = "  " * rng.choice((0, 1, 2, 3))
            a, b = rng.choice(ids), rng.choice(ids)
            form = rng.randrange(8)
            if form == 0:
                line = f"{ind}const {a} = await {b}.fetch('/api/{a}');"
            elif form == 1:
                line = f"{ind}<div class=\"{a}\">{self.sentence()}</div>"
            elif form == 2:
                line = f".{a} {{ margin: {rng.randint(0, 32)}px; color: #{rng.randrange(1 << 24):06x}; }}"
            elif form == 3:
                line = f"{ind}export function {a}({b}) {{"
            elif form == 4:
                line = f"{ind}}}"
            elif form == 5:
                line = ""
            elif form == 6:
                line = f"{ind}{a}.addEventListener('{b}', (e) => {{ e.preventDefault(); }});"
            else:
                line = f"{ind}// {self.sentence()}"
            pool.append((line + "\n").encode())
        return pool

    def _log_messages(self, n):
        rng = self.rng
        ids = self.identifiers
        pool = []
        for _ in range(n):
            form = rng.randrange(6)
            if form == 0:
                m = f"GET /api/{rng.choice(ids)}/{rng.randint(1, 99999)} {rng.choice((200, 200, 200, 304, 404, 500))} {rng.randint(1, 900)}ms"
            elif form == 1:
                m = f"connection from 10.{rng.randint(0, 255)}.{rng.randint(0, 255)}.{rng.randint(1, 254)} accepted"
            elif form == 2:
                m = f"{rng.choice(ids)}: {self.sentence()}"
            elif form == 3:
                m = f"cache {rng.choice(('hit', 'miss'))} key={rng.randrange(1 << 32):08x}"
            elif form == 4:
                m = f"job {rng.randint(1, 50000)} finished in {rng.random() * 10:.3f}s"
            else:
                m = f"retrying {rng.choice(ids)} after error: {self.sentence()}"
            pool.append(m)
        return pool

    def _license(self):
        lines = ["Copyright 2021-2024 The " + " ".join(self.pick_words(2)).title() + " Authors."]
        lines += [self.sentence() for _ in range(8)]
        return lines

    def lines(self, pool, size):
        """About `size` bytes of whole lines drawn from `pool`, cut at a line end."""
        if size <= 0:
            return b""
        avg = sum(len(x) for x in pool[:200]) / 200
        out = b"".join(self.rng.choices(pool, k=int(size / avg) + 8))
        while len(out) < size:
            out += b"".join(self.rng.choices(pool, k=64))
        # Cut at a line end, so that no character is split: the last one before `size`, or
        # the first one after it when that would leave too little.
        cut = out.rfind(b"\n", 0, size)
        if cut < size // 2:
            cut = out.find(b"\n", size - 1)
            if cut < 0:
                return out + b"\n"
        return out[: cut + 1]

    def log(self, size, start):
        """Log lines with rising millisecond times from `start` (seconds)."""
        rng = self.rng
        n = max(1, int(size / 110))
        steps = rng.choices((1, 2, 3, 5, 8, 13, 40, 250), k=n)
        levels = rng.choices(("INFO", "INFO", "INFO", "DEBUG", "WARN", "ERROR"), k=n)
        comps = rng.choices(self.identifiers[:60], k=n)
        msgs = rng.choices(self.log_messages, k=n)
        out = []
        t_ms = start * 1000
        second = None
        prefix = ""
        for i in range(n):
            t_ms += steps[i]
            s, ms = divmod(t_ms, 1000)
            if s != second:
                second = s
                prefix = time.strftime("%Y-%m-%dT%H:%M:%S", time.gmtime(s))
            out.append(f"{prefix}.{ms:03d}Z {levels[i]} [{comps[i]}] {msgs[i]}\n")
        return "".join(out).encode()

    def source(self, pool, size, comment):
        header = "".join(f"{comment} {line}\n" for line in self.license) + "\n"
        return header.encode() + self.lines(pool, max(0, size - len(header)))

    def json_doc(self, size):
        rng = self.rng
        records = []
        used = 2
        while used < size:
            r = {
                "id": rng.randrange(1 << 40),
                "name": " ".join(self.pick_words(2)).title(),
                "email": f"{rng.choice(self.words)}.{rng.choice(self.words)}@example.org",
                "active": rng.random() < 0.7,
                "score": round(rng.random() * 100, 3),
                "tags": self.pick_words(rng.randint(0, 4)),
                "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(TIME_FROM + rng.randrange(TIME_SPAN))),
                "note": self.sentence() if rng.random() < 0.5 else None,
            }
            records.append(r)
            used += 230
        return (json.dumps({"version": 2, "items": records}, indent=2, ensure_ascii=False) + "\n").encode()


class Tree:
    """Writes entries below a root and keeps the counts; folder times are set at the end."""

    def __init__(self, root, seed):
        self.root = root
        self.meta = Random(f"{seed}/meta")  # modes and times: apart from content and names
        self.files = 0
        self.links = 0
        self.bytes = 0
        self.folders = {}  # relative path -> mode
        self.names = {}  # folder -> lower-case names used in it
        self.file_modes = weighted(FILE_MODES)
        self.folder_modes = weighted(FOLDER_MODES)

    def _time_ns(self):
        return (TIME_FROM * 10**9) + self.meta.randrange(TIME_SPAN * 10**9)

    def folder(self, rel):
        if rel in self.folders or rel == "":
            return rel
        parent = os.path.dirname(rel)
        self.folder(parent)
        os.mkdir(os.path.join(self.root, rel))
        values, cum = self.folder_modes
        self.folders[rel] = self.meta.choices(values, cum_weights=cum)[0]
        self.names.setdefault(parent, set()).add(os.path.basename(rel).lower())
        return rel

    def unique(self, folder, name):
        """`name`, or `name` with a number before its extension, not yet used in `folder`."""
        used = self.names.setdefault(folder, set())
        stem, ext = os.path.splitext(name)
        if not stem:
            stem, ext = name, ""
        candidate, n = name, 1
        while candidate.lower() in used:
            n += 1
            candidate = f"{stem}-{n}{ext}"
        used.add(candidate.lower())
        return os.path.join(folder, candidate) if folder else candidate

    def file(self, rel, data, mode=None):
        path = os.path.join(self.root, rel)
        with open(path, "wb") as f:
            if isinstance(data, (bytes, bytearray)):
                f.write(data)
                self.bytes += len(data)
            else:
                for chunk in data:
                    f.write(chunk)
                    self.bytes += len(chunk)
        if mode is None:
            values, cum = self.file_modes
            mode = self.meta.choices(values, cum_weights=cum)[0]
        os.chmod(path, mode)
        t = self._time_ns()
        os.utime(path, ns=(t, t))
        self.files += 1

    def link(self, rel, target):
        path = os.path.join(self.root, rel)
        os.symlink(target, path)
        t = self._time_ns()
        os.utime(path, ns=(t, t), follow_symlinks=False)
        self.links += 1

    def finish(self):
        # Deepest first, so that setting a folder's time is not undone by its children.
        for rel in sorted(self.folders, key=lambda p: p.count("/"), reverse=True):
            path = os.path.join(self.root, rel)
            os.chmod(path, self.folders[rel])
            t = self._time_ns()
            os.utime(path, ns=(t, t))
        t = self._time_ns()
        os.chmod(self.root, 0o755)
        os.utime(self.root, ns=(t, t))

    def summary(self):
        empty = sum(1 for rel in self.folders if not os.listdir(os.path.join(self.root, rel)))
        return {"files": self.files, "folders": len(self.folders), "empty_folders": empty,
                "links": self.links, "bytes": self.bytes}


def lognormal_size(rng, median, sigma, low, high):
    return int(min(high, max(low, rng.lognormvariate(math.log(median), sigma))))


def random_stream(rng, size):
    while size > 0:
        n = min(size, BLOCK)
        yield rng.randbytes(n)
        size -= n


def grow_folders(rng, tree, vocab, root, count):
    """`count` nested folders below `root`, shallow ones more likely to get children."""
    folders = [tree.folder(root)]
    depth = {root: root.count("/")}
    while len(folders) < count + 1:
        parent = rng.choice(folders)
        if depth[parent] - root.count("/") >= 5 or (depth[parent] > root.count("/") + 1 and rng.random() < 0.4):
            continue
        name = rng.choice(vocab.identifiers).lower()
        if rng.random() < 0.03:
            name = rng.choice(("My Documents", "old stuff", "Área común", "données brutes", "新しいフォルダ"))
        rel = tree.unique(parent, name)
        tree.folder(rel)
        depth[rel] = rel.count("/")
        folders.append(rel)
    return folders


def file_name(rng, vocab, ext):
    base = rng.choice(vocab.identifiers)
    r = rng.random()
    if r < 0.03:
        base = " ".join(vocab.pick_words(rng.randint(2, 3)))  # blanks
    elif r < 0.05:
        base = base + "_" + rng.choice(FOREIGN_WORDS)
    return base + ext


def make_sources(rng, tree, vocab, scale, all_files):
    areas = (
        # root, folders, files, extensions, pool, comment, script mode
        ("src", 260, 4300, (".c", ".h", ".cc", ".hpp"), vocab.c_lines, "//", False),
        ("services", 80, 1000, (".go", ".rs", ".java"), vocab.c_lines, "//", False),
        ("tools", 60, 1100, (".py", ".py", ".sh"), vocab.python_lines, "#", True),
        ("web", 90, 1300, (".js", ".ts", ".css", ".html"), vocab.web_lines, "//", False),
    )
    for root, n_folders, n_files, exts, pool, comment, scripts in areas:
        folders = grow_folders(rng, tree, vocab, root, n_folders * scale)
        for _ in range(n_files * scale):
            folder = rng.choice(folders)
            ext = rng.choice(exts)
            rel = tree.unique(folder, file_name(rng, vocab, ext))
            size = lognormal_size(rng, 5000, 1.0, 120, 400 * 1024)
            mode = 0o755 if scripts and ext == ".sh" else None
            tree.file(rel, vocab.source(pool, size, comment), mode)
            all_files.append(rel)
        for folder in rng.sample(folders, min(len(folders), 3 * scale)):
            rel = tree.unique(folder, rng.choice((".gitignore", ".editorconfig", "Makefile", "CMakeLists.txt")))
            tree.file(rel, vocab.lines(vocab.prose_lines, rng.randint(40, 900)))
            all_files.append(rel)


def make_docs(rng, tree, vocab, scale, all_files):
    folders = grow_folders(rng, tree, vocab, "docs", 40 * scale)
    unusual = list(UNUSUAL_NAMES)
    for i in range(950 * scale):
        folder = rng.choice(folders)
        if unusual and i % 50 == 0:
            name = unusual.pop()
        else:
            name = file_name(rng, vocab, rng.choice((".md", ".md", ".txt", ".rst")))
        rel = tree.unique(folder, name)
        size = lognormal_size(rng, 9000, 1.1, 200, 600 * 1024)
        pool = vocab.markdown_lines if rel.endswith(".md") else vocab.prose_lines
        tree.file(rel, vocab.lines(pool, size))
        all_files.append(rel)


def make_data(rng, tree, vocab, scale, all_files):
    folders = grow_folders(rng, tree, vocab, "data", 40 * scale)
    for _ in range(700 * scale):
        rel = tree.unique(rng.choice(folders), file_name(rng, vocab, ".json"))
        tree.file(rel, vocab.json_doc(lognormal_size(rng, 12000, 1.0, 300, 800 * 1024)))
        all_files.append(rel)
    logs = [tree.folder("logs")] + [tree.folder(f"logs/{rng.choice(vocab.identifiers).lower()}-{i}") for i in range(8 * scale)]
    for i in range(250 * scale):
        start = TIME_FROM + rng.randrange(TIME_SPAN)
        day = time.strftime("%Y-%m-%d", time.gmtime(start))
        rel = tree.unique(rng.choice(logs), f"{rng.choice(vocab.identifiers[:60])}-{day}.log")
        tree.file(rel, vocab.log(lognormal_size(rng, 60000, 1.0, 500, 2 * MIB), start))
        all_files.append(rel)


def make_blobs(rng, tree, vocab, scale, all_files):
    folders = grow_folders(rng, tree, vocab, "assets", 50 * scale)
    for _ in range(900 * scale):
        rel = tree.unique(rng.choice(folders), file_name(rng, vocab, rng.choice((".bin", ".dat", ".pak"))))
        tree.file(rel, rng.randbytes(lognormal_size(rng, 20000, 1.2, 64, 4 * MIB)))
        all_files.append(rel)
    headers = {".jpg": b"\xff\xd8\xff\xe0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00",
               ".png": b"\x89PNG\r\n\x1a\n\x00\x00\x00\rIHDR",
               ".mp3": b"ID3\x04\x00\x00\x00\x00\x00\x00"}
    for _ in range(300 * scale):
        ext = rng.choice(tuple(headers))
        rel = tree.unique(rng.choice(folders), file_name(rng, vocab, ext))
        tree.file(rel, headers[ext] + rng.randbytes(lognormal_size(rng, 60000, 1.0, 500, 3 * MIB)))
        all_files.append(rel)
    for i in range(150 * scale):
        folder = rng.choice(folders)
        text = vocab.lines(vocab.prose_lines, lognormal_size(rng, 150000, 0.8, 2000, 2 * MIB))
        if i % 5 == 0:
            buf = io.BytesIO()
            with zipfile.ZipFile(buf, "w", zipfile.ZIP_DEFLATED) as z:
                info = zipfile.ZipInfo("content.txt", date_time=(2022, 5, 1, 12, 0, 0))
                z.writestr(info, text, compress_type=zipfile.ZIP_DEFLATED)
            rel, data = tree.unique(folder, file_name(rng, vocab, ".zip")), buf.getvalue()
        else:
            rel, data = tree.unique(folder, file_name(rng, vocab, ".txt.gz")), gzip.compress(text, 6, mtime=0)
        tree.file(rel, data)
        all_files.append(rel)


def make_big(rng, tree, vocab, scale):
    tree.folder("big")
    for i in range(scale):
        suffix = f"-{i + 1}" if scale > 1 else ""
        # Text: log lines, made in blocks so memory stays small.
        start = TIME_FROM + rng.randrange(TIME_SPAN)

        def log_blocks(start=start):
            left, s = 100 * MIB, start
            while left > 0:
                block = vocab.log(min(left, BLOCK), s)
                s += 3600
                left -= len(block)
                yield block

        tree.file(f"big/server-dump{suffix}.txt", log_blocks())
        tree.file(f"big/random{suffix}.bin", random_stream(rng, 100 * MIB))

        def image_blocks():
            for _ in range(100 * MIB // (64 * 1024)):
                kind = rng.choices((0, 1, 2), (50, 30, 20))[0]
                if kind == 0:
                    yield bytes(64 * 1024)
                elif kind == 1:
                    yield rng.randbytes(64 * 1024)
                else:
                    yield vocab.lines(vocab.c_lines, 60 * 1024)[: 64 * 1024].ljust(64 * 1024, b"\0")

        tree.file(f"big/disk{suffix}.img", image_blocks())


def make_links_and_empties(rng, tree, vocab, scale, all_files):
    folders = [f for f in tree.folders if f]
    for i in range(60 * scale):
        where = rng.choice(folders)
        if i % 5 == 0:
            # A folder link, never to an ancestor of itself (tools that follow links would loop).
            target = rng.choice(folders)
            if where == target or where.startswith(target + "/"):
                continue
            name = rng.choice(("current", "latest", "shared", "upstream"))
        else:
            target = rng.choice(all_files)
            name = os.path.basename(target)
            if i % 7 == 0:
                name = "link to " + name
        rel = tree.unique(where, name)
        tree.link(rel, os.path.relpath(target, where))
    for i in range(30 * scale):
        parent = rng.choice(folders)
        tree.folder(tree.unique(parent, rng.choice(("generated", "empty", ".cache", "tmp", "build", "Neuer Ordner", "out"))))
    tree.folder(tree.unique("", "build"))


def preset_mixed(rng, tree, vocab, scale):
    all_files = []
    make_sources(rng, tree, vocab, scale, all_files)
    make_docs(rng, tree, vocab, scale, all_files)
    make_data(rng, tree, vocab, scale, all_files)
    make_blobs(rng, tree, vocab, scale, all_files)
    make_big(rng, tree, vocab, scale)
    tree.file(tree.unique("", "README.md"), vocab.lines(vocab.markdown_lines, 6000))
    all_files.append("README.md")
    make_links_and_empties(rng, tree, vocab, scale, all_files)


def preset_small(rng, tree, vocab):
    folders = [tree.folder(f"small/{a:02d}/{b:02d}") for a in range(20) for b in range(20)]
    pools = (vocab.prose_lines, vocab.c_lines, vocab.python_lines, vocab.web_lines)
    exts = (".txt", ".c", ".py", ".js")
    for i in range(100_000):
        folder = folders[i % len(folders)]
        size = int(math.exp(rng.uniform(math.log(100), math.log(4096))))
        if rng.random() < 0.35:
            rel = tree.unique(folder, f"{rng.choice(vocab.identifiers)}.bin")
            tree.file(rel, rng.randbytes(size))
        else:
            k = rng.randrange(len(pools))
            rel = tree.unique(folder, f"{rng.choice(vocab.identifiers)}{exts[k]}")
            data = vocab.lines(pools[k], size)
            if len(data) > 4096:
                data = data[: data.rfind(b"\n", 0, 4096) + 1]
            while len(data) < 100:
                data += vocab.lines(pools[k], 100 - len(data))
            tree.file(rel, data)


def preset_big(rng, tree, vocab):
    tree.folder("big")
    start = TIME_FROM + rng.randrange(TIME_SPAN)

    def blocks():
        left, s = 2048 * MIB, start
        while left > 0:
            # A quarter log lines, the rest prose: log lines are made one at a time and would
            # make 2 GiB slowly.
            if left >= BLOCK:
                block = vocab.log(4 * MIB, s) + vocab.lines(vocab.prose_lines, 12 * MIB)
            else:
                block = vocab.lines(vocab.prose_lines, left)
            s += 7200
            left -= len(block)
            yield block

    tree.file("big/text-2g.log", blocks(), 0o644)


LONG_WORDS = (
    "configuration", "implementation", "internationalisation", "documentation", "representation",
    "synchronisation", "infrastructure", "compatibility", "administration", "characteristics",
)

INTL_PARTS = (
    "Überblick", "Größe", "façade", "Zürich", "Kraków", "smörgåsbord", "résumé", "jalapeño",
    "São Paulo", "Ångström", "piñata", "München", "crème brûlée", "Øresund", "Ťatry", "ćevapi",
    "Ελλάδα", "σημειώσεις", "Αθήνα", "λογαριασμός", "Привет", "документы", "отчёт", "Москва",
    "東京", "日本語のメモ", "新しいフォルダ", "資料", "報告書", "中文文件", "数据", "한국어", "서울",
    "🎉", "📁", "🚀", "✨", "🐍", "☕", "🌍", "📝", "ação", "naïve", "Đà Nẵng", "İstanbul",
)


def small_text(rng, vocab, size):
    pools = (vocab.prose_lines, vocab.c_lines, vocab.python_lines, vocab.web_lines)
    data = vocab.lines(rng.choice(pools), size)
    return data[: max(size, 1)]


def preset_deep(rng, tree, vocab):
    # Chains of folders 30 to 60 deep; files sit all along each chain, more of them deep down.
    placed = 0
    chain = 0
    while placed < 20_000:
        depth = rng.randint(30, 60)
        parts = []
        for level in range(depth):
            if rng.random() < 0.4:
                name = rng.choice(LONG_WORDS) + "-" + rng.choice(vocab.identifiers).lower()
            else:
                name = rng.choice(vocab.identifiers).lower()
            parts.append(name[:40])
        base = f"deep/chain-{chain:03d}"
        chain += 1
        path = base
        folders = []
        for name in parts:
            path = path + "/" + name
            if len((path + "/").encode()) > 1400:
                break
            folders.append(tree.folder(path))
        for _ in range(rng.randint(200, 600)):
            if placed >= 20_000:
                break
            folder = folders[min(len(folders) - 1, int(len(folders) * rng.random() ** 0.5))]
            name = file_name(rng, vocab, rng.choice((".txt", ".c", ".py", ".md")))
            tree.file(tree.unique(folder, name), small_text(rng, vocab, rng.randint(60, 8000)))
            placed += 1


def preset_sparse(rng, tree, vocab):
    folders = [tree.folder("tree")]
    while len(folders) < 24_001:
        parent = rng.choice(folders)
        if parent.count("/") >= 8:
            continue
        folders.append(tree.folder(tree.unique(parent, rng.choice(vocab.identifiers).lower())))
    files = []
    for folder in folders[1:]:
        for _ in range(rng.choice((0, 1, 1, 1, 2, 2))):
            rel = tree.unique(folder, file_name(rng, vocab, rng.choice((".txt", ".json", ".c", ".cfg"))))
            if rng.random() < 0.1:
                tree.file(rel, b"")
            else:
                tree.file(rel, small_text(rng, vocab, rng.randint(20, 3000)))
            files.append(rel)
    for i in range(6_000):
        where = rng.choice(folders[1:])
        if i % 4 == 0:
            target = rng.choice(folders[1:])
            if where == target or where.startswith(target + "/"):
                continue
            name = rng.choice(("current", "latest", "shared", "upstream"))
        else:
            target = rng.choice(files)
            name = os.path.basename(target)
        tree.link(tree.unique(where, name), os.path.relpath(target, where))
    for _ in range(4_000):
        tree.folder(tree.unique(rng.choice(folders), rng.choice(("empty", ".cache", "tmp", "out", "Neuer Ordner"))))


def intl_name(rng, vocab):
    words = rng.sample(INTL_PARTS, rng.randint(1, 3))
    if rng.random() < 0.3:
        words.append(rng.choice(vocab.identifiers))
    return rng.choice((" ", "_", "-")).join(words)


def preset_intl(rng, tree, vocab):
    folders = []
    for a in range(30):
        top = tree.folder(tree.unique("", intl_name(rng, vocab)))
        for b in range(20):
            folders.append(tree.folder(tree.unique(top, intl_name(rng, vocab))))
    for i in range(30_000):
        folder = folders[i % len(folders)]
        if rng.random() < 0.05:
            name = rng.choice(vocab.identifiers) + ".txt"  # a few plain names among them
        else:
            name = intl_name(rng, vocab) + rng.choice((".txt", ".md", ".json", ".c"))
        tree.file(tree.unique(folder, name), small_text(rng, vocab, rng.randint(100, 4000)))


def preset_blobs(rng, tree, vocab):
    tree.folder("media")
    for i, size in enumerate((24, 32, 40, 48, 56, 64)):
        name = f"media/{rng.choice(vocab.identifiers)}-{i}.{rng.choice(('mp4', 'bin', 'jpg'))}"
        tree.file(tree.unique("media", os.path.basename(name)), random_stream(rng, size * MIB))
    folders = grow_folders(rng, tree, vocab, "notes", 20)
    for _ in range(400):
        rel = tree.unique(rng.choice(folders), file_name(rng, vocab, ".md"))
        tree.file(rel, vocab.lines(vocab.markdown_lines, lognormal_size(rng, 8000, 1.0, 200, 200 * 1024)))
    for _ in range(100):
        tree.file(tree.unique(rng.choice(folders), file_name(rng, vocab, ".lock")), b"")


PRESETS = ("mixed", "mixed-1g", "small", "big", "deep", "sparse", "intl", "blobs")


def generate(preset, seed, out):
    rng = Random(seed)
    vocab = Vocabulary(Random(f"{seed}/vocabulary"))
    tree = Tree(out, seed)
    if preset == "mixed":
        preset_mixed(rng, tree, vocab, 1)
    elif preset == "mixed-1g":
        preset_mixed(rng, tree, vocab, 2)
    elif preset == "small":
        preset_small(rng, tree, vocab)
    elif preset == "big":
        preset_big(rng, tree, vocab)
    elif preset == "deep":
        preset_deep(rng, tree, vocab)
    elif preset == "sparse":
        preset_sparse(rng, tree, vocab)
    elif preset == "intl":
        preset_intl(rng, tree, vocab)
    elif preset == "blobs":
        preset_blobs(rng, tree, vocab)
    tree.finish()
    return tree.summary()


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--preset", choices=PRESETS, required=True)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--out", required=True, help="folder to make; it must not exist unless --force")
    ap.add_argument("--force", action="store_true", help="remove OUT first")
    ap.add_argument("--json", action="store_true", help="print the summary as JSON")
    args = ap.parse_args()

    if os.path.lexists(args.out):
        if not args.force:
            sys.exit(f"generate_corpus.py: {args.out} exists (use --force to replace it)")
        shutil.rmtree(args.out)
    os.makedirs(args.out)
    began = time.monotonic()
    summary = generate(args.preset, args.seed, args.out)
    summary.update(preset=args.preset, seed=args.seed, seconds=round(time.monotonic() - began, 1))
    if args.json:
        print(json.dumps(summary))
    else:
        print(f"{args.preset} (seed {args.seed}): {summary['files']} files, {summary['folders']} folders "
              f"({summary['empty_folders']} empty), {summary['links']} links, {summary['bytes']} bytes "
              f"({summary['bytes'] / MIB:.1f} MiB) in {summary['seconds']} s")


if __name__ == "__main__":
    main()
