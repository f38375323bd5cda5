#!/usr/bin/env python3
"""Checks the plug-in bundle's information list and metadata schema.

They are only used on the Mac, so this is where a typo in them would
otherwise go unnoticed: the list must parse, name this build's factory for
the importer type with the right function, claim the mail content type, and
have every variable substituted; the schema must parse and list every
attribute the importer writes for that content type.

Usage: check_bundle_files.py Info.plist schema.xml FACTORY-UUID
"""
import plistlib
import sys
import xml.etree.ElementTree as ElementTree

IMPORTER_TYPE = "8B08C4BF-415B-11D8-B3F9-0003936726FC"
CONTENT_TYPE = "com.apple.mail.email"
ATTRIBUTES = {
    "kMDItemSubject", "kMDItemDisplayName", "kMDItemTextContent", "kMDItemContentCreationDate",
    "com_apple_mail_dateReceived", "kMDItemAuthors", "kMDItemAuthorEmailAddresses", "kMDItemRecipients",
    "kMDItemRecipientEmailAddresses",
}


def check(condition, message):
    if not condition:
        print("FAIL:", message)
        sys.exit(1)


def main(plist_path, schema_path, factory):
    with open(plist_path, "rb") as f:
        raw = f.read()
    check(b"${" not in raw and b"@" not in raw, "unsubstituted variable in the information list")
    info = plistlib.loads(raw)
    check(info.get("CFPlugInFactories") == {factory: "MetadataImporterPluginFactory"}, "factory entry")
    check(info.get("CFPlugInTypes") == {IMPORTER_TYPE: [factory]}, "importer type entry")
    check(info.get("CFBundlePackageType") == "BNDL", "package type")
    roles = [(t.get("CFBundleTypeRole"), t.get("LSItemContentTypes")) for t in info.get("CFBundleDocumentTypes", [])]
    check(roles == [("MDImporter", [CONTENT_TYPE])], "document types: %r" % roles)
    for key in ("CFBundleExecutable", "CFBundleIdentifier", "CFBundleName", "CFBundleVersion"):
        check(isinstance(info.get(key), str) and info[key], "empty " + key)

    namespace = {"md": "http://www.apple.com/metadata"}
    schema = ElementTree.parse(schema_path).getroot()
    types = schema.findall("md:types/md:type", namespace)
    check([t.get("name") for t in types] == [CONTENT_TYPE], "schema content type")
    listed = set(types[0].findtext("md:allattrs", "", namespace).split())
    check(listed == ATTRIBUTES, "schema attributes: %r" % sorted(listed ^ ATTRIBUTES))
    declared = {a.get("name"): a.get("type") for a in schema.findall("md:attributes/md:attribute", namespace)}
    check(declared == {"com_apple_mail_dateReceived": "CFDate"}, "declared attributes: %r" % declared)
    print("ok")


if __name__ == "__main__":
    main(*sys.argv[1:])
