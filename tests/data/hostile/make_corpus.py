#!/usr/bin/env python3
"""Writes the hostile packages of the corpus: ZIP archives laid out byte by byte, so that every
field can say what a hostile writer wants it to say.

    make_corpus.py OUT_FOLDER [--big]

Without --big, the small packages (a few KiB each) that are committed in packages/ next to this
script; with --big, the large ones (a central directory of a million items, a manifest of a
million entries, bombs of 64 MiB and more), which are made at test time and never committed.
The same command gives the same bytes every time.  cases.json says what each package is and
the outcome it must have.
"""

import os
import struct
import sys
import zlib

MANIFEST_TYPE = "application/vnd.veltrance.package.filesystemManifest+xml"
MANIFEST_NS = "http://schemas.opcvkservices.org/package/2013/filesystemManifest"
MANIFEST_REL = "http://schemas.opcvkservices.org/package/2013/relationships/filesystemManifest"
RELS_TYPE = "application/vnd.openxmlformats-package.relationships+xml"
UTF8_FLAG = 0x0800
DOS_TIME, DOS_DATE = 0x0000, 0x5A21  # 2025-01-01, fixed so that the bytes never change


def deflate(data, level=9):
    compressor = zlib.compressobj(level, zlib.DEFLATED, -15, 9)
    return compressor.compress(data) + compressor.flush()


class Item:
    """One item; every field may be bent after it is made."""

    def __init__(self, name, content=b"", method=8, data=None):
        self.name = name.encode("utf-8") if isinstance(name, str) else name
        self.local_name = self.name
        self.method = method
        self.content = content
        if data is None:
            data = deflate(content) if method == 8 else content
        self.data = data
        self.crc = zlib.crc32(content)
        self.compressed_size = len(data)
        self.uncompressed_size = len(content)
        self.flags = UTF8_FLAG
        self.central_extra = b""
        self.local_extra = b""
        self.offset = None  # the local header's offset as the central header gives it


def local_header(item):
    return struct.pack("<IHHHHHIIIHH", 0x04034B50, 20, item.flags, item.method, DOS_TIME,
                       DOS_DATE, item.crc, min(item.compressed_size, 0xFFFFFFFF),
                       min(item.uncompressed_size, 0xFFFFFFFF), len(item.local_name),
                       len(item.local_extra)) + item.local_name + item.local_extra


def central_header(item, offset):
    compressed, uncompressed, at = item.compressed_size, item.uncompressed_size, offset
    extra = item.central_extra
    if max(compressed, uncompressed, at) >= 0xFFFFFFFF:
        extra = struct.pack("<HHQQQ", 1, 24, uncompressed, compressed, at) + extra
        compressed = uncompressed = at = 0xFFFFFFFF
    return struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 20, 20, item.flags, item.method,
                       DOS_TIME, DOS_DATE, item.crc, compressed, uncompressed, len(item.name),
                       len(extra), 0, 0, 0, 0, at) + item.name + extra


def archive(items, declared_count=None, zip64=False, write=None):
    """The archive's bytes (or, with `write`, handed to it piece by piece)."""
    pieces = []
    out = write or pieces.append
    position = 0
    offsets = []
    for item in items:
        offsets.append(position)
        header = local_header(item)
        out(header)
        out(item.data)
        position += len(header) + len(item.data)
    directory_offset = position
    directory_size = 0
    for item, offset in zip(items, offsets):
        header = central_header(item, item.offset if item.offset is not None else offset)
        out(header)
        directory_size += len(header)
    count = len(items) if declared_count is None else declared_count
    if zip64 or count >= 0xFFFF:
        record_offset = directory_offset + directory_size
        out(struct.pack("<IQHHIIQQQQ", 0x06064B50, 44, 45, 45, 0, 0, count, count,
                        directory_size, directory_offset))
        out(struct.pack("<IIQI", 0x07064B50, 0, record_offset, 1))
        out(struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, 0xFFFF, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF,
                        0))
    else:
        out(struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, count, count, directory_size,
                        directory_offset, 0))
    return b"".join(pieces)


# --- the parts of a package made by the tool

def content_types(extra_defaults=()):
    defaults = [("rels", RELS_TYPE), ("xml", MANIFEST_TYPE), ("txt", "text/plain")]
    defaults += list(extra_defaults)
    body = "".join('<Default Extension="%s" ContentType="%s"/>' % d for d in defaults)
    return ('<?xml version="1.0" encoding="UTF-8"?><Types xmlns="http://schemas.openxmlformats'
            '.org/package/2006/content-types">%s</Types>' % body).encode()


def package_relationships():
    return ('<?xml version="1.0" encoding="UTF-8"?><Relationships xmlns="http://schemas.'
            'openxmlformats.org/package/2006/relationships"><Relationship Id="R1" Target="/'
            'metadata/filesystemManifest.xml" Type="%s"/></Relationships>' % MANIFEST_REL).encode()


def manifest(entries_xml):
    return ('<?xml version="1.0" encoding="UTF-8"?><fileEntries xmlns="%s" createdByEncoding='
            '"UTF-8" createdByPlatform="linux-x86-64" version="2.0">' % MANIFEST_NS).encode() + \
        entries_xml + b"</fileEntries>"


def file_entry(path, part):
    return ('<fileEntry content="%s" date="2025-01-01T00:00:00Z" name="%s" permissions="0644" '
            'type="File"/>' % (part, path)).encode()


def package(files=(), extra_items=(), manifest_body=None, defaults=()):
    """Items of a package made as the tool makes it: files under /fsroot and their manifest."""
    body = b"".join(file_entry(path, "/fsroot" + path) for path, _ in files)
    items = [Item("[Content_Types].xml", content_types(defaults)),
             Item("_rels/.rels", package_relationships())]
    items += [Item("fsroot" + path, data) for path, data in files]
    items.append(Item("metadata/filesystemManifest.xml",
                      manifest(body if manifest_body is None else manifest_body)))
    items += list(extra_items)
    return items


def basic():
    return package([("/a.txt", b"alpha\n" * 20), ("/d/b.txt", b"beta\n")])


# --- the small packages

def small_cases():
    cases = {}
    cases["clean"] = archive(basic())

    # Items whose bytes overlap: each claims the rest of the archive as its data.
    items = basic()
    items[2].compressed_size = 10_000
    cases["overlap_item_runs_into_next"] = archive(items)
    # Two items of the directory that point at one local header.
    shared = package()
    twin = Item("metadata/filesystemManifest.xml", shared[-1].content)
    twin.name = b"metadata/twin.xml"
    twin.offset = 0
    cases["overlap_two_items_one_header"] = archive(shared + [twin])

    # Ratio: small parts are exempt; a declared ratio above the limit is refused at open;
    # a part that gives more than it declares is stopped there.
    zeros = b"\0" * ((1 << 20) - 1)
    cases["ratio_bomb_exempt_size"] = archive(package([("/zeros.txt", zeros)]))
    bomb = Item("fsroot/bomb.txt", b"\0" * 1024)
    bomb.uncompressed_size = 4 << 30
    cases["ratio_bomb_declared_above_limit"] = archive(package() + [bomb])
    liar = Item("fsroot/liar.txt", b"\0" * (16 << 20))
    liar.uncompressed_size = 100
    liar.crc = zlib.crc32(b"\0" * 100)
    cases["size_declared_smaller_than_data"] = archive(package(
        manifest_body=file_entry("/liar.txt", "/fsroot/liar.txt")) + [liar])
    short = Item("fsroot/short.txt", b"five\n")
    short.uncompressed_size = 1000
    cases["size_declared_larger_than_data"] = archive(package(
        manifest_body=file_entry("/short.txt", "/fsroot/short.txt")) + [short])
    huge = Item("fsroot/huge.txt", b"x")
    huge.uncompressed_size = 1 << 62
    cases["size_zip64_beyond_limit"] = archive(package() + [huge])
    past = basic()
    past[-1].compressed_size += 1_000_000
    cases["size_compressed_past_directory"] = archive(past)
    stored = Item("fsroot/s.txt", b"stored", method=0)
    stored.uncompressed_size = 7
    cases["size_stored_mismatch"] = archive(package() + [stored])

    # The central directory: declared counts that the bytes cannot hold, and truncations.
    cases["directory_declares_a_million"] = archive(basic(), declared_count=1_000_000)
    cases["directory_declares_over_the_limit"] = archive(basic(), declared_count=1_000_001,
                                                         zip64=True)
    whole = archive(basic())
    directory_at = len(whole) - 22 - sum(len(central_header(i, 0)) for i in basic())
    cases["truncated_in_central_directory"] = whole[:directory_at + 60]
    cases["truncated_in_end_record"] = whole[:-10]
    cases["truncated_in_first_item"] = whole[:40]
    cut = bytearray(whole)
    struct.pack_into("<I", cut, len(cut) - 22 + 12, 20)  # directory size shorter than it is
    cases["directory_size_too_small"] = bytes(cut)

    # Names of every refused shape.
    refused = {
        "absolute": b"/abs.txt", "dotdot": b"../up.txt", "inner_dotdot": b"a/../b.txt",
        "backslash": b"a\\b.txt", "nul": b"a\0b.txt", "empty": b"", "double_slash": b"a//b.txt",
        "dot_segment": b"a/./b.txt", "trailing_dot": b"a/b.", "control_character": b"a\x01.txt",
        "not_utf8": b"a\xff.txt", "encoded_slash": b"a%2Fb.txt", "rels_inside_rels":
        b"_rels/.rels/x.txt", "folder_with_data": b"f/", "folder_of_relationships": b"a/_rels",
    }
    for label, name in refused.items():
        item = Item(name, b"data")
        cases["name_" + label] = archive(package() + [item])

    # Duplicates.
    cases["duplicate_items"] = archive(package() + [Item("x.txt", b"1"), Item("x.txt", b"2")])
    cases["case_equivalent_items"] = archive(package() + [Item("X.txt", b"1"),
                                                          Item("x.txt", b"2")])
    cases["items_naming_one_part"] = archive(package() + [Item("%C3%A9.txt", b"1"),
                                                          Item("\u00e9.txt", b"2")])
    cases["two_content_types_items"] = archive(
        [Item("[content_types].xml", content_types())] + package())

    # Manifests: deep, long, and hostile in their XML.
    deep = b"<fileEntry>" * 100_000 + b"</fileEntry>" * 100_000
    cases["manifest_deeply_nested"] = archive(package(manifest_body=deep))
    long_name = file_entry("/" + "n" * 4_000_000 + ".txt", "/fsroot/a.txt")
    cases["manifest_very_long_name"] = archive(package(manifest_body=long_name))
    laughs = (b'<?xml version="1.0"?><!DOCTYPE fileEntries [<!ENTITY a "aaaaaaaaaa">'
              b'<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">]><fileEntries>&b;</fileEntries>')
    items = package()
    items[-1] = Item("metadata/filesystemManifest.xml", laughs)
    cases["manifest_entity_expansion"] = archive(items)
    outside = file_entry("/escape.txt", "/fsroot/a.txt").replace(b'name="/escape.txt"',
                                                                  b'name="/../../escape.txt"')
    cases["manifest_name_outside_root"] = archive(package([("/a.txt", b"a\n")],
                                                          manifest_body=outside))

    # Depth: every folder of a path is an entry whose own path a listing spells out, so a name
    # of n levels asks for about n^2 / 2 units.
    def folder_entry(path):
        return ('<fileEntry content="" name="%s" type="Folder"/>' % path).encode()
    cases["manifest_name_hundred_thousand_levels"] = archive(package(
        manifest_body=folder_entry("/d" * 100_000)))
    cases["manifest_name_too_deep"] = archive(package(manifest_body=folder_entry("/d" * 2049)))
    # The deepest and longest name taken: 2048 levels in 32767 units, spread evenly, so that
    # its folders' paths add up to the most (about 33 million units).
    deepest = ("/" + "n" * 15) * 2047 + "/" + "n" * 14
    cases["manifest_name_deepest_and_longest"] = archive(package(
        manifest_body=folder_entry(deepest)))

    # Entries below a link: the tree takes them (the kind of a parent is not looked at), and
    # extraction makes the link's path a folder, never following the link out.
    def link_entry(path, target):
        return ('<fileEntry content="%s" name="%s" type="SymLink"/>' % (target, path)).encode()
    for label, target in (("root", "/"), ("dotdot", ".."), ("outside", "/../../..")):
        cases["manifest_file_below_link_to_" + label] = archive(package(
            [("/a.txt", b"a\n")],
            manifest_body=link_entry("/l", target) + file_entry("/l/x", "/fsroot/a.txt")))
    # Files whose parts are not file content.
    cases["manifest_file_on_relationships_part"] = archive(package(
        manifest_body=file_entry("/r", "/_rels/.rels")))
    cases["manifest_file_on_content_types"] = archive(package(
        manifest_body=file_entry("/t", "/[Content_Types].xml")))
    cases["manifest_two_files_one_part"] = archive(package(
        [("/a.txt", b"a\n")],
        manifest_body=file_entry("/a.txt", "/fsroot/a.txt") + file_entry("/b", "/fsroot/a.txt")))
    return cases


# --- the big packages, written piece by piece to the file

def million_items(out):
    # A million items (the limit), empty and stored, written without a list of a million
    # objects: a local header each, then the central directory.
    count = 1_000_000
    first = Item("[Content_Types].xml", content_types([("x", "application/x-empty")]))
    header = local_header(first)
    out(header + first.data)
    position = len(header) + len(first.data)
    empty_crc = zlib.crc32(b"")
    for i in range(count - 1):
        name = b"d/%06d.x" % i
        out(struct.pack("<IHHHHHIIIHH", 0x04034B50, 20, UTF8_FLAG, 0, DOS_TIME, DOS_DATE,
                        empty_crc, 0, 0, len(name), 0) + name)
    directory_offset = position + (count - 1) * (30 + 10)
    directory = [central_header(first, 0)]
    offset = position
    for i in range(count - 1):
        name = b"d/%06d.x" % i
        directory.append(struct.pack("<IHHHHHHIIIHHHHHII", 0x02014B50, 20, 20, UTF8_FLAG, 0,
                                     DOS_TIME, DOS_DATE, empty_crc, 0, 0, len(name), 0, 0, 0, 0,
                                     0, offset) + name)
        offset += 30 + len(name)
        if len(directory) >= 10000:
            out(b"".join(directory))
            directory.clear()
    out(b"".join(directory))
    directory_size = len(central_header(first, 0)) + (count - 1) * (46 + 10)
    record_offset = directory_offset + directory_size
    out(struct.pack("<IQHHIIQQQQ", 0x06064B50, 44, 45, 45, 0, 0, count, count, directory_size,
                    directory_offset))
    out(struct.pack("<IIQI", 0x07064B50, 0, record_offset, 1))
    out(struct.pack("<IHHHHIIH", 0x06054B50, 0, 0, 0xFFFF, 0xFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0))


def million_manifest_entries(out):
    entries = b"".join(b'<fileEntry content="t" name="/l%07d" type="SymLink"/>' % i
                       for i in range(1_000_000))
    archive(package(manifest_body=entries), write=out)


def ratio_bomb_below_limit(out):
    # Deflate cannot do better than 1032:1, which the limit (1100:1) admits: 64 MiB of zeros
    # in about 64 KiB is a package a person could make, and must be read.
    archive(package([("/zeros.txt", b"\0" * (64 << 20))]), write=out)


def many_exempt_bombs(out):
    # Each part is below the size from which ratios count; together they hold 256 MiB.
    zeros = b"\0" * (1 << 20)
    archive(package([("/z%03d.txt" % i, zeros) for i in range(256)]), write=out)


def manifest_whitespace(out):
    # A manifest of 256 MiB of blanks, about 250 KiB deflated.
    archive(package(manifest_body=b" " * (256 << 20)), write=out)


def overlap_bomb(out):
    # 200,000 items, each claiming all the bytes from its own header to the directory: a check
    # of every pair would take 2 * 10^10 steps.
    count = 200_000
    items = package()
    kernel = [Item("k/%06d.txt" % i, b"", method=0) for i in range(count)]
    items += kernel
    sizes = [len(local_header(i)) for i in kernel]
    remaining = sum(sizes)
    for item, size in zip(kernel, sizes):
        remaining -= size
        item.compressed_size = item.uncompressed_size = remaining
        item.data = b""
    archive(items, write=out)


def long_name(out):
    # The longest name a ZIP item can have, as a part that no manifest names.
    archive(package() + [Item(b"d/" + b"n" * 65000 + b".txt", b"data")], write=out)


BIG_CASES = {
    "directory_million_items": million_items,
    "manifest_million_entries": million_manifest_entries,
    "ratio_bomb_below_limit": ratio_bomb_below_limit,
    "ratio_bombs_each_exempt": many_exempt_bombs,
    "manifest_whitespace": manifest_whitespace,
    "overlap_bomb": overlap_bomb,
    "name_longest": long_name,
}


def main(argv):
    if not argv or argv[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    out_folder = argv[0]
    os.makedirs(out_folder, exist_ok=True)
    if "--big" in argv[1:]:
        for name, make in BIG_CASES.items():
            path = os.path.join(out_folder, name + ".opc")
            with open(path + ".part", "wb") as f:
                make(f.write)
            os.replace(path + ".part", path)
        return 0
    for name, data in small_cases().items():
        with open(os.path.join(out_folder, name + ".opc"), "wb") as f:
            f.write(data)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
