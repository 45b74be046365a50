#!/usr/bin/env python3
"""Encrypted package file systems against an independent implementation of their format.

Usage: encrypted_interop_test.py CASE ENCRYPTED_FS_PEER WORK_DIR

The other side is this script: Python's zipfile for the package, python3-cryptography's
AESGCM (with the 16-byte IVs that packages use) for the content, hmac and hashlib for the
part names, and ElementTree for the manifest.

  ours_write_peer_read   encrypted_fs_peer makes an encrypted package; this script finds the
                         manifest from the package relationship, decrypts it, checks every
                         file's part name (the HMAC-SHA-256 of the UTF-16LE percent-encoded
                         path), that the part is stored, that its content type is the plain one
                         with "encryption=AES256-GCM;iv=inline", and decrypts it to the bytes
                         that were made.
  peer_write_ours_read   this script encrypts a plain package made by encrypted_fs_peer into a
                         package of its own making, and encrypted_fs_peer reads it back with the
                         key (and refuses another key).

Exits 0 when all agree, 1 with the differences, 77 (skipped) when python3-cryptography is not
installed for this interpreter.
"""

import hashlib
import hmac
import json
import os
import posixpath
import subprocess
import sys
import urllib.parse
import xml.etree.ElementTree as ElementTree
import zipfile

SKIP = 77

try:
    from cryptography.exceptions import InvalidTag
    from cryptography.hazmat.primitives.ciphers.aead import AESGCM
except ImportError:
    print("SKIP: python3-cryptography is not installed")
    sys.exit(SKIP)

SCHEMA_BASE = "http://schemas.opcvkservices.org"
MANIFEST_RELATIONSHIP = SCHEMA_BASE + "/package/2013/relationships/filesystemManifest"
MANIFEST_NAMESPACE = SCHEMA_BASE + "/package/2013/filesystemManifest"
MANIFEST_TYPE = "application/vnd.veltrance.package.filesystemManifest+xml"
PARAMETERS = ";encryption=AES256-GCM;iv=inline"
RELATIONSHIPS_NS = "http://schemas.openxmlformats.org/package/2006/relationships"
TYPES_NS = "http://schemas.openxmlformats.org/package/2006/content-types"
KEY = bytes(range(32))
OTHER_KEY = bytes(range(1, 33))


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def run(args, expect=0):
    result = subprocess.run(args, capture_output=True, check=False)
    check(result.returncode == expect,
          "%s exited %d, expected %d: %s" % (args, result.returncode, expect,
                                              result.stderr.decode(errors="replace")))
    return result.stdout.decode()


def hidden_name(key, path):
    encoded = urllib.parse.quote(path, safe="/+@")
    return "/fsroot/" + hmac.new(key, encoded.encode("utf-16-le"), hashlib.sha256).hexdigest()


def seal(key, plaintext):
    iv = os.urandom(16)
    return iv + AESGCM(key).encrypt(iv, plaintext, None)


def unseal(key, stored):
    check(len(stored) >= 32, "an encrypted part of %d bytes" % len(stored))
    return AESGCM(key).decrypt(stored[:16], stored[16:], None)


def content_types(archive):
    root = ElementTree.fromstring(archive.read("[Content_Types].xml"))
    defaults = {e.get("Extension").lower(): e.get("ContentType")
                for e in root.findall("{%s}Default" % TYPES_NS)}
    overrides = {urllib.parse.unquote(e.get("PartName")).lower(): e.get("ContentType")
                 for e in root.findall("{%s}Override" % TYPES_NS)}

    def type_of(part):
        if part.lower() in overrides:
            return overrides[part.lower()]
        extension = posixpath.splitext(part)[1][1:].lower()
        return defaults.get(extension)
    return type_of


def manifest_part(archive):
    root = ElementTree.fromstring(archive.read("_rels/.rels"))
    targets = [r.get("Target") for r in root.findall("{%s}Relationship" % RELATIONSHIPS_NS)
               if r.get("Type") == MANIFEST_RELATIONSHIP]
    check(len(targets) == 1, "manifest relationships: %s" % targets)
    return targets[0]


def zip_name(part):
    # A part name is already in its escaped form, which is the ZIP item name.
    return part[1:]


def sha256(data):
    return hashlib.sha256(data).hexdigest()


def case_ours_write_peer_read(peer, work):
    package = os.path.join(work, "ours.opc")
    made = json.loads(run([peer, "make", KEY.hex(), package]))
    with zipfile.ZipFile(package) as archive:
        type_of = content_types(archive)
        manifest = manifest_part(archive)
        check(type_of(manifest) == MANIFEST_TYPE + PARAMETERS,
              "manifest content type %s" % type_of(manifest))
        document = ElementTree.fromstring(unseal(KEY, archive.read(zip_name(manifest))))
        entries = {e.get("name"): e for e in document.findall("{%s}fileEntry" % MANIFEST_NAMESPACE)}

        for item in made["files"]:
            entry = entries.get(item["path"])
            check(entry is not None and entry.get("type") == "File",
                  "no file entry for %s" % item["path"])
            part = entry.get("content")
            check(part == hidden_name(KEY, item["path"]),
                  "%s is in %s, not in the part its name digests to" % (item["path"], part))
            info = archive.getinfo(zip_name(part))
            check(info.compress_type == zipfile.ZIP_STORED,
                  "%s is compressed (method %d)" % (part, info.compress_type))
            check(type_of(part) == item["contentType"] + PARAMETERS,
                  "%s has the content type %s" % (part, type_of(part)))
            stored = archive.read(info)
            plain = unseal(KEY, stored)
            check(len(plain) == item["size"] and sha256(plain) == item["sha256"],
                  "%s does not decrypt to the bytes made" % item["path"])
            flipped = bytearray(stored)
            flipped[len(flipped) // 2] ^= 0x10
            try:
                unseal(KEY, bytes(flipped))
                raise Failure("a flipped bit in %s went unnoticed" % part)
            except InvalidTag:
                pass
        for link in made["links"]:
            entry = entries.get(link["path"])
            check(entry is not None and entry.get("type") == "SymLink" and
                  entry.get("content") == link["target"], "link %s" % link)
        for folder in made["folders"]:
            check(entries.get(folder) is not None and entries[folder].get("type") == "Folder",
                  "folder %s" % folder)
        # Nothing of a path shows in the archive.
        for name in archive.namelist():
            for word in ("docs", "media", "notes", "résumé", "readme", "tilde"):
                check(word not in name, "%s gives a path away" % name)


def encrypt_package(plain_path, encrypted_path, key):
    """Our own writer of the format: every file's part encrypted under a random IV and renamed
    to its digest, the manifest rewritten with the new names and encrypted.  Large parts are
    deflated, which the format allows as any ZIP reader does."""
    with zipfile.ZipFile(plain_path) as plain:
        type_of = content_types(plain)
        manifest = manifest_part(plain)
        document = ElementTree.fromstring(plain.read(zip_name(manifest)))
        parts = {}
        for entry in document.findall("{%s}fileEntry" % MANIFEST_NAMESPACE):
            if entry.get("type") != "File":
                continue
            old = entry.get("content")
            new = hidden_name(key, entry.get("name"))
            parts[new] = (seal(key, plain.read(zip_name(old))), type_of(old) + PARAMETERS)
            entry.set("content", new)
        text = ElementTree.tostring(document, encoding="utf-8", xml_declaration=True)
        parts[manifest] = (seal(key, text), MANIFEST_TYPE + PARAMETERS)
        relationships = plain.read("_rels/.rels")

    overrides = "".join('<Override PartName="%s" ContentType="%s"/>' % (name, kind)
                        for name, (_, kind) in sorted(parts.items()))
    types = ('<?xml version="1.0" encoding="UTF-8"?><Types xmlns="%s">'
             '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.'
             'relationships+xml"/>%s</Types>' % (TYPES_NS, overrides))
    with zipfile.ZipFile(encrypted_path, "w") as archive:
        archive.writestr("[Content_Types].xml", types, compress_type=zipfile.ZIP_DEFLATED)
        archive.writestr("_rels/.rels", relationships, compress_type=zipfile.ZIP_DEFLATED)
        for name, (data, _) in sorted(parts.items()):
            method = zipfile.ZIP_DEFLATED if len(data) > 60000 else zipfile.ZIP_STORED
            archive.writestr(zip_name(name), data, compress_type=method)


def case_peer_write_ours_read(peer, work):
    plain = os.path.join(work, "plain.opc")
    encrypted = os.path.join(work, "theirs.opc")
    made = json.loads(run([peer, "make", "-", plain]))
    encrypt_package(plain, encrypted, KEY)
    listed = json.loads(run([peer, "list", KEY.hex(), encrypted]))
    for key in ("files", "folders", "links"):
        check(listed[key] == made[key], "read back, %s differ:\n  made %s\n  read %s" %
              (key, made[key], listed[key]))
    run([peer, "list", OTHER_KEY.hex(), encrypted], expect=1)


CASES = {
    "ours_write_peer_read": case_ours_write_peer_read,
    "peer_write_ours_read": case_peer_write_ours_read,
}


def main(argv):
    if len(argv) != 4 or argv[1] not in CASES:
        print("usage: %s %s ENCRYPTED_FS_PEER WORK_DIR" % (argv[0], "|".join(CASES)))
        return 2
    os.makedirs(argv[3], exist_ok=True)
    try:
        CASES[argv[1]](argv[2], argv[3])
    except Failure as failure:
        print("FAIL: %s" % failure)
        return 1
    print("ok")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
