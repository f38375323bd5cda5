#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Python benchmark: tidewell's module against the standard library's email
and against tidewell-import, on the benchmark corpus, in one run.

    PYTHONPATH=build/bindings/python/package /usr/bin/python3 bench/python_bench.py \
        --binary build/hosts/cli/tidewell-import [--corpus DIR] [--rounds 3] [--stdlib-share 10]

Every tool takes the same fields of every message: the subject, the
addresses of From, To, Cc and Bcc, the Date, the readable text and the
attachment names (the standard library: message_from_binary_file with
policy.default, get_body(("plain", "html")).get_content(), the address
headers' addresses, the date's datetime and every part's get_filename()).
Each row runs in a child process, so its CPU time and peak RSS are its own;
the rounds go round robin through the rows, so a busy spell of the machine
hits every row alike, and the table gives each row's fastest round. The
one-core rows run under `taskset -c 0` (the module's parse thread and the
Python thread that takes the fields share that core); the -j rows are not
pinned. The standard library reads every Nth message only (--stdlib-share),
as it would take minutes for all; its rate is per message all the same.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
MAKE_CORPUS = os.path.join(os.path.dirname(os.path.dirname(HERE)), "shared", "bench", "make_corpus.py")

STDLIB = r"""
import email, email.policy, sys, warnings
warnings.simplefilter("ignore")
paths = [line.rstrip("\n") for line in open(sys.argv[1])]
n = 0
for path in paths:
    with open(path, "rb") as f:
        m = email.message_from_binary_file(f, policy=email.policy.default)
    fields = [m["subject"] and str(m["subject"])]
    for name in ("from", "to", "cc", "bcc"):
        for value in m.get_all(name) or []:
            fields.append([(a.username, a.domain) for a in value.addresses])
    date = m["date"]
    fields.append(date and date.datetime)
    body = m.get_body(("plain", "html"))
    try:
        fields.append(body and body.get_content())
    except (LookupError, ValueError):
        pass
    fields.append([p.get_filename() for p in m.walk() if not p.is_multipart() and p.get_filename()])
    n += 1
print(n)
"""

BINDING = r"""
import sys, tidewell
jobs = int(sys.argv[1])
paths = [line.rstrip("\n") for line in open(sys.argv[2])]
n = 0
for m in tidewell.parse_many(paths, jobs=jobs):
    fields = (m.subject, m.from_, m.to, m.cc, m.bcc, m.date, m.text, [a.name for a in m.attachments])
    n += 1
print(n)
"""


def run(command):
    """Wall seconds, CPU seconds and peak RSS (MiB) of one child."""
    start = time.perf_counter()
    pid = subprocess.Popen(command, stdout=subprocess.DEVNULL).pid
    _, status, usage = os.wait4(pid, 0)
    wall = time.perf_counter() - start
    if status != 0:
        sys.exit(f"failed: {command[:4]}")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--binary", required=True)
    parser.add_argument("--corpus", default=os.path.join(os.environ.get("TMPDIR", "/tmp"), "tidewell-bench-corpus"))
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--stdlib-share", type=int, default=10)
    options = parser.parse_args()
    if not os.path.isdir(options.corpus):
        subprocess.run([sys.executable, MAKE_CORPUS, options.corpus, "--count", "20000", "--seed", "1"], check=True)
    paths = sorted(os.path.join(options.corpus, n) for n in os.listdir(options.corpus) if n.endswith(".eml"))
    sample = paths[::options.stdlib_share]
    size = sum(os.path.getsize(p) for p in paths)
    python, pin = sys.executable, ["taskset", "-c", "0"]
    # The Python rows read their paths from a file: tens of thousands of arguments would cost the
    # interpreter more memory than the parsing does.
    lists = tempfile.mkdtemp()
    everything, some = os.path.join(lists, "all"), os.path.join(lists, "sample")
    for name, chosen in ((everything, paths), (some, sample)):
        with open(name, "w") as f:
            f.write("".join(p + "\n" for p in chosen))
    rows = [
        ("email (stdlib), 1 core", len(sample), pin + [python, "-c", STDLIB, some]),
        ("tidewell-import -j 1, 1 core", len(paths), pin + [options.binary, "--json", "--quiet", "-j", "1",
                                                            options.corpus]),
        ("parse_many jobs=1, 1 core", len(paths), pin + [python, "-c", BINDING, "1", everything]),
        ("tidewell-import -j 1", len(paths), [options.binary, "--json", "--quiet", "-j", "1", options.corpus]),
        ("parse_many jobs=1", len(paths), [python, "-c", BINDING, "1", everything]),
        ("tidewell-import -j 2", len(paths), [options.binary, "--json", "--quiet", "-j", "2", options.corpus]),
        ("parse_many jobs=2", len(paths), [python, "-c", BINDING, "2", everything]),
        ("parse_many jobs=1, 1/10 of the messages", len(sample), [python, "-c", BINDING, "1", some]),
    ]
    best = {}
    try:
        measure(rows, options.rounds, best)
    finally:
        shutil.rmtree(lists)
    report(rows, best, paths, sample, size, options.rounds)


def measure(rows, rounds, best):
    for _ in range(rounds):
        for name, count, command in rows:
            wall, cpu, rss = run(command)
            old = best.get(name)
            if old is None or wall < old[0]:
                best[name] = (wall, cpu, rss, count)


def report(rows, best, paths, sample, size, rounds):
    print(f"{len(paths)} messages, {size / 1e6:.0f} MB; email reads {len(sample)} of them; "
          f"fastest of {rounds} rounds\n")
    print("| tool | messages | wall s | CPU s | messages/s (wall) | messages per CPU s | peak RSS MiB |")
    print("|---|---|---|---|---|---|---|")
    for name, _, _ in rows:
        wall, cpu, rss, count = best[name]
        print(f"| {name} | {count:,} | {wall:.2f} | {cpu:.2f} | {count / wall:,.0f} | {count / cpu:,.0f} | {rss:.0f} |")
    rate = {name: best[name][3] / best[name][0] for name in best}
    per_cpu = {name: best[name][3] / best[name][1] for name in best}
    print()
    for label, r in (("wall", rate), ("CPU", per_cpu)):
        print(f"by {label}: parse_many jobs=1 over email, one core: "
              f"{r['parse_many jobs=1, 1 core'] / r['email (stdlib), 1 core']:.1f}x; "
              f"over tidewell-import -j 1, one core: {r['parse_many jobs=1, 1 core'] / r['tidewell-import -j 1, 1 core']:.0%}; "
              f"unpinned: {r['parse_many jobs=1'] / r['tidewell-import -j 1']:.0%}")
    print(f"parse_many jobs=2 over jobs=1: {rate['parse_many jobs=2'] / rate['parse_many jobs=1']:.2f}x; "
          f"tidewell-import -j 2 over -j 1: {rate['tidewell-import -j 2'] / rate['tidewell-import -j 1']:.2f}x")
    with open("/proc/loadavg") as f:
        print(f"load average after: {f.read().split()[0]}")
    with open("/proc/pressure/cpu") as f:
        print(f"CPU pressure after: {f.readline().strip()}")


if __name__ == "__main__":
    main()
