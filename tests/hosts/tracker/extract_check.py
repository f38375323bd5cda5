#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# The real tracker-extract-3 with the build tree's module, on a private session
# bus: every field of a CR LF example, or every corpus message through the
# module without a crash or a timeout; or messages as large as the module
# reads, each within tracker-extract's own deadline and with its contacts and
# attachments bounded; or a FIFO, which must not hang it.
#   extract_check.py examples|corpus EXTRACT FOLDER
#   extract_check.py bounds|fifo EXTRACT
import concurrent.futures, json, os, subprocess, sys, tempfile, time

# file: title, sent, received, creators, contributors, words of the text.
# HTML text: miner_e2e.py; a repeated mailbox's contacts: resource_test.cc.
EXAMPLES = {
    "crlf-windows.eml": ("Parking permits for the new office", "2025-10-06T18:03:55Z", "2025-10-06T18:04:12Z",
                         "Marta Kowalska <mailto:marta.kowalska@example.com>",
                         "Bob Marsh <mailto:bob@example.org>, <mailto:facilities@example.org>",
                         "the garage gate code is 4711"),
}


DEADLINE = 30  # tracker-extract's own deadline for a file, in seconds
READ_BOUND = 64 << 20  # what the module reads of a file at most


def extract(tool, path, mime=None):
    # The JSON-LD tracker-extract prints for path, or an error text.
    try:
        mime_option = [f"--mime={mime}"] if mime else []
        run = subprocess.run([tool, "--file", path, "--output-format=json-ld"] + mime_option, capture_output=True,
                             timeout=DEADLINE)
        if run.returncode == 0 and run.stdout.strip():
            return json.loads(run.stdout), None
        return None, f"{path}: no metadata, exit {run.returncode}: {run.stderr.decode(errors='replace')}"
    except (subprocess.TimeoutExpired, ValueError) as error:
        return None, f"{path}: {error}"


def contacts(doc, prop):
    # "fullname <address IRI>" of each contact.
    return ", ".join(f"{c.get('nco:fullname', '')} <{c.get('nco:hasEmailAddress', [{}])[0].get('@id')}>".strip()
                     for c in doc.get(prop, []))


def check_examples(tool, folder):
    failures = []
    for name, (title, sent, received, creators, contributors, words) in EXAMPLES.items():
        doc, error = extract(tool, os.path.join(folder, name))
        if error:
            failures.append(error)
            continue
        text = doc.get("nie:plainTextContent", "")
        got = (doc.get("@type"), doc.get("nie:title"), doc.get("nie:subject"), doc.get("nie:contentCreated"),
               doc.get("nie:informationElementDate"), contacts(doc, "nco:creator"), contacts(doc, "nco:contributor"),
               words if words in text and "\r\n" not in text else text)
        expected = ("nfo:TextDocument", title, title, sent, received, creators, contributors, words)
        failures += [f"{name}: got {got!r},\n  expected {expected!r}"] if got != expected else []
    return failures


def check_corpus(tool, folder):
    paths = sorted(os.path.join(root, name) for root, _, names in os.walk(folder) for name in names)
    failures = [] if paths else [f"no messages in {folder}"]
    # Each run mostly waits for tracker-extract to start: twice as many as cores.
    with concurrent.futures.ThreadPoolExecutor(max_workers=2 * (os.cpu_count() or 2)) as pool:
        for path, (doc, error) in zip(paths, pool.map(lambda p: extract(tool, p), paths)):
            if error or doc.get("@type") != "nfo:TextDocument":
                failures.append(error or f"{path}: not extracted by the module: {doc.get('@type')!r}")
    print(f"{len(paths)} messages, {len(failures)} failures")
    return failures


def recipients_message(path):
    # From, then To with as many named mailboxes as the read bound holds.
    with open(path, "w") as out:
        out.write("From: Harbour Desk <desk@example.org>\nSubject: Everyone\nTo: Reader 0 <reader0@example.org>")
        for i in range(1, 1_500_000):
            out.write(f",\n Reader {i} <reader{i}@example.org>")
        out.write("\nContent-Type: text/plain; charset=utf-8\n\nThe harbour opens at dawn.\n")


def attachments_message(path):
    # A multipart of 600,000 one-byte attachments.
    part = "--b\nContent-Type: application/octet-stream\nContent-Disposition: attachment; filename=\"file-{}.bin\"\n\nx\n"
    with open(path, "w") as out:
        out.write("From: desk@example.org\nSubject: Files\nContent-Type: multipart/mixed; boundary=b\n\n"
                  "--b\nContent-Type: text/plain\n\nSee the files.\n")
        for i in range(600_000):
            out.write(part.format(i))
        out.write("--b--\n")


def subject_message(path):
    # A subject of about 60 MiB, folded.
    line = "word " * 15
    with open(path, "w") as out:
        out.write("From: desk@example.org\nSubject: " + "\n ".join([line] * ((60 << 20) // (len(line) + 2))) +
                  "\n\nBody.\n")


def last(doc, prop, key):
    # key of the last value of prop, as a list of at most one.
    return [item.get(key) for item in doc.get(prop, [])][-1:]


def recipients_summary(doc):
    text = doc.get("nie:plainTextContent", "")
    return (len(doc.get("nco:creator", [])), len(doc.get("nco:contributor", [])),
            last(doc, "nco:contributor", "nco:fullname"), text.startswith("Reader 999 <reader999@example.org>\n"),
            text.endswith("\n\nThe harbour opens at dawn.\n"))


def attachments_summary(doc):
    return len(doc.get("nie:hasPart", [])), last(doc, "nie:hasPart", "nfo:fileName")


def subject_summary(doc):
    title = doc.get("nie:title", "")
    return len(title.encode()), title[:10], doc.get("nie:subject") == title, doc.get("nie:plainTextContent")


# file: how to write it, what to read of its result, and what that must be.
# 1,000 contacts, From first: 999 of To; the first of To past them in the
# text, ahead of the body. 1,000 attachments. The subject cut to 64 KiB.
BOUNDED = {
    "recipients.eml": (recipients_message, recipients_summary, (1, 999, ["Reader 998"], True, True)),
    "attachments.eml": (attachments_message, attachments_summary, (1000, ["file-999.bin"])),
    "subject.eml": (subject_message, subject_summary, (64 << 10, "word word ", True, "Body.\n")),
}


def check_bounds(tool, _):
    # Messages as large as the module reads, each to be extracted inside the
    # host's own deadline (extract gives up at it), with what it gives bounded.
    failures = []
    with tempfile.TemporaryDirectory(prefix="tidewell-bounds-") as folder:
        for name, (write, summary, expected) in BOUNDED.items():
            path = os.path.join(folder, name)
            write(path)
            size = os.path.getsize(path)
            if size > READ_BOUND:
                failures.append(f"{name}: {size} bytes, past the read bound")
            started = time.monotonic()
            doc, error = extract(tool, path)
            print(f"{name}: {size} bytes in {time.monotonic() - started:.1f} s")
            got = error or summary(doc)
            failures += [f"{name}: got {got!r},\n  expected {expected!r}"] if got != expected else []
            os.remove(path)
    return failures


def check_fifo(tool, _):
    # A FIFO named like mail, as the module's own type: it must come back with
    # what can be read at once, with no writer or with one that never ends.
    failures = []
    with tempfile.TemporaryDirectory(prefix="tidewell-fifo-") as folder:
        path = os.path.join(folder, "pipe.eml")
        os.mkfifo(path)
        doc, error = extract(tool, path, "message/rfc822")
        got = error or (doc.get("@type"), doc.get("nie:title"))
        failures += [f"no writer: got {got!r}"] if got != ("nfo:TextDocument", None) else []
        # Opened for writing too, so the pipe has a writer that never closes it.
        writer = os.open(path, os.O_RDWR)
        try:
            os.write(writer, b"Subject: Half a message\n")
            doc, error = extract(tool, path, "message/rfc822")
        finally:
            os.close(writer)
        got = error or (doc.get("@type"), doc.get("nie:title"))
        failures += [f"open writer: got {got!r}"] if got != ("nfo:TextDocument", "Half a message") else []
    return failures


if __name__ == "__main__":
    checks = {"examples": check_examples, "corpus": check_corpus, "bounds": check_bounds, "fifo": check_fifo}
    failures = checks[sys.argv[1]](sys.argv[2], sys.argv[3] if len(sys.argv) > 3 else None)
    print("\n".join(f"FAIL {failure}" for failure in failures))
    sys.exit(1 if failures else 0)
