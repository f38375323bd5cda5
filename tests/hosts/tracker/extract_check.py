#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
# The real tracker-extract-3 with the build tree's module, on a private session
# bus: every field of the examples (CR LF ones included), or every corpus
# message through the module without a crash or a timeout.
#   extract_check.py examples|corpus EXTRACT FOLDER
import concurrent.futures, json, os, subprocess, sys

# file: title, sent, received, creators, contributors, words of the text
EXAMPLES = {
    "crlf-windows.eml": ("Parking permits for the new office", "2025-10-06T18:03:55Z", "2025-10-06T18:04:12Z",
                         "Marta Kowalska <mailto:marta.kowalska@example.com>",
                         "Bob Marsh <mailto:bob@example.org>, <mailto:facilities@example.org>",
                         "the garage gate code is 4711"),
    # One contact per mailbox of the list, the repeated one once; the group's
    # name and the empty group give none.
    "several-recipients.eml": ("Crew rota for November", "2025-11-03T07:15:00Z", None,
                               "Marta Kowalska <mailto:marta.kowalska@example.com>",
                               "Bob Marsh <mailto:bob@example.org>, Lee, Ann <mailto:ann.lee@example.com>, "
                               "Jörg Schäfer <mailto:joerg@example.de>, <mailto:desk@example.org>",
                               "Please check your shifts."),
    # The whole month name and the numeric zone; the text of the HTML body.
    "html-only.eml": ("Harbour News: the lighthouse reopens", "2025-06-12T21:42:00Z", None,
                      "Harbour News <mailto:news@harbour.example>", "<mailto:subscribers@harbour.example>",
                      "opens its doors again on Saturday 14 June."),
}


def extract(tool, path):
    # The JSON-LD tracker-extract prints for path, or an error text.
    try:
        # tracker-extract's own deadline for a file is 30 s.
        run = subprocess.run([tool, "--file", path, "--output-format=json-ld"], capture_output=True, timeout=30)
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


if __name__ == "__main__":
    failures = {"examples": check_examples, "corpus": check_corpus}[sys.argv[1]](sys.argv[2], sys.argv[3])
    print("\n".join(f"FAIL {failure}" for failure in failures))
    sys.exit(1 if failures else 0)
