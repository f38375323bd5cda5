#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Throughput and peak memory of the importer on hostile message shapes.

Each shape is a generated message of about SIZE bytes built to stress one
parser: many shifts, unbalanced comments, many parts, one huge line, and so
on. Every shape is imported by its own run of the command-line host, so that
its peak RSS is its own; the realistic corpus (the shared corpus, one run over
the whole directory) is the yardstick. The table gives MB/s, how many times
slower per byte than the corpus each shape is, and peak RSS against the
budget of twice the file size plus 64 MiB. Rates are per CPU second (user
plus system) of one job, the least of three runs, so that other work on a
shared machine disturbs them little.

    bench/shapes.py --binary build/hosts/cli/tidewell-import [--size MB]
"""
import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

MIB = 1024 * 1024


def repeat_to(unit, size):
    return unit * max(1, size // len(unit))


def shapes(size):
    """(name, message bytes) of every shape, each about size bytes."""
    text = b"Subject: shape\nContent-Type: text/plain; charset=us-ascii\n\n"
    yield "iso-2022-jp escapes", (b"Subject: jis\nContent-Type: text/plain; charset=iso-2022-jp\n\n" +
                                  repeat_to(b"\x1b$B$3\x1b(Ba", size))
    yield "date (((( comments", b"Date: " + repeat_to(b"(", size) + b"\nSubject: x\n\nbody\n"
    yield "from (((( comments", b"From: " + repeat_to(b"(", size) + b"\nSubject: x\n\nbody\n"
    yield "nested comments", b"From: " + repeat_to(b"(a", size // 2) + repeat_to(b")", size // 2) + b"\n\nbody\n"
    parts = repeat_to(b"--b\nContent-Type: text/plain\n\nx\n", size)
    yield "multipart parts", (b"Subject: parts\nContent-Type: multipart/mixed; boundary=b\n\n" + parts + b"--b--\n")
    yield "boundary-prefix lines", (b"Subject: prefix\nContent-Type: multipart/mixed; boundary=boundary\n\n"
                                    b"--boundary\nContent-Type: text/plain\n\n" + repeat_to(b"--boundar\n", size) +
                                    b"--boundary--\n")
    yield "folded header", b"Subject: " + repeat_to(b"word\n ", size) + b"\n\nbody\n"
    yield "header without LF", b"Subject: " + repeat_to(b"x", size)
    yield "long line", text + repeat_to(b"x", size) + b"\n"
    yield "NUL bytes", text + repeat_to(b"\0", size)
    yield "bad uuencode", (b"Subject: uu\nContent-Type: text/plain\nContent-Transfer-Encoding: x-uuencode\n\n"
                           b"begin 644 f\n" + repeat_to(b"M~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~~\n", size) +
                           b"end\n")
    yield "base64 body", (b"Subject: b64\nContent-Type: text/plain\nContent-Transfer-Encoding: base64\n\n" +
                          repeat_to(b"aGVsbG8gd29ybGQgaGVsbG8gd29ybGQgaGVsbG8gd29ybGQgaGVsbG8gd29ybGQg\n", size))


def run(binary, paths, repeat=3):
    """(CPU seconds, peak RSS in bytes) of one host run over paths, on one
    job: the least CPU time of repeat runs, as other work on the machine only
    ever adds to it.

    GNU time measures the peak RSS: a child forked from this script would
    carry the script's own high-water mark (the generated shapes) into its
    figure. The CPU time (user plus system) comes from wait4, to the
    microsecond, rather than from GNU time's hundredths."""
    best = None
    for _ in range(repeat):
        with tempfile.NamedTemporaryFile("r") as report:
            child = subprocess.Popen(["/usr/bin/time", "-q", "-f", "%M", "-o", report.name, binary, "-j", "1",
                                      *map(str, paths)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            _, status, usage = os.wait4(child.pid, 0)
            child.returncode = os.waitstatus_to_exitcode(status)
            if child.returncode != 0:
                sys.exit(f"{binary} failed on {paths}")
            rss = int(report.read().split()[-1]) * 1024
        cpu = usage.ru_utime + usage.ru_stime
        best = (cpu, rss) if best is None else (min(best[0], cpu), max(best[1], rss))
    return best


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--binary", required=True)
    parser.add_argument("--size", type=float, default=16, help="MB per shape (default 16)")
    parser.add_argument("--corpus", default=str(Path(__file__).resolve().parent.parent / ".." / "shared" / "corpus" /
                                               "messages"))
    args = parser.parse_args()
    size = int(args.size * 1_000_000)

    corpus_bytes = sum(p.stat().st_size for p in Path(args.corpus).rglob("*") if p.is_file())
    seconds, rss = run(args.binary, [args.corpus])
    corpus_rate = corpus_bytes / seconds / 1e6
    print(f"| shape | size MB | MB per CPU s | slower than corpus | peak RSS MiB | RSS budget MiB |")
    print(f"|---|---|---|---|---|---|")
    print(f"| realistic corpus | {corpus_bytes / 1e6:.1f} | {corpus_rate:.1f} | 1.0x | {rss / MIB:.0f} | |")
    with tempfile.TemporaryDirectory() as directory:
        for name, message in shapes(size):
            path = Path(directory) / "shape.eml"
            path.write_bytes(message)
            seconds, rss = run(args.binary, [path])
            rate = len(message) / seconds / 1e6
            budget = (2 * len(message) + 64 * MIB) / MIB
            flag = "" if rss / MIB <= budget else " (over)"
            print(f"| {name} | {len(message) / 1e6:.1f} | {rate:.1f} | {corpus_rate / rate:.1f}x | "
                  f"{rss / MIB:.0f}{flag} | {budget:.0f} |")


if __name__ == "__main__":
    main()
