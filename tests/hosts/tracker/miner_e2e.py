#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# End to end: Tracker's own file miner indexes messages with the module built
# here (TRACKER_EXTRACTORS_DIR, TRACKER_EXTRACTOR_RULES_DIR), and tracker3
# finds them by a word of the body (plain or HTML), by the sender's address,
# by each recipient's address (one contact per mailbox of a list) and by the
# name of an attachment. GSettings come from a key file; the miner refuses
# to index folders under the temporary directory, so TMPDIR points elsewhere.
#
#   miner_e2e.py EXAMPLES_DIR
import os, sys

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
import private_session

SPARQL = ["tracker3", "sparql", "--dbus-service", "org.freedesktop.Tracker3.Miner.Files", "-q"]
SENDER = "SELECT ?f { ?m nco:creator/nco:hasEmailAddress/nco:emailAddress '%s' ; nie:isStoredAs ?f }"
RECIPIENT = "SELECT ?f { ?m nco:contributor/nco:hasEmailAddress/nco:emailAddress '%s' ; nie:isStoredAs ?f }"
CONTACTS = ("SELECT (COUNT(DISTINCT ?c) AS ?n) { ?m nie:isStoredAs ?f ; nco:contributor ?c . "
            "FILTER (STRENDS(STR(?f), '/several-recipients.eml')) FILTER NOT EXISTS { ?m nco:creator ?c } }")
ATTACHMENT = "SELECT ?f { ?m nie:hasPart/nfo:fileName '%s' ; nie:isStoredAs ?f }"
SEARCH = ["tracker3", "search", "--disable-color", "--disable-snippets"]
PROBES = (  # a command, a text its answer must hold
    (SEARCH + ["harbour"], "crlf-windows.eml"),
    (SPARQL + [SENDER % "ann.lee@example.com"], "plain.eml"),
    (SPARQL + [SENDER % "marta.kowalska@example.com"], "crlf-windows.eml"),
    # Three recipients in one To list: three contacts, each found by its address.
    (SPARQL + [RECIPIENT % "bob@example.org"], "several-recipients.eml"),
    (SPARQL + [RECIPIENT % "ann.lee@example.com"], "several-recipients.eml"),
    (SPARQL + [RECIPIENT % "joerg@example.de"], "several-recipients.eml"),
    (SPARQL + [CONTACTS], "4"),
    # "Gull" stands only in the HTML body of an html-only message.
    (SEARCH + ["Gull"], "html-only.eml"),
    (SPARQL + [ATTACHMENT % "invoice-2025-1042.pdf"], "mixed-attachment.eml"),
    (SPARQL + [ATTACHMENT % "Dy\u017cury listopad 2025.csv"], "several-recipients.eml"),
)
FILES = ("plain.eml", "crlf-windows.eml", "crlf-quoted-printable.eml", "several-recipients.eml", "html-only.eml",
         "mixed-attachment.eml")


def configure(root, mail):
    settings = os.path.join(root, "config", "glib-2.0", "settings")
    os.makedirs(settings)
    os.makedirs(os.path.join(root, "tmp"))
    with open(os.path.join(settings, "keyfile"), "w") as keyfile:
        keyfile.write(f"[org/freedesktop/tracker/miner/files]\nindex-recursive-directories=['{mail}']\n"
                      "index-single-directories=@as []\nindex-applications=false\n")
    return {"TMPDIR": os.path.join(root, "tmp"), "GSETTINGS_BACKEND": "keyfile"}


if __name__ == "__main__":
    if sys.argv[1] == "inner":
        sys.exit(private_session.inner(["/usr/libexec/tracker-miner-fs-3", "--initial-sleep=0"], PROBES))
    sys.exit(private_session.outer(__file__, sys.argv[1], FILES, configure))
