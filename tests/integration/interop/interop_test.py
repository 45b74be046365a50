#!/usr/bin/env python3
"""Interoperability of the package model with an independent OPC implementation.

Usage: interop_test.py CASE OURS WORK_FOLDER

OURS is opcmodel_peer for every case but file_system_manager_package, which drives
fsmanager_peer (a package file system made through FileSystemManager), and
core_properties_manager_package, which drives coreprops_peer (core properties written and read
through CorePropertiesManager).

Each case writes packages with one implementation and reads them with the other (through
opcmodel_peer and opc_peer.py, which drives python3-docx's package layer), and compares
what both see: parts with content types and SHA-256 of their bytes, relationships by
source, id, type, target and mode, and core properties with dates compared as instants.
Exits 0 when the case passes, 1 with the differences when it fails, and 77 (skipped) only
when python3-docx is not installed for this interpreter.
"""

import collections
import datetime
import hashlib
import json
import os
import posixpath
import random
import shutil
import subprocess
import sys
import xml.etree.ElementTree
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
SKIP = 77
CORE_TYPE = "http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties"
CORE_CONTENT_TYPE = "application/vnd.openxmlformats-package.core-properties+xml"
CORE_PART = "/docProps/core.xml"
MAIN_TYPE = "http://example.com/relationships/main"
LINK_TYPE = "http://example.com/relationships/link"
BIG_SIZE = 5 * 1024 * 1024 + 123
MANIFEST_PART = "/metadata/filesystemManifest.xml"
MANIFEST_CONTENT_TYPE = "application/vnd.veltrance.package.filesystemManifest+xml"
MANIFEST_TYPE_SUFFIX = "/package/2013/relationships/filesystemManifest"
# Registered media types that the content type catalogue must give for these extensions,
# whatever else it holds.
REGISTERED_TYPES = {"txt": "text/plain", "png": "image/png", "json": "application/json",
                    "xml": "application/xml"}


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def run(args):
    result = subprocess.run(args, capture_output=True)
    if result.returncode != 0:
        raise Failure("%s failed (%d): %s" % (" ".join(args), result.returncode,
                                              result.stderr.decode("utf-8", "replace")))
    return result.stdout


class Peers:
    def __init__(self, ours, work):
        self.ours = ours
        self.work = work

    def ours_write(self, plan, package):
        run([self.ours, "write", plan, package])

    def ours_modify(self, plan, package):
        run([self.ours, "modify", plan, package])

    def ours_dump(self, package):
        return json.loads(run([self.ours, "dump", package]))

    def peer_write(self, plan, package):
        run([sys.executable, os.path.join(HERE, "opc_peer.py"), "write", plan, package])

    def peer_dump(self, package):
        return json.loads(run([sys.executable, os.path.join(HERE, "opc_peer.py"), "dump",
                               package]))


def write_plan(work, name, plan, files):
    for file_name, data in files.items():
        with open(os.path.join(work, file_name), "wb") as f:
            f.write(data)
    path = os.path.join(work, name)
    with open(path, "w", encoding="utf-8") as f:
        json.dump(plan, f, ensure_ascii=False, indent=1)
    return path


def rich_plan():
    """Parts with non-ASCII names, a blank, a large one and one that nothing reaches;
    internal and external relationships from the package and from a part; every core
    property.  Relationships to the non-ASCII parts are the subject of their own case."""
    big = random.Random(20240517).randbytes(BIG_SIZE)
    files = {"big.bin": big, "binary.dat": bytes(range(256)) * 3}
    plan = {
        "parts": [
            {"name": "/docs/readme.txt", "contentType": "text/plain", "text": "hello\n"},
            {"name": "/docs/données/résumé.xml", "contentType": "application/xml",
             "text": "<r>é</r>"},
            {"name": "/docs/a%20b.txt", "contentType": "text/plain", "text": "blank in name"},
            {"name": "/media/big.bin", "contentType": "application/octet-stream",
             "file": "big.bin"},
            {"name": "/媒体/图像.dat", "contentType": "application/x-opcvk-test",
             "file": "binary.dat"},
            {"name": "/orphan/unreached.dat", "contentType": "application/x-opcvk-orphan",
             "text": "no relationship reaches me"},
        ],
        "relationships": [
            {"source": "/", "id": "rId1", "type": MAIN_TYPE, "target": "docs/readme.txt"},
            {"source": "/", "id": "rId2", "type": LINK_TYPE, "target": "media/big.bin"},
            {"source": "/", "id": "rId3", "type": LINK_TYPE, "target": "docs/a%20b.txt"},
            {"source": "/", "id": "ext1", "type": LINK_TYPE, "mode": "External",
             "target": "https://example.com/path?q=1#frag"},
            {"source": "/docs/readme.txt", "id": "rId1", "type": LINK_TYPE,
             "target": "../media/big.bin"},
            {"source": "/docs/readme.txt", "id": "ext2", "type": LINK_TYPE, "mode": "External",
             "target": "file:///C:/My%20Documents/x.txt"},
        ],
        "coreProperties": {
            "title": "Titre — été 日本",
            "creator": "Zoë Ångström",
            "description": "Line one\nline two & <three>",
            "subject": "Interoperability",
            "keywords": "alpha, beta; gamma",
            "category": "Tests",
            "contentStatus": "Draft",
            "identifier": "urn:example:1234",
            "language": "fr-FR",
            "lastModifiedBy": "editor",
            "revision": "4",
            "version": "1.2",
            "created": "2024-05-17T10:20:30Z",
            "modified": "2024-06-01T23:59:59Z",
            "lastPrinted": "2023-01-02T03:04:05Z",
        },
    }
    return plan, files


def instant(text):
    if not isinstance(text, str) or not text.endswith("Z"):
        return text
    body = text[:-1]
    for form in ("%Y-%m-%dT%H:%M:%S.%f", "%Y-%m-%dT%H:%M:%S"):
        try:
            return datetime.datetime.strptime(body, form)
        except ValueError:
            pass
    return text


def canonical_core(core):
    if core is None:
        return None
    return {key: instant(value) if key in ("created", "modified", "lastPrinted") else value
            for key, value in core.items()}


def uri_form(name):
    """A part name in its URI form: non-ASCII characters percent-encoded as UTF-8, escapes in
    upper case.  Two spellings of one part name (an IRI and its URI) give the same text, so
    a writer may store either: ZIP item names and targets are written in this form."""
    out = []
    i = 0
    while i < len(name):
        c = name[i]
        if c == "%" and i + 3 <= len(name):
            out.append("%" + name[i + 1:i + 3].upper())
            i += 3
            continue
        if ord(c) < 0x80:
            out.append(c)
        else:
            out.extend("%%%02X" % b for b in c.encode("utf-8"))
        i += 1
    return "".join(out)


def relationship_key(rel, with_id=True, with_raw_target=False):
    target = uri_form(rel["targetPart"]) if rel["mode"] == "Internal" else rel["target"]
    key = (uri_form(rel["source"]), rel["type"], target, rel["mode"])
    if with_id:
        key += (rel["id"],)
    if with_raw_target:
        key += (rel["target"],)
    return key


def expected_from_plan(plan, files):
    parts = {}
    for part in plan["parts"]:
        data = part["text"].encode("utf-8") if "text" in part else files[part["file"]]
        parts[uri_form(part["name"])] = {"contentType": part["contentType"], "size": len(data),
                                         "sha256": hashlib.sha256(data).hexdigest()}
    rels = set()
    for rel in plan["relationships"]:
        mode = rel.get("mode", "Internal")
        base = "/" if rel["source"] == "/" else posixpath.dirname(rel["source"])
        target = (posixpath.normpath(posixpath.join(base, rel["target"]))
                  if mode == "Internal" else rel["target"])
        if mode == "Internal":
            target = uri_form(target)
        rels.add((uri_form(rel["source"]), rel["type"], target, mode, rel["id"]))
    return parts, rels


def diff_sets(label, expected, actual):
    missing = expected - actual
    extra = actual - expected
    check(not missing and not extra,
          "%s differ:\n  missing: %s\n  unexpected: %s" % (label, sorted(missing, key=str),
                                                           sorted(extra, key=str)))


def compare_with_plan(label, dump, plan, files):
    """The dump shows exactly the plan's parts, relationships and core properties, plus the
    core properties part and its relationship, whose id each writer chooses."""
    parts, rels = expected_from_plan(plan, files)
    core_part = dict(dump["parts"]).pop(CORE_PART, None)
    check(core_part is not None, "%s: no %s" % (label, CORE_PART))
    check(core_part["contentType"] == CORE_CONTENT_TYPE,
          "%s: core part content type %s" % (label, core_part["contentType"]))
    actual_parts = {uri_form(name): info for name, info in dump["parts"].items()
                    if name != CORE_PART}
    diff_sets(label + ": parts",
              {(n, i["contentType"], i["size"], i["sha256"]) for n, i in parts.items()},
              {(n, i["contentType"], i["size"], i["sha256"]) for n, i in actual_parts.items()})
    core_rels = [r for r in dump["relationships"] if r["type"] == CORE_TYPE]
    check(len(core_rels) == 1 and core_rels[0]["source"] == "/" and
          core_rels[0]["targetPart"] == CORE_PART,
          "%s: core properties relationship %s" % (label, core_rels))
    diff_sets(label + ": relationships", rels,
              {relationship_key(r) for r in dump["relationships"] if r["type"] != CORE_TYPE})
    check(canonical_core(dump["coreProperties"]) == canonical_core(plan["coreProperties"]),
          "%s: core properties differ:\n  expected %s\n  actual   %s" %
          (label, plan["coreProperties"], dump["coreProperties"]))


def compare_dumps(label, ours, peer, same_bytes_for_core=True):
    """Both implementations see the same package."""
    def parts(dump):
        return {(uri_form(n), i["contentType"], i["size"],
                 i["sha256"] if same_bytes_for_core or n != CORE_PART else "")
                for n, i in dump["parts"].items()}
    diff_sets(label + ": parts (ours vs peer)", parts(ours), parts(peer))
    diff_sets(label + ": relationships (ours vs peer)",
              {relationship_key(r, with_raw_target=True) for r in ours["relationships"]},
              {relationship_key(r, with_raw_target=True) for r in peer["relationships"]})
    check(canonical_core(ours["coreProperties"]) == canonical_core(peer["coreProperties"]),
          "%s: core properties (ours vs peer):\n  ours %s\n  peer %s" %
          (label, ours["coreProperties"], peer["coreProperties"]))


def case_ours_write_peer_read(peers):
    plan, files = rich_plan()
    plan_path = write_plan(peers.work, "plan.json", plan, files)
    package = os.path.join(peers.work, "ours.zip")
    peers.ours_write(plan_path, package)
    peer = peers.peer_dump(package)
    compare_with_plan("written by ours, read by peer", peer, plan, files)
    compare_dumps("written by ours", peers.ours_dump(package), peer)


def case_peer_write_ours_read(peers):
    plan, files = rich_plan()
    plan_path = write_plan(peers.work, "plan.json", plan, files)
    package = os.path.join(peers.work, "peer.zip")
    peers.peer_write(plan_path, package)
    ours = peers.ours_dump(package)
    compare_with_plan("written by peer, read by ours", ours, plan, files)
    compare_dumps("written by peer", ours, peers.peer_dump(package))


def case_modify_round_trip(peers):
    plan, files = rich_plan()
    plan_path = write_plan(peers.work, "plan.json", plan, files)
    original = os.path.join(peers.work, "original.zip")
    peers.peer_write(plan_path, original)
    before = peers.peer_dump(original)

    modified = os.path.join(peers.work, "modified.zip")
    shutil.copyfile(original, modified)
    change = {
        "parts": [
            {"name": "/docs/readme.txt", "contentType": "text/plain", "text": "changed\n"},
            {"name": "/added/new%20part.txt", "contentType": "text/plain", "text": "new"},
            {"name": "/added/ajouté.dat", "contentType": "application/x-opcvk-test",
             "text": "unreached, non-ASCII"},
        ],
        "relationships": [
            {"source": "/", "id": "rIdAdded", "type": LINK_TYPE, "target": "added/new%20part.txt"},
        ],
    }
    change_path = write_plan(peers.work, "change.json", change, {})
    peers.ours_modify(change_path, modified)
    after = peers.peer_dump(modified)

    expected_parts = dict(before["parts"])
    for part in change["parts"]:
        data = part["text"].encode("utf-8")
        expected_parts[part["name"]] = {"contentType": part["contentType"], "size": len(data),
                                        "sha256": hashlib.sha256(data).hexdigest()}
    diff_sets("modified package: parts",
              {(uri_form(n), i["contentType"], i["size"], i["sha256"])
               for n, i in expected_parts.items()},
              {(uri_form(n), i["contentType"], i["size"], i["sha256"])
               for n, i in after["parts"].items()})
    # Items that were there keep their names byte for byte, so that the other writer's own
    # targets still find them.
    kept = set(before["parts"])
    check(kept <= set(after["parts"]),
          "modified package: items renamed: %s" % sorted(kept - set(after["parts"])))
    expected_rels = {relationship_key(r, with_raw_target=True) for r in before["relationships"]}
    expected_rels.add(("/", LINK_TYPE, "/added/new%20part.txt", "Internal", "rIdAdded",
                       "added/new%20part.txt"))
    diff_sets("modified package: relationships", expected_rels,
              {relationship_key(r, with_raw_target=True) for r in after["relationships"]})
    check(after["coreProperties"] == before["coreProperties"],
          "modified package: core properties changed:\n  before %s\n  after  %s" %
          (before["coreProperties"], after["coreProperties"]))
    compare_dumps("modified package", peers.ours_dump(modified), after)


def case_core_properties_both_ways(peers):
    """Keywords with languages and every property, written by each side and read by the
    other, including an update of existing core properties by ours."""
    plan = {
        "parts": [{"name": "/a.xml", "contentType": "application/xml", "text": "<a/>"}],
        "relationships": [{"source": "/", "id": "rId1", "type": MAIN_TYPE, "target": "a.xml"}],
        "coreProperties": {
            "title": "",
            "keywords": [["one", ""], ["zwei", "de"], ["trois", "fr-CA"]],
            "contentType": "Whitepaper",
            "revision": "draft-2",
            "modified": "2001-02-03T04:05:06Z",
        },
    }
    plan_path = write_plan(peers.work, "plan.json", plan, {})
    for writer in ("ours", "peer"):
        package = os.path.join(peers.work, writer + ".zip")
        (peers.ours_write if writer == "ours" else peers.peer_write)(plan_path, package)
        ours = peers.ours_dump(package)
        peer = peers.peer_dump(package)
        compare_with_plan("written by " + writer + ", read by ours", ours, plan, {})
        compare_with_plan("written by " + writer + ", read by peer", peer, plan, {})

    update = {"coreProperties": {"title": "updated", "created": "1999-12-31T23:59:59Z"}}
    update_path = write_plan(peers.work, "update.json", update, {})
    package = os.path.join(peers.work, "peer.zip")
    peers.ours_modify(update_path, package)
    peer = peers.peer_dump(package)
    check(canonical_core(peer["coreProperties"]) == canonical_core(update["coreProperties"]),
          "updated core properties: %s" % peer["coreProperties"])
    check(len([r for r in peer["relationships"] if r["type"] == CORE_TYPE]) == 1,
          "updated core properties: one relationship expected")


def case_non_ascii_relationship_targets(peers):
    """Relationships to parts with non-ASCII names, relative and absolute, from the package
    and from a part, written by each side and read by the other."""
    plan = {
        "parts": [
            {"name": "/docs/readme.txt", "contentType": "text/plain", "text": "hello"},
            {"name": "/docs/données/résumé.xml", "contentType": "application/xml",
             "text": "<r>é</r>"},
            {"name": "/媒体/图像.dat", "contentType": "application/x-opcvk-test",
             "text": "image"},
            {"name": "/é%20x.txt", "contentType": "text/plain", "text": "blank and accent"},
        ],
        "relationships": [
            {"source": "/", "id": "rId1", "type": MAIN_TYPE, "target": "docs/readme.txt"},
            {"source": "/", "id": "rId2", "type": LINK_TYPE, "target": "/媒体/图像.dat"},
            {"source": "/", "id": "rId3", "type": LINK_TYPE, "target": "é%20x.txt"},
            {"source": "/docs/readme.txt", "id": "rId1", "type": LINK_TYPE,
             "target": "données/résumé.xml"},
            {"source": "/docs/readme.txt", "id": "R7", "type": LINK_TYPE,
             "target": "../媒体/图像.dat"},
        ],
        "coreProperties": {"title": "ü"},
    }
    plan_path = write_plan(peers.work, "plan.json", plan, {})
    for writer in ("peer", "ours"):
        package = os.path.join(peers.work, writer + ".zip")
        (peers.ours_write if writer == "ours" else peers.peer_write)(plan_path, package)
        compare_with_plan("written by %s, read by ours" % writer, peers.ours_dump(package),
                          plan, {})
        compare_with_plan("written by %s, read by peer" % writer, peers.peer_dump(package),
                          plan, {})


def extension_of(path):
    base = posixpath.basename(path)
    return base.rsplit(".", 1)[1] if "." in base else ""


def case_file_system_manager_package(peers):
    """A package file system of about 200 files of several kinds, nested folders, links and
    an empty folder, made through FileSystemManager: the other implementation opens it and
    finds the manifest reached from the package, and one part for each file with the file's
    bytes under the content type that the catalogue gives for its extension.  Our reader
    finds the same file system again."""
    package = os.path.join(peers.work, "filesystem.zip")
    made = json.loads(run([peers.ours, "make", package]))
    files = made["files"]
    check(len(files) >= 200, "only %d files made" % len(files))
    check(len(made["links"]) >= 3 and made["folders"],
          "links or empty folders missing: %s %s" % (made["links"], made["folders"]))

    by_extension = {}
    for f in files:
        by_extension.setdefault(extension_of(f["path"]), set()).add(f["contentType"])
    for extension, types in by_extension.items():
        check(len(types) == 1, "extension %r made with several types: %s" % (extension, types))
    for extension, expected in REGISTERED_TYPES.items():
        check(by_extension.get(extension) == {expected},
              "catalogue gives %s for %r, expected %s" % (by_extension.get(extension),
                                                          extension, expected))
    check(len({f["contentType"] for f in files}) >= 5,
          "too few content types to tell parts apart: %s" % by_extension)

    peer = peers.peer_dump(package)
    manifest = peer["parts"].get(MANIFEST_PART)
    check(manifest is not None, "no %s among %d parts" % (MANIFEST_PART, len(peer["parts"])))
    check(manifest["contentType"] == MANIFEST_CONTENT_TYPE,
          "manifest content type %s" % manifest["contentType"])
    manifest_rels = [r for r in peer["relationships"]
                     if r["type"].endswith(MANIFEST_TYPE_SUFFIX)]
    check(len(manifest_rels) == 1 and manifest_rels[0]["source"] == "/" and
          manifest_rels[0]["mode"] == "Internal" and
          manifest_rels[0]["targetPart"] == MANIFEST_PART,
          "manifest relationships: %s" % manifest_rels)
    with zipfile.ZipFile(package) as archive:
        try:
            xml.etree.ElementTree.fromstring(archive.read(MANIFEST_PART[1:]))
        except xml.etree.ElementTree.ParseError as e:
            raise Failure("manifest is not well-formed XML: %s" % e)

    content = {name: info for name, info in peer["parts"].items() if name != MANIFEST_PART}
    check(len(content) == len(files),
          "%d content parts for %d files" % (len(content), len(files)))
    outside = sorted(name for name in content if not name.startswith("/fsroot/"))
    check(not outside, "content parts outside /fsroot: %s" % outside)
    # Multisets: two files share their bytes, and each needs a part of its own.
    parts = collections.Counter((i["sha256"], i["size"], i["contentType"])
                                for i in content.values())
    wanted = collections.Counter((f["sha256"], f["size"], f["contentType"]) for f in files)
    check(parts == wanted, "content parts differ from the files:\n  missing: %s\n  "
          "unexpected: %s" % (sorted(wanted - parts), sorted(parts - wanted)))

    listed = json.loads(run([peers.ours, "list", package]))
    for key in ("files", "folders", "links"):
        check(listed[key] == made[key], "read back, %s differ:\n  made %s\n  read %s" %
              (key, made[key], listed[key]))


EXTENDED_PARTS = {
    "/metadata/vkcoreProperties.xml": ("application/vnd.veltrance.package.coreProperties+xml",
                                       "/package/2012/relationships/coreProperties"),
    "/metadata/vkcorePropertiesExtension.xml": (
        "application/vnd.veltrance.package.corePropertiesExtension+xml",
        "/package/2014/relationships/corePropertiesExtension"),
    "/metadata/vkcorePropertiesReleaseInfo.xml": (
        "application/vnd.veltrance.package.corePropertiesReleaseInfo+xml",
        "/package/2019/relationships/corePropertiesReleaseInfo"),
}


def docx_core_values(package):
    """The standard core properties as python3-docx's own API gives them, in the keys of
    coreprops_peer."""
    from docx.opc.package import OpcPackage
    core = OpcPackage.open(package).core_properties

    def when(value):
        return value.strftime("%Y-%m-%dT%H:%M:%SZ") if value is not None else None

    return {"title": core.title, "creator": core.author, "description": core.comments,
            "category": core.category, "keywords": core.keywords,
            "revision": str(core.revision), "version": core.version,
            "lastModifiedBy": core.last_modified_by, "created": when(core.created),
            "modified": when(core.modified)}


def case_core_properties_manager_package(peers):
    """The standard core properties part that CorePropertiesManager writes is read by
    python3-docx with the same values, beside the three parts of the extended properties;
    a title changed and saved by python3-docx is read back by ours with the extended
    properties intact."""
    package = os.path.join(peers.work, "properties.zip")
    made = json.loads(run([peers.ours, "make", package]))
    check(made["uuid"] and made["created"], "no UUID or created time made: %s" % made)
    standard = {key: made[key] for key in ("title", "creator", "description", "category",
                                           "keywords", "revision", "version",
                                           "lastModifiedBy", "created", "modified")}
    read = docx_core_values(package)
    check(read == standard, "python3-docx reads other core properties:\n  ours %s\n  docx %s" %
          (standard, read))

    peer = peers.peer_dump(package)
    for name, (content_type, relationship) in EXTENDED_PARTS.items():
        part = peer["parts"].get(name)
        check(part is not None and part["contentType"] == content_type,
              "%s: %s" % (name, part))
        rels = [r for r in peer["relationships"] if r["type"].endswith(relationship)]
        check(len(rels) == 1 and rels[0]["source"] == "/" and rels[0]["targetPart"] == name,
              "%s relationships: %s" % (name, rels))

    from docx.opc.package import OpcPackage
    other = OpcPackage.open(package)
    other.core_properties.title = "changed by the peer"
    changed = os.path.join(peers.work, "changed.zip")
    other.save(changed)
    back = json.loads(run([peers.ours, "read", changed]))
    expected = dict(made, title="changed by the peer")
    check(back == expected, "read back after the peer's change:\n  expected %s\n  got      %s" %
          (expected, back))


CASES = {
    "ours_write_peer_read": case_ours_write_peer_read,
    "peer_write_ours_read": case_peer_write_ours_read,
    "modify_round_trip": case_modify_round_trip,
    "core_properties_both_ways": case_core_properties_both_ways,
    "non_ascii_relationship_targets": case_non_ascii_relationship_targets,
    "file_system_manager_package": case_file_system_manager_package,
    "core_properties_manager_package": case_core_properties_manager_package,
}


def main(argv):
    if len(argv) != 4 or argv[1] not in CASES:
        sys.stderr.write("usage: interop_test.py {%s} OURS WORK_FOLDER\n" %
                         "|".join(CASES))
        return 2
    try:
        import docx.opc.package  # noqa: F401
    except ImportError as e:
        print("SKIP: python3-docx is not available to %s (%s); install the Debian package "
              "python3-docx (scripts/setup-deps does)" % (sys.executable, e))
        return SKIP
    work = argv[3]
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(work)
    try:
        CASES[argv[1]](Peers(argv[2], work))
    except Failure as e:
        print("FAIL %s: %s" % (argv[1], e))
        return 1
    print("PASS %s" % argv[1])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
