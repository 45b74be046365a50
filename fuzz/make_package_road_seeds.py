#!/usr/bin/env python3
"""Makes the seeds of the package_road fuzz target in fuzz/corpus/package_road/.

Each seed is a small package packed by opcvk from a tree made here, then written again with
every item stored uncompressed (same names, same order), so that the engine's mutations reach
the XML of the manifest, the content types and the relationships as text rather than as
deflated bytes.  A few crafted packages of the hostile corpus join them as they are.

    fuzz/make_package_road_seeds.py build/tools/opcvk/opcvk
"""
import os
import shutil
import subprocess
import sys
import tempfile
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "corpus", "package_road")


def tree_plain(root):
    os.makedirs(os.path.join(root, "a", "b"))
    os.makedirs(os.path.join(root, "empty"))
    with open(os.path.join(root, "a", "b", "c.bin"), "wb") as f:
        f.write(bytes(range(32)))
    with open(os.path.join(root, "notes.txt"), "w") as f:
        f.write("two\nlines\n")
    os.chmod(os.path.join(root, "notes.txt"), 0o640)
    os.symlink("a/b/c.bin", os.path.join(root, "link"))
    os.utime(os.path.join(root, "notes.txt"), (1600000000, 1600000000))


def tree_single(root):
    with open(os.path.join(root, "only"), "wb") as f:
        f.write(b"x")


def tree_empty(root):
    pass


SEEDS = [
    ("plain", tree_plain, []),
    ("plain_with_v1_manifest", tree_plain, ["--v1-manifest"]),
    ("single_file", tree_single, []),
    ("empty", tree_empty, []),
]


# Crafted packages of the hostile corpus that reach the file system's load and extraction
# (names that try to leave the destination, a manifest that names a path outside the root, a
# path deeper than the limit, files below a link, files on parts that hold no file),
# copied as they are.
HOSTILE = ["manifest_name_outside_root.opc", "name_dotdot.opc", "name_absolute.opc",
           "name_folder_of_relationships.opc", "manifest_name_too_deep.opc",
           "manifest_file_below_link_to_root.opc", "manifest_two_files_one_part.opc",
           "manifest_file_on_relationships_part.opc"]


def stored_copy(source, target):
    with zipfile.ZipFile(source) as zin, zipfile.ZipFile(target, "w", zipfile.ZIP_STORED) as zout:
        for info in zin.infolist():
            copy = zipfile.ZipInfo(info.filename, date_time=info.date_time)
            copy.compress_type = zipfile.ZIP_STORED
            copy.external_attr = info.external_attr
            zout.writestr(copy, zin.read(info))


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: make_package_road_seeds.py OPCVK")
    opcvk = sys.argv[1]
    os.makedirs(OUT, exist_ok=True)
    for name, make, flags in SEEDS:
        with tempfile.TemporaryDirectory() as work:
            root = os.path.join(work, "tree")
            os.makedirs(root)
            make(root)
            packed = os.path.join(work, "packed.opc")
            subprocess.run([opcvk, "pack", root, packed, "-q"] + flags, check=True)
            stored_copy(packed, os.path.join(OUT, name))
            print(name, os.path.getsize(os.path.join(OUT, name)))
    hostile = os.path.join(HERE, "..", "tests", "data", "hostile", "packages")
    for name in HOSTILE:
        shutil.copyfile(os.path.join(hostile, name), os.path.join(OUT, "hostile_" + name[:-4]))


if __name__ == "__main__":
    main()
