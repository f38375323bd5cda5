#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Import benchmark: tidewell-import against GMime 3 and the physical floor.

    bench/run.py --binary build-bench/hosts/cli/tidewell-import [--corpus DIR]

Generates the benchmark corpus once (make_corpus.py --count 20000 --seed 1,
skipped when DIR already holds it), builds the two peers from bench/peers/
with cc (the GMime 3 program extracting the same attributes, and the floor:
open, fstat, mmap, one memchr pass, munmap per file), then times every tool
in one hyperfine run and prints one Markdown table: wall time, CPU time,
messages/s, MB/s, and each tool's time as a multiple of the floor's and of
GMime's. The one-core rows run under `taskset -c 0`; when tidewell-import
takes -j, rows for -j1 and -j2 are added without pinning. tidewell-import
is timed in its default reading and, when it has one, with --desktop.

Then it imports the largest messages one at a time and reports each import's
peak RSS above that of importing the smallest message, against the bound of
twice the file size plus 1 MiB.
"""
import argparse
import json
import os
import shlex
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
MAKE_CORPUS = os.path.join(os.path.dirname(SOURCE), "shared", "bench", "make_corpus.py")
MIB = 1 << 20


def corpus_files(corpus):
    return sorted(os.path.join(corpus, name) for name in os.listdir(corpus) if name.endswith(".eml"))


def ensure_corpus(corpus, count, seed):
    if os.path.isdir(corpus) and len(corpus_files(corpus)) == count:
        return
    print(f"generating {count} messages (seed {seed}) in {corpus}", file=sys.stderr)
    subprocess.run([sys.executable, MAKE_CORPUS, corpus, "--count", str(count), "--seed", str(seed)], check=True)


def build_peers(out):
    os.makedirs(out, exist_ok=True)
    gmime_flags = subprocess.run(["pkg-config", "--cflags", "--libs", "gmime-3.0"], check=True,
                                 stdout=subprocess.PIPE, text=True).stdout.split()
    peers = {}
    for name, extra in (("gmime_peer", gmime_flags), ("floor", []), ("peak_rss", [])):
        binary = os.path.join(out, name)
        subprocess.run(["cc", "-O2", "-Wall", "-Wextra", "-o", binary, os.path.join(HERE, "peers", name + ".c"),
                        *extra], check=True)
        peers[name] = binary
    return peers


def takes_jobs(binary):
    usage = subprocess.run([binary, "--help"], stdout=subprocess.PIPE, text=True).stdout
    return "-j" in usage.replace("--json", "")


def takes_desktop(binary):
    usage = subprocess.run([binary, "--help"], stdout=subprocess.PIPE, text=True).stdout
    return "--desktop" in usage


def hyperfine(commands, runs, warmup, export):
    argv = ["hyperfine", "--runs", str(runs), "--warmup", str(warmup), "--export-json", export, "--style", "basic"]
    for name, command in commands:
        argv += ["--command-name", name, command]
    subprocess.run(argv, check=True, stdout=sys.stderr)
    with open(export) as f:
        return {r["command"]: r for r in json.load(f)["results"]}


def table(results, messages, total_bytes):
    """One row a tool. Means are hyperfine's; "fastest" is each tool's
    least wall time of the runs, which other work on a shared machine
    can only lengthen, so its ratios are the steadier ones."""
    floor, gmime = results["floor"], results["gmime"]

    def cpu(r):
        return r["user"] + r["system"]

    rows = ["| tool | wall s (± sd) | fastest s | CPU s | messages/s | MB/s | wall / floor | CPU / floor "
            "| speed vs GMime (wall) | speed vs GMime (fastest) | speed vs GMime (CPU) |",
            "|---|---|---|---|---|---|---|---|---|---|---|"]
    for name, r in results.items():
        wall = r["mean"]
        rows.append(f"| {name} | {wall:.2f} (± {r['stddev'] or 0:.2f}) | {r['min']:.2f} | {cpu(r):.2f} | "
                    f"{messages / wall:,.0f} | {total_bytes / 1e6 / wall:,.0f} | {wall / floor['mean']:.2f}x | "
                    f"{cpu(r) / cpu(floor):.2f}x | {gmime['mean'] / wall:.2f}x | {gmime['min'] / r['min']:.2f}x | "
                    f"{cpu(gmime) / cpu(r):.2f}x |")
    return "\n".join(rows)


def peak_rss_kib(peak_rss, argv):
    return int(subprocess.run([peak_rss, *argv], check=True, stdout=subprocess.PIPE, text=True).stdout)


def rss_report(peak_rss, binary, files, count):
    by_size = sorted(files, key=os.path.getsize)
    baseline = peak_rss_kib(peak_rss, [binary, "--json", by_size[0]])
    worst_ratio, over = 0.0, []
    for path in by_size[-count:]:
        size = os.path.getsize(path)
        used = max(0, peak_rss_kib(peak_rss, [binary, "--json", path]) - baseline) * 1024
        bound = 2 * size + MIB
        worst_ratio = max(worst_ratio, used / bound)
        if used > bound:
            over.append((os.path.basename(path), size, used))
    lines = [f"peak RSS per import over the {count} largest messages "
             f"({os.path.getsize(by_size[-count]) / MIB:.1f} to {os.path.getsize(by_size[-1]) / MIB:.1f} MiB), "
             f"above the {baseline / 1024:.1f} MiB of importing the smallest: "
             f"at most {worst_ratio:.2f} of the bound 2 x size + 1 MiB"]
    lines += [f"  over the bound: {name} ({size} bytes) used {used} bytes" for name, size, used in over]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--binary", required=True, help="tidewell-import to time")
    parser.add_argument("--corpus", default=os.path.join(tempfile.gettempdir(), "tidewell-bench-corpus"))
    parser.add_argument("--count", type=int, default=20000)
    parser.add_argument("--seed", default="1")
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--warmup", type=int, default=1)
    parser.add_argument("--rss-count", type=int, default=50, help="how many of the largest messages to measure")
    parser.add_argument("--work", default=os.path.join(tempfile.gettempdir(), "tidewell-bench"))
    args = parser.parse_args()

    binary = os.path.abspath(args.binary)
    ensure_corpus(args.corpus, args.count, args.seed)
    files = corpus_files(args.corpus)
    total_bytes = sum(os.path.getsize(f) for f in files)
    peers = build_peers(os.path.join(args.work, "bin"))

    corpus = shlex.quote(args.corpus)
    one_core = "taskset -c 0 "
    commands = [("floor", one_core + f"{peers['floor']} {corpus}"),
                ("gmime", one_core + f"{peers['gmime_peer']} {corpus}")]
    # The default reading is what users get, so it has the plain rows; the
    # desktop reading (--desktop) is what the desktop-search host does with
    # each message, less work a message, and is timed beside it.
    readings = [("tidewell", "")]
    if takes_desktop(binary):
        readings.append(("tidewell --desktop", "--desktop "))
    for name, flag in readings:
        if takes_jobs(binary):
            commands += [(name, one_core + f"{binary} --json {flag}-j 1 {corpus}"),
                         (f"{name} -j1", f"{binary} --json {flag}-j 1 {corpus}"),
                         (f"{name} -j2", f"{binary} --json {flag}-j 2 {corpus}")]
        else:
            commands += [(name, one_core + f"{binary} --json {flag}{corpus}")]
    load_before = os.getloadavg()[0]
    results = hyperfine(commands, args.runs, args.warmup, os.path.join(args.work, "hyperfine.json"))

    print(f"{len(files)} messages, {total_bytes / 1e6:.0f} MB; {args.runs} runs after {args.warmup} warm-up; "
          f"load average before: {load_before:.1f}, after: {os.getloadavg()[0]:.1f}")
    print()
    print(table(results, len(files), total_bytes))
    for name, _ in readings:
        if f"{name} -j2" in results:
            one, two = results[f"{name} -j1"], results[f"{name} -j2"]
            print()
            print(f"{name}: -j2 over -j1: {one['mean'] / two['mean']:.2f}x "
                  f"(fastest runs: {one['min'] / two['min']:.2f}x)")
    print()
    print(rss_report(peers["peak_rss"], binary, files, args.rss_count))


if __name__ == "__main__":
    main()
