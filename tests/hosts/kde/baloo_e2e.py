#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# End to end: Baloo's own indexer (baloo_file, which runs
# baloo_file_extractor) indexes messages with the plugin built here
# (QT_PLUGIN_PATH), and baloosearch finds them by a word of the body, by the
# sender's address and name, and by a recipient's address. Without the plugin
# Baloo indexes these files by name only and finds none of them.
#
#   baloo_e2e.py EXAMPLES_DIR PLUGIN_PATH
import os, sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
import private_session

PROBES = [(["baloosearch", query], "/" + name) for query, name in (
    ("harbour", "crlf-windows.eml"),
    ("ann.lee@example.com", "plain.eml"),
    ("Jürgen", "latin1-quoted-printable.eml"),
    ("facilities@example.org", "crlf-windows.eml"),
)]


def configure(root, mail):
    with open(os.path.join(root, "config", "baloofilerc"), "w") as rc:
        rc.write(f"[General]\nfolders[$e]={mail}/\nexclude folders[$e]=\nonly basic indexing=false\n"
                 "first run=false\n\n[Basic Settings]\nIndexing-Enabled=true\n")
    return {"QT_PLUGIN_PATH": sys.argv[2], "QT_QPA_PLATFORM": "offscreen"}


if __name__ == "__main__":
    if sys.argv[1] == "inner":
        sys.exit(private_session.inner(["baloo_file"], PROBES))
    sys.exit(private_session.outer(__file__, sys.argv[1], ("plain.eml", "crlf-windows.eml",
                                                          "latin1-quoted-printable.eml"), configure))
