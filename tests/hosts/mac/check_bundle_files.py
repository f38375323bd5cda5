#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# The bundle's information list and schema, used only on the Mac, must parse,
# name this build's factory and the mail type, and list exactly the attributes
# the core writes.  check_bundle_files.py Info.plist schema.xml attributes.h UUID
import plistlib, re, sys
import xml.etree.ElementTree as ElementTree

plist_path, schema_path, attributes_path, factory = sys.argv[1:]
info = plistlib.loads(open(plist_path, "rb").read())
desktop = re.search(r"namespace attribute \{(.*?)\} // namespace attribute", open(attributes_path).read(), re.S)
written = set(re.findall(r'= "(\w+)";', desktop.group(1)))
md = {"md": "http://www.apple.com/metadata"}
schema = ElementTree.parse(schema_path).getroot()
checks = {
    "factory entry": info.get("CFPlugInFactories") == {factory: "MetadataImporterPluginFactory"},
    "importer type entry": info.get("CFPlugInTypes") == {"8B08C4BF-415B-11D8-B3F9-0003936726FC": [factory]},
    "document types": info.get("CFBundleDocumentTypes")
    == [{"CFBundleTypeRole": "MDImporter", "LSItemContentTypes": ["com.apple.mail.email"]}],
    "bundle names": all(info.get("CFBundle" + k) for k in ("Executable", "Identifier", "Name", "Version")),
    "schema types": [t.get("name") for t in schema.findall("md:types/md:type", md)] == ["com.apple.mail.email"],
    "schema attributes": set(schema.findtext("md:types/md:type/md:allattrs", "", md).split()) == written,
    "declared attributes": {a.get("name"): a.get("type") for a in schema.findall("md:attributes/md:attribute", md)}
    == {"com_apple_mail_dateReceived": "CFDate"},
}
failed = [name for name, ok in checks.items() if not ok]
sys.exit("FAIL: " + ", ".join(failed) if failed else 0)
