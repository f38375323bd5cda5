#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The SHA-256 of every tidewell-import --json record over examples/ and the
shared corpus (when there), per reading, against tests/data/digests.tsv: any
change to any attribute of any message shows, and no message is copied.
  digests.py --binary B [--update]   compare (or rewrite), listing what changed
"""
import argparse
import hashlib
import json
import os
import subprocess
import sys

READINGS = {
    "desktop": ["--desktop"],
    "crlf": ["--desktop", "--crlf"],
    "full": [],
}

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
TABLE = os.path.join(HERE, "data", "digests.tsv")
SHARED = os.path.join(os.path.dirname(SOURCE), "shared")


def records(binary, args, cwd, root):
    out = subprocess.run([binary, "--json", *args, root], cwd=cwd, check=False,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    for line in out.splitlines():
        path = json.loads(line)["path"]
        yield path, hashlib.sha256(line).hexdigest()


def current(binary, with_corpus):
    table = {}
    for reading, args in READINGS.items():
        sources = [(SOURCE, "examples")]
        if with_corpus:
            sources.append((SHARED, "corpus/messages"))
        for cwd, root in sources:
            for path, digest in records(binary, args, cwd, root):
                table[(reading, path)] = digest
    return table


def load():
    table = {}
    if os.path.exists(TABLE):
        with open(TABLE, encoding="utf-8") as f:
            for line in f:
                reading, path, digest = line.rstrip("\n").split("\t")
                table[(reading, path)] = digest
    return table


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binary", required=True)
    parser.add_argument("--update", action="store_true")
    options = parser.parse_args()
    options.binary = os.path.abspath(options.binary)

    with_corpus = os.path.isdir(os.path.join(SHARED, "corpus", "messages"))
    if not with_corpus:
        print("digests: no shared corpus beside the checkout; checking examples only")
    now = current(options.binary, with_corpus)
    old = load()
    if not with_corpus:
        old = {k: v for k, v in old.items() if not k[1].startswith("corpus/")}

    changed = sorted(k for k in now.keys() & old.keys() if now[k] != old[k])
    added = sorted(now.keys() - old.keys())
    removed = sorted(old.keys() - now.keys())
    for label, keys in (("changed", changed), ("new", added), ("gone", removed)):
        for reading, path in keys:
            print(f"{label}\t{reading}\t{path}")

    if options.update:
        with open(TABLE, "w", encoding="utf-8") as f:
            for (reading, path), digest in sorted(now.items()):
                f.write(f"{reading}\t{path}\t{digest}\n")
        print(f"digests: wrote {len(now)} records ({len(changed)} changed, {len(added)} new, {len(removed)} gone)")
        return 0
    bad = len(changed) + len(added) + len(removed)
    print(f"digests: {len(now)} records, {bad} differ")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
