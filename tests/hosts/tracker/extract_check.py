#!/usr/bin/env python3
"""Runs the real tracker-extract-3 over message files with the module built here.

Called inside a private session bus (dbus-run-session), with
TRACKER_EXTRACTORS_DIR and TRACKER_EXTRACTOR_RULES_DIR pointing into the build
tree, so the installed system is neither used nor touched.

  extract_check.py examples EXTRACT EXAMPLES_DIR
      subject and body words of the examples, CR LF ones included
  extract_check.py after-merge EXTRACT EXAMPLES_DIR TIDEWELL_IMPORT
      contacts, dates and decoded text; each group runs only when the core
      already gives it (asked through tidewell-import); exit 77 (skipped)
      when a group could not run yet
  extract_check.py corpus EXTRACT CORPUS_DIR
      every message goes through the module without a crash or a timeout
"""
import concurrent.futures
import json
import os
import subprocess
import sys

TIMEOUT = 30  # tracker-extract's own per-file deadline
SKIPPED = 77


def extract(tool, path):
    """The JSON-LD tracker-extract prints for path, or an error text."""
    try:
        run = subprocess.run([tool, "--file", path, "--output-format=json-ld"], capture_output=True,
                             timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        return None, f"{path}: no result within {TIMEOUT} s"
    if run.returncode != 0:
        return None, f"{path}: tracker-extract exited with {run.returncode}: {run.stderr.decode(errors='replace')}"
    try:
        return json.loads(run.stdout), None
    except ValueError:
        return None, f"{path}: no metadata: {run.stderr.decode(errors='replace')}"


def values(node, prop):
    value = node.get(prop, [])
    return value if isinstance(value, list) else [value]


def literal(value):
    return value.get("@value") if isinstance(value, dict) else value


def contacts(node, prop):
    """(fullname, email address IRI, email address) for every contact under prop."""
    found = []
    for contact in values(node, prop):
        name = literal(contact.get("nco:fullname")) if isinstance(contact, dict) else None
        emails = values(contact, "nco:hasEmailAddress") if isinstance(contact, dict) else []
        email = emails[0] if emails else {}
        found.append((name, email.get("@id"), literal(email.get("nco:emailAddress"))))
    return found


class checker_t:
    def __init__(self):
        self.failures = []

    def equal(self, what, got, expected):
        if got != expected:
            self.failures.append(f"{what}: got {got!r}, expected {expected!r}")

    def contains(self, what, text, part):
        if not isinstance(text, str) or part not in text:
            self.failures.append(f"{what}: {part!r} not in {text!r}")

    def finish(self):
        for failure in self.failures:
            print("FAIL", failure)
        return 1 if self.failures else 0


# Subject and words of the body text.
EXAMPLES = {
    "plain.eml": ("Agenda for Thursday's planning meeting", "Hiring plan for the importer team"),
    "crlf-windows.eml": ("Parking permits for the new office", "the garage gate code is 4711"),
    "crlf-quoted-printable.eml": ("Résumé of the lighthouse survey", "La lanterne doit être repeinte"),
}


def check_examples(tool, folder):
    check = checker_t()
    for name, (subject, words) in EXAMPLES.items():
        doc, error = extract(tool, os.path.join(folder, name))
        if error:
            check.failures.append(error)
            continue
        check.equal(f"{name} type", values(doc, "@type"), ["nfo:TextDocument"])
        if subject:
            check.equal(f"{name} title", literal(doc.get("nie:title")), subject)
            check.equal(f"{name} subject", literal(doc.get("nie:subject")), subject)
        check.contains(f"{name} text", literal(doc.get("nie:plainTextContent")), words)
        # CR LF files must come out as lines, not as one header block.
        check.contains(f"{name} text is past the headers", literal(doc.get("nie:plainTextContent")) or "", "\n")
        if "\r\n" in (literal(doc.get("nie:plainTextContent")) or ""):
            check.failures.append(f"{name}: CR LF left in the text")
    return check.finish()


def core_gives(tidewell_import, path, attribute):
    run = subprocess.run([tidewell_import, "--json", "--crlf", path], capture_output=True, timeout=TIMEOUT)
    return attribute in json.loads(run.stdout.splitlines()[0])["attributes"]


def check_after_merge(tool, folder, tidewell_import):
    check = checker_t()
    docs = {}
    for name in ("plain.eml", "crlf-windows.eml", "crlf-quoted-printable.eml", "latin1-quoted-printable.eml"):
        docs[name], error = extract(tool, os.path.join(folder, name))
        if error:
            check.failures.append(error)
            return check.finish()
    skipped = []
    probe = os.path.join(folder, "plain.eml")

    if core_gives(tidewell_import, probe, "kMDItemAuthors"):
        check.equal("plain creator", contacts(docs["plain.eml"], "nco:creator"),
                    [("Ann Lee", "mailto:ann.lee@example.com", "ann.lee@example.com")])
        check.equal("plain contributor", contacts(docs["plain.eml"], "nco:contributor"),
                    [("Bob Marsh", "mailto:bob@example.org", "bob@example.org")])
        check.equal("crlf creator", contacts(docs["crlf-windows.eml"], "nco:creator"),
                    [("Marta Kowalska", "mailto:marta.kowalska@example.com", "marta.kowalska@example.com")])
        check.equal("crlf contributors", contacts(docs["crlf-windows.eml"], "nco:contributor"),
                    [("Bob Marsh", "mailto:bob@example.org", "bob@example.org"),
                     (None, "mailto:facilities@example.org", "facilities@example.org")])
        check.equal("crlf qp contributor", contacts(docs["crlf-quoted-printable.eml"], "nco:contributor"),
                    [("Lee, Ann", "mailto:ann.lee@example.com", "ann.lee@example.com")])
    else:
        skipped.append("contacts")

    if core_gives(tidewell_import, probe, "kMDItemContentCreationDate"):
        for name, sent in (("plain.eml", "2025-10-14T07:12:40Z"), ("crlf-windows.eml", "2025-10-06T18:03:55Z"),
                           ("crlf-quoted-printable.eml", "2025-10-02T11:45:21Z")):
            check.equal(f"{name} date", literal(docs[name].get("nie:contentCreated")), sent)
        check.equal("plain received", literal(docs["plain.eml"].get("nie:informationElementDate")),
                    "2025-10-14T07:12:44Z")
    else:
        skipped.append("dates")

    if core_gives(tidewell_import, os.path.join(folder, "latin1-quoted-printable.eml"), "kMDItemSubject") and \
            "=?" not in (literal(docs["latin1-quoted-printable.eml"].get("nie:title")) or "=?"):
        check.equal("latin1 title", literal(docs["latin1-quoted-printable.eml"].get("nie:title")),
                    "Protokoll der Sitzung über die Änderungen")
        check.contains("latin1 text", literal(docs["latin1-quoted-printable.eml"].get("nie:plainTextContent")),
                       "Grüße aus München!")
        qp = docs["crlf-quoted-printable.eml"]
        check.equal("crlf qp title", literal(qp.get("nie:title")), "Résumé of the lighthouse survey")
        check.contains("crlf qp text", literal(qp.get("nie:plainTextContent")),
                       "La lanterne doit être repeinte avant l'hiver.")
        check.equal("crlf qp creator", contacts(qp, "nco:creator")[:1],
                    [("Renée Dubois", "mailto:renee.dubois@example.net", "renee.dubois@example.net")])
    else:
        skipped.append("decoding")

    status = check.finish()
    if status == 0 and skipped:
        print("not checked yet, the core lacks:", ", ".join(skipped))
        return SKIPPED
    return status


def check_corpus(tool, folder):
    paths = sorted(os.path.join(root, name) for root, _, names in os.walk(folder) for name in names)
    if not paths:
        print("no corpus at", folder)
        return SKIPPED
    check = checker_t()
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(2, os.cpu_count() or 2)) as pool:
        for path, (doc, error) in zip(paths, pool.map(lambda p: extract(tool, p), paths)):
            if error:
                check.failures.append(error)
            elif values(doc, "@type") != ["nfo:TextDocument"]:
                check.failures.append(f"{path}: not extracted by the module: {doc.get('@type')!r}")
    print(f"{len(paths)} messages, {len(check.failures)} failures")
    return check.finish()


def main(argv):
    mode = argv[1]
    if mode == "examples":
        return check_examples(argv[2], argv[3])
    if mode == "after-merge":
        return check_after_merge(argv[2], argv[3], argv[4])
    if mode == "corpus":
        return check_corpus(argv[2], argv[3])
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
