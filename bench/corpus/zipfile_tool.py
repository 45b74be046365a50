#!/usr/bin/python3
"""Python's zipfile as one of the archivers in bench/archivers.py, one phase per process.

    zipfile_tool.py create SRC ARCHIVE    # ZIP_DEFLATED, level 6
    zipfile_tool.py list ARCHIVE          # namelist(), one name a line
    zipfile_tool.py extract ARCHIVE DEST  # extractall()

create stores folders as folder entries (so empty ones come back) and symbolic links as
Unix link entries (mode in the external attributes, target as content), as zip -y does.
extractall() knows nothing of links, modes or times: links come back as small files holding
their targets, and that is what the benchmark is meant to show of it.
"""

import os
import stat
import sys
import time
import zipfile


def add_tree(archive, src):
    def walk(folder, prefix):
        with os.scandir(folder) as it:
            entries = sorted(it, key=lambda e: e.name)
        for entry in entries:
            name = prefix + entry.name
            st = entry.stat(follow_symlinks=False)
            if stat.S_ISLNK(st.st_mode):
                info = zipfile.ZipInfo(name, date_time=time.localtime(st.st_mtime)[:6])
                info.create_system = 3
                info.external_attr = (st.st_mode & 0xFFFF) << 16
                archive.writestr(info, os.readlink(entry.path), compress_type=zipfile.ZIP_STORED)
            elif stat.S_ISDIR(st.st_mode):
                archive.write(entry.path, name + "/")
                walk(entry.path, name + "/")
            elif stat.S_ISREG(st.st_mode):
                archive.write(entry.path, name, compress_type=zipfile.ZIP_DEFLATED, compresslevel=6)

    walk(src, "")


def main():
    if len(sys.argv) < 3 or sys.argv[1] not in ("create", "list", "extract"):
        sys.exit(__doc__)
    command = sys.argv[1]
    if command == "create":
        with zipfile.ZipFile(sys.argv[3], "w", zipfile.ZIP_DEFLATED, compresslevel=6) as archive:
            add_tree(archive, sys.argv[2])
    elif command == "list":
        with zipfile.ZipFile(sys.argv[2]) as archive:
            out = sys.stdout
            for name in archive.namelist():
                out.write(name + "\n")
    else:
        with zipfile.ZipFile(sys.argv[2]) as archive:
            archive.extractall(sys.argv[3])


if __name__ == "__main__":
    main()
