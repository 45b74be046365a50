#!/usr/bin/env python3
"""An independent OPC implementation as a peer for interoperability tests.

Drives the package layer of python3-docx (docx.opc), which reads and writes any OPC package,
with the same commands as opcmodel_peer:

  opc_peer.py dump PACKAGE        prints the package as canonical JSON
  opc_peer.py write PLAN PACKAGE  writes PACKAGE from a JSON description

The JSON forms are described in opcmodel_peer.cc.  python3-docx reaches parts only through
relationships, so the dump also lists the ZIP items that no relationship reaches, with their
content types from [Content_Types].xml, and reads their relationships the same way.
"""

import datetime
import hashlib
import json
import os
import sys

from docx.opc.constants import RELATIONSHIP_TYPE as RT
from docx.opc.constants import CONTENT_TYPE as CT
from docx.opc.package import OpcPackage
from docx.opc.packuri import PackURI, PACKAGE_URI
from docx.opc.part import Part
from docx.opc.parts.coreprops import CorePropertiesPart
from docx.opc.phys_pkg import PhysPkgReader
from docx.opc.pkgreader import PackageReader, _ContentTypeMap
from docx.opc.pkgwriter import PackageWriter
from docx.oxml.coreprops import CT_CoreProperties

NS = {
    "cp": "http://schemas.openxmlformats.org/package/2006/metadata/core-properties",
    "dc": "http://purl.org/dc/elements/1.1/",
    "dcterms": "http://purl.org/dc/terms/",
}
XML_LANG = "{http://www.w3.org/XML/1998/namespace}lang"

# Our property names and where each lives in the XML.
TEXT_PROPERTIES = {
    "category": "cp:category",
    "contentStatus": "cp:contentStatus",
    "contentType": "cp:contentType",
    "creator": "dc:creator",
    "description": "dc:description",
    "identifier": "dc:identifier",
    "language": "dc:language",
    "lastModifiedBy": "cp:lastModifiedBy",
    "revision": "cp:revision",
    "subject": "dc:subject",
    "title": "dc:title",
    "version": "cp:version",
}
TIME_PROPERTIES = {
    "created": ("dcterms:created", "created"),
    "modified": ("dcterms:modified", "modified"),
    "lastPrinted": ("cp:lastPrinted", "last_printed"),
}
# The properties that python3-docx sets through its own API.
DOCX_TEXT_SETTERS = {
    "category": "category",
    "contentStatus": "content_status",
    "creator": "author",
    "description": "comments",
    "identifier": "identifier",
    "language": "language",
    "lastModifiedBy": "last_modified_by",
    "subject": "subject",
    "title": "title",
    "version": "version",
}


def clark(name):
    prefix, local = name.split(":")
    return "{%s}%s" % (NS[prefix], local)


def iso(dt):
    return dt.strftime("%Y-%m-%dT%H:%M:%SZ")


def dump_core_properties(package):
    try:
        part = package.part_related_by(RT.CORE_PROPERTIES)
    except KeyError:
        return None
    core = part.core_properties
    element = core._element
    out = {}
    for key, name in TEXT_PROPERTIES.items():
        child = element.find(clark(name))
        if child is not None:
            out[key] = child.text or ""
    for key, (name, attribute) in TIME_PROPERTIES.items():
        child = element.find(clark(name))
        if child is None:
            continue
        value = getattr(core, attribute)
        # python3-docx gives None for a date it cannot read; say so rather than drop it.
        out[key] = iso(value) if value is not None else "unreadable:" + (child.text or "")
    keywords = element.find(clark("cp:keywords"))
    if keywords is not None:
        values = keywords.findall(clark("cp:value"))
        if not values:
            text = keywords.text or ""
            out["keywords"] = text if text else []
        else:
            out["keywords"] = [[v.text or "", v.get(XML_LANG, keywords.get(XML_LANG, ""))]
                               for v in values]
    return out


def relationship_entries(source, srels):
    entries = []
    for srel in srels:
        entries.append({
            "source": source,
            "id": srel.rId,
            "type": srel.reltype,
            "target": srel.target_ref,
            "targetPart": None if srel.is_external else str(srel.target_partname),
            "mode": "External" if srel.is_external else "Internal",
        })
    return entries


def dump(path):
    # The whole package through python3-docx's own loader first: it must accept it.
    package = OpcPackage.open(path)
    reached = {str(p.partname) for p in package.iter_parts()}

    phys = PhysPkgReader(path)
    content_types = _ContentTypeMap.from_xml(phys.content_types_xml)
    names = []
    for item in phys._zipf.namelist():
        if item == "[Content_Types].xml" or item.endswith("/"):
            continue
        if item.endswith(".rels") and ("/_rels/" in "/" + item):
            continue
        names.append("/" + item)
    parts = {}
    relationships = relationship_entries("/", PackageReader._srels_for(phys, PACKAGE_URI))
    for name in names:
        uri = PackURI(name)
        blob = phys.blob_for(uri)
        parts[name] = {
            "contentType": content_types[uri],
            "size": len(blob),
            "sha256": hashlib.sha256(blob).hexdigest(),
        }
        relationships += relationship_entries(name, PackageReader._srels_for(phys, uri))
    phys.close()
    missing = reached - set(parts)
    if missing:
        raise SystemExit("parts reached by relationships but not in the archive: %s" % missing)
    json.dump({"parts": parts, "relationships": relationships,
               "coreProperties": dump_core_properties(package)},
              sys.stdout, indent=1, ensure_ascii=False)
    sys.stdout.write("\n")


def content_of(plan, folder):
    if "text" in plan:
        return plan["text"].encode("utf-8")
    with open(os.path.join(folder, plan["file"]), "rb") as f:
        return f.read()


def parse_time(text):
    return datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ")


def set_core_properties(part, plan):
    core = part.core_properties
    element = core._element
    for key, value in plan.items():
        if key in DOCX_TEXT_SETTERS:
            setattr(core, DOCX_TEXT_SETTERS[key], value)
        elif key in TIME_PROPERTIES:
            setattr(core, TIME_PROPERTIES[key][1], parse_time(value))
        elif key == "revision" and value.isdigit() and int(value) > 0:
            core.revision = int(value)
        elif key == "keywords" and isinstance(value, str):
            core.keywords = value
        else:
            # What python3-docx has no setter for is written as plain elements.
            from lxml import etree
            name = TEXT_PROPERTIES.get(key, "cp:keywords")
            child = etree.SubElement(element, clark(name))
            if isinstance(value, str):
                child.text = value
            else:
                for text, lang in value:
                    entry = etree.SubElement(child, clark("cp:value"))
                    entry.text = text
                    if lang:
                        entry.set(XML_LANG, lang)


def write(plan_path, path):
    with open(plan_path, encoding="utf-8") as f:
        plan = json.load(f)
    folder = os.path.dirname(os.path.abspath(plan_path))
    package = OpcPackage()
    parts = {}
    for part_plan in plan.get("parts", []):
        name = PackURI(part_plan["name"])
        parts[name] = Part(name, part_plan["contentType"], content_of(part_plan, folder), package)
    for rel in plan.get("relationships", []):
        source = package if rel["source"] == "/" else parts[PackURI(rel["source"])]
        external = rel.get("mode", "Internal") == "External"
        if external:
            target = rel["target"]
        else:
            base = "/" if rel["source"] == "/" else PackURI(rel["source"]).baseURI
            target = parts[PackURI.from_rel_ref(base, rel["target"])]
        source.rels.add_relationship(rel["type"], target, rel["id"], external)
    all_parts = list(parts.values())
    if "coreProperties" in plan:
        core_part = CorePropertiesPart(PackURI("/docProps/core.xml"), CT.OPC_CORE_PROPERTIES,
                                       CT_CoreProperties.new(), package)
        set_core_properties(core_part, plan["coreProperties"])
        package.relate_to(core_part, RT.CORE_PROPERTIES)
        all_parts.append(core_part)
    for part in all_parts:
        part.rels  # every part needs its relationship collection for the writer
    PackageWriter.write(path, package.rels, all_parts)


def main(argv):
    if len(argv) == 3 and argv[1] == "dump":
        dump(argv[2])
    elif len(argv) == 4 and argv[1] == "write":
        write(argv[2], argv[3])
    else:
        sys.stderr.write("usage: opc_peer.py dump PACKAGE | write PLAN PACKAGE\n")
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
